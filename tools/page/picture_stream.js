// A stream of pictures, live or recorded, shown by the player that its codec needs.
import {readMessages} from "./binary_stream.js";
import {pause} from "./dom.js";
import {JpegPlayer} from "./jpeg_player.js";
import {MsePlayer, canPlay} from "./mse_player.js";
import {StillPlayer} from "./still_player.js";

const patience = 8000; // ms: live, the server says something every second

export class PictureStream {
    /// handlers: shown(head) for each picture on the screen, begun(head), note(head) for what came without a
    /// picture, ended(error or null). A recorded stream ends; a live one is taken up again.
    constructor(stage, {name, number, recorded = false}, handlers) {
        this.stage = stage;
        this.name = name;
        this.number = number;
        this.recorded = recorded;
        this.handlers = handlers;
        this.player = null;
        this.ending = null;
    }

    start(path) {
        this.stop();
        this.ending = new AbortController();
        this.run(path, this.ending.signal);
    }

    stop() {
        this.ending?.abort();
        this.ending = null;
    }

    /// Stops, and takes the picture away.
    close() {
        this.stop();
        this.player?.close();
        this.player = null;
    }

    async run(path, signal) {
        do {
            let failure = null;
            try {
                for await (const {head, data} of readMessages(
                    path,
                    signal,
                    this.recorded ? Infinity : patience
                )) {
                    if (signal.aborted) return;
                    this.take(head, data);
                }
            } catch (error) {
                failure = error;
            }
            if (signal.aborted) return;
            this.handlers.ended?.(failure);
            await pause(1000, signal);
        } while (!this.recorded && !signal.aborted);
    }

    take(head, data) {
        if (head.begin) this.begin(head, data);
        else if (data.length === 0 || !this.player) this.handlers.note?.(head);
        else {
            this.handlers.came?.(head);
            this.player.show(head, data);
        }
    }

    begin(head, data) {
        const shown = (of) => this.handlers.shown?.(of);
        const playable = head.codec !== "h264" || canPlay(head.mime);
        if (!playable && this.recorded) throw new Error("this browser cannot play H.264: export it instead");
        const kind = head.codec !== "h264" ? JpegPlayer : playable ? MsePlayer : StillPlayer;
        if (this.player?.constructor !== kind) {
            this.player?.close();
            this.player =
                kind === MsePlayer
                    ? new MsePlayer(this.name, shown, this.recorded)
                    : new kind(this.name, shown, this.number);
            this.stage.setPicture(this.player.element);
        }
        this.stage.setShape(head.width, head.height);
        this.player.begin?.(head, data);
        this.handlers.begun?.({...head, playable});
    }
}
