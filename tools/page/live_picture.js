// The live picture of one camera on its stage: never an old one as if it were live.
import {every} from "./dom.js";
import {spanText} from "./format.js";
import {PictureStream} from "./picture_stream.js";
import {stateName, stateReason} from "./states.js";
import {intervalOf, patienceOf, store} from "./store.js";

export class LivePicture {
    /// `told(facts)` is called several times a second: {head, begun, came, lost}.
    constructor(stage, detail, signal, told) {
        this.stage = stage;
        this.detail = detail;
        this.told = told;
        this.shownAt = null; // performance.now() when the newest picture on the screen was taken
        this.facts = {head: null, begun: null, lost: 0, shown: 0};
        this.withZones = true;
        const {camera, number} = detail;
        this.stream = new PictureStream(
            stage,
            {name: `Live picture of camera ${camera?.name || number}`, number},
            {
                shown: (head) => this.shown(head),
                begun: (head) => {
                    this.facts.begun = head;
                },
                came: (head) => {
                    this.facts.lost = head.lost ?? 0;
                }
            }
        );
        const look = () => (document.hidden ? this.stream.stop() : this.stream.start(`/api/live/${number}`));
        document.addEventListener("visibilitychange", look, {signal});
        signal.addEventListener("abort", () => this.stream.close(), {once: true});
        every(200, signal, () => this.tick());
        look();
    }

    shown(head) {
        this.shownAt = performance.now() - (head.age_ms ?? 0);
        this.facts.head = head;
        this.stage.element.dataset.shown = ++this.facts.shown;
        this.drawZones();
        this.tick();
    }

    drawZones() {
        const {camera} = this.detail;
        const mask = camera?.reported?.mask ?? camera?.settings?.mask;
        this.stage.showZones(camera?.zones, this.withZones ? this.facts.head?.zones : null, mask);
    }

    tick() {
        const {camera} = this.detail;
        const age = this.shownAt === null ? null : performance.now() - this.shownAt;
        const ago = age === null ? "" : `, last picture ${spanText(age)} ago`;
        if (!camera) this.stage.tell(this.detail.problem || "Waiting for the server");
        else if (!store.connected && store.known && (age === null || age > 2000))
            this.stage.tell(`Not connected to the server${ago}`);
        else if (camera.state !== "live") this.stage.tell(`${stateName(camera)}${ago}`, stateReason(camera));
        else if (age === null) this.stage.tell("Waiting for the picture", "", false);
        else if (age > patienceOf(intervalOf(camera))) this.stage.tell(`No picture for ${spanText(age)}`);
        else this.stage.tell("");
        this.told(this.facts);
    }
}
