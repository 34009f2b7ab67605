// JPEG pictures as they come, on a canvas. One is decoded at a time; the newest waits, others are left out.
import {make} from "./dom.js";

export class JpegPlayer {
    constructor(name, shown) {
        this.element = make("canvas", {class: "shot", role: "img", "aria-label": name});
        this.context = this.element.getContext("2d", {alpha: false});
        this.shown = shown;
        this.waiting = null;
        this.busy = false;
        this.closed = false;
    }

    show(head, data) {
        this.waiting = {head, data};
        if (!this.busy) this.decode();
    }

    async decode() {
        this.busy = true;
        while (this.waiting && !this.closed) {
            const {head, data} = this.waiting;
            this.waiting = null;
            try {
                await this.draw(head, data);
            } catch {
                /* what the camera sent is no picture: the next one may be */
            }
        }
        this.busy = false;
    }

    async draw(head, data) {
        const bitmap = await createImageBitmap(new Blob([data], {type: "image/jpeg"}));
        if (!this.closed) {
            if (this.element.width !== bitmap.width) this.element.width = bitmap.width;
            if (this.element.height !== bitmap.height) this.element.height = bitmap.height;
            this.context.drawImage(bitmap, 0, 0);
            this.shown(head);
        }
        bitmap.close();
    }

    close() {
        this.closed = true;
        this.waiting = null;
        this.element.width = this.element.height = 0;
        this.element.remove();
    }
}
