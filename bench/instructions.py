"""How many instructions a block and a frame take in user space, of the driver and of the bare loop.

Both run in qemu's user-mode emulator, whose plug-in counts (count_instructions.cpp), in step with their
cameras (lockstep.cpp), which run natively."""
import collections
import datetime
import json
import math
import os
import re
import subprocess
import tempfile

import report
from measure import CLIENT_CORE, FIRST_ADDRESS, Picture, pinned

PICTURES = [Picture("300 KB", "JPEG", 832, 608, 200), Picture("300 KB", "H.264", 832, 608, 60)]
COUNTS = (1, 4, 16, 64, 255)
MEMCPY_SIZE = 1024  # at most, with its other entries
LEAST_SHARE = 0.005  # of a function that is named
LIMIT = 600  # seconds of a run
POLL_CYCLE = 72000  # datagrams in half a second of lockstep.cpp's clock
# Build preset, emulator, prefix of the binutils.
MACHINES = {"amd64": ("release", "qemu-x86_64", ""),
            "armel": ("arm", "qemu-arm", "arm-linux-gnueabi-"),
            "armhf": ("armhf", "qemu-arm", "arm-linux-gnueabihf-")}


class Symbols:
    """The functions of one file that the emulated program had mapped."""

    def __init__(self, file, prefix):
        self.ranges = []
        for arguments in ([], ["--dynamic"]):
            out = subprocess.run([f"{prefix}nm", "--demangle", "--numeric-sort", "--print-size", *arguments, file],
                                 capture_output=True, text=True).stdout
            for line in out.splitlines():
                match = re.match(r"([0-9a-f]+) ([0-9a-f]+) [tTwWiu] (.*)", line)
                if match:
                    start = int(match[1], 16) & ~1  # the lowest bit tells Thumb code
                    self.ranges.append((start, start + int(match[2], 16), match[3]))
        self.ranges.sort()

    def name(self, address):
        for start, end, name in self.ranges:
            if start <= address < end:
                name = name.replace("(anonymous namespace)::", "")
                return re.sub(r"@.*|\(.*|\[abi.*| \[.*", "", name)
        return None


class Mappings:
    """Of the emulated program: which file, and what of it, lies at an address."""

    def __init__(self, maps, prefix, memcpy):
        self.prefix, self.symbols, self.mapped, self.memcpy = prefix, {}, [], memcpy & ~1
        bases = {}
        for line in maps.splitlines():
            words = line.split()
            if len(words) < 6 or not words[5].startswith("/"):
                continue
            start, end = (int(number, 16) for number in words[0].split("-"))
            bases.setdefault(words[5], start)
            self.mapped.append((start, end, bases[words[5]], words[5]))

    def name(self, address):
        """(name of the file, name of the function)"""
        for start, end, base, file in self.mapped:
            if start <= address < end:
                # The C library picks one for the processor, and these have no names.
                if self.memcpy <= address < self.memcpy + MEMCPY_SIZE:
                    return "libc", "memcpy"
                if file not in self.symbols:
                    self.symbols[file] = Symbols(file, self.prefix)
                library = os.path.basename(file).partition(".so")[0]
                return library, self.symbols[file].name(address - base) or f"rest of {library}"
        return "?", "?"


class Count:
    """Of one run: instructions by function, of the whole and of the ends of frames."""

    def __init__(self, folder, prefix):
        self.__dict__.update(json.load(open(f"{folder}/counts")))
        mappings = Mappings(open(f"{folder}/maps").read(), prefix, self.memcpy)
        self.functions, self.frame_end = collections.Counter(), 0
        self.other = collections.Counter()
        for line in open(f"{folder}/instructions"):
            address, total, at_frame_ends = line.split()
            library, function = mappings.name(int(address, 16))
            # What is no client's: the host's callback, and the tools that count.
            if library in ("driver_host", "lockstep", "?") or function == "syscall":
                self.other[function] += int(total)
                continue
            self.functions[function] += int(total)
            self.frame_end += int(at_frame_ends)
        self.total = sum(self.functions.values())

    def per_block(self):
        return self.total / self.blocks


def run(bench, machine, what, picture, count, share=1):
    """Counts `what` ("driver" or "floor") with so many cameras, over whole frames of each."""
    preset, emulator, prefix = MACHINES[machine]
    build = f"{os.path.dirname(bench.build)}/{preset}"
    folder = tempfile.mkdtemp(dir=bench.folder)
    first = 2 * count
    last = first + max(4, math.ceil(POLL_CYCLE * share / (count * (picture.blocks + 1)))) * count
    command = [emulator, "-plugin", f"{bench.build}/bench/count_instructions.so,out={folder}/instructions"]
    for name, value in {"LD_PRELOAD": f"{build}/bench/lockstep.so", "LOCKSTEP_FOLDER": folder,
                        "LOCKSTEP_FIRST": first, "LOCKSTEP_LAST": last}.items():
        command += ["-E", f"{name}={value}"]
    if what == "floor":
        command += [f"{build}/bench/floor_client", FIRST_ADDRESS, str(count), picture.name]
    else:
        command += [f"{build}/bench/driver_host", f"{build}/src/Plendix.so", FIRST_ADDRESS, str(count),
                    picture.channel]
    # Its standard input stays open: the end of it ends the host.
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, cwd=folder,
                               preexec_fn=pinned(CLIENT_CORE))
    process.stdin.write(b"start\n")
    process.stdin.flush()
    status = process.wait(timeout=LIMIT)
    process.stdin.close()
    if status != 0:
        raise SystemExit(f"bench: {' '.join(command)} ended with status {status}")
    return Count(folder, prefix)


def row_of(bench, machine, picture, count, share):
    floors, drivers = ([run(bench, machine, what, picture, count, share) for _ in range(2)]
                       for what in ("floor", "driver"))
    return {"machine": machine, "picture": picture, "count": count, "floor": floors[0], "driver": drivers[0],
            "spread": max(abs(one.per_block() / other.per_block() - 1) for one, other in (floors, drivers))}


def measure(bench, quick, say):
    rows = []
    for picture in PICTURES[:1] if quick else PICTURES:
        counts = (1, 16) if quick else COUNTS
        cameras = bench.picture_cameras(picture, max(counts))
        for machine in ("amd64",) if quick else MACHINES:
            for count in counts:
                rows.append(row_of(bench, machine, picture, count, 0.25 if quick else 1))
                say(" ".join(map(str, summary(rows[-1]))))
        cameras.terminate()
        cameras.wait()
    return rows


def summary(row):
    floor, driver = row["floor"], row["driver"]
    return [row["machine"], row["picture"].codec, row["count"], f"{floor.per_block():.0f}",
            f"{driver.per_block():.0f}", f"{driver.per_block() / floor.per_block():.2f}",
            f"{floor.total / floor.frames:.0f}", f"{driver.total / driver.frames:.0f}",
            f"{driver.frame_end / driver.frames:.0f}", f"{driver.blocks / driver.passes:.1f}",
            f"{driver.registers / driver.blocks * 1000:.1f}", f"{row['spread'] * 100:.2f} %"]


def split(rows, what):
    """Of the driver or the bare loop: the functions by their cost per block, those that matter by name."""
    costs = [{name: value / row[what].blocks for name, value in row[what].functions.items()} for row in rows]
    names = [name for name in {name for cost in costs for name in cost}
             if any(cost.get(name, 0) >= LEAST_SHARE * sum(cost.values()) for cost in costs)]
    names.sort(key=lambda name: -costs[0].get(name, 0))
    for name in names:
        yield [f"`{name}`", *(f"{cost.get(name, 0):.1f}" for cost in costs)]
    yield ["others", *(f"{sum(value for name, value in cost.items() if name not in names):.1f}" for cost in costs)]
    yield ["**together**", *(f"{sum(cost.values()):.1f}" for cost in costs)]


def markdown(bench, quick, say):
    rows = measure(bench, quick, say)
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], capture_output=True, text=True).stdout.strip()
    parts = [f"{datetime.date.today()}, commit {commit}.\n", report.table(
        ["machine", "frames", "cameras", "bare loop: instructions/block", "driver: instructions/block", "ratio",
         "bare loop: instructions/frame", "driver: instructions/frame", "of these at the frame's end",
         "blocks/pass", "register requests per 1000 blocks", "two runs differ by"], [summary(row) for row in rows])]
    for machine in MACHINES:
        some = [row for row in rows if row["machine"] == machine and row["picture"].codec == "JPEG"]
        for what, name in (("driver", "the driver"), ("floor", "the bare loop")) if some else ():
            parts.append(f"Instructions per block of {name} by function, {machine}, JPEG:\n")
            parts.append(report.table([f"cameras", *(row["count"] for row in some)], list(split(some, what))))
    return "\n".join(parts)
