// Saves the marked part of a recording as a file: the browser fetches it, like any download.
import {get} from "./api.js";
import {button, make, setText} from "./dom.js";
import {spanText} from "./format.js";

const longest = 3600000; // ms: the server makes none that is longer

export class ClipButton {
    constructor(signal) {
        this.signal = signal;
        this.number = 0;
        this.span = null; // {begin, end}
        this.element = button("Export", "save", () => this.save(), {hidden: true});
        this.problem = make("p", {class: "problem", role: "alert"});
    }

    offer(number, span) {
        this.number = number;
        this.span = span;
        this.element.hidden = span === null;
        if (span) setText(this.element.lastElementChild, `Export ${spanText(span.end - span.begin)}`);
        const long = span !== null && span.end - span.begin > longest;
        this.element.disabled = long;
        setText(this.problem, long ? "A clip is an hour at most: mark a shorter time." : "");
    }

    /// A download that fails tells nobody why: so first whether there is a clip at all.
    async save() {
        const {number, span} = this;
        const [from, to] = [span.begin, span.end].map((time) => new Date(time).toISOString());
        const path = `/api/recordings/${number}/export?${new URLSearchParams({from, to})}`;
        try {
            await get(`${path}&check=1`, this.signal);
            make("a", {href: path, download: ""}).click();
        } catch (error) {
            if (this.span === span) setText(this.problem, `Not exported: ${error.message}`);
        }
    }
}
