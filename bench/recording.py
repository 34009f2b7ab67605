"""What recording costs beyond the driver, beside a bare write of the same bytes, and how far it goes."""
import os
import re
import shutil
import subprocess
import tempfile
import time

import report
from measure import CLIENT_CORE, FIRST_ADDRESS, Driver, Picture, Spread, cpu_seconds, datagrams, pinned, wait_until, write_config

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
        config = write_config(folder, picture, count, rate)
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

    def lost(self):
        """Ends the recording in good order; frames that were delivered and not kept."""
        self.process.terminate()
        self.process.wait()
        return sum(int(number) for number in re.findall(r": (\d+) frames (?:lost|not recorded)", open(self.log.name).read()))


def driver_cpu(bench, picture, count, rate, seconds, *keep_in):
    """Of the host without a job, or of one that writes what it gets into a folder."""
    channel = picture.channel.replace("Framerate='1001'", f"Framerate='{rate}'")
    driver = Driver(bench, channel, count, keep_in=keep_in)
    driver.wait_for("streaming")
    cpu, _ = window(driver, seconds)
    driver.end()
    return cpu


def window(contender, seconds):
    """CPU seconds per received datagram, and datagrams, while it runs as it always does."""
    time.sleep(0.7)
    before = cpu_seconds(contender.pid), datagrams()
    time.sleep(seconds)
    cpu, received = cpu_seconds(contender.pid) - before[0], datagrams() - before[1]
    return cpu / received, received


def bare_write(bench, folder, count, pieces, size):
    out = subprocess.run([f"{bench.build}/bench/bare_write", f"{folder}/bare", str(count), str(pieces), str(size)],
                         check=True, capture_output=True, preexec_fn=pinned(CLIENT_CORE))
    return float(out.stdout)


def round_of(bench, where, picture, count, rate, seconds):
    """CPU milliseconds a second at the same rate: driver, bare write, host that writes, recorder; MB a second."""
    folder = tempfile.mkdtemp(prefix="plendix-bench-", dir=where)
    try:
        driver = driver_cpu(bench, picture, count, rate, seconds)
        os.mkdir(f"{folder}/bare")
        writer = driver_cpu(bench, picture, count, rate, seconds, f"{folder}/bare")
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
        return (driver * per_second * 1e3, bare_cpu * 1e3, writer * per_second * 1e3, recorder_cpu * per_second * 1e3,
                written / took / 1e6)
    finally:
        shutil.rmtree(folder)


def compare(bench, rounds, seconds, say):
    """Driver, recorder and bare write, in milliseconds of CPU per second of the same video."""
    rows = []
    for label, count, rate, picture in CASES:
        cameras = bench.picture_cameras(picture, count)
        for where, name in (("/dev/shm", "memory"), (bench.build, "disk")):
            values = [round_of(bench, where, picture, count, rate, seconds) for _ in range(rounds)]
            driver, bare, writer, recorder, written = (Spread(column) for column in zip(*values))
            shares = (Spread([own / (alone + write) for alone, write, _, own, _ in values]),
                      Spread([own / both for _, _, both, own, _ in values]))
            rows.append([label, name, f"{written.median:.1f}", driver.text(0), bare.text(1), writer.text(0),
                         recorder.text(0), *(share.text() for share in shares)])
            say(", ".join(rows[-1]))
        cameras.terminate()
        cameras.wait()
    return rows


def limits(bench, seconds, say):
    """What one recorder takes of 255 cameras that send as fast as they can: its core is full."""
    rows = []
    for picture in [case[3] for case in CASES]:
        cameras = bench.picture_cameras(picture, 255)
        folder = tempfile.mkdtemp(prefix="plendix-bench-", dir="/dev/shm")
        try:
            recorder = Recorder(bench, picture, 255, 60, folder)
            time.sleep(1)
            before = recorder.bytes(), cpu_seconds(recorder.pid), time.monotonic()
            time.sleep(seconds)
            written, cpu, took = (after - old for after, old in zip(
                (recorder.bytes(), cpu_seconds(recorder.pid), time.monotonic()), before))
            movies = len(recorder.movies())
            lost = recorder.lost()
            rows.append([f"{picture.codec} {picture.width}x{picture.height}", f"{picture.bytes / 1000:.0f}",
                         f"{written / took / picture.bytes:.0f}", f"{written / took / 1e6:.0f}",
                         f"{cpu / took * 100:.0f}", lost])
            say(f"{rows[-1]}, {movies} files")
        finally:
            shutil.rmtree(folder)
            cameras.terminate()
            cameras.wait()
    return rows


def sizes(bench, say):
    """Bytes of a picture of the generated scene, which moves a little, by size and quality."""
    rows = []
    for width, height in ((640, 480), (1280, 960), (1920, 1440)):
        cameras = bench.cameras(1, f"{width}x{height}")
        for codec in ("jpeg", "h264"):
            row = [f"{codec} {width}x{height}"]
            for quality in (1, 4, 7, 10):
                row.append(f"{bytes_of_pictures(bench, codec, width, height, quality) / 1000:.1f}")
            rows.append(row)
            say(" ".join(row))
        cameras.terminate()
        cameras.wait()
    return rows


def bytes_of_pictures(bench, codec, width, height, quality):
    """On average, of a recording that contains several key frames."""
    folder = tempfile.mkdtemp(prefix="plendix-bench-", dir="/dev/shm")
    try:
        out = subprocess.run(
            [f"{bench.build}/tools/plendix", "record", FIRST_ADDRESS, "--codec", codec, "--size", f"{width}x{height}",
             "--rate", "30", "--quality", str(quality), "--duration", "4", "--no-check", "--output", folder + "/files"],
            preexec_fn=pinned(CLIENT_CORE), capture_output=True, text=True).stdout
        row = next(line.split() for line in out.splitlines() if re.match(r" +1 ", line))
        movie = next(f"{root}/{name}" for root, _, names in os.walk(folder) for name in names if name.endswith(".mkv"))
        return os.path.getsize(movie) / int(row[3])
    finally:
        shutil.rmtree(folder)


def markdown(bench, quick, say):
    rounds, seconds = (1, 0.5) if quick else (5, 2)
    return "\n".join([
        report.machine(rounds, seconds),
        report.table(["cameras", "files in", "MB/s", "driver", "bare write", "driver whose callback writes", "recorder",
                      "ratio to driver + write", "ratio to driver that writes"],
                     compare(bench, rounds, seconds, say)),
        report.table(["255 cameras", "KB a frame", "frames/s", "MB/s", "% of a core", "frames lost"],
                     limits(bench, seconds, say)),
        report.table(["KB a frame, generated scene", "quality 1", "4", "7", "10"], sizes(bench, say))])
