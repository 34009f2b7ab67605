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
        this.told = make("p", {role: "status"});
    }

    offer(number, span) {
        this.number = number;
        this.span = span;
        this.element.hidden = span === null;
        this.show(false);
        setText(this.problem, this.long() ? "A clip is an hour at most: mark a shorter time." : "");
        setText(this.told, "");
    }

    long() {
        return this.span !== null && this.span.end - this.span.begin > longest;
    }

    show(busy) {
        this.element.disabled = busy || this.long();
        const text = this.span ? `Export ${spanText(this.span.end - this.span.begin)}` : "Export";
        setText(this.element.lastElementChild, busy ? "Exporting…" : text);
    }

    /// A download that fails tells nobody why: so first whether there is a clip at all.
    async save() {
        const {number, span} = this;
        this.show(true);
        setText(this.problem, "");
        setText(this.told, "");
        const [from, to] = [span.begin, span.end].map((time) => new Date(time).toISOString());
        const path = `/api/recordings/${number}/export`;
        const query = new URLSearchParams({from, to});
        let problem = "";
        try {
            await get(`${path}/check?${query}`, this.signal);
            make("a", {href: `${path}?${query}`, download: ""}).click();
        } catch (error) {
            problem = `Not exported: ${error.message}`;
        }
        if (this.span !== span) return;
        this.show(false);
        setText(this.problem, problem);
        setText(this.told, problem ? "" : "The download begins when the clip is made.");
    }
}
