// One camera with its settings, kept up to date while it is looked at, and what can be done to it.
import {get, patch, post} from "./api.js";
import {every} from "./dom.js";
import {store} from "./store.js";

const telling = new Set(["config", "connection", "state", "relay", "recording", "trigger"]);

/// Dispatches "change" whenever something was heard of the camera.
export class CameraDetail extends EventTarget {
    constructor(number, signal) {
        super();
        this.number = number;
        this.path = `/api/cameras/${number}`;
        this.signal = signal;
        this.camera = store.cameras.get(number) ?? null;
        this.loading = false;
        this.again = false;
        this.changes = 0; // sent: an answer asked for before one of them is older than it
        this.problem = "";
        store.addEventListener(
            "cameras",
            ({detail}) => detail.has(number) && this.merge(store.cameras.get(number)),
            {signal}
        );
        store.addEventListener(
            "event",
            ({detail}) => detail.camera === number && telling.has(detail.kind) && this.load(),
            {signal}
        );
        store.addEventListener("connection", () => store.connected && this.load(), {signal});
        every(1000, signal, () => this.isUnsettled() && this.load());
        this.load();
    }

    /// Something is on its way, or may have to be taken back.
    isUnsettled() {
        const camera = this.camera;
        return (
            camera?.pending?.length > 0 ||
            camera?.undo ||
            camera?.state === "connecting" ||
            camera?.state === "silent"
        );
    }

    merge(camera) {
        if (!camera) return;
        this.camera = {...this.camera, ...camera};
        this.dispatchEvent(new Event("change"));
    }

    async load() {
        if (this.loading) {
            this.again = true;
            return;
        }
        this.loading = true;
        const changes = this.changes;
        try {
            const camera = await get(this.path, this.signal);
            this.problem = "";
            if (changes === this.changes) this.merge(camera);
            else this.again = true;
        } catch (error) {
            if (!this.signal.aborted) this.fail(error);
        }
        this.loading = false;
        if (this.again && !this.signal.aborted) {
            this.again = false;
            this.load();
        }
    }

    fail(error) {
        this.problem = error.status === 404 ? `There is no camera ${this.number}.` : error.message;
        this.dispatchEvent(new Event("change"));
    }

    /// Sends a part of the settings; throws ApiError with the server's words when they are not taken.
    async set(settings) {
        const camera = await patch(this.path, settings);
        ++this.changes;
        this.merge(camera);
    }

    async undo() {
        const camera = await post(`${this.path}/undo`);
        ++this.changes;
        if (camera) this.merge(camera);
        this.load();
    }

    async relay(on, seconds) {
        await post(`${this.path}/relay`, seconds ? {on, seconds} : {on});
    }

    async record(on) {
        await post(`${this.path}/recording`, {on});
    }
}
