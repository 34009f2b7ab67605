// What is kept on disk: a time line for each camera, played from where somebody clicks, searched and cut out.
import {get} from "./api.js";
import {button, icon, make, pause, setText} from "./dom.js";
import {bytesText, dayText, localInput, shortClockText, spanText} from "./format.js";
import {ticks} from "./lanes.js";
import {RecordedPlayer} from "./recorded_player.js";
import {cameraTitle} from "./states.js";
import {store} from "./store.js";
import {TimeLine} from "./time_line.js";
import {ZoneSearch} from "./zone_search.js";

const spans = {
    600000: "10 minutes",
    3600000: "1 hour",
    21600000: "6 hours",
    86400000: "1 day",
    604800000: "7 days"
};
const refresh = 20000; // ms
const inTime = ({begin, end, ...rest}) => ({...rest, begin: Date.parse(begin), end: Date.parse(end)});

class Recordings {
    constructor(place, signal, number) {
        this.signal = signal;
        this.number = number; // 0: none chosen yet
        this.length = 3600000;
        this.to = null; // null: until now
        this.lines = new Map(); // number -> {line, info, loaded}
        this.marked = null; // {begin, end}
        this.player = new RecordedPlayer(signal, (at) => this.lines.get(this.number)?.line.setTime(at));
        this.search = new ZoneSearch(
            this.player.stage,
            () => ({number: this.number, ...this.shown()}),
            (found) => this.lines.get(this.number)?.line.setFound(found),
            (at) => this.playAt(this.number, at)
        );
        this.export = make(
            "a",
            {class: "button", hidden: true, download: true},
            icon("save"),
            make("span", {}, "Export")
        );
        this.player.bar.append(
            this.search.opener,
            button("Mark begin", null, () => this.mark("begin")),
            button("Mark end", null, () => this.mark("end")),
            this.export
        );
        this.scale = make("div", {class: "scale", "aria-hidden": "true"});
        this.rows = make("div", {class: "timelines"});
        this.problem = make(
            "p",
            {class: "empty", hidden: true},
            "Nothing is kept by this process: give 'plendix " +
                "serve' a configuration with [record], or --recordings FOLDER."
        );
        this.none = false; // the server keeps no recordings
        place.append(
            make("div", {class: "row head"}, make("h1", {}, "Recordings"), this.controls()),
            this.problem,
            make(
                "div",
                {class: "recordings"},
                make(
                    "section",
                    {class: "pictures", "aria-label": "Player"},
                    this.player.stage.element,
                    this.player.bar,
                    this.search.bar,
                    this.search.list
                ),
                make("section", {class: "card lines", "aria-label": "Time lines"}, this.scale, this.rows)
            )
        );
        this.seen = new Set();
        this.watch = new IntersectionObserver((entries) => {
            for (const {target, isIntersecting} of entries) {
                this.seen[isIntersecting ? "add" : "delete"](Number(target.dataset.number));
            }
        });
        signal.addEventListener("abort", () => this.watch.disconnect(), {once: true});
        store.addEventListener("cameras", () => this.build(), {signal});
        document.addEventListener("keydown", (event) => this.leaveSearch(event), {signal, capture: true});
        this.build();
        this.show();
        this.run();
    }

    controls() {
        this.end = make("input", {
            type: "datetime-local",
            step: 1,
            onchange: ({target}) => {
                this.to = target.value ? Date.parse(target.value) : null;
                this.reload();
            }
        });
        return [
            make(
                "label",
                {},
                "Show ",
                make(
                    "select",
                    {
                        onchange: ({target}) => {
                            this.length = Number(target.value);
                            this.reload();
                        }
                    },
                    Object.entries(spans).map(([value, text]) =>
                        make("option", {value, selected: Number(value) === this.length}, text)
                    )
                )
            ),
            make("label", {}, "until ", this.end),
            button("Earlier", "previous", () => this.page(-1), {class: "quiet"}),
            button("Later", "next", () => this.page(1), {class: "quiet"}),
            button(
                "Now",
                null,
                () => {
                    this.to = null;
                    this.end.value = "";
                    this.reload();
                },
                {class: "quiet"}
            )
        ];
    }

    leaveSearch(event) {
        if (event.key !== "Escape" || !this.search.opened) return;
        event.preventDefault(); // not back to the wall as well
        this.search.open(false);
        this.search.opener.focus();
    }

    shown() {
        const to = this.to ?? store.now();
        return {from: to - this.length, to};
    }

    page(by) {
        this.to = this.shown().to + by * this.length;
        this.end.value = localInput(this.to);
        this.reload();
    }

    build() {
        for (const camera of store.list()) {
            if (this.lines.has(camera.number)) continue;
            const {number} = camera;
            const line = new TimeLine(`${number} ${cameraTitle(camera)}`, (at, play) =>
                play ? this.playAt(number, at) : this.choose(number, at)
            );
            const info = make("small");
            const row = make(
                "div",
                {class: "timerow", "data-number": number},
                make("span", {class: "name"}, `${number} ${cameraTitle(camera)}`),
                line.element,
                info
            );
            this.lines.set(number, {line, info, row, loaded: -Infinity});
            this.rows.append(row);
            this.watch.observe(row);
            line.setSpan(...Object.values(this.shown()));
        }
        if (this.number && this.lines.has(this.number) && this.player.number !== this.number) {
            this.choose(this.number, this.shown().to - this.length / 2);
        }
    }

    show() {
        const {from, to} = this.shown();
        this.scale.replaceChildren(
            ...ticks(from, to, 6)
                .filter((at) => at < to - 0.08 * (to - from))
                .map((at) => {
                    const mark = make(
                        "span",
                        {},
                        this.length > 86400000 ? dayText(at) : shortClockText(at)
                    );
                    mark.style.left = `${((at - from) / (to - from)) * 100}%`;
                    return mark;
                })
        );
        for (const {line} of this.lines.values()) line.setSpan(from, to);
        this.lines.get(this.number)?.line.setMarked(this.marked);
    }

    reload() {
        this.none = false;
        for (const entry of this.lines.values()) entry.loaded = -Infinity;
        this.show();
    }

    /// Loads the time lines that are seen, one after the other, and again now and then.
    async run() {
        while (!this.signal.aborted) {
            const now = performance.now();
            const due = this.none
                ? null
                : [...this.seen]
                      .map((number) => this.lines.get(number))
                      .find((e) => now - e.loaded > refresh);
            if (!due || document.hidden) {
                await pause(200, this.signal);
                continue;
            }
            due.loaded = now;
            await this.load(due);
        }
    }

    async load({line, info, row}) {
        if (this.to === null) this.show();
        const {from, to} = this.shown();
        const query = new URLSearchParams({
            from: new Date(from).toISOString(),
            to: new Date(to).toISOString()
        });
        try {
            const {segments, motion} = await get(
                `/api/recordings/${row.dataset.number}?${query}`,
                this.signal
            );
            const kept = segments.map(inTime);
            line.setRecording(kept, motion.map(inTime));
            const length = kept.reduce((sum, {begin, end}) => sum + end - begin, 0);
            const bytes = kept.reduce((sum, segment) => sum + (segment.bytes ?? 0), 0);
            setText(info, kept.length ? `${spanText(length)}, ${bytesText(bytes)}` : "nothing kept");
        } catch (error) {
            if (this.signal.aborted) return;
            setText(info, error.status === 404 ? "not recorded" : error.message);
            this.none = error.status === 404; // then there are none of any camera
        }
        const empty = ![...this.lines.values()].some((entry) => entry.line.segments.length > 0);
        this.problem.hidden = !(this.none || (empty && !store.list().some((camera) => camera.recorded)));
    }

    choose(number, at) {
        if (number !== this.number) this.marked = null;
        for (const [n, {row}] of this.lines) row.classList.toggle("chosen", n === number);
        if (number !== this.number) this.lines.get(this.number)?.line.setFound([]);
        this.number = number;
        this.search.follow(number);
        this.player.stop();
        this.player.choose(number, at);
        this.showMarked();
    }

    playAt(number, at) {
        this.choose(number, at);
        this.lines.get(number)?.line.setTime(at);
        this.player.play();
    }

    mark(edge) {
        const at = this.player.at;
        if (!this.number || at === null) return;
        const {begin, end} = this.marked ?? {begin: at, end: at + 60000};
        this.marked =
            edge === "begin"
                ? {begin: at, end: Math.max(end, at + 1000)}
                : {begin: Math.min(begin, at - 1000), end: at};
        this.showMarked();
    }

    showMarked() {
        this.lines.forEach(({line}, number) => line.setMarked(number === this.number ? this.marked : null));
        this.export.hidden = this.marked === null;
        if (!this.marked) return;
        const query = new URLSearchParams({
            from: new Date(this.marked.begin).toISOString(),
            to: new Date(this.marked.end).toISOString()
        });
        this.export.href = `/api/recordings/${this.number}/export?${query}`;
        setText(this.export.lastElementChild, `Export ${spanText(this.marked.end - this.marked.begin)}`);
    }
}

export function showRecordings(place, signal, number) {
    new Recordings(place, signal, number);
}
