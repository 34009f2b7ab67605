// H.264 as fragments, through Media Source Extensions, at the live edge: a little late it plays faster,
// far behind it jumps; over a lost fragment it jumps to what comes behind it; a decoder that fails is
// replaced by a new one at the next key frame.
import {make} from "./dom.js";

const Source = window.ManagedMediaSource ?? window.MediaSource;
const lost = 0.8; // s behind the newest picture: jump

/// How much faster than the pictures come, so many seconds behind the newest one.
const hurry = (behind) => (behind > 0.22 ? 1.5 : behind > 0.15 ? 1.25 : behind > 0.1 ? 1.1 : 1);

const keptSeconds = 12; // behind what is shown
const mostWaiting = 120; // fragments: more are a page that could not keep up
const mostHeads = 300;

export const canPlay = (mime) => Source !== undefined && Source.isTypeSupported(mime);

export class MsePlayer {
    /// `recorded`: pictures may come faster or slower than they were taken.
    constructor(name, shown, recorded) {
        this.element = make("video", {
            class: "shot",
            muted: true,
            playsinline: true,
            autoplay: true,
            disablepictureinpicture: true,
            "aria-label": name
        });
        this.element.muted = true;
        this.element.disableRemotePlayback = true; // what a managed source asks for
        this.element.addEventListener("error", () => this.restart());
        this.shown = shown;
        this.recorded = recorded;
        this.closed = false;
        this.restarts = 0;
        this.watchFrames();
    }

    begin(head, init) {
        this.mime = head.mime;
        this.init = init;
        this.open();
    }

    open() {
        this.queue = [this.init];
        this.heads = []; // of pictures appended and not shown yet
        this.needsKey = true;
        this.interval = 0.05; // s between pictures, as they come
        this.pace = 1; // seconds of pictures in a second
        this.last = null;
        this.buffer = null;
        const source = new Source();
        this.source = source;
        source.addEventListener("sourceopen", () => this.attach(source), {once: true});
        if (this.url) URL.revokeObjectURL(this.url);
        this.url = URL.createObjectURL(source);
        this.element.src = this.url;
    }

    attach(source) {
        if (this.closed || source !== this.source) return;
        const buffer = source.addSourceBuffer(this.mime);
        this.buffer = buffer;
        buffer.addEventListener("updateend", () => {
            if (buffer === this.buffer) this.appended();
        });
        this.pump();
    }

    restart() {
        if (this.closed || !this.init) return;
        this.element.dataset.restarts = ++this.restarts;
        this.open();
    }

    show(head, fragment) {
        if (this.queue.length > mostWaiting) {
            this.queue.length = 0;
            this.needsKey = true;
        }
        if (this.needsKey && !head.key) return;
        this.needsKey = false;
        this.measure(head);
        this.heads.push(head);
        if (this.heads.length > mostHeads) this.heads.shift();
        this.queue.push(fragment);
        this.pump();
    }

    measure(head) {
        const now = performance.now();
        if (this.last) {
            const step = (head.pts_ms - this.last.pts) / 1000;
            const passed = Math.max(0.001, (now - this.last.now) / 1000);
            if (step > 0 && step < 5) this.interval += (step - this.interval) * 0.2;
            const pace = Math.min(8, Math.max(0.25, step / passed));
            if (this.recorded && step > 0) this.pace += (pace - this.pace) * 0.1;
        }
        this.last = {pts: head.pts_ms, now};
    }

    pump() {
        if (!this.buffer || this.buffer.updating || this.queue.length === 0) return;
        if (this.source.readyState !== "open") return;
        try {
            this.buffer.appendBuffer(this.queue.shift());
        } catch (error) {
            if (error.name !== "QuotaExceededError") return this.restart();
            this.queue.length = 0; // what builds on the fragment that did not fit is of no use
            this.needsKey = true;
            this.trim(1);
        }
    }

    appended() {
        if (this.closed || this.source.readyState !== "open") return;
        this.followEdge();
        this.trim(keptSeconds);
        this.pump();
    }

    followEdge() {
        const video = this.element;
        const ranges = video.buffered;
        if (ranges.length === 0) return;
        const begin = ranges.start(ranges.length - 1);
        const newest = Math.max(begin, ranges.end(ranges.length - 1) - this.interval);
        const behind = newest - video.currentTime;
        video.dataset.behindMs = Math.round(behind * 1000);
        if (video.currentTime < begin || behind > lost * Math.max(1, this.pace)) video.currentTime = newest;
        else video.playbackRate = this.pace * hurry(behind);
        if (video.paused) video.play().catch(() => null);
    }

    trim(seconds) {
        const {buffered, currentTime} = this.element;
        if (this.buffer.updating || buffered.length === 0 || buffered.start(0) > currentTime - 2 * seconds)
            return;
        this.buffer.remove(0, currentTime - seconds);
    }

    /// What belongs to the picture that is shown now, for what is drawn over it.
    watchFrames() {
        const next = (now, frame) => {
            if (this.closed) return;
            const until = frame.mediaTime * 1000 + 1;
            let head = null;
            while (this.heads?.length > 0 && this.heads[0].pts_ms <= until) head = this.heads.shift();
            if (head) this.shown(head);
            this.element.requestVideoFrameCallback(next);
        };
        if (this.element.requestVideoFrameCallback) this.element.requestVideoFrameCallback(next);
        else
            this.element.addEventListener(
                "timeupdate",
                () => this.last && this.shown(this.heads.at(-1) ?? {})
            );
    }

    close() {
        this.closed = true;
        this.queue = [];
        this.element.removeAttribute("src");
        this.element.load(); // lets go of decoder and buffers
        if (this.url) URL.revokeObjectURL(this.url);
        this.element.remove();
    }
}
