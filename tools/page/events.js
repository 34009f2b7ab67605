// The server's events (Server-Sent Events), read with fetch(): a lost connection is noticed and taken up
// again where it ended, also when the server was restarted or the login had run out meanwhile.
import {ApiError, requireLogin} from "./api.js";
import {pause} from "./dom.js";

const patience = 25000; // ms: the server says something every 10 s

/// Dispatches "open", "lost", and "message" with detail {kind, data}.
export class EventFeed extends EventTarget {
    constructor(path) {
        super();
        this.path = path;
        this.lastId = "0"; // everything that the server still has: the last minutes
        this.ending = null;
    }

    start() {
        if (this.ending) return;
        this.ending = new AbortController();
        this.run(this.ending.signal);
    }

    stop() {
        this.ending?.abort();
        this.ending = null;
    }

    async run(signal) {
        let wait = 250;
        while (!signal.aborted) {
            try {
                await this.follow(signal, () => {
                    wait = 250;
                });
            } catch (error) {
                if (
                    !(error instanceof ApiError) &&
                    error.name !== "AbortError" &&
                    !(error instanceof TypeError)
                ) {
                    console.warn(error);
                }
            }
            if (signal.aborted) return;
            this.dispatchEvent(new Event("lost"));
            await pause(wait, signal);
            wait = Math.min(wait * 2, 4000);
        }
    }

    async follow(signal, opened) {
        const ending = new AbortController();
        const stop = () => ending.abort();
        signal.addEventListener("abort", stop, {once: true});
        let timer = setTimeout(stop, patience);
        try {
            const headers = {Accept: "text/event-stream", "Last-Event-ID": this.lastId};
            const response = await fetch(this.path, {cache: "no-store", headers, signal: ending.signal});
            requireLogin(response.status);
            if (!response.ok) throw new ApiError(response.status, "no events");
            opened();
            this.dispatchEvent(new Event("open"));
            const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
            for (let rest = ""; ;) {
                const {done, value} = await reader.read();
                if (done) return;
                clearTimeout(timer);
                timer = setTimeout(stop, patience);
                rest = this.split(rest + value);
            }
        } finally {
            clearTimeout(timer);
            signal.removeEventListener("abort", stop);
            ending.abort();
        }
    }

    /// Hands out what is whole, returns the rest.
    split(text) {
        const blocks = text.replaceAll("\r\n", "\n").split("\n\n");
        const rest = blocks.pop();
        for (const block of blocks) this.read(block);
        return rest;
    }

    read(block) {
        let kind = "message";
        const data = [];
        for (const line of block.split("\n")) {
            const at = line.indexOf(":");
            if (at === 0) continue; // a comment: the server is there
            const field = at < 0 ? line : line.slice(0, at);
            const value = at < 0 ? "" : line.slice(at + 1).replace(/^ /, "");
            if (field === "event") kind = value;
            else if (field === "data") data.push(value);
            else if (field === "id") this.lastId = value;
        }
        if (data.length === 0 && kind !== "gap") return;
        const text = data.join("\n");
        this.dispatchEvent(new CustomEvent("message", {detail: {kind, data: text ? JSON.parse(text) : {}}}));
    }
}
