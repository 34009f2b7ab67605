// Spans of time as one SVG path: however many there are, they stay one element.
import {makeSvg, setAttribute} from "./dom.js";

export const laneWidth = 1000; // units from one end of the time shown to the other

/// [{begin, end}] in ms; spans closer than a unit are drawn as one.
export function spanPath(spans, from, to, top, height) {
    const unit = laneWidth / (to - from);
    let path = "";
    let left = null;
    let right = 0;
    const put = () => {
        if (left !== null)
            path += `M${left.toFixed(1)} ${top}H${right.toFixed(1)}V${top + height}H${left.toFixed(1)}Z`;
    };
    for (const {begin, end} of spans) {
        if (end < from || begin > to) continue;
        const x = Math.max(0, (begin - from) * unit);
        const until = Math.min(laneWidth, Math.max(x + 1.5, (end - from) * unit));
        if (left !== null && x <= right + 0.5) {
            right = Math.max(right, until);
            continue;
        }
        put();
        left = x;
        right = until;
    }
    put();
    return path;
}

export function lanes(height, classes, options = {}) {
    const paths = classes.map((name) => makeSvg("path", {class: name}));
    const svg = makeSvg(
        "svg",
        {class: "lanes", viewBox: `0 0 ${laneWidth} ${height}`, preserveAspectRatio: "none", ...options},
        ...paths
    );
    return {svg, draw: (i, path) => setAttribute(paths[i], "d", path)};
}

// Seconds between two marks.
const niceSteps = [10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 14400, 21600, 43200, 86400, 172800, 604800];

/// Whole times between `from` and `to`, at most `most` of them.
export function ticks(from, to, most) {
    const step = 1000 * (niceSteps.find((s) => (to - from) / 1000 / s <= most) ?? niceSteps.at(-1));
    const zone = new Date(from).getTimezoneOffset() * 60000;
    const marks = [];
    for (let at = Math.ceil((from - zone) / step) * step + zone; at < to; at += step) marks.push(at);
    return marks;
}
