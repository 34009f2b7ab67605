"""One night: a recorder and its cameras as processes of their own, and all that can go wrong."""
import fcntl
import mmap
import os
import random
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time

from night_movie import Movie

UTC_2026 = 1795442400  # 2026-11-23 14:00, what the clock is corrected to
STEPS = (None, -5, -3600, 86400, 3, -86400, -UTC_2026)  # seconds; None: from 1970 to UTC_2026
LATE_STEPS = (None, -5, -3600, 3)  # after the last kill
FAULTS = "duplicate=0.2%,reorder=0.1%,delay=0.2%/300ms,garbage=0.1%,foreign=0.05%,wrong-block=0.05%,mac-change=0.01%"
STALLS = ",loss=0.05%,ack-loss=0.02%,error=0.01%"  # for ten seconds: too long for a short run
HANDLES = ("clock", "recorder", "fleet", "reader")  # of a Night: end with it


class Night:
    def __init__(self, chosen):
        self.seconds, self.cameras = chosen.seconds, chosen.cameras
        self.command, self.preload, self.folder = chosen.command, chosen.clock, chosen.folder
        self.long = self.seconds >= 300
        self.segment, self.rate = (10, 2) if self.long else (2, 10)  # seconds, pictures a second
        self.faults = FAULTS + (STALLS if self.long else "")
        self.random = random.Random(chosen.seed)
        self.disk, self.kept = f"{self.folder}/disk", f"{self.folder}/kept"
        self.root, self.filler = f"{self.disk}/recording", f"{self.disk}/foreign"
        self.disk_bytes = (400 << 20) if self.long else 8 << 20
        self.begun = time.monotonic()
        self.samples, self.steps, self.kills, self.fills, self.camera_faults = [], [], [], [], []
        self.waits, self.busy = {}, []  # nanoseconds for a processor by thread; from when until when, seconds
        self.movies, self.latest, self.here = {}, {}, set()  # by inode, which count up; the youngest by camera
        self.full_until, self.greedy, self.seed, self.copies = None, False, chosen.seed, random.Random(0)

    def prepare(self):
        """Disks, network, clock, and what recorder and cameras read."""
        for path, size in ((self.disk, self.disk_bytes), (self.kept, 4 << 30)):
            os.makedirs(path, exist_ok=True)
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "night", path], check=True)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
            fcntl.ioctl(any_socket, 0x8914, struct.pack("16sh14x", b"lo", 0x49))  # SIOCSIFFLAGS: up, running
        with open(f"{self.folder}/clock", "wb+") as file:
            file.write(bytes(8))
            file.flush()
            self.clock = mmap.mmap(file.fileno(), 8)
        self.set_clock(100)
        with open(f"{self.folder}/night.toml", "w") as file:
            file.write(f'[record]\noutput = "{self.root}"\nsegment = "{self.segment}s"\nkeep = "{6 * self.segment}s"\n'
                       f'keep_size = {self.disk_bytes * 9 // 10}\n[defaults]\nrate = {self.rate}\nsize = "320x240"\n')
            for i in range(self.cameras):
                codec = "h264" if i % 2 else "jpeg"
                file.write(f'[[camera]]\naddress = "127.0.1.{i + 1}"\ncodec = "{codec}"\n')
        with open(f"{self.folder}/scenario", "w") as file:
            last = max(1, self.seconds - 45)
            for i in range(1, self.cameras + 1) if self.long else ():
                for _ in range(0, last, 240):
                    file.write(f"{self.random.randint(0, last)}s {i} silent {('1s', '12s')[i % 2]}\n"
                               f"{self.random.randint(0, last)}s {i} reboot 2s\n")
            for fault in self.faults.split(",") if self.long else ():
                file.write(f"{last}s * {fault.split('=')[0]} 0%\n")
            file.write(f"{self.seconds // 2}s 1 silent 1s\n")

    def plan(self):
        """Moments, in seconds since the start, and what to do then."""
        def spread(count, begin, end):
            return [self.seconds * (begin + (end - begin) * (i + self.random.random()) / count) for i in range(count)]
        kills_end = 0.7 if self.long else 0.35  # a new process forgets what the old one did wrong
        steps = spread(max(5, self.seconds // 60), 0, 1)
        early = [moment for moment in steps if moment < 0.7 * self.seconds or not self.long]
        plan = [(moment, self.step, STEPS[i % len(STEPS)]) for i, moment in enumerate(early)]
        plan += [(moment, self.step, LATE_STEPS[i % 4]) for i, moment in enumerate(steps[len(early):])]
        plan += [(moment, self.kill, None) for moment in spread(max(2, self.seconds // 75), 0.1, kills_end)]
        for i, moment in enumerate(spread(max(1, self.seconds // 120), *((0.3, 0.8) if self.long else (0.36, 0.4)))):
            plan.append((moment, self.fill, (i % 2 == 0, self.random.uniform(3, 15) if self.long else 1.5)))
        return sorted(plan, key=lambda entry: entry[0])

    def now(self):
        return time.monotonic() - self.begun

    def set_clock(self, utc):
        moment = time.monotonic()
        self.clock[0:8] = struct.pack("q", int((utc - moment) * 1e9))  # at once: pack_into writes zeros before
        self.steps.append((moment - self.begun, utc - moment + self.begun))  # UTC at the start of the night

    def step(self, by):
        wall = self.now() + self.steps[-1][1]
        self.set_clock(UTC_2026 + self.now() if by is None else max(100, wall + by))

    def start_recorder(self):
        log = open(f"{self.folder}/recorder.log", "ab")
        self.recorder = subprocess.Popen(
            [self.command, "record", "--config", f"{self.folder}/night.toml"], stdout=log, stderr=log,
            env=dict(os.environ, LD_PRELOAD=self.preload, PLENDIX_WALL_CLOCK=f"{self.folder}/clock",
                     ASAN_OPTIONS="verify_asan_link_order=0"))

    def start_cameras(self):
        self.fleet = subprocess.Popen(
            [self.command, "camera", "--address", "127.0.1.1", "--count", str(self.cameras), "--sensor", "320x240",
             "--faults", self.faults, "--scenario", f"{self.folder}/scenario", "--seed", str(self.seed),
             "-v", "--json"], stderr=subprocess.PIPE, stdout=open(f"{self.folder}/cameras.json", "w"))
        self.reader = threading.Thread(target=self.read_faults)
        self.reader.start()

    def read_faults(self):
        for line in self.fleet.stderr:
            words = line.decode().split()
            if len(words) == 3 and words[1] == "fault":
                self.camera_faults.append((self.now(), int(words[0].split(".")[3]), words[2]))

    def kill(self, _):
        self.look()  # at all that is there before
        moment = self.now()
        self.recorder.kill()
        self.recorder.wait()
        for _, path in self.latest.values():  # and for some as a power cut would: the end is gone, or zeros
            if self.random.random() < 0.3 and os.path.exists(path):
                status = os.stat(path)
                os.truncate(path, max(0, status.st_size - self.random.randint(1, 400)))
                if self.random.random() < 0.5:
                    os.truncate(path, status.st_size)
                os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))
        self.start_recorder()
        self.kills.append((moment, self.now()))

    def fill(self, how):
        self.look()  # what is open now may have to go before it is seen closed
        for number, _ in self.latest.values():
            self.movies[number].load(closed=False)
        self.greedy, length = how
        self.full_until = self.now() + length
        self.fills.append([self.now(), self.full_until, self.greedy])
        self.refill()

    def refill(self):
        with open(self.filler, "ab") as file:
            for size in (1 << 20, 4 << 10):
                try:
                    while True:
                        os.posix_fallocate(file.fileno(), os.fstat(file.fileno()).st_size, size)
                except OSError:
                    pass

    def empty(self):
        os.remove(self.filler)
        self.full_until = None
        self.fills[-1][1] = self.now()

    def look(self):
        """Finds new movies, and reads those that are closed: they are not the youngest of their camera."""
        moment, found = self.now(), {}
        for camera in range(1, self.cameras + 1):
            youngest = (0, None)
            for folder, _, names in os.walk(f"{self.root}/camera-{camera}"):
                for entry in os.scandir(folder) if names else ():
                    if entry.name.endswith(".mkv"):
                        found[entry.inode()] = entry.path
                        youngest = max(youngest, (entry.inode(), entry.path))
            if youngest[1]:
                self.latest[camera] = youngest
        for number, path in found.items():
            movie = self.movies.setdefault(number, Movie(path, moment))
            if not movie.read and number != self.latest[movie.camera][0]:
                movie.load()
                if self.copies.random() < (0.04 if self.long else 0.3):
                    self.keep(movie)
        for number in self.here - set(found):
            self.movies[number].gone = moment
        self.here = set(found)

    def keep(self, movie):
        try:
            movie.copy = f"{self.kept}/{len(os.listdir(self.kept))}.mkv"
            shutil.copyfile(movie.path, movie.copy)
        except FileNotFoundError:
            movie.copy = None

    def note_waiting(self):
        """Cameras and recorder may have to wait for a processor: then pictures come late, or not."""
        before, self.waits = self.waits, {}
        for process in self.recorder.pid, self.fleet.pid:
            for thread in os.listdir(f"/proc/{process}/task"):
                with open(f"/proc/{process}/task/{thread}/schedstat") as file:
                    self.waits[thread] = int(file.read().split()[1])
        longest = max(waited - before.get(thread, waited) for thread, waited in self.waits.items())
        if longest > 5e8:
            self.busy.append((self.samples[-1][0] if self.samples else 0, self.now(), longest / 1e9))

    def sample(self):
        self.note_waiting()
        process = f"/proc/{self.recorder.pid}"
        resident = int(open(f"{process}/statm").read().split()[1]) * os.sysconf("SC_PAGESIZE") // 1024
        targets = []
        for number in os.listdir(f"{process}/fd"):
            try:
                targets.append(os.readlink(f"{process}/fd/{number}"))
            except FileNotFoundError:
                pass
        others = sum(not target.startswith(self.root + "/camera-") for target in targets)
        disk = os.statvfs(self.disk)
        used = (disk.f_blocks - disk.f_bfree) * disk.f_frsize
        if self.full_until:
            used -= os.path.getsize(self.filler)
        self.samples.append((round(self.now(), 1), self.recorder.pid, resident, len(targets), others, used))

    def run(self):
        self.start_cameras()
        self.start_recorder()
        plan, next_look = self.plan(), 1
        while self.now() < self.seconds:
            if plan and plan[0][0] <= self.now():
                _, action, value = plan.pop(0)
                action(value)
            if self.full_until and self.now() >= self.full_until:
                self.empty()
            elif self.full_until and self.greedy:
                self.refill()
            if self.recorder.poll() is not None:
                break
            if self.now() >= next_look:
                next_look += 1
                self.look()
                self.sample()
            time.sleep(0.05)
        self.stop()

    def stop(self):
        moment = self.now()
        self.recorder.send_signal(signal.SIGTERM)
        self.exit_code = self.recorder.wait(30)
        self.stopped_in = self.now() - moment
        self.fleet.send_signal(signal.SIGTERM)
        self.reader.join()
        self.fleet.wait()
        self.now_at_end = moment
        self.look()
        for movie in self.movies.values():
            if movie.gone is None and not movie.read:
                movie.load()
