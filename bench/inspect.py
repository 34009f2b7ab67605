"""Behind scripts/inspect: how often 'plendix inspect' gives a lost picture the right cause. One kind of fault at a
time, each in a network of its own: simulated cameras, a recorder and a capture; the cameras' own counters are the
truth."""
import argparse
import concurrent.futures
import json
import os
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# Words of 'plendix camera', and the cause that inspect is to give; None: nothing is lost.
CASES = {
    "loss": (["--faults", "loss=1%"], "lost_on_the_way"),
    "reorder": (["--faults", "reorder=10%"], "lost_on_the_way"),
    "ack-loss": (["--faults", "ack-loss=1%"], "acknowledgement_lost"),
    "truncate": (["--faults", "truncate=1%"], "never_sent"),
    "wrong-block": (["--faults", "wrong-block=1%"], "never_sent"),
    "error": (["--faults", "error=2%"], "refused"),
    "no-oack": (["--faults", "no-oack=2%"], "refused"),
    "oack-512": (["--faults", "oack-512=2%"], "refused"),
    "silent": (["--faults", "silent=2%/15s"], "stalled"),
    "reboot": (["--faults", "reboot=2%/2s"], "stalled"),
    "delay, 12 s": (["--faults", "delay=0.3%/12s"], "stalled"),
    "driver stopped": (["--burst", "256"], "ours_late"),
    "delay, 200 ms": (["--faults", "delay=1%/200ms"], None),
    "duplicate": (["--faults", "duplicate=5%"], None),
    "corrupt": (["--faults", "corrupt=5%"], None),
    "garbage": (["--faults", "garbage=5%"], None),
    "foreign": (["--faults", "foreign=5%"], None),
    "mac-change": (["--faults", "mac-change=5%"], None),
}


def options():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=int, default=120)
    parser.add_argument("--cameras", type=int, default=48)
    parser.add_argument("--at-once", type=int, default=2, help="cases")
    parser.add_argument("--command", default=f"{ROOT}/build/release/tools/plendix")
    parser.add_argument("--folder", default="/tmp/plendix-inspect", help="for what is left to look at")
    parser.add_argument("--case", action="append", choices=CASES, help="only this one; may be repeated")
    parser.add_argument("--no-pictures", action="store_true", help="captures without pictures")
    parser.add_argument("--judge", action="store_true", help="what is in the folder, without new captures")
    parser.add_argument("--alone", help=argparse.SUPPRESS)
    return parser.parse_args()


def recorded(path):
    """Frames of all cameras, in the recorder's table."""
    with open(path) as file:
        lines = [line.split() for line in file]
    begin = next(i for i, words in enumerate(lines) if words[:2] == ["camera", "codec"])
    return sum(int(words[3]) for words in lines[begin + 1:lines.index([], begin)])


def stop_again_and_again(process, until):
    """So that the buffers of its sockets run over."""
    while time.monotonic() < until:
        process.send_signal(signal.SIGSTOP)
        time.sleep(0.3)
        process.send_signal(signal.SIGCONT)
        time.sleep(0.7)


def run_alone(chosen):
    """One case, within a network of its own."""
    name = chosen.alone
    words, _ = CASES[name]
    folder = f"{chosen.folder}/{name}"
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    late = name == "driver stopped"
    cameras = 4 if late else chosen.cameras
    addresses = [f"127.0.1.{i + 1}" for i in range(cameras)]
    log = open(f"{folder}/log", "w")
    capture = subprocess.Popen([chosen.command, "capture", *addresses, "-o", f"{folder}/field.pcapng"] +
                               ["--no-pictures"] * chosen.no_pictures, stderr=subprocess.PIPE, text=True)
    while "Ctrl-C" not in (line := capture.stderr.readline()):
        if not line:
            sys.exit("inspect: the capture did not begin")
    with open(f"{folder}/scenario", "w") as file:  # what is lost at last is known before the capture ends
        for fault in words[1].split(",") if words[0] == "--faults" else ():
            file.write(f"{chosen.seconds - 13}s * {fault.split('=')[0]} 0%\n")
    fleet = subprocess.Popen(
        [chosen.command, "camera", "--count", str(cameras), "--sensor", "2560x1920" if late else "320x240",
         "--model", "100" if late else "100,105", "--json", "--duration", str(chosen.seconds + 2),
         "--scenario", f"{folder}/scenario"] + words, stdout=open(f"{folder}/cameras.json", "w"), stderr=log)
    time.sleep(0.5)
    recorder = subprocess.Popen(
        [chosen.command, "record", *addresses, "--quiet", "--no-check", "--rate", "15", "--quality", "10",
         "--output", f"{folder}/record", "--duration", str(chosen.seconds)], stdout=log, stderr=log)
    if late:
        stop_again_and_again(recorder, time.monotonic() + chosen.seconds - 3)
    recorder.wait()
    fleet.wait()
    capture.send_signal(signal.SIGINT)
    capture.communicate()
    shutil.rmtree(f"{folder}/record", ignore_errors=True)


def run_case(chosen, name):
    words = ["unshare", "--net"] + (["--map-root-user"] if os.getuid() else [])
    words += [sys.executable, __file__, "--alone", name, "--folder", chosen.folder, "--command", chosen.command,
              "--seconds", str(chosen.seconds), "--cameras", str(chosen.cameras)] + ["--no-pictures"] * chosen.no_pictures
    if not chosen.judge:
        subprocess.run(words, check=True)
    return judge(chosen, name)


def judge(chosen, name):
    """Losses that the cameras counted, those that inspect found, and those of them with the right cause."""
    folder, cause = f"{chosen.folder}/{name}", CASES[name][1]
    with open(f"{folder}/cameras.json") as file:
        cameras = {camera["address"]: camera for camera in json.load(file)["cameras"]}
    found = json.loads(subprocess.run([chosen.command, "inspect", "--json", f"{folder}/field.pcapng"], check=True,
                                      capture_output=True, text=True).stdout)
    links = [(cameras[link["camera"]], link) for link in found["links"]]
    told = sum(sum(link["lost"].values()) for _, link in links)
    counted = sum(camera["lost_by_fault"] for camera, _ in links)
    right = sum(min(camera["lost_by_fault"], link["lost"][cause]) for camera, link in links) if cause else 0
    unknown = sum(link["unknown"] for _, link in links)
    if name == "driver stopped":  # what it did not take is no fault of the cameras, which sent all of it
        counted = sum(camera["frames"] for camera, _ in links) - recorded(f"{folder}/log")
        right = min(counted, sum(link["lost"][cause] for _, link in links))
    return name, cause, counted, told, right, unknown


def main():
    chosen = options()
    if chosen.alone:
        return run_alone(chosen)
    names = chosen.case or list(CASES)
    print("| Fault | Cause | Lost, by the cameras' counters | Lost, by inspect | of these right | unknown |")
    print("|---|---|---|---|---|---|")
    failed = False
    with concurrent.futures.ThreadPoolExecutor(chosen.at_once) as pool:
        for result in pool.map(lambda name: run_case(chosen, name), names):
            name, cause, counted, told, right, unknown = result
            share = right / max(counted, told) if max(counted, told) else 1
            failed = failed or share < 0.95
            cause = cause.replace("_", " ") if cause else "-"
            print(f"| {name} | {cause} | {counted} | {told} | {right} ({100 * share:.1f} %) | {unknown} |", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
