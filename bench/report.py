"""What was measured, as Markdown and as a plot."""
import datetime
import os
import platform
import re


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1)] + rows
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines) + "\n"


def machine(rounds, turn):
    model = re.search(r"model name\s*: (.*)", open("/proc/cpuinfo").read())
    return (f"{datetime.date.today()}, {model.group(1) if model else platform.machine()}, {os.cpu_count()} cores, "
            f"Linux {platform.release()}, load average {os.getloadavg()[1]:.1f} at the end. "
            f"{rounds} rounds of {turn} s each; medians, with the least and the most in brackets.\n")


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
        table(["client", "µs/block", "MB/s"],
              [[name, cost.text(), rate.text(0)] for name, cost, rate in results["peers"]]),
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


def update(file, text):
    """Replaces what stands between the two marks."""
    page = open(file).read()
    begin, end = "<!-- measured -->\n", "<!-- end -->"
    head, _, rest = page.partition(begin)
    open(file, "w").write(head + begin + "\n" + text + "\n" + end + rest.partition(end)[2])


COLOURS = ("#1b6ca8", "#c8553d", "#588157")


def line(values, top, left, colour, dashes):
    points = [(left + 60 + 90 * i, 260 - 210 * spread.median / top) for i, spread in enumerate(values)]
    path = " ".join(f"{x:.0f},{y:.1f}" for x, y in points)
    yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2" {dashes}/>'
    for (x, y), spread in zip(points, values):
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


def plot(results):
    streams = results["streams"]
    top = 1.15 * max(spread.median for row in streams for spread in (row["floor"], row["driver"]))
    top = max(top, 1.15 * max(cost.median for _, cost, _ in results["peers"]))
    shapes = []
    for panel, codec in enumerate(("JPEG", "H.264")):
        rows = [row for row in streams if row["picture"].codec == codec]
        left, counts = 400 * panel, sorted({row["count"] for row in rows})
        shapes += axes(left, 330, top, f"{codec}: CPU µs per block, by cameras", counts)
        for colour, label in zip(COLOURS, sorted({row["picture"].label for row in rows}, key=len, reverse=True)):
            own = [row for row in rows if row["picture"].label == label]
            shapes += line([row["driver"] for row in own], top, left, colour, "")
            shapes += line([row["floor"] for row in own], top, left, colour, 'stroke-dasharray="4 4"')
    shapes += axes(800, 450, top, "One camera: CPU µs per block, by client", [n for n, _, _ in results["peers"]])
    for i, (_, cost, _) in enumerate(results["peers"]):
        height = 210 * cost.median / top
        shapes.append(f'<rect x="{835 + 90 * i}" y="{260 - height:.1f}" width="50" height="{height:.1f}" '
                      f'fill="{COLOURS[0] if i == 1 else "#999"}"/>')
    for i, (colour, label) in enumerate(zip(COLOURS, ("300 KB", "1.9 MB", "20 KB"))):
        shapes.append(f'<text x="{30 + 110 * i}" y="305" fill="{colour}">frames of {label}</text>')
    shapes.append('<text x="400" y="305">solid: driver, dashed: bare loop; bars: least to most</text>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 1300 320" font-family="sans-serif" '
            'font-size="12"><rect width="1300" height="320" fill="white"/>\n' + "\n".join(shapes) + "\n</svg>\n")
