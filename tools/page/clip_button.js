// Saves the marked part of a recording as a file.
import {getBlob} from "./api.js";
import {button, make, setText} from "./dom.js";
import {spanText} from "./format.js";

const longest = 3600000; // ms: the server makes none that is longer
const download = 60000; // ms until the browser has surely taken what it is given

export class ClipButton {
    constructor(signal) {
        this.signal = signal;
        this.number = 0;
        this.span = null; // {begin, end}
        this.busy = false;
        this.element = button("Export", "save", () => this.save(), {hidden: true});
        this.problem = make("p", {class: "problem", role: "alert"});
    }

    offer(number, span) {
        this.number = number;
        this.span = span;
        this.element.hidden = span === null;
        const long = span !== null && span.end - span.begin > longest;
        setText(this.problem, long ? "A clip is an hour at most: mark a shorter time." : "");
        this.element.disabled = long || this.busy;
        if (!this.busy && span) this.tell(`Export ${spanText(span.end - span.begin)}`);
    }

    tell(text) {
        setText(this.element.lastElementChild, text);
    }

    async save() {
        const {number, span} = this;
        this.busy = true;
        this.element.disabled = true;
        this.tell("Exporting…");
        const [from, to] = [span.begin, span.end].map((time) => new Date(time).toISOString());
        let problem = "";
        try {
            const query = new URLSearchParams({from, to});
            const clip = await getBlob(`/api/recordings/${number}/export?${query}`, this.signal);
            this.keep(clip, `camera-${number}-${from.slice(0, 19).replaceAll(":", "-")}.mkv`);
        } catch (error) {
            if (this.signal.aborted) return;
            problem = `Not exported: ${error.message}`;
        }
        this.busy = false;
        this.offer(this.number, this.span);
        if (problem) setText(this.problem, problem);
    }

    keep(clip, name) {
        const url = URL.createObjectURL(clip);
        make("a", {href: url, download: name}).click();
        setTimeout(() => URL.revokeObjectURL(url), download);
    }
}
