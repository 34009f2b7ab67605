"""Behind scripts/night and the test record.night: a recorder and its cameras in a network and on disks of their
own, and all that can go wrong in a night (night_run.py). night_judge.py says what became of it."""
import argparse
import os
import pickle
import shutil
import subprocess
import sys

import night_judge
import night_plot
import night_run

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def options():
    parser = argparse.ArgumentParser()
    parser.add_argument("seconds", type=int, nargs="?", default=1800)
    parser.add_argument("cameras", type=int, nargs="?", default=255)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--update", action="store_true", help="docs/night.svg")
    parser.add_argument("--command", default=f"{ROOT}/build/release/tools/plendix")
    parser.add_argument("--clock", default=f"{ROOT}/build/release/tests/record/libwall_clock.so")
    parser.add_argument("--folder", default="/tmp/plendix-night", help="for what is left to look at")
    return parser.parse_args()


def alone(chosen):
    """This program again, in namespaces of its own, all of whose processes end with it."""
    if os.environ.get("PLENDIX_NIGHT") == "alone":
        return
    words = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
    words += [] if os.getuid() == 0 else ["--map-root-user"]
    trial = subprocess.run(words + ["mount", "-t", "tmpfs", "night", "/mnt"], stderr=subprocess.DEVNULL)
    if shutil.which("ffmpeg") is None or trial.returncode != 0:
        print("night: needs ffmpeg, and a mount namespace", file=sys.stderr)
        sys.exit(77)
    shutil.rmtree(chosen.folder, ignore_errors=True)
    os.makedirs(chosen.folder)
    os.environ["PLENDIX_NIGHT"] = "alone"
    os.execvp(words[0], words + [sys.executable] + sys.argv)


def main():
    chosen = options()
    alone(chosen)
    night = night_run.Night(chosen)
    night.prepare()
    night.run()
    with open(f"{night.folder}/night.pickle", "wb") as file:
        pickle.dump({name: value for name, value in vars(night).items() if name not in night_run.HANDLES}, file)
    faults = night_judge.judge(night)
    if chosen.update and not faults:
        open(f"{ROOT}/docs/night.svg", "w").write(night_plot.plot(night))
    sys.exit(1 if faults else 0)


main()
