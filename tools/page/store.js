// What the server said of its cameras last, and the events of the last minutes. One for the whole page.
import {get} from "./api.js";
import {EventFeed} from "./events.js";

const keptEvents = 4000;
const keptFor = 15 * 60000; // ms
const again = 1000; // ms until a list that did not come is asked for again
const marks = new Set(["state", "motion", "trigger", "relay", "recording", "connection", "storage", "clock"]);

/// Dispatches "cameras" (detail: Set of numbers), "event" (detail: the driver's event) and "connection".
class CameraStore extends EventTarget {
    constructor() {
        super();
        this.cameras = new Map();
        this.events = []; // oldest first
        this.open = false; // events come
        this.connected = false; // and the list was told
        this.asked = 0; // lists of cameras
        this.known = false; // the cameras were told at least once
        this.version = null;
        this.clockAhead = 0; // ms that the server's clock is ahead of ours
        this.feed = new EventFeed("/api/events");
        this.feed.addEventListener("open", () => {
            this.open = true;
            this.load();
        });
        this.feed.addEventListener("lost", () => this.close());
        this.feed.addEventListener("message", ({detail}) => this.take(detail.kind, detail.data));
    }

    get running() {
        return this.feed.ending !== null;
    }

    start() {
        if (this.running) return;
        this.feed.start();
        this.dispatchEvent(new Event("connection")); // not connected yet, and that may last
    }

    stop() {
        this.feed.stop();
        this.close();
    }

    close() {
        this.open = false;
        this.setConnected(false);
    }

    now() {
        return Date.now() + this.clockAhead;
    }

    list() {
        return [...this.cameras.values()].sort((a, b) => a.number - b.number);
    }

    setConnected(connected) {
        if (this.connected === connected) return;
        this.connected = connected;
        this.dispatchEvent(new Event("connection"));
    }

    /// The whole list: at each connection, and when a camera was removed.
    async load() {
        const asked = ++this.asked;
        const begun = performance.now();
        try {
            const {time, version, cameras} = await get("/api/cameras");
            if (asked !== this.asked) return; // a newer list is on its way
            this.clockAhead = Date.parse(time) - Date.now();
            this.version = version ?? null;
            this.known = true;
            const gone = new Set(this.cameras.keys());
            for (const camera of cameras) gone.delete(camera.number);
            for (const number of gone) this.cameras.delete(number);
            // What the events told meanwhile is not older, and what comes next builds on it.
            const told = ({number}) => this.cameras.get(number)?.heard > begun;
            this.merge(
                cameras.filter((camera) => !told(camera)),
                gone
            );
            this.setConnected(this.open);
        } catch {
            if (asked !== this.asked) return;
            this.setConnected(false);
            setTimeout(() => this.open && asked === this.asked && this.load(), again);
        }
    }

    merge(cameras, changed = new Set()) {
        const heard = performance.now();
        for (const camera of cameras) {
            this.cameras.set(camera.number, {...this.cameras.get(camera.number), ...camera, heard});
            changed.add(camera.number);
        }
        this.dispatchEvent(new CustomEvent("cameras", {detail: changed}));
    }

    take(kind, data) {
        if (kind === "cameras") return this.merge(data.cameras);
        if (kind === "gap" || data.values?.removed) this.load();
        if (marks.has(kind)) this.keep({...data, kind, at: Date.parse(data.time)});
        this.dispatchEvent(new CustomEvent("event", {detail: {...data, kind}}));
    }

    keep(event) {
        this.events.push(event);
        const oldest = this.now() - keptFor;
        let stale = Math.max(0, this.events.length - keptEvents);
        while (stale < this.events.length && this.events[stale].at < oldest) ++stale;
        this.events.splice(0, stale);
    }

    eventsOf(number) {
        return this.events.filter((event) => event.camera === number);
    }
}

export const store = new CameraStore();

/// Before what is said of cameras: what was true when the server was there.
export const lastHeard = () =>
    store.connected || !store.known ? "" : "Not connected, when last heard of: ";

/// Milliseconds between two pictures of this camera.
export function intervalOf(camera) {
    return camera?.rate > 0 ? 1000 / camera.rate : 1000;
}

/// A picture older than this is shown as an old one: two of its intervals, at least 2 s.
export function patienceOf(interval) {
    return Math.max(2000, 2 * interval);
}
