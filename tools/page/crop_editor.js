// The part of the sensor that is sent: a rectangle on the whole sensor, of which the present picture shows
// its part. Drawn with the pointer, moved with the arrow keys, resized with shift and arrow keys.
import {button, make} from "./dom.js";
import {standing, standingLine} from "./settings_form.js";

const whole = {left: 0, top: 0, width: 10000, height: 10000}; // 1/10000 of the sensor's sides
const least = 500;
const step = 100;
const sides = ["left", "top", "width", "height"];
const keys = {ArrowLeft: [-step, 0], ArrowRight: [step, 0], ArrowUp: [0, -step], ArrowDown: [0, step]};
const clamp = (value, low, high) => Math.min(high, Math.max(low, Math.round(value)));
const percent = (value) => `${value / 100}%`;

function within({left, top, width, height}) {
    const box = {width: clamp(width, least, 10000), height: clamp(height, least, 10000)};
    return {left: clamp(left, 0, 10000 - box.width), top: clamp(top, 0, 10000 - box.height), ...box};
}

function lay(element, box) {
    for (const side of sides) element.style[side] = percent(box[side]);
}

export class CropEditor {
    /// `stage` gets the shape of the whole sensor while this is open.
    constructor(detail, stage, close) {
        this.detail = detail;
        this.stage = stage;
        this.crop = {...whole, ...detail.camera.settings?.crop};
        this.drag = null;
        this.box = make(
            "div",
            {
                class: "cropbox",
                tabindex: 0,
                role: "application",
                "aria-describedby": "crop-help",
                onkeydown: (event) => this.steer(event)
            },
            make("span", {class: "grip"})
        );
        this.element = make(
            "div",
            {
                class: "cropper",
                onpointerdown: (event) => this.begin(event),
                onpointermove: (event) => this.pull(event),
                onpointerup: () => {
                    this.drag = null;
                },
                onpointercancel: () => {
                    this.drag = null;
                }
            },
            this.box
        );
        this.inputs = sides.map((side) =>
            make("input", {
                type: "number",
                min: 0,
                max: 100,
                step: 0.01,
                "data-side": side,
                onchange: ({target}) => this.set({...this.crop, [side]: Number(target.value) * 100})
            })
        );
        this.line = standingLine("crop-standing");
        this.bar = make(
            "div",
            {class: "row editbar"},
            make("strong", {}, "Crop"),
            sides.map((side, i) => make("label", {}, `${side} %`, this.inputs[i])),
            button("Whole", null, () => this.set(whole)),
            button("Apply", null, () => this.apply(), {class: "main"}),
            button("Close", null, () => close(), {class: "quiet"}),
            this.line.element,
            make(
                "p",
                {class: "help", id: "crop-help"},
                "Draw a rectangle, or move it with the arrow keys and resize it with shift and arrow keys."
            )
        );
        this.update();
        this.set(this.crop);
    }

    focus() {
        this.box.focus({preventScroll: true});
    }

    /// The picture lies in its part of the sensor, as the camera has it now.
    update() {
        const camera = this.detail.camera;
        const now = within({...whole, ...(camera.reported?.crop ?? camera.settings?.crop)});
        const {frame} = this.stage;
        if (camera.width > 0)
            this.stage.setEditorShape([camera.width / now.width, camera.height / now.height]);
        for (const side of sides) frame.style.setProperty(`--crop-${side}`, percent(now[side]));
        frame.classList.add("sensor");
        this.line.show(standing(camera, "crop"));
    }

    remove() {
        this.stage.frame.classList.remove("sensor");
        this.stage.setEditorShape(null);
    }

    set(crop) {
        this.crop = within(crop);
        lay(this.box, this.crop);
        for (const input of this.inputs) {
            if (input !== document.activeElement) input.value = this.crop[input.dataset.side] / 100;
        }
        const text = sides.map((side) => `${side} ${percent(this.crop[side])}`).join(", ");
        this.box.setAttribute("aria-label", `Crop: ${text}`);
    }

    steer(event) {
        const by = keys[event.key];
        if (!by) return;
        event.preventDefault();
        const {left, top, width, height} = this.crop;
        this.set(
            event.shiftKey
                ? {
                      left,
                      top,
                      width: Math.min(width + by[0], 10000 - left),
                      height: Math.min(height + by[1], 10000 - top)
                  }
                : {left: left + by[0], top: top + by[1], width, height}
        );
    }

    pointAt(event) {
        const area = this.element.getBoundingClientRect();
        return {
            x: clamp(((event.clientX - area.left) / area.width) * 10000, 0, 10000),
            y: clamp(((event.clientY - area.top) / area.height) * 10000, 0, 10000)
        };
    }

    /// In the rectangle it is moved, at its grip resized, beside it a new one begins.
    begin(event) {
        if (event.button !== 0) return;
        event.preventDefault();
        this.element.setPointerCapture(event.pointerId);
        const from = this.pointAt(event);
        const grip = event.target.closest(".grip");
        const movable = this.crop.width < 10000 || this.crop.height < 10000;
        const inside = movable && event.target.closest(".cropbox");
        this.drag = {from, crop: this.crop, kind: grip ? "size" : inside ? "move" : "draw"};
        this.box.focus({preventScroll: true});
    }

    pull(event) {
        if (!this.drag) return;
        const {from, crop, kind} = this.drag;
        const to = this.pointAt(event);
        const by = {x: to.x - from.x, y: to.y - from.y};
        if (kind === "move") this.set({...crop, left: crop.left + by.x, top: crop.top + by.y});
        else if (kind === "size") {
            this.set({
                ...crop,
                width: Math.min(crop.width + by.x, 10000 - crop.left),
                height: Math.min(crop.height + by.y, 10000 - crop.top)
            });
        } else {
            this.set({
                left: Math.min(from.x, to.x),
                top: Math.min(from.y, to.y),
                width: Math.abs(by.x),
                height: Math.abs(by.y)
            });
        }
    }

    async apply() {
        try {
            await this.detail.set({crop: this.crop});
            this.update();
        } catch (error) {
            this.line.show({kind: "problem", text: `not changed: ${error.message}`});
        }
    }
}
