// What is kept on disk: a time line for each camera, played from where somebody clicks, searched and cut out.
import {get} from "./api.js";
import {ClipButton} from "./clip_button.js";
import {button, make, pause, setText} from "./dom.js";
import {bytesText, dayText, shortClockText, spanText} from "./format.js";
import {ticks} from "./lanes.js";
import {RecordedPlayer} from "./recorded_player.js";
import {numberedTitle, unnamed} from "./states.js";
import {store} from "./store.js";
import {TimeLine} from "./time_line.js";
import {TimeSpan} from "./time_span.js";
import {ZoneSearch} from "./zone_search.js";

const refresh = 20000; // ms
const inTime = ({begin, end, ...rest}) => ({...rest, begin: Date.parse(begin), end: Date.parse(end)});

class Recordings {
    constructor(place, signal, number) {
        this.signal = signal;
        this.number = number; // 0: none chosen yet
        this.span = new TimeSpan(() => this.reload());
        this.lines = new Map(); // number -> {line, info, loaded}
        this.marked = null; // {begin, end}
        this.player = new RecordedPlayer(signal, (at) => this.lines.get(this.number)?.line.setTime(at));
        this.search = new ZoneSearch(
            this.player.stage,
            () => ({number: this.number, ...this.shown()}),
            (found) => this.lines.get(this.number)?.line.setFound(found),
            (at) => this.playAt(this.number, at)
        );
        this.clip = new ClipButton(signal);
        this.player.bar.append(
            this.search.opener,
            button("Mark begin", null, () => this.mark("begin")),
            button("Mark end", null, () => this.mark("end")),
            this.clip.element
        );
        this.scale = make("div", {class: "scale", "aria-hidden": "true"});
        this.rows = make("div", {class: "timelines"});
        this.problem = make(
            "p",
            {class: "empty", hidden: true},
            "Nothing was kept in this time. 'plendix serve' keeps pictures where its configuration file has a " +
                "[record] table, and shows those of others with --recordings FOLDER."
        );
        this.none = false; // the server keeps no recordings
        this.body = make(
            "div",
            {class: "recordings"},
            make(
                "section",
                {class: "pictures", "aria-label": "Player"},
                this.player.stage.element,
                this.player.bar,
                this.clip.problem,
                this.clip.told,
                this.search.bar,
                this.search.list
            ),
            make("section", {class: "card lines", "aria-label": "Time lines"}, this.scale, this.rows)
        );
        place.append(
            make("div", {class: "row head"}, make("h1", {}, "Recordings"), this.span.controls),
            this.problem,
            this.body
        );
        this.seen = new Set();
        this.watch = new IntersectionObserver((entries) => {
            for (const {target, isIntersecting} of entries) {
                this.seen[isIntersecting ? "add" : "delete"](Number(target.dataset.number));
            }
        });
        signal.addEventListener("abort", () => this.watch.disconnect(), {once: true});
        store.addEventListener("cameras", () => (this.build(), this.tell()), {signal});
        document.addEventListener("keydown", (event) => this.leaveSearch(event), {signal, capture: true});
        this.build();
        this.show();
        this.learn();
        this.run();
    }

    /// Rows for cameras that are only known from their recordings.
    async learn() {
        const kept = await get("/api/recordings", this.signal).catch(() => null); // the rows tell what fails
        for (const number of kept?.cameras ?? []) {
            if (this.lines.has(number)) continue;
            this.add(number);
            this.setTitle(number, unnamed({number}));
        }
    }

    setTitle(number, title) {
        const {line, name} = this.lines.get(number);
        setText(name, title);
        line.setName(title);
    }

    leaveSearch(event) {
        if (event.key !== "Escape" || !this.search.opened) return;
        event.preventDefault(); // not back to the wall as well
        this.search.open(false);
        this.search.opener.focus();
    }

    shown() {
        const {from, to} = this.span;
        return {from, to};
    }

    build() {
        for (const camera of store.list()) {
            if (!this.lines.has(camera.number)) this.add(camera.number);
            this.setTitle(camera.number, numberedTitle(camera)); // which may be given at any time
        }
        if (this.number && this.lines.has(this.number) && this.player.number !== this.number) {
            this.choose(this.number, this.span.to - this.span.length / 2);
        }
    }

    add(number) {
        const line = new TimeLine((at, play) => (play ? this.playAt(number, at) : this.choose(number, at)));
        const name = make("span", {class: "name"});
        const info = make("small");
        const row = make("div", {class: "timerow", "data-number": number}, name, line.element, info);
        this.lines.set(number, {line, name, info, row, loaded: -Infinity});
        this.rows.append(row);
        this.watch.observe(row);
        line.setSpan(...Object.values(this.shown()));
    }

    show() {
        const {from, to} = this.shown();
        this.scale.replaceChildren(
            ...ticks(from, to, 6)
                .filter((at) => at < to - 0.08 * (to - from))
                .map((at) => {
                    const days = this.span.length > 86400000;
                    const mark = make("span", {}, days ? dayText(at) : shortClockText(at));
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
        if (this.span.until === null) this.show();
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
        this.tell();
    }

    /// Where nothing was kept, and nothing will be; another time may have something.
    tell() {
        const entries = [...this.lines.values()];
        const empty = entries.every(({line}) => line.segments.length === 0);
        const asked = entries.some(({loaded}) => loaded > 0);
        const nothing = this.none || (asked && empty && !store.list().some((camera) => camera.recorded));
        this.problem.hidden = !nothing;
        this.body.hidden = this.none;
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
        this.clip.offer(this.number, this.marked);
    }
}

export function showRecordings(place, signal, number) {
    new Recordings(place, signal, number);
}
