// One camera on the wall. Its picture is never shown as a live one when it is older than the camera's
// pictures are apart: the tile dims and counts.
import {icon, make, setAttribute, setText, swapIcon} from "./dom.js";
import {rateText, spanText} from "./format.js";
import {numberedTitle, stateName, stateReason, stateSince} from "./states.js";
import {intervalOf, patienceOf} from "./store.js";
import {paintZones} from "./zones.js";

const keptGaps = 5;
const longestGap = 10000; // ms: key frames of a slow camera may be this far apart

export class Tile {
    constructor(camera) {
        this.canvas = make("canvas", {class: "shot", width: 0, height: 0});
        this.context = this.canvas.getContext("2d", {alpha: false});
        this.noticeHead = make("strong");
        this.noticeText = make("span");
        this.notice = make("div", {class: "notice", hidden: true}, this.noticeHead, this.noticeText);
        this.marks = ["motion", "trigger", "relay", "recording"].map((kind) =>
            make("span", {class: `mark ${kind}`, hidden: true, "data-kind": kind}, icon(kind))
        );
        this.stateIcon = icon("connecting");
        this.name = make("span", {class: "name"});
        // To screen readers: what changes all the time is left out.
        this.said = make("span", {class: "unseen"});
        this.rate = make("span", {class: "rate", "aria-hidden": "true"});
        this.age = make("span", {class: "age", "aria-hidden": "true"});
        this.element = make(
            "a",
            {class: "tile", href: `#/camera/${camera.number}`, tabindex: -1, "data-number": camera.number},
            make(
                "div",
                {class: "picture", "aria-hidden": "true"},
                this.canvas,
                this.notice,
                make("div", {class: "marks"}, this.marks)
            ),
            make(
                "div",
                {class: "caption"},
                make("span", {class: "state"}, this.stateIcon),
                this.name,
                this.said,
                this.rate,
                this.age
            )
        );
        this.visible = false;
        this.decoding = false;
        this.waiting = null; // the newest thumbnail that came while one was decoded
        this.forget();
        this.update(camera);
    }

    /// The picture is gone, and with it the memory of its canvas.
    forget() {
        this.canvas.width = this.canvas.height = 0;
        this.waiting = null;
        this.pictureAt = null; // performance.now() when what is shown was taken
        this.lastTime = null;
        this.gaps = [];
    }

    update(camera) {
        this.camera = camera;
        setAttribute(this.element, "data-state", camera.state);
        swapIcon(this.stateIcon, camera.state);
        setText(this.name, numberedTitle(camera));
        setText(this.rate, camera.state === "live" ? rateText(camera.rate) : stateName(camera));
        const active = this.marks
            .filter((mark) => {
                mark.hidden = camera[mark.dataset.kind] !== true;
                return !mark.hidden;
            })
            .map((mark) => mark.dataset.kind);
        setText(
            this.said,
            ["", stateName(camera), stateReason(camera), ...active].filter((text, i) => !i || text).join(", ")
        );
        if (camera.state === "off" || camera.state === "refused") this.forget();
        this.tick(performance.now());
    }

    setVisible(visible) {
        this.visible = visible;
        if (!visible) this.forget();
    }

    /// A thumbnail has come; only the newest waits to be decoded.
    async offer(head, data) {
        if (!this.visible) return;
        this.waiting = {head, data, came: performance.now()};
        if (this.decoding) return;
        this.decoding = true;
        while (this.waiting) {
            const next = this.waiting;
            this.waiting = null;
            await this.show(next).catch(() => null); // a picture that is none is left out
        }
        this.decoding = false;
    }

    async show({head, data, came}) {
        const bitmap = await createImageBitmap(new Blob([data], {type: "image/jpeg"}));
        if (this.visible) {
            if (this.canvas.width !== bitmap.width) this.canvas.width = bitmap.width;
            if (this.canvas.height !== bitmap.height) this.canvas.height = bitmap.height;
            this.context.drawImage(bitmap, 0, 0);
            paintZones(this.context, this.camera.zones, head.zones);
            this.noteTime(Date.parse(head.time));
            this.pictureAt = came - (head.age_ms ?? 0);
            this.element.dataset.shown = Number(this.element.dataset.shown ?? 0) + 1;
            this.tick(performance.now());
        }
        bitmap.close();
    }

    noteTime(time) {
        const gap = time - this.lastTime;
        if (this.lastTime !== null && gap > 0 && this.camera.state === "live") {
            this.gaps.push(Math.min(gap, longestGap));
            if (this.gaps.length > keptGaps) this.gaps.shift();
        }
        this.lastTime = time;
    }

    /// Of an H.264 camera key frames come, which may be farther apart than its pictures: their median.
    interval() {
        const sorted = [...this.gaps].sort((a, b) => a - b);
        return Math.max(intervalOf(this.camera), sorted[sorted.length >> 1] ?? 0);
    }

    isOld(age) {
        const limit = patienceOf(this.interval());
        const {age_ms: told, heard, state} = this.camera;
        const toldOld = told > limit && (this.pictureAt === null || heard > this.pictureAt + limit);
        return state !== "live" || age > limit || toldOld;
    }

    /// Several times a second.
    tick(now) {
        if (!this.visible) return;
        const age = this.pictureAt === null ? null : now - this.pictureAt;
        const old = age !== null && this.isOld(age);
        this.element.classList.toggle("old", old);
        // The camera sends, but thumbnails come late: not live either, and the age says so.
        const late = age !== null && !old && age > patienceOf(intervalOf(this.camera));
        this.element.classList.toggle("late", late);
        setText(this.age, age === null ? "" : spanText(age));
        const [head, text] = this.noticeWords(age, old);
        this.notice.hidden = head === "";
        setText(this.noticeHead, head);
        setText(this.noticeText, text);
    }

    noticeWords(age, old) {
        const since = age === null ? "" : `, last picture ${spanText(age)} ago`;
        if (this.camera.state !== "live") {
            const time = stateSince(this.camera);
            return [
                `${stateName(this.camera)}${since || (time && ` for ${time}`)}`,
                stateReason(this.camera)
            ];
        }
        if (old) return [`No picture for ${spanText(age)}`, ""];
        return age === null ? ["Waiting for the picture", ""] : ["", ""];
    }
}
