"""What cameras cost a small machine beside instructions: wake-ups and system calls where nothing happens,
what the settings file writes at the start, and the memory of the ARM library."""
import collections
import contextlib
import datetime
import glob
import os
import re
import signal
import socket
import statistics
import subprocess
import tempfile
import time

import report
from measure import FIRST_ADDRESS, Driver, Picture, Spread, cpu_seconds, wait_until

IDLE = "Enabled='0'"
STREAMING = "Framerate='1'"
PICTURE = Picture("300 KB", "JPEG", 832, 608, 200)
MACHINES = {"arm": "armel", "armhf": "armhf"}  # by build preset
EMULATOR = "qemu-arm"
GUEST_BASE, GUEST_SIZE = 1 << 40, 1 << 32  # where the emulator puts the guest's addresses
CALLS = ("select", "sendto", "recvfrom", "clock_nanosleep", "socket", "close")
SILENT_ADDRESS, CLOSED_ADDRESS, UNROUTED_ADDRESS = "127.0.9.1", "127.0.9.2", "192.0.2.1"


def wake_ups(pid):
    """Voluntary switches so far of all threads but the host's own."""
    return sum(int(re.search(r"\nvoluntary_ctxt_switches:\s*(\d+)", open(f"/proc/{pid}/task/{task}/status").read())[1])
               for task in os.listdir(f"/proc/{pid}/task") if int(task) != pid)


def finish(process):
    """Ends a host, and with it who runs it, as its standard input ends."""
    process.stdin.close()
    process.wait(timeout=60)


def traced_calls(pid, seconds):
    """System calls per second of all threads, by name."""
    with tempfile.NamedTemporaryFile("r") as log:
        begun = time.monotonic()
        tracer = subprocess.Popen(["strace", "--follow-forks", "--summary-only", "-o", log.name, "-p", str(pid)],
                                  stderr=subprocess.DEVNULL)
        time.sleep(seconds)
        tracer.send_signal(signal.SIGINT)
        tracer.wait()
        lasted = time.monotonic() - begun
        calls = collections.Counter()
        for line in log:
            words = line.split()
            if len(words) >= 5 and words[3].isdigit() and words[-1] != "total":
                calls[re.sub(r"^pselect6$|^_newselect$", "select", words[-1])] += int(words[3]) / lasted
        return calls


def stillness(bench, label, count, address, ready, seconds):
    driver = Driver(bench, IDLE, count, address=address)
    if ready:
        driver.wait_for("settled")
    time.sleep(1)
    shares, wakes = [], []
    for _ in range(5):
        before, woken, begun = cpu_seconds(driver.pid), wake_ups(driver.pid), time.monotonic()
        time.sleep(seconds / 5)
        lasted = time.monotonic() - begun
        shares.append((cpu_seconds(driver.pid) - before) / lasted * 100)
        wakes.append((wake_ups(driver.pid) - woken) / lasted)
    calls = traced_calls(driver.pid, seconds)
    finish(driver.process)
    others = sum(calls.values()) - sum(calls[name] for name in CALLS)
    return [label, Spread(shares).text(), f"{statistics.median(wakes):.0f}", f"{sum(calls.values()):.1f}",
            *(f"{calls[name]:.1f}" for name in CALLS), f"{others:.1f}"]


def stillness_rows(bench, quick, say):
    seconds = 2 if quick else 22  # two time-outs of an unanswered request at least
    counts = (0, 1, 16) if quick else (0, 1, 16, 255)
    cameras = bench.cameras(max(counts), "320x256")
    with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as silent:
        silent.bind((SILENT_ADDRESS, 69))
        cases = [(f"{count} idle", count, FIRST_ADDRESS, True) for count in counts]
        cases += [("1, no answer", 1, SILENT_ADDRESS, False), ("1, port closed", 1, CLOSED_ADDRESS, False),
                  ("1, no route", 1, UNROUTED_ADDRESS, False)]
        for case in cases:
            say(f"wake-ups: {case[0]}")
            yield stillness(bench, *case, seconds)
    cameras.terminate()
    cameras.wait()
    say("wake-ups: answers late")
    cameras = bench.cameras(max(counts), "320x256", None, "--faults", "delay=30%/40ms")
    yield stillness(bench, f"{max(counts)} idle, 30 % of datagrams 40 ms late", max(counts), FIRST_ADDRESS, True,
                    seconds)
    cameras.terminate()
    cameras.wait()


class Writes:
    """What the threads of a traced host did to the settings file."""

    def __init__(self, logs):
        lines = [line for log in logs for line in open(log)]
        self.files = [int(size) for line in lines for size in re.findall(r"write\(.*Plendix\.xml.*= (\d+)$", line)]
        self.bytes = sum(self.files)
        self.flushes = sum(line.startswith("fsync(") for line in lines)
        self.renames = sum(line.startswith("rename(") for line in lines)


def start(bench, count, folder, configured, what):
    """One start under a tracer that stops only at what is written, nearly as fast as without it. Returns
    documents sent that the settings file holds, and writes."""
    log = tempfile.mkdtemp(dir=bench.folder) + "/calls"
    under = ["strace", "-ff", "--seccomp-bpf", "-y", "-s", "1", "-e", "trace=write,fsync,rename", "-o", log]
    driver = Driver(bench, IDLE if what == "settled" else STREAMING, count if configured else 0, under=under,
                    folder=folder)
    wait_until(lambda: driver.ask()[what] == count)
    time.sleep(1)
    documents = driver.ask()["configurations"] - 1  # one tells the version
    finish(driver.process)
    return documents, Writes(glob.glob(f"{log}.*"))


def flash_rows(bench, quick, say):
    counts = (1, 16) if quick else (1, 16, 255)
    cameras = bench.cameras(max(counts), "320x256")
    for count in counts:
        for what, kind in (("settled", "idle"), ("streaming", "streaming")):
            folder = tempfile.mkdtemp(dir=bench.folder)
            for label, configured in (("first", True), ("second", False)):
                say(f"settings file: {count} cameras {kind}, {label} start")
                documents, writes = start(bench, count, folder, configured, what)
                size = os.path.getsize(f"{folder}/Plendix.xml")
                # Every document went into the file; what is left out now is as long as what stands there.
                before = writes.bytes + (documents - writes.renames) * size
                yield [f"{count} {kind}, {label}", documents, f"{size / 1000:.1f}", f"{before / 1000:.0f}",
                       2 * documents, documents, f"{writes.bytes / 1000:.0f}", writes.flushes, writes.renames]
    cameras.terminate()
    cameras.wait()


def guest_memory(pid):
    """KB resident of the emulated program alone: its own (not in any file, or changed), and of files."""
    own = files = 0
    inside = False
    for line in open(f"/proc/{pid}/smaps"):
        words = line.split()
        if re.match(r"[0-9a-f]+-", line):
            inside = GUEST_BASE <= int(words[0].split("-")[0], 16) < GUEST_BASE + GUEST_SIZE
        elif inside and words[0] == "Rss:":
            resident = int(words[1])
        elif inside and words[0] == "Anonymous:":
            own += int(words[1])
            files += resident - int(words[1])
    return own, files


def guest(bench, preset, count, streaming):
    build = f"{os.path.dirname(bench.build)}/{preset}"
    driver = Driver(bench, PICTURE.channel if streaming else IDLE, count, build=build,
                    under=[EMULATOR, "-B", hex(GUEST_BASE)])
    driver.wait_for("streaming" if streaming else "settled")
    frames = driver.ask()["frames"]
    wait_until(lambda: driver.ask()["frames"] >= frames + 4 * count * streaming, 600)
    time.sleep(1)
    memory = guest_memory(driver.pid)
    driver.end()
    return memory


def memory_rows(bench, quick, say):
    counts = (1, 16) if quick else (1, 16, 64, 255)
    cameras = bench.picture_cameras(PICTURE, max(counts))
    for preset in list(MACHINES)[:1] if quick else MACHINES:
        least = sum(guest(bench, preset, 0, False))
        for count in (0, *counts):
            say(f"memory: {preset}, {count} cameras")
            row = [MACHINES[preset], count]
            for streaming in (False, True) if count else (False,):
                own, files = guest(bench, preset, count, streaming)
                row += [f"{(own + files) / 1024:.1f}", f"{own / 1024:.1f}"]
                row.append(f"{(own + files - least) / count:.0f}" if count else "")
            yield row + [""] * (8 - len(row))
    cameras.terminate()
    cameras.wait()


def markdown(bench, quick, say):
    return "\n".join([
        f"{datetime.date.today()}, commit {report.commit()}, load average {os.getloadavg()[1]:.1f} at the beginning.\n",
        "### Wake-ups and system calls per second\n",
        report.table(["cameras", "% of a core", "wake-ups", "system calls", *(f"`{name}`" for name in CALLS), "others"],
                     list(stillness_rows(bench, quick, say))),
        "### Writes of the settings file\n",
        report.table(["cameras, start", "documents", "KB of the file at the end", "every document: KB", "`fsync`",
                      "`rename`", "now: KB", "`fsync`", "`rename`"], list(flash_rows(bench, quick, say))),
        "### Resident memory on ARM, MB\n",
        report.table(["machine", "cameras", "idle", "of that its own", "KB per camera", "streaming", "of that its own",
                      "KB per camera"], list(memory_rows(bench, quick, say)))])
