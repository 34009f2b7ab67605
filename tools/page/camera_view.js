// One camera: its picture at full rate, what is drawn over it, its events, and its settings.
import {cameraControls} from "./camera_controls.js";
import {CameraDetail} from "./camera_detail.js";
import {CropEditor} from "./crop_editor.js";
import {button, icon, make, setText, swapIcon} from "./dom.js";
import {eventStrip} from "./event_strip.js";
import {codecText, rateText} from "./format.js";
import {LivePicture} from "./live_picture.js";
import {MaskEditor} from "./mask_editor.js";
import {settingsForm} from "./settings_form.js";
import {Stage} from "./stage.js";
import {cameraTitle, numberedTitle, stateName} from "./states.js";
import {store} from "./store.js";

const marks = [
    ["motion", "Motion"],
    ["trigger", "Trigger"],
    ["relay", "Relay"],
    ["recording", "Recording mark"],
    ["recorded", "Kept on disk"]
];

/// Nothing is kept of a camera that sends nothing.
const isMarked = (camera, kind) =>
    camera[kind] === true && (kind !== "recorded" || camera.state === "live");

class CameraView {
    constructor(place, signal, number) {
        this.number = number;
        this.detail = new CameraDetail(number, signal);
        this.stage = new Stage();
        this.editor = null;
        this.facts = make("p", {class: "facts"});
        this.editorPlace = make("div");
        const controls = cameraControls(this.detail, signal);
        place.append(
            this.header(),
            make(
                "div",
                {class: "camera"},
                make(
                    "div",
                    {class: "pictures"},
                    controls.undo,
                    this.stage.element,
                    this.toolbar(),
                    this.editorPlace,
                    this.facts,
                    eventStrip(number, signal)
                ),
                make(
                    "div",
                    {class: "side"},
                    controls.element,
                    make(
                        "details",
                        {class: "card", open: true},
                        make("summary", {}, make("h2", {}, "Settings")),
                        settingsForm(this.detail, signal)
                    )
                )
            )
        );
        this.live = new LivePicture(this.stage, this.detail, signal, (facts) => this.tell(facts));
        this.detail.addEventListener("change", () => this.update(), {signal});
        document.addEventListener("keydown", (event) => this.leaveEditor(event), {signal, capture: true});
        this.update();
    }

    header() {
        this.title = make("h1", {});
        this.state = make("span", {class: "chip state", hidden: true}, icon("connecting"), make("span"));
        this.chips = marks.map(([kind, text]) =>
            make("span", {class: `chip ${kind}`, "data-kind": kind, hidden: true}, icon(kind), text)
        );
        const step = (by, name, iconName) =>
            button(name, iconName, () => this.go(by), {class: "quiet narrow", title: name});
        return make(
            "div",
            {class: "row head"},
            make(
                "a",
                {class: "button quiet narrow", href: "#/", title: "All cameras (Esc)"},
                icon("back"),
                make("span", {}, "All cameras")
            ),
            this.title,
            this.state,
            this.chips,
            make("span", {class: "space"}),
            make("span", {}, step(-1, "Previous camera", "previous"), step(1, "Next camera", "next"))
        );
    }

    toolbar() {
        this.zonesButton = button("Zones", "zones", () => this.switchZones(), {"aria-pressed": true});
        this.maskButton = button("Mask", "mask", () => this.edit(this.maskButton, MaskEditor), {
            "aria-pressed": false
        });
        this.cropButton = button("Crop", "crop", () => this.edit(this.cropButton, CropEditor), {
            "aria-pressed": false
        });
        return make(
            "div",
            {class: "row toolbar", role: "toolbar", "aria-label": "Picture"},
            this.zonesButton,
            this.maskButton,
            this.cropButton,
            button("Full screen", "full", () => this.stage.element.requestFullscreen?.()),
            make(
                "a",
                {class: "button", href: `/camera/${this.number}.jpg`, download: `camera-${this.number}.jpg`},
                icon("save"),
                make("span", {}, "Save picture")
            )
        );
    }

    go(by) {
        const cameras = store.list();
        const at = cameras.findIndex((camera) => camera.number === this.number);
        const next = cameras[(at + by + cameras.length) % cameras.length];
        if (next) location.hash = `#/camera/${next.number}`;
    }

    switchZones() {
        this.live.withZones = !this.live.withZones;
        this.zonesButton.setAttribute("aria-pressed", this.live.withZones);
        this.live.drawZones();
    }

    /// Opens an editor over the picture; a second press, or Esc, closes it.
    edit(opener, Editor) {
        const again = this.editor instanceof Editor;
        this.closeEditor();
        if (again || !this.detail.camera?.settings) return;
        this.editor =
            Editor === MaskEditor
                ? new MaskEditor(this.detail, () => this.closeEditor())
                : new CropEditor(this.detail, this.stage, () => this.closeEditor());
        this.opener = opener;
        opener.setAttribute("aria-pressed", true);
        this.stage.setEditor(this.editor.element);
        this.editorPlace.replaceChildren(this.editor.bar);
        this.live.drawZones();
        this.editor.focus();
    }

    closeEditor() {
        if (!this.editor) return;
        this.editor.remove?.();
        this.editor = null;
        this.stage.setEditor(null);
        this.editorPlace.replaceChildren();
        this.opener.setAttribute("aria-pressed", false);
        this.opener.focus();
        this.live.drawZones();
    }

    leaveEditor(event) {
        if (event.key !== "Escape" || !this.editor) return;
        event.preventDefault(); // not back to the wall as well
        this.closeEditor();
    }

    update() {
        const {camera} = this.detail;
        if (!camera) {
            setText(this.title, this.detail.problem || `Camera ${this.number}`);
            return;
        }
        setText(this.title, numberedTitle(camera));
        document.title = `${cameraTitle(camera)} - Plendix`;
        this.state.hidden = false;
        this.state.dataset.state = camera.state;
        swapIcon(this.state.firstElementChild, camera.state);
        setText(this.state.lastElementChild, stateName(camera));
        for (const chip of this.chips) chip.hidden = !isMarked(camera, chip.dataset.kind);
        this.editor?.update();
    }

    tell({begun, lost}) {
        const {camera} = this.detail;
        if (!camera) return;
        const size = camera.width ? `${camera.width} × ${camera.height}` : "";
        setText(
            this.facts,
            [
                codecText(camera.codec),
                size,
                camera.state === "live" ? rateText(camera.rate) : "",
                camera.address,
                camera.model ? `model ${camera.model}` : "",
                camera.firmware ? `firmware ${camera.firmware}` : "",
                /[1-9A-F]/i.test(camera.serial ?? "") ? camera.serial : "",
                lost ? `${lost} pictures left out for this viewer` : "",
                begun && !begun.playable ? "this browser cannot play its H.264: a picture a second" : ""
            ]
                .filter(Boolean)
                .join(" · ")
        );
    }
}

export function showCamera(place, signal, number) {
    new CameraView(place, signal, number);
}
