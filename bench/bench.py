"""Behind scripts/bench: builds the programs, measures, prints."""
import json
import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = f"{ROOT}/build/release"
sys.dont_write_bytecode = True
sys.path.insert(0, f"{ROOT}/bench")
import instructions  # noqa: E402
import recording  # noqa: E402
import report  # noqa: E402
import serving  # noqa: E402
import target  # noqa: E402
from measure import CAMERA_CORE, CLIENT_CORE, Bench, Driver, Floor, Picture, Spread, cpu_seconds, fetch_costs, time  # noqa: E402

QUICK = "--quick" in sys.argv
ROUNDS = 1 if QUICK else 7
TURN = 0.1 if QUICK else 0.4  # seconds
COUNTS = (1, 16) if QUICK else (1, 16, 64, 255)
PARTS = [recording, serving, instructions, target]  # by themselves
PICTURES = [Picture("20 KB", "JPEG", 320, 256, 29), Picture("300 KB", "JPEG", 832, 608, 200),
            Picture("1.9 MB", "JPEG", 2048, 1536, 215), Picture("20 KB", "H.264", 320, 256, 14),
            Picture("300 KB", "H.264", 832, 608, 60), Picture("1.9 MB", "H.264", 1920, 1440, 96)]


def build():
    """The programs, into the build of the preset "release": what was built and tested is what is measured."""
    counted = ["Plendix", "floor_client", "driver_host", "lockstep"]
    programs = {"release": ["plendix", "bare_write", "latency_host", "session_host", "micro", "count_instructions",
                            *counted]}
    if "instructions" in sys.argv and not QUICK:
        programs.update({"arm": counted, "armhf": counted})
    if "target" in sys.argv:
        programs.update({preset: ["Plendix", "driver_host"] for preset in target.MACHINES})
    for preset, targets in programs.items():
        for command in (["cmake", "--preset", preset, "-D", "PLENDIX_BENCH=ON"],
                        ["cmake", "--build", "--preset", preset, "--target", *targets]):
            subprocess.run(command, check=True, stdout=sys.stderr, cwd=ROOT)


def say(text):
    print(text, file=sys.stderr, flush=True)


def stream(bench, picture, count):
    """The bare loop and the driver in turn, on the same cameras."""
    driver = Driver(bench, picture.channel, count)
    driver.wait_for("streaming")
    growth = driver.resident_growth_kb()
    driver.stop()
    floor = Floor(bench, picture, count)
    floor.stop()
    turns = [(floor.turn(picture, TURN), driver.turn(picture, TURN)) for _ in range(ROUNDS)]
    floor.end()
    driver.end()
    return {"picture": picture, "count": count, "resident": growth,
            "floor": Spread([bare[0] for bare, _ in turns]), "driver": Spread([own[0] for _, own in turns]),
            "ratio": Spread([own[0] / bare[0] for bare, own in turns]),
            "floor_blocks": Spread([bare[1] for bare, _ in turns]),
            "blocks": Spread([own[1] for _, own in turns]), "switches": Spread([own[2] for _, own in turns])}


def streams(bench):
    rows = []
    for picture in PICTURES[:1] if QUICK else PICTURES:
        cameras = bench.picture_cameras(picture, max(COUNTS))
        for count in COUNTS:
            say(f"{picture.codec} {picture.bytes} bytes, {count} cameras")
            rows.append(stream(bench, picture, count))
        cameras.terminate()
        cameras.wait()
    return rows


def peers(bench, camera_core):
    """One camera: bare loop, driver and stock clients in turn, these without their start-up."""
    picture, times = PICTURES[2], 5 if QUICK else 10
    bench.camera_core = camera_core
    cameras = bench.picture_cameras(picture, 1)
    bench.camera_core = CAMERA_CORE
    driver, floor = Driver(bench, picture.channel, 1), Floor(bench, picture, 1)
    driver.wait_for("streaming")
    driver.stop()
    floor.stop()
    values = {}
    for _ in range(ROUNDS):
        for name, contender in (("bare loop", floor), ("driver", driver)):
            cost, rate, _ = contender.turn(picture, TURN)
            values.setdefault(name, []).append((cost, rate / picture.blocks * picture.bytes / 1e6))
        for peer in ("curl", "atftp", "busybox"):
            cpu, wall = fetch_costs(peer, picture, times)
            values.setdefault(peer, []).append((cpu and cpu * 1e6 / picture.blocks,
                                                wall and picture.bytes / 1e6 / wall))
    for process in (floor, driver):
        process.end()
    cameras.terminate()
    cameras.wait()
    say("stock clients")
    return [(name, Spread([cost for cost, _ in turns]), Spread([rate for _, rate in turns]))
            for name, turns in values.items()]


def manners(bench):
    """One camera and one core: what a time limit and a connected socket do to the bare loop."""
    picture = PICTURES[2]
    bench.camera_core = CLIENT_CORE
    cameras = bench.picture_cameras(picture, 1)
    bench.camera_core = CAMERA_CORE
    driver = Driver(bench, picture.channel, 1)
    driver.wait_for("streaming")
    driver.stop()
    contenders = [("bare loop", Floor(bench, picture, 1))]
    for name, manner in (("with a time limit", "timed"), ("with a connected socket", "connected"),
                         ("with both", "timed-connected")):
        contenders[-1][1].stop()
        contenders.append((name, Floor(bench, picture, 1, manner)))
    contenders[-1][1].stop()
    contenders.append(("driver", driver))
    turns = [[contender.turn(picture, TURN / 2)[0] for _, contender in contenders] for _ in range(3 * ROUNDS)]
    for _, contender in contenders:
        contender.end()
    cameras.terminate()
    cameras.wait()
    say("manners of the bare loop")
    return [(name, Spread(costs), Spread([cost / turn[0] for cost, turn in zip(costs, turns)]))
            for (name, _), costs in zip(contenders, zip(*turns))]


def start_up(bench):
    """CPU from the configuration document to all cameras streaming one picture a second."""
    rows = []
    for label, faults in (("at once", []), ("30 % of datagrams 40 ms late", ["--faults", "delay=30%/40ms"])):
        cameras = bench.cameras(255, "320x256", None, *faults)
        for count in (16,) if QUICK else (64, 128, 255):
            runs = []
            for _ in range(1 if QUICK else 5):
                begun, driver = time.monotonic(), Driver(bench, "Framerate='1'", count)
                driver.wait_for("streaming")
                runs.append(((cpu_seconds(driver.pid) - driver.cpu_before) * 1e3,
                             driver.ask()["configurations"] - 1, time.monotonic() - begun))
                driver.end()
            rows.append((label, count, *(Spread(column) for column in zip(*runs))))
            say(f"start-up of {count} cameras, answers {label}")
        cameras.terminate()
        cameras.wait()
    return rows


def idle(bench):
    """Percent of a core and resident memory of configured cameras without video."""
    count = 16 if QUICK else 255
    cameras = bench.cameras(count, "320x256")
    driver = Driver(bench, "Enabled='0'", count)
    driver.wait_for("settled")
    shares = []
    for _ in range(ROUNDS):
        before, begun = cpu_seconds(driver.pid), time.monotonic()
        time.sleep(TURN * 4)
        shares.append((cpu_seconds(driver.pid) - before) / (time.monotonic() - begun) * 100)
    growth = driver.resident_growth_kb()
    driver.end()
    cameras.terminate()
    cameras.wait()
    return count, Spread(shares), growth


def latency(bench):
    """Microseconds from arrival to callback, and from select's return to the next call."""
    picture, rows = PICTURES[0], []
    cameras = bench.picture_cameras(picture, max(COUNTS))
    for label, rate, count in (("as fast as it goes", 1001, 1), ("as fast as it goes", 1001, max(COUNTS)),
                               ("4 frames/s each", 4, max(COUNTS))):
        driver = Driver(bench, picture.channel.replace("1001", str(rate)), count, "latency_host")
        driver.wait_for("streaming")
        runs = []
        for _ in range(ROUNDS):
            driver.ask()
            time.sleep(max(TURN * 2, 0.6))  # some frames at least
            answer = driver.ask()
            runs.append(answer["latency"] + answer["pass"])
        driver.end()
        rows.append((count, label, *(Spread(column) for column in zip(*runs))))
    cameras.terminate()
    cameras.wait()
    return rows


def micro(bench):
    out = f"{bench.folder}/micro.json"
    subprocess.run([f"{BUILD}/bench/micro", f"--benchmark_out={out}", "--benchmark_out_format=json",
                    f"--benchmark_min_time={0.01 if QUICK else 0.3}"], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    return [(run["name"], run["cpu_time"], run["time_unit"]) for run in json.load(open(out))["benchmarks"]]


def main():
    words = [word for word in sys.argv[1:] if word != "--inside"]
    parts = [part.__name__ for part in PARTS]
    # No quick round is written down.
    known = [[], ["--quick"], ["--update"], *([part, "--update"] for part in parts if part != "recording")]
    known += [[part] + quick for part in parts for quick in ([], ["--quick"])]
    if words not in known:
        print(f"bench: '{' '.join(words)}': give --quick, --update, {' or '.join(parts)}, or nothing", file=sys.stderr)
        sys.exit(2)
    if "--inside" not in sys.argv:
        build()
        os.execvp("unshare", ["unshare", "--net"] + (["--map-root-user"] if os.geteuid() else []) +
                  [sys.executable, *sys.argv, "--inside"])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    bench = Bench(BUILD)
    for part in PARTS:
        if part.__name__ in words:
            text = part.markdown(bench, QUICK, say)
            print(text)
            if "--update" in words:
                report.update(f"{ROOT}/docs/performance.md", text, part.__name__)
            return
    results = {"streams": streams(bench), "peers": peers(bench, CLIENT_CORE),
               "peers_apart": peers(bench, CAMERA_CORE), "manners": manners(bench), "start_up": start_up(bench),
               "idle": idle(bench), "latency": latency(bench), "micro": micro(bench)}
    text = report.markdown(results, ROUNDS, TURN)
    print(text)
    if QUICK:
        print(serving.markdown(bench, True, say))
    if "--update" in sys.argv:
        report.update(f"{ROOT}/docs/performance.md", text)
        open(f"{ROOT}/docs/performance.svg", "w").write(report.plot(results))


main()
