// Which part of the recordings is looked at: how long, and until when; until now it moves on by itself.
import {button, make} from "./dom.js";
import {localInput} from "./format.js";
import {store} from "./store.js";

const lengths = {
    600000: "10 minutes",
    3600000: "1 hour",
    21600000: "6 hours",
    86400000: "1 day",
    604800000: "7 days"
};

export class TimeSpan {
    /// `changed()` is called when somebody chose another one.
    constructor(changed) {
        this.length = 3600000; // ms
        this.until = null; // null: now
        this.changed = changed;
        this.end = make("input", {
            type: "datetime-local",
            step: 1,
            onchange: ({target}) => this.set(target.value ? Date.parse(target.value) : null)
        });
        this.controls = [
            make("label", {}, "Show ", this.choice()),
            make("label", {}, "until ", this.end),
            button("Earlier", "previous", () => this.page(-1), {class: "quiet"}),
            button("Later", "next", () => this.page(1), {class: "quiet"}),
            button("Now", null, () => this.set(null), {class: "quiet"})
        ];
    }

    choice() {
        return make(
            "select",
            {
                onchange: ({target}) => {
                    this.length = Number(target.value);
                    this.changed();
                }
            },
            Object.entries(lengths).map(([value, text]) =>
                make("option", {value, selected: Number(value) === this.length}, text)
            )
        );
    }

    get to() {
        return this.until ?? store.now();
    }

    get from() {
        return this.to - this.length;
    }

    set(until) {
        this.until = until;
        this.end.value = until === null ? "" : localInput(until);
        this.changed();
    }

    /// What is to come has not been recorded.
    page(by) {
        const until = this.to + by * this.length;
        this.set(until < store.now() ? until : null);
    }
}
