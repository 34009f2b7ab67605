"""What was measured, as Markdown and as a plot."""
import datetime
import os
import platform
import re
import subprocess


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1)] + rows
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines) + "\n"


def commit():
    """What is measured; a changed document does not change it."""
    def git(*words):
        return subprocess.run(["git", *words], capture_output=True, text=True).stdout.strip()
    changed = git("status", "--porcelain", "--untracked-files=no", "--", ":/", ":!/docs")
    return git("describe", "--always") + ("-dirty" if changed else "")


def machine(rounds, turn):
    model = re.search(r"model name\s*: (.*)", open("/proc/cpuinfo").read())
    return (f"{datetime.date.today()}, {model.group(1) if model else platform.machine()}, {os.cpu_count()} cores, "
            f"Linux {platform.release()}, load average {os.getloadavg()[1]:.1f} at the end. "
            f"{rounds} round{'s' * (rounds > 1)} of {turn} s each; medians, with the least and the most in brackets.\n")


def stream_rows(streams):
    for row in streams:
        picture, frames = row["picture"], row["blocks"].median / row["picture"].blocks
        yield [f"{picture.codec} {picture.bytes / 1000:.0f} KB", row["count"], row["floor"].text(),
               row["driver"].text(), row["ratio"].text(), f"{row['floor_blocks'].median:.0f}",
               f"{row['blocks'].median:.0f}", f"{frames:.1f}", f"{frames * picture.bytes * 8 / 1e6:.0f}",
               f"{row['resident'] / row['count']:.0f}", f"{row['switches'].median:.0f}"]


def markdown(results, rounds, turn):
    count, share, growth = results["idle"]
    parts = [
        machine(rounds, turn), "### Driver and bare loop\n",
        table(["frames", "cameras", "bare loop µs/block", "driver µs/block", "ratio", "bare blocks/s", "blocks/s",
               "frames/s", "Mbit/s", "KB resident per camera", "context switches/s"],
              list(stream_rows(results["streams"]))),
        "### Stock clients, one camera, the largest JPEG frame\n",
        table(["client", "one core: µs/block", "MB/s", "two cores: µs/block", "MB/s"],
              [[name, cost.text(), rate.text(0), cost_apart.text(), rate_apart.text(0)]
               for (name, cost, rate), (_, cost_apart, rate_apart) in
               zip(results["peers"], results["peers_apart"])]),
        "### The bare loop in other manners, one camera, the largest JPEG frame, one core\n",
        table(["client", "µs/block", "ratio to the bare loop"],
              [[name, cost.text(), ratio.text()] for name, cost, ratio in results["manners"]]),
        "### Start-up, from the configuration document to all cameras streaming\n",
        table(["answers", "cameras", "CPU ms", "CPU ms per camera", "configuration documents", "seconds"],
              [[label, cameras, cpu.text(0), f"{cpu.median / cameras:.2f}", documents.text(0), wall.text()]
               for label, cameras, cpu, documents, wall in results["start_up"]]),
        "### Idle: configured, no video\n",
        table(["cameras", "% of a core", "MB resident", "KB per camera"],
              [[count, share.text(), f"{growth / 1000:.1f}", f"{growth / count:.0f}"]]),
        "### Latency and length of a pass, microseconds\n",
        table(["cameras", "frames", "last block to callback: median", "99 %", "pass: median", "99 %"],
              [[cameras, label, *(spread.text(0) for spread in spreads)]
               for cameras, label, *spreads in results["latency"]]),
        "### Parts by themselves\n",
        table(["part", "time"], [[name, f"{value:.1f} {unit}".replace("us", "µs")]
                                 for name, value, unit in results["micro"]])]
    return "\n".join(parts)


def update(file, text, mark="measured"):
    """Replaces what stands between the mark and the end."""
    page = open(file).read()
    begin, end = f"<!-- {mark} -->\n", "<!-- end -->"
    head, _, rest = page.partition(begin)
    open(file, "w").write(head + begin + "\n" + text + "\n" + end + rest.partition(end)[2])


COLOURS = ("#1b6ca8", "#c8553d", "#588157")


def line(spreads, top, left, shift, colour):
    points = [(left + 60 + 90 * i + shift, 260 - 210 * spread.median / top) for i, spread in enumerate(spreads)]
    path = " ".join(f"{x:.0f},{y:.1f}" for x, y in points)
    yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
    for (x, y), spread in zip(points, spreads):
        low, high = (260 - 210 * min(value, top) / top for value in (spread.low, spread.high))
        yield f'<path d="M{x:.0f} {low:.1f}V{high:.1f}" stroke="{colour}" stroke-opacity="0.5"/>'
        yield f'<circle cx="{x:.0f}" cy="{y:.1f}" r="3" fill="{colour}"/>'


def axes(left, width, top, title, labels):
    yield f'<text x="{left + 30}" y="24" font-weight="bold">{title}</text>'
    for i in range(5):
        y = 260 - 210 * i / 4
        yield f'<path d="M{left + 30} {y}h{width}" stroke="#ddd"/>'
        yield f'<text x="{left + 25}" y="{y + 4}" text-anchor="end">{top * i / 4:.1f}</text>'
    for i, label in enumerate(labels):
        yield f'<text x="{left + 60 + 90 * i}" y="280" text-anchor="middle">{label}</text>'


def ratio_panel(rows, left, title):
    top, limit = 1.6, 1.15
    yield from axes(left, 330, top, title, sorted({row["count"] for row in rows}))
    y = 260 - 210 * limit / top
    yield f'<path d="M{left + 30} {y:.1f}h330" stroke="black" stroke-dasharray="4 4"/>'
    yield f'<text x="{left + 300}" y="{y - 5:.1f}">limit {limit}</text>'
    for i, (colour, label) in enumerate(zip(COLOURS, ("20 KB", "300 KB", "1.9 MB"))):
        own = [row["ratio"] for row in rows if row["picture"].label == label]
        yield from line(own, top, left, 6 * (i - 1), colour)
        yield f'<text x="{left + 30 + 110 * i}" y="305" fill="{colour}">frames of {label}</text>'


def client_panel(peers, left):
    peers = [peer for peer in peers if peer[1].known]
    top = 4 * (int(max(cost.high for _, cost, _ in peers)) // 4 + 1)
    yield from axes(left, 450, top, "CPU µs per block, one camera, one core", [name for name, _, _ in peers])
    for i, (name, cost, _) in enumerate(peers):
        y, low, high = (260 - 210 * value / top for value in (cost.median, cost.low, cost.high))
        x, colour = left + 60 + 90 * i, COLOURS[0] if name == "driver" else "#999"
        yield f'<rect x="{x - 25}" y="{y:.1f}" width="50" height="{260 - y:.1f}" fill="{colour}"/>'
        yield f'<path d="M{x} {low:.1f}V{high:.1f}" stroke="black"/>'


def plot(results):
    shapes = []
    for panel, codec in enumerate(("JPEG", "H.264")):
        rows = [row for row in results["streams"] if row["picture"].codec == codec]
        shapes += ratio_panel(rows, 400 * panel, f"{codec}: CPU per block, driver / bare loop, by cameras")
    shapes += client_panel(results["peers"], 800)
    shapes.append('<text x="830" y="305">medians; thin lines: least to most</text>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 1300 320" font-family="sans-serif" '
            'font-size="12"><rect width="1300" height="320" fill="white"/>\n' + "\n".join(shapes) + "\n</svg>\n")
