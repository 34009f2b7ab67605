// All cameras as a table that can be sorted, and the driver's log.
import {every, icon, make, setText, swapIcon} from "./dom.js";
import {number, rateText, spanText} from "./format.js";
import {logView} from "./log_view.js";
import {Plots} from "./plot.js";
import {numberedTitle, stateName, stateOrder, stateReason, stateSince} from "./states.js";
import {lastHeard, store} from "./store.js";

const counter = (name, title) => ({
    title,
    numeric: true,
    text: (camera) => number(camera.counters?.[name] ?? 0),
    key: (camera) => camera.counters?.[name] ?? 0
});

/// Since the camera was heard of; grows between two reports.
const ageOf = (camera) =>
    camera.age_ms === null || camera.age_ms === undefined
        ? null
        : camera.age_ms + (camera.state === "live" && store.connected ? 0 : performance.now() - camera.heard);

const columns = [
    {title: "Camera", key: (camera) => camera.number},
    {title: "State", key: (camera) => stateOrder.indexOf(camera.state)},
    {title: "Since", text: stateSince, key: (camera) => camera.since ?? ""},
    counter("frames", "Pictures"),
    {
        title: "Rate",
        numeric: true,
        text: (camera) => (camera.state === "live" ? rateText(camera.rate) : ""),
        key: (camera) => camera.rate ?? 0
    },
    counter("lost_blocks", "Lost"),
    counter("timeouts", "Time-outs"),
    {
        title: "Reconnections",
        numeric: true,
        key: (camera) => camera.counters?.connections ?? 0,
        text: (camera) => number(Math.max(0, (camera.counters?.connections ?? 0) - 1))
    },
    {
        title: "Last picture",
        numeric: true,
        key: (camera) => ageOf(camera) ?? Infinity,
        text: (camera) => (ageOf(camera) === null ? "none" : `${spanText(ageOf(camera))} ago`)
    },
    {title: "Last hour: rate, losses, motion", plot: true}
];
let sorting = {column: 1, up: true}; // trouble first

const compare = (a, b) => (a < b ? -1 : a > b ? 1 : 0);

class Row {
    constructor(camera, plots) {
        this.link = make("a", {href: `#/camera/${camera.number}`});
        this.mark = icon(camera.state);
        this.state = make("span");
        this.reason = make("small", {class: "reason"});
        this.cells = columns
            .slice(2)
            .map((column) =>
                make(
                    "td",
                    {class: column.numeric ? "numeric" : null},
                    column.plot ? plots.place(camera.number) : null
                )
            );
        this.element = make(
            "tr",
            {},
            make("th", {scope: "row"}, this.link),
            make(
                "td",
                {class: "statecell"},
                make("span", {class: "state"}, this.mark, this.state),
                this.reason
            ),
            this.cells
        );
    }

    update(camera) {
        this.camera = camera;
        this.element.dataset.state = camera.state;
        setText(this.link, numberedTitle(camera));
        swapIcon(this.mark, camera.state);
        setText(this.state, ` ${stateName(camera)}`);
        setText(this.reason, stateReason(camera));
        columns.slice(2).forEach((column, i) => column.text && setText(this.cells[i], column.text(camera)));
    }
}

class Health {
    constructor(place, signal) {
        this.rows = new Map();
        this.plots = new Plots(signal);
        this.summary = make("p", {class: "summary"});
        this.heads = columns.map((column, i) =>
            make(
                "th",
                {scope: "col", class: column.numeric ? "numeric" : null},
                column.plot
                    ? column.title
                    : make(
                          "button",
                          {type: "button", class: "sort", onclick: () => this.sortBy(i)},
                          column.title
                      )
            )
        );
        this.body = make("tbody");
        const table = make(
            "table",
            {class: "health"},
            make("caption", {class: "unseen"}, "Health of all cameras"),
            make("thead", {}, make("tr", {}, this.heads)),
            this.body
        );
        place.append(
            make("div", {class: "row head"}, make("h1", {}, "Health"), this.summary),
            make(
                "div",
                {class: "scroll card", tabindex: 0, role: "region", "aria-label": "Table of all cameras"},
                table
            ),
            logView(signal)
        );
        store.addEventListener("cameras", ({detail}) => this.update(detail), {signal});
        store.addEventListener("connection", () => this.update([]), {signal});
        every(1000, signal, () => this.update(store.cameras.keys()));
        every(5000, signal, () => this.sort());
        this.update(store.cameras.keys());
    }

    update(numbers) {
        let others = false;
        for (const n of numbers) {
            const camera = store.cameras.get(n);
            if (!camera) {
                this.rows.get(n)?.element.remove();
                this.rows.delete(n);
                continue;
            }
            if (!this.rows.has(n)) {
                this.rows.set(n, new Row(camera, this.plots));
                others = true;
            }
            this.rows.get(n).update(camera);
        }
        if (others) this.sort();
        const cameras = store.list();
        const counts = stateOrder.map((state) => [
            state,
            cameras.filter((camera) => camera.state === state).length
        ]);
        setText(
            this.summary,
            lastHeard() +
                counts
                .filter(([, count]) => count > 0)
                .map(([state, count]) => `${count} ${stateName({state}).toLowerCase()}`)
                .join(", ")
        );
    }

    sortBy(i) {
        sorting = {column: i, up: sorting.column === i ? !sorting.up : true};
        this.sort(true);
    }

    /// Rows stay where they are under the pointer and under the focus, unless somebody asked.
    sort(asked = false) {
        this.heads.forEach((head, i) => {
            if (i === sorting.column) head.setAttribute("aria-sort", sorting.up ? "ascending" : "descending");
            else head.removeAttribute("aria-sort");
        });
        if (!asked && (this.body.contains(document.activeElement) || this.body.matches(":hover"))) return;
        const {key} = columns[sorting.column];
        const sign = sorting.up ? 1 : -1;
        const rows = [...this.rows.values()].sort(
            (a, b) => sign * compare(key(a.camera), key(b.camera)) || a.camera.number - b.camera.number
        );
        if (rows.every((row, i) => this.body.children[i] === row.element)) return;
        this.body.append(...rows.map((row) => row.element));
    }
}

export function showHealth(place, signal) {
    new Health(place, signal);
}
