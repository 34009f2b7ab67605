// A rectangle of zones, marked on the picture, in which a recording is searched for motion.
import {get} from "./api.js";
import {button, make, setText} from "./dom.js";
import {momentText, spanText} from "./format.js";
import {store} from "./store.js";
import {visibleZones} from "./zones.js";

const steps = {ArrowLeft: [0, -1], ArrowRight: [0, 1], ArrowUp: [-1, 0], ArrowDown: [1, 0]};
const mostFound = 200;
const wholePicture = {columns: 8, rows: 8, left: 0, top: 0, width: 1 / 8, height: 1 / 8}; // not known

export class ZoneSearch {
    /// `span()` tells where to search: {number, from, to}; `found(spans)` and `play(time)` are told.
    constructor(stage, span, found, play) {
        this.stage = stage;
        this.span = span;
        this.found = found;
        this.play = play;
        this.from = this.to = null; // [row, column] of two corners
        this.number = 0; // the camera whose zones are shown
        this.asked = 0; // searches begun: an answer that was overtaken is left out
        this.cells = new Map();
        this.grid = make("div", {
            class: "zones search",
            role: "group",
            "aria-label": "Zones to search: arrow keys move, with shift they mark",
            onkeydown: (event) => this.steer(event),
            onpointerdown: (event) => this.begin(event),
            onpointermove: (event) => this.pull(event),
            onpointerup: () => {
                this.dragging = false;
            },
            onpointercancel: () => {
                this.dragging = false;
            }
        });
        this.status = make("p", {class: "help", role: "status"});
        this.list = make("ol", {class: "found", "aria-label": "Found"});
        this.opener = button("Search zones", "search", () => this.open(this.grid.parentElement === null), {
            "aria-pressed": false
        });
        this.go = button("Search", "search", () => this.run(), {class: "main"});
        this.bar = make(
            "div",
            {class: "row editbar", hidden: true},
            make("strong", {}, "Search for motion"),
            this.go,
            button("All zones", null, () => this.mark(null, null)),
            button("Close", null, () => this.open(false), {class: "quiet"}),
            this.status
        );
    }

    open(open) {
        this.opener.setAttribute("aria-pressed", open);
        this.bar.hidden = !open;
        this.stage.setEditor(open ? this.grid : null);
        this.forget();
        if (!open) return;
        this.build();
        this.grid.firstElementChild?.focus();
    }

    get opened() {
        return !this.bar.hidden;
    }

    /// Another camera has other zones, and what was found belongs to the one before.
    follow(number) {
        if (!this.opened || number === this.number) return;
        this.from = this.to = null;
        this.forget();
        this.build();
    }

    forget() {
        ++this.asked;
        this.list.replaceChildren();
        this.found([]);
    }

    build() {
        this.number = this.span().number;
        const zones = store.cameras.get(this.number)?.zones ?? wholePicture;
        this.cells.clear();
        this.grid.replaceChildren(
            ...visibleZones(zones).map(({row, column, box}, i) => {
                const cell = make("button", {
                    type: "button",
                    class: "zone",
                    tabindex: i ? -1 : 0,
                    "aria-pressed": false,
                    "data-row": row,
                    "data-column": column,
                    "aria-label": `Row ${row + 1}, column ${column + 1}`,
                    onclick: (event) => event.detail === 0 && this.mark([row, column], [row, column])
                });
                for (const [side, part] of Object.entries(box)) cell.style[side] = `${part * 100}%`;
                this.cells.set(`${row},${column}`, cell);
                return cell;
            })
        );
        this.mark(this.from, this.to);
    }

    /// Null: all zones.
    mark(from, to) {
        this.from = from;
        this.to = to;
        const [rows, columns] = this.ranges() ?? [
            [0, 7],
            [0, 7]
        ];
        for (const cell of this.cells.values()) {
            const {row, column} = cell.dataset;
            cell.setAttribute(
                "aria-pressed",
                from !== null &&
                    row >= rows[0] &&
                    row <= rows[1] &&
                    column >= columns[0] &&
                    column <= columns[1]
            );
        }
        setText(
            this.status,
            from
                ? `rows ${rows[0] + 1} to ${rows[1] + 1}, columns ${columns[0] + 1} to ${columns[1] + 1}`
                : "All zones: draw over some of them, or use arrow keys and space."
        );
    }

    ranges() {
        if (!this.from) return null;
        return [0, 1].map((i) => [Math.min(this.from[i], this.to[i]), Math.max(this.from[i], this.to[i])]);
    }

    placeOf(cell) {
        return [Number(cell.dataset.row), Number(cell.dataset.column)];
    }

    move(cell) {
        for (const other of this.cells.values()) other.tabIndex = other === cell ? 0 : -1;
        cell.focus({preventScroll: true});
    }

    steer(event) {
        const cell = event.target.closest(".zone");
        const step = steps[event.key];
        if (!cell || !step) return;
        event.preventDefault();
        const [row, column] = this.placeOf(cell);
        const next = this.cells.get(`${row + step[0]},${column + step[1]}`);
        if (!next) return;
        this.move(next);
        if (event.shiftKey) this.mark(this.from ?? [row, column], this.placeOf(next));
    }

    cellAt(event) {
        const cell = document.elementFromPoint(event.clientX, event.clientY)?.closest(".zone");
        return cell && this.grid.contains(cell) ? cell : null;
    }

    begin(event) {
        const cell = this.cellAt(event);
        if (!cell || event.button !== 0) return;
        event.preventDefault();
        this.grid.setPointerCapture(event.pointerId);
        this.dragging = true;
        this.move(cell);
        this.mark(this.placeOf(cell), this.placeOf(cell));
    }

    pull(event) {
        const cell = this.dragging ? this.cellAt(event) : null;
        if (cell) this.mark(this.from, this.placeOf(cell));
    }

    async run() {
        const {number, from, to} = this.span();
        if (!number) return setText(this.status, "Choose a camera first: click on its time line.");
        const zones = (
            this.ranges() ?? [
                [0, 7],
                [0, 7]
            ]
        )
            .map((range) => range.join("-"))
            .join(",");
        const query = new URLSearchParams({
            zones,
            from: new Date(from).toISOString(),
            to: new Date(to).toISOString()
        });
        setText(this.status, "Searching");
        const asked = ++this.asked;
        try {
            const {spans} = await get(`/api/recordings/${number}/search?${query}`);
            if (asked !== this.asked) return;
            this.show(
                spans.map((span) => ({...span, begin: Date.parse(span.begin), end: Date.parse(span.end)}))
            );
        } catch (error) {
            if (asked === this.asked) setText(this.status, `Not searched: ${error.message}`);
        }
    }

    show(spans) {
        setText(
            this.status,
            spans.length === 0
                ? "Nothing moved there."
                : spans.length > mostFound
                  ? `${spans.length} found, the first ${mostFound} listed`
                  : `${spans.length} found`
        );
        this.list.replaceChildren(
            ...spans.slice(0, mostFound).map(({begin, end}) =>
                make(
                    "li",
                    {},
                    button(
                        `${momentText(begin)}, ${spanText(end - begin)}`,
                        "play",
                        () => this.play(begin),
                        {class: "quiet"}
                    )
                )
            )
        );
        this.found(spans);
    }
}
