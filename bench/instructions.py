"""How many instructions a block and a frame take in user space, of the driver and of the bare loop.

Both run in qemu's user-mode emulator, whose plug-in counts (count_instructions.cpp), in step with their
cameras (lockstep.cpp), which run natively."""
import bisect
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
        named = {}  # by start
        for source in ([file], ["--dynamic", file], [debug_file(file, prefix)]):
            out = subprocess.run([f"{prefix}nm", "--demangle", "--print-size", *source], capture_output=True,
                                 text=True).stdout
            for match in re.finditer(r"^([0-9a-f]+) ([0-9a-f]+) [tTwWi] (.*)$", out, re.MULTILINE):
                start = int(match[1], 16) & ~1  # the lowest bit tells Thumb code
                function = start + int(match[2], 16), plain(match[3])
                # Of a function's several names the plainest.
                named[start] = min(named.get(start, function), function, key=lambda other: len(other[1]))
        self.starts = sorted(named)
        self.functions = [named[start] for start in self.starts]

    def name(self, address):
        place = bisect.bisect(self.starts, address) - 1
        return self.functions[place][1] if place >= 0 and address < self.functions[place][0] else None


def debug_file(file, prefix):
    """Where Debian's packages keep the symbols of a library."""
    out = subprocess.run([f"{prefix}readelf", "--notes", file], capture_output=True, text=True).stdout
    build = re.search(r"Build ID: (..)(\w+)", out)
    return f"/usr/lib/debug/.build-id/{build[1]}/{build[2]}.debug" if build else file


def plain(name):
    """Without arguments, versions and such."""
    return re.sub(r"@.*|\(.*|\[abi.*| \[.*", "", name.replace("(anonymous namespace)::", ""))


class Mappings:
    """Of the emulated program: which file, and what of it, lies at an address."""

    def __init__(self, maps, prefix):
        self.prefix, self.symbols, self.mapped = prefix, {}, []
        bases = {}
        for line in maps.splitlines():
            words = line.split()
            if len(words) == 6 and words[5].startswith("/"):
                start, end = (int(number, 16) for number in words[0].split("-"))
                self.mapped.append((start, end, bases.setdefault(words[5], start), words[5]))

    def name(self, address):
        """Names of the file and of the function; of what leads from one file to the other the first only."""
        for start, end, base, file in self.mapped:
            if start <= address < end:
                if file not in self.symbols:
                    self.symbols[file] = Symbols(file, self.prefix)
                library = os.path.basename(file).partition(".so")[0]
                return library, self.symbols[file].name(address - base) or f"{library}: calls of others"
        return "?", "?"


class Count:
    """Of one run: instructions by function, of the whole and of the ends of frames."""

    def __init__(self, folder, prefix):
        self.__dict__.update(json.load(open(f"{folder}/counts")))
        mappings = Mappings(open(f"{folder}/maps").read(), prefix)
        self.functions, self.frame_end, self.other = (collections.Counter() for _ in range(3))
        for line in open(f"{folder}/instructions"):
            address, total, at_frame_ends = line.split()
            library, function = mappings.name(int(address, 16))
            # What is no client's: the host's callback, and the tools that count.
            if library in ("driver_host", "lockstep", "?") or function == "syscall":
                self.other[function] += int(total)
                continue
            self.functions[function] += int(total)
            self.frame_end[function] += int(at_frame_ends)
        self.total, self.frame_ends = sum(self.functions.values()), sum(self.frame_end.values())

    def per_block(self):
        return self.total / self.blocks


def run(bench, machine, what, picture, count, ready="all", share=1):
    """Counts `what` ("driver" or "floor") with so many cameras, of which "all", "one" or "none" are ready in
    every pass. Over whole frames of each and at least that share of a poll cycle; with none, some passes."""
    preset, emulator, prefix = MACHINES[machine]
    build = f"{os.path.dirname(bench.build)}/{preset}"
    folder = tempfile.mkdtemp(dir=bench.folder)
    frames = count * max(1 if ready == "one" else 4, math.ceil(POLL_CYCLE * share / (count * (picture.blocks + 1))))
    first, last = (5, 25) if ready == "none" else (2 * count, 2 * count + frames)
    channel = "Enabled='0'" if ready == "none" else picture.channel
    command = [emulator, "-plugin", f"{bench.build}/bench/count_instructions.so,out={folder}/instructions"]
    for name, value in {"LD_PRELOAD": f"{build}/bench/lockstep.so", "LOCKSTEP_FOLDER": folder,
                        "LOCKSTEP_READY": ready, "LOCKSTEP_FIRST": first, "LOCKSTEP_LAST": last}.items():
        command += ["-E", f"{name}={value}"]
    if what == "floor":
        command += [f"{build}/bench/floor_client", FIRST_ADDRESS, str(count), picture.name]
    else:
        command += [f"{build}/bench/driver_host", f"{build}/src/Plendix.so", FIRST_ADDRESS, str(count),
                    channel]
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


def row_of(bench, machine, picture, count, quick):
    """The bare loop and the driver, each twice; with JPEG pictures also where only one camera is ready."""
    share = 0.25 if quick else 1
    floors, drivers = ([run(bench, machine, what, picture, count, "all", share) for _ in range(2)]
                       for what in ("floor", "driver"))
    row = {"machine": machine, "picture": picture, "count": count, "floor": floors[0], "driver": drivers[0],
           "spread": max(abs(one.per_block() / other.per_block() - 1) for one, other in (floors, drivers))}
    if picture.codec == "JPEG":
        row["floor_one"], row["driver_one"] = (run(bench, machine, what, picture, count, "one", 0.1)
                                               for what in ("floor", "driver"))
        row["idle"] = run(bench, machine, "driver", picture, count, "none")
    return row


def measure(bench, quick, say):
    rows = []
    for picture in PICTURES[:1] if quick else PICTURES:
        counts = (1, 16) if quick else COUNTS
        cameras = bench.picture_cameras(picture, max(counts))
        for machine in ("amd64",) if quick else MACHINES:
            for count in counts:
                rows.append(row_of(bench, machine, picture, count, quick))
                say(" ".join(map(str, summary(rows[-1]))))
        cameras.terminate()
        cameras.wait()
    return rows


def summary(row):
    floor, driver = row["floor"], row["driver"]
    return [row["machine"], row["picture"].codec, row["count"], f"{floor.per_block():.0f}",
            f"{driver.per_block():.0f}", f"{driver.per_block() / floor.per_block():.2f}",
            f"{floor.total / floor.frames:.0f}", f"{driver.total / driver.frames:.0f}",
            f"{driver.frame_ends / driver.frames:.0f}", f"{driver.blocks / driver.passes:.1f}",
            f"{driver.registers / driver.blocks * 1000:.1f}", f"{row['spread'] * 100:.2f} %"]


def sparse(row):
    floor, driver, idle = row["floor_one"], row["driver_one"], row["idle"]
    return [row["machine"], row["count"], f"{floor.per_block():.0f}", f"{driver.per_block():.0f}",
            f"{driver.per_block() / floor.per_block():.2f}",
            f"{idle.total / idle.idle_passes:.0f}"]


def split(rows, costs):
    """By function, those that matter by name; `costs` tells a row's."""
    costs = [costs(row) for row in rows]
    names = [name for name in {name for cost in costs for name in cost}
             if any(cost.get(name, 0) >= LEAST_SHARE * sum(cost.values()) for cost in costs)]
    names.sort(key=lambda name: (-costs[0].get(name, 0), name))
    for name in names:
        yield [f"`{name}`", *(f"{cost.get(name, 0):.0f}" for cost in costs)]
    yield ["others", *(f"{sum(value for name, value in cost.items() if name not in names):.0f}" for cost in costs)]
    yield ["together", *(f"{sum(cost.values()):.0f}" for cost in costs)]


def per(counter, number):
    return {name: value / number for name, value in counter.items()}


def splits(rows):
    """Tables by function: of each machine's blocks by cameras, and with 16 of them the end of a JPEG frame and the
    blocks of H.264 by machine."""
    others = [row for row in rows if row["picture"].codec != "JPEG" and row["count"] == 16]
    rows = [row for row in rows if row["picture"].codec == "JPEG"]
    for machine in dict.fromkeys(row["machine"] for row in rows):
        some = [row for row in rows if row["machine"] == machine]
        for what, name in (("driver", "driver"), ("floor", "bare loop")):
            yield report.table([f"{name}, {machine}: function / cameras", *(row["count"] for row in some)],
                               list(split(some, lambda row: per(row[what].functions, row[what].blocks))))
    some = [row for row in rows if row["count"] == 16]
    yield report.table(["the end of a JPEG frame, 16 cameras: function", *(row["machine"] for row in some)],
                       list(split(some, lambda row: per(row["driver"].frame_end, row["driver"].frames))))
    if others:
        yield report.table(["driver, H.264, 16 cameras: function", *(row["machine"] for row in others)],
                           list(split(others, lambda row: per(row["driver"].functions, row["driver"].blocks))))


def markdown(bench, quick, say):
    rows = measure(bench, quick, say)
    return "\n".join([
        f"{datetime.date.today()}, commit {report.commit()}. Instructions of user space.\n",
        report.table(["machine", "frames", "cameras, all ready", "bare loop: per block", "driver: per block", "ratio",
                      "bare loop: per frame", "driver: per frame", "of that its end", "blocks per pass",
                      "register requests per 1000 blocks", "two runs differ by"], [summary(row) for row in rows]),
        report.table(["machine", "cameras, JPEG, one ready", "bare loop: per block", "driver: per block", "ratio",
                      "driver: pass with nothing to do"], [sparse(row) for row in rows if "idle" in row]),
        *splits(rows)])
