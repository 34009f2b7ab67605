"""Draws a night: the recorder's memory and its disk, and what happened meanwhile."""

LEFT, RIGHT = 60, 760


def plot(night):
    end = night.now_at_end
    at = lambda moment: LEFT + (RIGHT - LEFT) * moment / end
    shapes = []
    for title, column, unit, top in (("Memory of the recorder, MB", 2, 1 << 10, 30),
                                     ("Its recordings, MB", 5, 1 << 20, 190)):
        bottom = top + 120
        limit = 20 * (1 + max(sample[column] for sample in night.samples) // unit // 20)
        shapes.append(f'<text x="{LEFT}" y="{top - 10}" font-weight="bold">{title}</text>')
        for begin, until, _ in night.fills:
            x, width = at(begin), max(2, at(until) - at(begin))
            shapes.append(f'<rect x="{x:.1f}" y="{top}" width="{width:.1f}" height="120" fill="#f2c9a1"/>')
        kills, steps = [begin for begin, _ in night.kills], [moment for moment, _ in night.steps[1:]]
        for moments, colour in (kills, "#c0392b"), (steps, "#888"):
            shapes += [f'<path d="M{at(moment):.1f} {top}V{bottom}" stroke="{colour}" stroke-dasharray="3"/>'
                       for moment in moments]
        for i in range(5):
            y, x = bottom - 30 * i, LEFT + (RIGHT - LEFT) * i / 4
            shapes.append(f'<path d="M{LEFT} {y}H{RIGHT}" stroke="#ddd"/><text x="{LEFT - 6}" y="{y + 4}" '
                          f'text-anchor="end">{limit * i / 4:.0f}</text><text x="{x}" y="{bottom + 16}" '
                          f'text-anchor="middle">{end / 60 * i / 4:.3g}</text>')
        points = " ".join(f"{at(s[0]):.1f},{bottom - 120 * s[column] / unit / limit:.1f}" for s in night.samples)
        shapes.append(f'<polyline points="{points}" fill="none" stroke="#1b6ca8" stroke-width="1.5"/>')
    shapes.append(f'<text x="{LEFT}" y="350">by minutes; red: kill -9, grey: the clock was set, orange: the disk '
                  'was full</text>')
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 800 360" font-family="sans-serif" '
            'font-size="12"><rect width="800" height="360" fill="white"/>\n' + "\n".join(shapes) + "\n</svg>\n")
