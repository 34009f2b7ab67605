// A camera's last hour as a small plot: its rate as a line, lost pictures as bars, motion as a band below.
import {get} from "./api.js";
import {make, makeSvg, pause} from "./dom.js";
import {spanText} from "./format.js";

const width = 180;
const height = 36;
const band = 4; // for motion
const refresh = 30000; // ms

function linePath(values, most) {
    const step = width / Math.max(1, values.length - 1);
    let path = "";
    let pen = "M";
    values.forEach((value, i) => {
        if (value === null) {
            pen = "M"; // nothing is known: a gap
            return;
        }
        const y = (height - band - 2) * (1 - value / most) + 1;
        path += `${pen}${(i * step).toFixed(1)} ${y.toFixed(1)}`;
        pen = "L";
    });
    return path;
}

function bars(values, top, bottom) {
    const step = width / Math.max(1, values.length - 1);
    return values.map((value, i) => (value ? `M${(i * step).toFixed(1)} ${top}V${bottom}` : "")).join("");
}

function inWords(rate, lost, span) {
    const known = rate.filter((value) => value !== null);
    if (known.length === 0) return "nothing known of the last hour";
    const sum = lost.reduce((all, value) => all + (value ?? 0), 0);
    return (
        `last ${spanText(span)}: ${Math.min(...known).toFixed(1)} to ${Math.max(...known).toFixed(1)} ` +
        `pictures a second, ${sum} blocks lost and time-outs`
    );
}

/// The hour ends at the right, however short the history is yet.
const padded = (values, step) => [
    ...Array(Math.max(0, Math.round(3600 / step) - values.length)).fill(null),
    ...values
];

function drawPlot(place, {step_s: step, ...history}) {
    const [rate, lost, motion] = [history.rate, history.lost, history.motion].map((values) =>
        padded(values, step)
    );
    const most = Math.max(1, ...rate.map((value) => value ?? 0));
    place.replaceChildren(
        makeSvg(
            "svg",
            {
                class: "plot",
                viewBox: `0 0 ${width} ${height}`,
                preserveAspectRatio: "none",
                role: "img",
                "aria-label": inWords(rate, lost, history.rate.length * step * 1000)
            },
            makeSvg("path", {class: "motion", d: bars(motion, height - band, height)}),
            makeSvg("path", {class: "lost", d: bars(lost, 1, height - band - 1)}),
            makeSvg("path", {class: "rate", d: linePath(rate, most)})
        )
    );
}

/// Fills the plots that are seen, one request after the other, and again now and then.
export class Plots {
    constructor(signal) {
        this.seen = new Set();
        this.drawn = new WeakMap(); // place -> performance.now()
        this.watch = new IntersectionObserver((entries) => {
            for (const {target, isIntersecting} of entries) {
                if (isIntersecting) this.seen.add(target);
                else this.seen.delete(target);
            }
        });
        signal.addEventListener("abort", () => this.watch.disconnect(), {once: true});
        this.run(signal);
    }

    place(number) {
        const place = make("div", {class: "plotplace", "data-number": number});
        this.watch.observe(place);
        return place;
    }

    async run(signal) {
        while (!signal.aborted) {
            const due = [...this.seen].find(
                (place) => performance.now() - (this.drawn.get(place) ?? -Infinity) > refresh
            );
            if (!due || document.hidden) {
                await pause(200, signal);
                continue;
            }
            this.drawn.set(due, performance.now());
            await get(`/api/history/${due.dataset.number}`, signal).then(
                (history) => drawPlot(due, history),
                () => null
            );
        }
    }
}
