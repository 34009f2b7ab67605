// The one connection that brings the thumbnails of all tiles, and what the server is told of those seen.
import {post} from "./api.js";
import {readMessages} from "./binary_stream.js";
import {pause} from "./dom.js";
import {store} from "./store.js";

const gathering = 120; // ms: scrolling changes what is seen with every picture

export class WallStream {
    constructor(signal, take) {
        this.take = take;
        this.wish = {visible: [], width: 320, rate: 5};
        this.id = null;
        this.timer = 0;
        this.ending = null;
        signal.addEventListener("abort", () => this.stop(), {once: true});
        // A page that nobody sees takes no pictures, and leaves its connection to other pages.
        const look = () => (document.hidden || !store.connected ? this.stop() : this.start());
        document.addEventListener("visibilitychange", look, {signal});
        store.addEventListener("connection", look, {signal});
        look();
    }

    start() {
        if (this.ending) return;
        this.ending = new AbortController();
        this.run(this.ending.signal);
    }

    stop() {
        this.ending?.abort();
        this.ending = null;
        this.id = null;
        clearTimeout(this.timer);
        this.timer = 0;
    }

    async run(signal) {
        while (!signal.aborted) {
            try {
                for await (const {head, data} of readMessages("/api/wall", signal)) {
                    if (signal.aborted) break;
                    if (head.id !== undefined) this.begin(head.id);
                    else this.take(head, data);
                }
            } catch {
                /* the connection: the banner tells */
            }
            if (!signal.aborted) this.id = null;
            await pause(1000, signal);
        }
    }

    begin(id) {
        this.id = id;
        this.tell();
    }

    see(wish) {
        this.wish = wish;
        this.timer ||= setTimeout(() => this.tell(), gathering);
    }

    async tell() {
        clearTimeout(this.timer);
        this.timer = 0;
        if (this.id === null) return;
        try {
            await post(`/api/wall/${this.id}`, this.wish);
        } catch {
            const signal = this.ending?.signal; // once more, as long as this stream lives
            await pause(1000, signal);
            if (signal && !signal.aborted) this.timer ||= setTimeout(() => this.tell(), gathering);
        }
    }
}
