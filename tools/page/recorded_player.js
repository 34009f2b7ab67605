// Plays a recording on its stage, from a moment on, at a chosen speed.
import {button, make, setText, swapIcon} from "./dom.js";
import {momentText} from "./format.js";
import {PictureStream} from "./picture_stream.js";
import {Stage} from "./stage.js";
import {store} from "./store.js";

export class RecordedPlayer {
    /// `played(time)` for each picture on the screen.
    constructor(signal, played) {
        this.stage = new Stage();
        this.played = played;
        this.number = 0;
        this.at = null;
        this.speed = 1;
        this.playing = false;
        this.stream = null;
        this.clock = make("output", {class: "clock"}, "");
        this.playButton = button("Play", "play", () => (this.playing ? this.stop() : this.play()), {
            class: "main"
        });
        const skip = (seconds, text) =>
            button(text, null, () => this.at && this.playFrom(this.at + seconds * 1000));
        this.bar = make(
            "div",
            {class: "row toolbar", role: "toolbar", "aria-label": "Playing"},
            this.playButton,
            skip(-10, "10 s back"),
            skip(10, "10 s on"),
            make(
                "label",
                {},
                "Speed ",
                make(
                    "select",
                    {
                        onchange: ({target}) => {
                            this.speed = Number(target.value);
                            if (this.playing) this.play();
                        }
                    },
                    [0.5, 1, 2, 4, 8].map((speed) =>
                        make("option", {value: speed, selected: speed === 1}, `${speed} ×`)
                    )
                )
            ),
            this.clock
        );
        this.stage.tell("Choose a moment on a time line", "", false);
        signal.addEventListener("abort", () => this.stream?.close(), {once: true});
        document.addEventListener("visibilitychange", () => document.hidden && this.stop(), {signal});
    }

    choose(number, at) {
        if (number !== this.number) {
            this.stream?.close();
            this.stream = null;
        }
        this.number = number;
        this.setTime(at);
    }

    setTime(at) {
        this.at = at;
        setText(this.clock, momentText(at));
    }

    playFrom(at) {
        this.setTime(at);
        this.play();
    }

    play() {
        if (!this.number || this.at === null) return;
        this.stream ??= this.makeStream(this.number);
        const from = new Date(this.at).toISOString();
        this.stream.start(
            `/api/recordings/${this.number}/play?from=${encodeURIComponent(from)}&speed=${this.speed}`
        );
        this.stage.tell("");
        this.setPlaying(true);
    }

    makeStream(number) {
        return new PictureStream(
            this.stage,
            {name: `Recording of camera ${number}`, number, recorded: true},
            {
                shown: (head) => this.shown(head),
                ended: (error) => this.ended(error)
            }
        );
    }

    shown(head) {
        if (!head.time) return;
        const at = Date.parse(head.time);
        this.setTime(at);
        this.stage.element.dataset.shown = Number(this.stage.element.dataset.shown ?? 0) + 1;
        this.stage.showZones(store.cameras.get(this.number)?.zones, head.zones);
        this.played(at);
    }

    ended(error) {
        this.setPlaying(false);
        if (!error) this.stage.tell("End of the recording", "", false);
        else
            this.stage.tell(
                "Nothing to play here",
                error.status === 404 ? "Nothing was recorded from then on" : error.message
            );
    }

    stop() {
        this.stream?.stop();
        this.setPlaying(false);
    }

    setPlaying(playing) {
        this.playing = playing;
        swapIcon(this.playButton.firstElementChild, playing ? "pause" : "play");
        setText(this.playButton.lastElementChild, playing ? "Pause" : "Play");
    }
}
