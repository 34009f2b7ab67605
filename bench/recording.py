"""What recording costs beyond the driver, beside a bare write of the same bytes."""
import os
import shutil
import subprocess
import tempfile
import time

from measure import CLIENT_CORE, FIRST_ADDRESS, Driver, Picture, Spread, cpu_seconds, datagrams, pinned, wait_until

# Label, camera count, pictures a second and what they show.
CASES = [("1 large JPEG", 1, 5, Picture("1.9 MB", "JPEG", 2048, 1536, 215)),
         ("16 JPEG", 16, 10, Picture("300 KB", "JPEG", 832, 608, 200)),
         ("16 H.264", 16, 10, Picture("300 KB", "H.264", 832, 608, 60)),
         ("128 small JPEG", 128, 10, Picture("20 KB", "JPEG", 320, 256, 29)),
         ("128 small H.264", 128, 10, Picture("20 KB", "H.264", 320, 256, 14))]


class Recorder:
    """`plendix record` of the same cameras, in the settings of the host without a job."""

    def __init__(self, bench, picture, count, rate, folder):
        self.folder, self.count = folder, count
        config = f"{folder}/cameras.toml"
        with open(config, "w") as file:
            file.write(f'[defaults]\ncodec = "{"jpeg" if picture.codec == "JPEG" else "h264"}"\nrate = {rate}\n'
                       f'quality = 10\nsize = "{picture.width}x{picture.height}"\n')
            first = [int(part) for part in FIRST_ADDRESS.split(".")]
            for i in range(count):
                number = (first[2] << 8) + first[3] + i
                file.write(f'[[camera]]\naddress = "127.0.{number >> 8}.{number & 255}"\n')
        self.log = open(f"{folder}/log", "w")
        self.process = subprocess.Popen(
            [f"{bench.build}/tools/plendix", "record", "--config", config, "--output", f"{folder}/files", "--no-check"],
            preexec_fn=pinned(CLIENT_CORE), stdout=self.log, stderr=self.log)
        self.pid = self.process.pid
        wait_until(lambda: len(self.movies()) == count)

    def movies(self):
        return [f"{root}/{name}" for root, _, names in os.walk(f"{self.folder}/files") for name in names
                if name.endswith(".mkv")]

    def bytes(self):
        return sum(os.path.getsize(name) for name in self.movies())

    def end(self):
        self.process.kill()
        self.process.wait()


def start_driver(bench, picture, count, rate):
    driver = Driver(bench, picture.channel.replace("Framerate='1001'", f"Framerate='{rate}'"), count)
    driver.wait_for("streaming")
    return driver


def window(contender, seconds):
    """CPU seconds per received datagram, and datagrams, while it runs as it always does."""
    time.sleep(0.7)
    before = cpu_seconds(contender.pid), datagrams()
    time.sleep(seconds)
    cpu, received = cpu_seconds(contender.pid) - before[0], datagrams() - before[1]
    return cpu / received, received


def bare_write(bench, folder, count, pieces, size):
    os.mkdir(f"{folder}/bare")
    out = subprocess.run([f"{bench.build}/bench/bare_write", f"{folder}/bare", str(count), str(pieces), str(size)],
                         check=True, capture_output=True, preexec_fn=pinned(CLIENT_CORE))
    return float(out.stdout)


def round_of(bench, where, picture, count, rate, seconds):
    """CPU milliseconds a second of recording at the same rate: driver, recorder, bare write."""
    folder = tempfile.mkdtemp(prefix="plendix-bench-", dir=where)
    try:
        driver = start_driver(bench, picture, count, rate)
        driver_cpu, _ = window(driver, seconds)
        driver.end()
        recorder = Recorder(bench, picture, count, rate, folder)
        time.sleep(0.5)
        written = recorder.bytes()
        begun = time.monotonic()
        recorder_cpu, received = window(recorder, seconds)
        written, took = recorder.bytes() - written, time.monotonic() - begun
        recorder.end()
        pieces = round(seconds * rate)
        size = round(written / took / rate / count)
        bare_cpu = bare_write(bench, folder, count, pieces, size) / (pieces * count * size) * written / took
        per_second = received / seconds
        return (driver_cpu * per_second * 1e3, recorder_cpu * per_second * 1e3, bare_cpu * 1e3, written / took / 1e6)
    finally:
        shutil.rmtree(folder)


def measure(bench, rounds, seconds, say):
    rows = []
    for label, count, rate, picture in CASES:
        cameras = bench.picture_cameras(picture, count)
        for where, name in (("/dev/shm", "memory"), (f"{bench.build}", "disk")):
            values = [round_of(bench, where, picture, count, rate, seconds) for _ in range(rounds)]
            driver, recorder, bare, rate_mb = (Spread(column) for column in zip(*values))
            share = Spread([b / (a + c) for a, b, c, _ in values])
            rows.append((label, name, driver, recorder, bare, share, rate_mb))
            say(f"{label} {name}: driver {driver.text(1)} recorder {recorder.text(1)} bare write {bare.text(1)} "
                f"ms/s, ratio {share.text()}, {rate_mb.median:.1f} MB/s")
        cameras.terminate()
        cameras.wait()
    return rows
