// Messages out of an endless answer: u32 length of the JSON, u32 length of the data, both big-endian, then
// the JSON and the data.
import {ApiError, requireLogin} from "./api.js";

const largest = 64 << 20; // more than any picture has: what comes is no stream of ours

/// Gathers the pieces that fetch() hands out, and gives them back in the sizes that are asked for.
class Pieces {
    constructor(reader) {
        this.reader = reader;
        this.pieces = [];
        this.size = 0;
    }

    /// Exactly `size` bytes, or null when the answer ended before.
    async take(size) {
        while (this.size < size) {
            const {done, value} = await this.reader.read();
            if (done) return null;
            this.pieces.push(value);
            this.size += value.length;
        }
        const bytes = new Uint8Array(size);
        for (let at = 0; at < size;) at += this.move(bytes, at);
        this.size -= size;
        return bytes;
    }

    move(bytes, at) {
        const first = this.pieces[0];
        const part = first.subarray(0, bytes.length - at);
        bytes.set(part, at);
        if (part.length === first.length) this.pieces.shift();
        else this.pieces[0] = first.subarray(part.length);
        return part.length;
    }
}

/// Yields {head, data}; returns when the server ends the stream. Throws ApiError where there is none, and
/// when nothing at all came for `patience` ms: the other end is gone without a word.
export async function* readMessages(path, signal, patience = Infinity) {
    const ending = new AbortController();
    const stop = () => ending.abort();
    signal.addEventListener("abort", stop, {once: true});
    let timer = 0;
    const expect = () => {
        clearTimeout(timer);
        if (patience !== Infinity) timer = setTimeout(stop, patience);
    };
    try {
        expect();
        const response = await fetch(path, {
            cache: "no-store",
            credentials: "same-origin",
            signal: ending.signal
        });
        requireLogin(response.status);
        if (!response.ok) throw new ApiError(response.status, `the server answered ${response.status}`);
        yield* messages(new Pieces(response.body.getReader()), expect);
    } finally {
        clearTimeout(timer);
        signal.removeEventListener("abort", stop);
        ending.abort();
    }
}

async function* messages(pieces, expect) {
    const decoder = new TextDecoder();
    for (;;) {
        const lengths = await pieces.take(8);
        if (lengths === null) return;
        const view = new DataView(lengths.buffer);
        const headLength = view.getUint32(0);
        const dataLength = view.getUint32(4);
        if (headLength > largest || dataLength > largest) throw new ApiError(0, "no stream of pictures");
        const head = await pieces.take(headLength);
        const data = head === null ? null : await pieces.take(dataLength);
        if (data === null) return;
        expect();
        yield {head: JSON.parse(decoder.decode(head)), data};
    }
}
