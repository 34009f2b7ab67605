// The recording of one camera as a line of time: what is kept, what moved, what a search found, the part
// that is marked, and where it plays. A click or the arrow keys choose a moment.
import {make, makeSvg, setAttribute} from "./dom.js";
import {clockText, momentText} from "./format.js";
import {laneWidth, lanes, spanPath} from "./lanes.js";

const height = 30;
const moves = {ArrowLeft: -1, ArrowRight: 1, PageDown: -10, PageUp: 10};

export class TimeLine {
    constructor(chosen) {
        this.chosen = chosen;
        const {svg, draw} = lanes(height, ["lane kept", "lane motion", "lane found", "lane marked"], {
            "aria-hidden": "true"
        });
        this.draw = draw;
        this.cursor = makeSvg("path", {class: "cursor"});
        svg.append(this.cursor);
        this.element = make(
            "div",
            {
                class: "timeline",
                role: "slider",
                tabindex: 0,
                "aria-valuemin": 0,
                "aria-valuemax": 1000,
                onclick: (event) => this.point(event),
                onkeydown: (event) => this.steer(event)
            },
            svg
        );
        this.segments = [];
        this.motion = [];
        this.found = [];
        this.setSpan(0, 1);
    }

    setName(name) {
        setAttribute(this.element, "aria-label", `Recording of ${name}`);
    }

    setSpan(from, to) {
        this.from = from;
        this.to = to;
        this.at ??= to;
        this.setTime(Math.min(to, Math.max(from, this.at)));
        this.show();
    }

    setRecording(segments, motion) {
        this.segments = segments;
        this.motion = motion;
        this.show();
    }

    setFound(spans) {
        this.found = spans;
        this.show();
    }

    setMarked(span) {
        this.draw(3, span ? spanPath([span], this.from, this.to, 0, height) : "");
    }

    show() {
        this.draw(0, spanPath(this.segments, this.from, this.to, 10, 8));
        this.draw(1, spanPath(this.motion, this.from, this.to, 1, 8));
        this.draw(2, spanPath(this.found, this.from, this.to, 20, 8));
        this.setTime(this.at);
    }

    setTime(at) {
        this.at = at;
        const part = (at - this.from) / (this.to - this.from);
        const x = (part * laneWidth).toFixed(1);
        setAttribute(this.cursor, "d", part < 0 || part > 1 ? "" : `M${x} 0V${height}`);
        setAttribute(this.element, "aria-valuenow", Math.round(Math.min(1, Math.max(0, part)) * 1000));
        const kept = this.segments.some(({begin, end}) => at >= begin && at < end);
        const moving = this.motion.some(({begin, end}) => at >= begin && at < end);
        setAttribute(
            this.element,
            "aria-valuetext",
            `${momentText(at)}, ${kept ? "recorded" : "not recorded"}${moving ? ", motion" : ""}`
        );
        setAttribute(this.element, "title", clockText(at));
    }

    point(event) {
        const box = this.element.getBoundingClientRect();
        this.choose(this.from + ((event.clientX - box.left) / box.width) * (this.to - this.from), true);
    }

    /// Arrow keys move on by a 200th, page keys by ten of them; enter plays.
    steer(event) {
        const step = (this.to - this.from) / 200;
        if (event.key === "Enter" || event.key === " ") this.choose(this.at, true);
        else if (event.key === "Home") this.choose(this.from, false);
        else if (event.key === "End") this.choose(this.to, false);
        else if (moves[event.key]) this.choose(this.at + step * moves[event.key], false);
        else return;
        event.preventDefault();
    }

    choose(at, play) {
        this.setTime(Math.min(this.to, Math.max(this.from, at)));
        this.chosen(this.at, play);
    }
}
