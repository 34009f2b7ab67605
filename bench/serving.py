"""What `plendix serve` costs: with nobody watching, by viewers, and in time until a picture is there."""
import contextlib
import json
import os
import re
import selectors
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.request

import report
from measure import (CAMERA_CORE, CLIENT_CORE, Contender, Driver, Picture, Spread, cpu_seconds, pinned, resident_kb,
                     wait_until, write_config)
from wire import latencies

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
RATE = 20  # pictures a second of each camera
SMALL = Picture("20 KB", "JPEG", 320, 256, 29)
# What is watched, and the end of its address.
WATCHED = [(Picture("100 KB", "JPEG", 640, 480, 60), "mjpeg"), (Picture("20 KB", "H.264", 320, 256, 14), "mkv"),
           (Picture("20 KB", "H.264", 320, 256, 14), "mp4")]
CAMERAS = 4  # the watched one and three beside it
# Drawn anew for each picture, with the clock in it, by four cameras or less.
CLOCKED = [Picture("generated scene", codec, 800, 608, 0) for codec in ("JPEG", "H.264")]
READ = {"JPEG": ("/camera/1.mjpeg", "/camera/1.mkv", "/api/live/1"),
        "H.264": ("/camera/1.mkv", "/camera/1.mp4", "/api/live/1")}


class Server(Contender):
    """`plendix serve` of a row of cameras."""

    def __init__(self, bench, config):
        self.folder = os.path.dirname(config)
        super().__init__([f"{bench.build}/tools/plendix", "serve", "--config", config, "--listen", "127.0.0.1:0",
                          "--quiet"], stdout=subprocess.PIPE, text=True, cwd=self.folder)
        self.url = self.process.stdout.readline().strip()

    def cameras(self):
        return json.load(urllib.request.urlopen(f"{self.url}api/cameras"))["cameras"]

    def counters(self):
        """Of all cameras: what a server that holds up the driver would lose."""
        cameras = [camera["counters"] for camera in self.cameras()]
        return {name: sum(camera[name] for camera in cameras) for name in ("lost_blocks", "timeouts")}

    def wait_for(self):
        wait_until(lambda: all(camera["state"] == "live" for camera in self.cameras()))


class SessionHost(Contender):
    """`plendix record` without files."""

    def __init__(self, bench, config):
        super().__init__([f"{bench.build}/bench/session_host", config], stderr=subprocess.DEVNULL,
                         cwd=tempfile.mkdtemp(dir=bench.folder))


@contextlib.contextmanager
def fleet(bench, picture, count, drawn=False):
    """Cameras that show the picture, and the configuration file that names them."""
    cameras = (bench.cameras(count, f"{picture.width}x{picture.height}") if drawn
               else bench.picture_cameras(picture, count))
    folder = tempfile.mkdtemp(dir=bench.folder)
    try:
        yield write_config(folder, picture, count, RATE)
    finally:
        cameras.terminate()
        cameras.wait()
        shutil.rmtree(folder)


class Crowd:
    """A process with so many viewers of one stream, of whom some are connected and do not read."""

    def __init__(self, url, path, viewers, asleep):
        self.ours, theirs = socket.socketpair()
        self.pid = os.fork()
        if self.pid == 0:
            try:
                pinned(CAMERA_CORE)()
                watch(theirs, url, path, viewers, asleep)
            finally:
                os._exit(1)  # killed at its end
        theirs.close()

    def bytes(self):
        """Of all who read, so far."""
        self.ours.send(b"?")
        return int(self.ours.recv(64))

    def end(self):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)


def opened(url, path):
    """HTTP 1.0: what comes is the stream and nothing in between."""
    host, port = re.match(r"http://(.*):(\d+)/", url).groups()
    viewer = socket.create_connection((host, int(port)))
    viewer.send(f"GET {path} HTTP/1.0\r\nHost: {host}:{port}\r\n\r\n".encode())
    return viewer


def watch(control, url, path, viewers, asleep):
    """Reads whatever comes, and says how much when asked."""
    sockets = [opened(url, path) for _ in range(viewers)]
    chosen = selectors.DefaultSelector()
    for one in [control] + sockets[asleep:]:
        chosen.register(one, selectors.EVENT_READ)
    total, buffer = 0, bytearray(1 << 20)
    while True:
        for key, _ in chosen.select():
            if key.fileobj is control:
                control.recv(1)
                control.send(str(total).encode())
                continue
            count = key.fileobj.recv_into(buffer)
            if count == 0:
                raise SystemExit("bench: a viewer was sent away")
            total += count


def watched(bench, seconds, rounds, counts, say):
    """CPU, memory and bytes by viewers of one camera, beside three that nobody watches."""
    rows = []
    for picture, ending in WATCHED:
        with fleet(bench, picture, CAMERAS) as config:
            server = Server(bench, config)
            server.wait_for()
            for viewers, asleep in counts:
                rows.append(by_viewers(server, picture, ending, viewers, asleep, seconds, rounds))
                say(", ".join(map(str, rows[-1])))
            server.end()
    return rows


def by_viewers(server, picture, ending, viewers, asleep, seconds, rounds):
    crowd = Crowd(server.url, f"/camera/1.{ending}", viewers, asleep)
    time.sleep(1)
    shares, sent = [], []
    begun = server.counters()
    for _ in range(rounds):
        before = cpu_seconds(server.pid), crowd.bytes(), time.monotonic()
        time.sleep(seconds)
        after = cpu_seconds(server.pid), crowd.bytes(), time.monotonic()
        cpu, read, took = (new - old for new, old in zip(after, before))
        shares.append(cpu / took * 100)
        sent.append(read / took / 1e6 / max(1, viewers - asleep))
    ended = server.counters()
    crowd.end()
    return [f"{picture.codec} {picture.bytes / 1000:.0f} KB, .{ending}",
            f"{viewers} ({asleep} asleep)" if asleep else viewers, Spread(shares).text(1),
            f"{Spread(sent).median:.2f}" if viewers else "-", ended["lost_blocks"] - begun["lost_blocks"],
            ended["timeouts"] - begun["timeouts"], f"{resident_kb(server.pid) / 1e3:.0f}"]


def alone(bench, count, seconds, rounds, say):
    """With nobody watching, beside `plendix record` without files and the driver without a job: at the same
    time, on the same cameras and the same core, so that what else the machine does hits all alike."""
    with fleet(bench, SMALL, count) as config:
        server, host = Server(bench, config), SessionHost(bench, config)
        driver = Driver(bench, SMALL.channel.replace("Framerate='1001'", f"Framerate='{RATE}'"), count)
        server.wait_for()
        driver.wait_for("streaming")
        time.sleep(seconds)
        contenders, turns = (driver, host, server), []
        for _ in range(rounds):
            before = [cpu_seconds(contender.pid) for contender in contenders]
            begun = time.monotonic()
            time.sleep(seconds)
            took = time.monotonic() - begun
            turns.append([(cpu_seconds(contender.pid) - old) / took * 100
                          for contender, old in zip(contenders, before)])
        for contender in contenders:
            contender.end()
    row = [count, *(Spread(shares).text() for shares in zip(*turns)),
           Spread([own / least for least, _, own in turns]).text(3),
           Spread([own / base for _, base, own in turns]).text(3)]
    say(", ".join(map(str, row)))
    return row


def until_read(bench, seconds, others, say):
    """From the camera's last datagram of a picture to its last byte at a viewer, alone and in a crowd."""
    rows = []
    for picture in CLOCKED:
        with fleet(bench, picture, CAMERAS, drawn=True) as config:
            server = Server(bench, config)
            server.wait_for()
            for path in READ[picture.codec]:
                for crowd in (0, others):
                    rows.append([picture.codec, path, crowd, *until_read_by_one(server, path, crowd, seconds)])
                    say(", ".join(map(str, rows[-1])))
            server.end()
    return rows


def until_read_by_one(server, path, others, seconds):
    crowd = Crowd(server.url, path, others, 0)
    viewer = opened(server.url, path)
    viewer.settimeout(30)
    while len(viewer.recv(1 << 16)) < 1000:  # H.264 begins with the next key frame
        pass
    time.sleep(1)
    values = latencies(viewer, seconds)
    viewer.close()
    crowd.end()
    return len(values), percentiles(values)


def percentiles(values):
    """The median, and in brackets what 95 of 100 stay below."""
    if not values:
        return "none came"
    ordered = sorted(values)
    return f"{ordered[len(ordered) // 2]:.2f} ({ordered[len(ordered) * 95 // 100]:.2f})"


def until_shown(bench, seconds, say):
    """The age of pictures when headless Chromium shows them: of the clock in them, and since delivery."""
    rows = []
    for picture in CLOCKED:
        with fleet(bench, picture, 1, drawn=True) as config:
            server = Server(bench, config)
            server.wait_for()
            script = [f"{ROOT}/bench/page_latency.mjs", server.url, "1", str(seconds), str(picture.width),
                      str(picture.height)]
            shown = json.loads(subprocess.run(["node", *script], check=True, stdout=subprocess.PIPE).stdout)
            server.end()
        by_clock, since_delivery = ([value for value in column if value is not None]
                                    for column in zip(*shown["rows"]))
        rows.append([picture.codec, len(by_clock), percentiles(by_clock),
                     percentiles(since_delivery) if since_delivery else "-"])
        say(", ".join(map(str, rows[-1])))
    return rows


def markdown(bench, quick, say):
    rounds, seconds = (1, 0.5) if quick else (9, 2)
    counts = [(0, 0), (1, 0), (50, 5)] if quick else [(0, 0), (1, 0), (10, 0), (50, 0), (200, 20)]
    return "\n".join([
        report.machine(rounds, seconds),
        report.table(["cameras, nobody watching", "driver, % of a core", "record without files", "serve",
                      "serve / driver", "serve / record"],
                     [alone(bench, count, 2 * seconds, rounds, say) for count in ((4,) if quick else (4, 50))]),
        report.table(["watched", "viewers", "% of a core", "MB/s of each who reads",
                      "lost blocks, all cameras", "time-outs", "MB resident"],
                     watched(bench, seconds, rounds, counts, say)),
        "Milliseconds until a picture is there; the median, and in brackets what 95 of 100 stay below.\n",
        report.table(["camera", "read by one", "others who read the same", "pictures",
                      "whole after"], until_read(bench, 1 if quick else 8, 10 if quick else 50, say)),
        report.table(["shown by the page", "pictures", "since the clock in it", "since delivery by the driver"],
                     until_shown(bench, 2 if quick else 10, say))])
