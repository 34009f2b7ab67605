"""Behind scripts/soak: builds and runs the test program, tells and plots what it wrote down."""
import os
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LOG = f"{ROOT}/build/soak.log"


def numbers():
    words = [word for word in sys.argv[1:] if word != "--update"]
    values = [int(word) for word in words if word.isdigit()] + [1800, 255][len(words):]
    if len(values) != 2 or len(words) > 2 or values[0] < 1 or not 1 <= values[1] <= 255:
        print(f"soak: '{' '.join(words)}': give seconds, and cameras from 1 to 255", file=sys.stderr)
        sys.exit(2)
    return values


def run(seconds, cameras):
    for command in (["cmake", "--preset", "release"],
                    ["cmake", "--build", "--preset", "release", "--target", "soak_test"]):
        subprocess.run(command, check=True, stdout=sys.stderr, cwd=ROOT)
    if os.path.exists(LOG):
        os.remove(LOG)
    environment = dict(os.environ, PLENDIX_SOAK_SECONDS=str(seconds), PLENDIX_SOAK_CAMERAS=str(cameras),
                       PLENDIX_SOAK_LOG=LOG)
    with open(f"{ROOT}/build/soak.out", "w") as output:
        return subprocess.run([f"{ROOT}/build/release/tests/soak_test"], env=environment, stdout=output).returncode


def plot(samples):
    left, right, top, bottom = 60, 760, 30, 230
    seconds, limit = samples[-1][0] or 1, 10 * (1 + max(kilobytes for _, kilobytes, _ in samples) // 10240)
    points = " ".join(f"{left + (right - left) * second / seconds:.1f},"
                      f"{bottom - (bottom - top) * kilobytes / 1024 / limit:.1f}" for second, kilobytes, _ in samples)
    shapes = [f'<text x="{left}" y="18" font-weight="bold">Memory of the driver\'s process, MB, by minutes</text>']
    for i in range(5):
        y, x = bottom - (bottom - top) * i / 4, left + (right - left) * i / 4
        shapes.append(f'<path d="M{left} {y}H{right}" stroke="#ddd"/>'
                      f'<text x="{left - 6}" y="{y + 4}" text-anchor="end">{limit * i / 4:.0f}</text>'
                      f'<text x="{x}" y="{bottom + 18}" text-anchor="middle">{seconds / 60 * i / 4:.3g}</text>')
    shapes.append(f'<polyline points="{points}" fill="none" stroke="#1b6ca8" stroke-width="2"/>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 800 260" font-family="sans-serif" font-size="12">'
            '<rect width="800" height="260" fill="white"/>\n' + "\n".join(shapes) + "\n</svg>\n")


def main():
    seconds, cameras = numbers()
    failed = run(seconds, cameras)
    text = open(LOG).read() if os.path.exists(LOG) else ""
    samples = [tuple(map(int, line)) for line in re.findall(r"^(\d+) (\d+) (\d+)$", text, re.M)]
    counts = [tuple(map(int, line)) for line in re.findall(r"sent (\d+) lost (\d+) delivered (\d+)", text)]
    if not samples:
        sys.exit(f"soak: the run ended early, see {ROOT}/build/soak.out")
    print(f"{cameras} cameras, {seconds} s: {sum(sent for sent, _, _ in counts)} pictures sent whole, "
          f"{sum(got for _, _, got in counts)} delivered, {sum(lost for _, lost, _ in counts)} lost by faults")
    print("".join(re.findall(r"all again.*", text)))
    print("memory, MB: " + ", ".join(f"{samples[i][1] / 1024:.1f} after {samples[i][0]} s" for i in
                                     sorted({len(samples) * part // 10 for part in (1, 2, 5, 8)} | {len(samples) - 1})))
    if "--update" in sys.argv and not failed:
        open(f"{ROOT}/docs/soak.svg", "w").write(plot(samples))
    if failed:
        sys.exit(f"soak: failed, see {ROOT}/build/soak.out")


main()
