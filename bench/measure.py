"""Processes on cores of their own, and what they cost, measured from outside alike for all."""
import ctypes
import json
import math
import os
import random
import signal
import statistics
import subprocess
import tempfile
import time

FIRST_ADDRESS = "127.0.1.1"
CAMERA_CORE, CLIENT_CORE = 0, 1
BLOCK = 1450
LEAST_DATAGRAMS = 1000  # of a turn, however short: less is chance


def pinned(core):
    """For a child: its core, and its end when this process ends in whatever way."""
    core = core if core < os.cpu_count() else 0
    prctl = ctypes.CDLL(None).prctl

    def prepare():
        os.sched_setaffinity(0, {core})
        prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG

    return prepare


def cpu_seconds(pid):
    return time.clock_gettime(~pid << 3 | 2)  # CPUCLOCK_SCHED of the whole process


def datagrams():
    """Received so far by all sockets of this network namespace."""
    names, values = [line.split() for line in open("/proc/net/snmp") if line.startswith("Udp:")]
    return int(values[names.index("InDatagrams")])


def resident_kb(pid):
    return next(int(line.split()[1]) for line in open(f"/proc/{pid}/status") if line.startswith("VmRSS"))


def context_switches(pid):
    tasks = (open(f"/proc/{pid}/task/{task}/status") for task in os.listdir(f"/proc/{pid}/task"))
    return sum(int(line.split()[1]) for task in tasks for line in task if "ctxt_switches" in line)


def wait_until(condition, limit=120):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise SystemExit("bench: the cameras do not stream")
        time.sleep(0.002)


class Spread:
    """The median of some values and how far they lie apart; nothing where one of them is None."""

    def __init__(self, values):
        values = list(values)
        self.known = None not in values
        if self.known:
            self.median, self.low, self.high = statistics.median(values), min(values), max(values)

    def text(self, digits=2):
        if not self.known:
            return "too short to tell"
        return f"{self.median:.{digits}f} ({self.low:.{digits}f}–{self.high:.{digits}f})"


def surplus(full, base):
    """How much more the full runs took on average than the base runs; None where that is not clearly
    more than what runs of one kind differ by (three standard errors)."""
    difference = statistics.mean(full) - statistics.mean(base)
    error = math.sqrt(statistics.variance(full) / len(full) + statistics.variance(base) / len(base))
    return difference if difference > 3 * error else None


class Picture:
    """A noisy scene of the size that makes a picture of about the wanted bytes."""

    def __init__(self, label, codec, width, height, contrast):
        self.label, self.codec, self.width, self.height, self.contrast = label, codec, width, height, contrast
        area = f"res=full;x0=0;y0=0;x1={width};y1={height};"
        self.name = (f"image?{area}quality=20;doublescan=0;" if codec == "JPEG"
                     else f"h264?{area}qp=17;iframe=0;ssn=1;")
        self.channel = (f"Width='{width}' Height='{height}' Standard='{5 if codec == 'H.264' else 0}' "
                        "Framerate='1001' Quality='10'")
        self.bytes = self.blocks = 0  # of one picture; blocks with the trailer

    def write_scene(self, file):
        chance = random.Random(1)
        table = bytes(126 - self.contrast // 2 + i * self.contrast // 256 for i in range(256))
        with open(file, "wb") as scene:
            scene.write(f"YUV4MPEG2 W{self.width} H{self.height} F25:1 Ip A1:1 C420jpeg\n".encode())
            for _ in range(1 if self.codec == "JPEG" else 2):
                scene.write(b"FRAME\n" + chance.randbytes(self.width * self.height).translate(table))
                scene.write(b"\x80" * (self.width * self.height // 2))

    def set_bytes(self, size):
        self.bytes, self.blocks = size, -(-size // BLOCK) + 1


class Bench:
    """The built programs, in a scratch folder in memory: a busy disk would hold up the settings file."""

    def __init__(self, build):
        self.build, self.camera_core = build, CAMERA_CORE
        self.scratch = tempfile.TemporaryDirectory(prefix="plendix-bench-", dir="/dev/shm")
        self.folder = self.scratch.name

    def cameras(self, count, sensor, scene=None, *options):
        command = [f"{self.build}/tools/plendix", "camera", "--address", FIRST_ADDRESS, "--count", str(count),
                   "--sensor", sensor, *options] + (["--scene", scene] if scene else [])
        log = f"{self.folder}/cameras.log"
        with open(log, "w") as stderr:
            process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=stderr,
                                       preexec_fn=pinned(self.camera_core))
        wait_until(lambda: "Ctrl-C ends" in open(log).read())
        return process

    def picture_cameras(self, picture, count):
        """Cameras that show the picture, which they have coded already."""
        scene = f"{self.folder}/scene.y4m"
        picture.write_scene(scene)
        process = self.cameras(count, f"{picture.width}x{picture.height}", scene)
        fetched = f"{self.folder}/fetched"
        subprocess.run(peer_command("curl", picture.name, fetched), check=True)
        picture.set_bytes(os.path.getsize(fetched))
        floor = Floor(self, picture, 1)
        before = datagrams()
        wait_until(lambda: datagrams() - before > 2 * 40 * picture.blocks)
        floor.end()
        return process


def write_config(folder, picture, count, rate):
    """The name of a configuration file with the cameras of a fleet, as they send the picture."""
    config = f"{folder}/cameras.toml"
    with open(config, "w") as file:
        file.write(f'[defaults]\ncodec = "{"jpeg" if picture.codec == "JPEG" else "h264"}"\nrate = {rate}\n'
                   f'quality = 10\nsize = "{picture.width}x{picture.height}"\n')
        first = [int(part) for part in FIRST_ADDRESS.split(".")]
        for i in range(count):
            number = (first[2] << 8) + first[3] + i
            file.write(f'[[camera]]\naddress = "127.0.{number >> 8}.{number & 255}"\n')
    return config


class Contender:
    """A client that fetches as fast as it can, stopped except during its turn."""

    def __init__(self, command, **pipes):
        self.process = subprocess.Popen(command, preexec_fn=pinned(CLIENT_CORE), **pipes)
        self.pid = self.process.pid

    def stop(self):
        os.kill(self.pid, signal.SIGSTOP)

    def counts(self):
        return cpu_seconds(self.pid), datagrams(), context_switches(self.pid), time.monotonic()

    def turn(self, picture, seconds):
        """CPU microseconds per block, blocks per second and context switches per second."""
        os.kill(self.pid, signal.SIGCONT)
        time.sleep(seconds / 4)
        before = self.counts()
        time.sleep(seconds)
        wait_until(lambda: datagrams() - before[1] > LEAST_DATAGRAMS)
        after = self.counts()
        self.stop()
        cpu, received, switches, wall = (new - old for new, old in zip(after, before))
        # Of one picture the client receives the option acknowledgement and its blocks, the camera the
        # request and as many acknowledgements.
        blocks = received * picture.blocks / (2 * picture.blocks + 3)
        return cpu * 1e6 / blocks, blocks / wall, switches / wall

    def end(self):
        self.process.kill()
        self.process.wait()


class Floor(Contender):
    def __init__(self, bench, picture, count, *manner):
        super().__init__([f"{bench.build}/bench/floor_client", FIRST_ADDRESS, str(count), picture.name, *manner])


class Driver(Contender):
    def __init__(self, bench, channel, count, program="driver_host", keep_in=(), build=None, under=(),
                 address=FIRST_ADDRESS, folder=None):
        build = build or bench.build
        folder = folder or tempfile.mkdtemp(dir=bench.folder)  # the settings file is of this run
        super().__init__([*under, f"{build}/bench/{program}", f"{build}/src/Plendix.so", address, str(count),
                          channel, *keep_in], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=folder)
        self.count = count
        time.sleep(0.1)
        self.resident_before = resident_kb(self.pid)
        self.cpu_before = cpu_seconds(self.pid)
        self.tell("start")

    def tell(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def ask(self):
        self.tell("?")
        return json.loads(self.process.stdout.readline())

    def wait_for(self, what):
        wait_until(lambda: self.ask()[what] == self.count)

    def resident_growth_kb(self):
        return resident_kb(self.pid) - self.resident_before


def peer_command(peer, name, file):
    host = FIRST_ADDRESS
    return {"curl": ["curl", "-s", "--tftp-blksize", str(BLOCK), "-o", file,
                     f"tftp://{host}/{name.replace('?', '%3F')}"],
            "atftp": ["atftp", "--option", f"blksize {BLOCK}", "--get", "-r", name, "-l", file, host, "69"],
            "busybox": ["busybox", "tftp", "-g", "-b", str(BLOCK), "-r", name, "-l", file, host]}[peer]


def run_peer(peer, name):
    """CPU and wall seconds of one run."""
    begun = time.monotonic()
    process = subprocess.Popen(peer_command(peer, name, "/dev/null"), preexec_fn=pinned(CLIENT_CORE),
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        raise SystemExit(f"bench: {peer} ended with status {status}")
    process.returncode = 0
    return usage.ru_utime + usage.ru_stime, time.monotonic() - begun


def fetch_costs(peer, picture, times):
    """Seconds of CPU and of wall that fetching the picture takes beyond the start of the program, which
    is what fetching a register takes. None for what is lost in the scatter of so many runs."""
    registers, pictures = [], []
    for _ in range(times):  # in turn: what else the machine does hits both alike
        registers.append(run_peer(peer, "getreg?page=3;reg=122;"))
        pictures.append(run_peer(peer, picture.name))
    return [surplus(full, base) for full, base in zip(zip(*pictures), zip(*registers))]
