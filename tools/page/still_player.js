// For browsers that cannot play the camera's H.264: its newest key frame, made a JPEG by the server.
import {JpegPlayer} from "./jpeg_player.js";

const interval = 1000; // ms

export class StillPlayer extends JpegPlayer {
    constructor(name, shown, number) {
        super(name, shown);
        this.number = number;
        this.last = 0;
    }

    /// Called with each fragment, whose data is of no use here.
    async show(head) {
        const now = performance.now();
        if (now - this.last < interval) return;
        this.last = now;
        const response = await fetch(`/camera/${this.number}.jpg`, {cache: "no-store"}).catch(() => null);
        if (response?.ok && !this.closed) super.show(head, await response.arrayBuffer());
    }
}
