// The settings of one camera. Each change is sent at once and shown as pending until the driver reports it;
// what it reports differently is shown beside what was wanted.
import {icon, make, setText, swapIcon} from "./dom.js";
import {groups, isNamed, makeControl, settingsWith, valueAt} from "./settings_fields.js";

const words = (value) =>
    value === null || value === undefined || value === ""
        ? "its own"
        : value === true
          ? "on"
          : value === false
            ? "off"
            : String(value);

/// What is on its way, taken otherwise, or refused: "" when all is as wanted.
export function standing(camera, name) {
    if (isNamed(camera.pending, name)) return {kind: "pending", text: "sent, not reported back yet"};
    const reported = valueAt(camera.reported, name);
    const same = JSON.stringify(reported) === JSON.stringify(valueAt(camera.settings, name));
    if (!isNamed(camera.differs, name) || same) return null; // "relay" differs: one of its parts does
    return {
        kind: "differs",
        text:
            typeof reported === "object" && reported !== null
                ? "the camera has it otherwise"
                : `the camera has ${words(reported)}`
    };
}

/// The line below a field, for screen readers its description.
export function standingLine(id) {
    const mark = icon("wait");
    const text = make("span");
    const element = make("p", {class: "standing", id, hidden: true}, mark, text);
    const show = (status) => {
        element.hidden = status === null;
        if (!status) return;
        element.dataset.kind = status.kind;
        swapIcon(mark, {pending: "wait", differs: "differs", problem: "silent"}[status.kind]);
        setText(text, status.text);
    };
    return {element, show};
}

class Field {
    constructor(field, detail) {
        this.field = field;
        this.detail = detail;
        this.refusal = null;
        const id = `setting-${field.name.replace(".", "-")}`;
        this.control = makeControl(field, id, (value) => this.send(value));
        this.line = standingLine(`${id}-standing`);
        this.control.input.setAttribute("aria-describedby", `${id}-standing`);
        this.element = make(
            "div",
            {class: `field ${field.kind}`},
            make("label", {for: id}, field.label, field.hint ? make("small", {}, ` ${field.hint}`) : null),
            make("div", {class: "control"}, this.control.extra, this.control.input),
            this.line.element
        );
    }

    async send(value) {
        const {input} = this.control;
        this.refusal = input.validity.valid ? null : {kind: "problem", text: input.validationMessage};
        if (this.refusal) return this.show();
        try {
            await this.detail.set(settingsWith(this.field.name, value));
        } catch (error) {
            this.refusal = {kind: "problem", text: `not changed: ${error.message}`};
        }
        this.show();
    }

    show() {
        const camera = this.detail.camera;
        if (!camera?.settings) return;
        // Nothing is written under the hands of somebody who is typing.
        if (
            !this.control.inputs.includes(document.activeElement) ||
            this.control.inputs[0].type === "checkbox"
        ) {
            if (!this.refusal) {
                this.control.write(
                    valueAt(camera.settings, this.field.name) ?? null,
                    valueAt(camera.reported, this.field.name) ?? null
                );
            }
        }
        this.line.show(this.refusal ?? standing(camera, this.field.name));
    }
}

export function settingsForm(detail, signal) {
    const fields = [];
    const sections = groups.map(({title, fields: of}) => {
        const made = of.map((field) => new Field(field, detail));
        fields.push(...made);
        return make(
            "fieldset",
            {},
            make("legend", {}, title),
            made.map((field) => field.element)
        );
    });
    const show = () => {
        for (const section of sections) section.disabled = !detail.camera?.settings; // nothing is known yet
        for (const field of fields) field.show();
    };
    detail.addEventListener("change", show, {signal});
    const form = make(
        "form",
        {
            class: "settings",
            "aria-label": "Settings",
            onsubmit: (event) => event.preventDefault(),
            onfocusout: () => setTimeout(show)
        },
        sections
    );
    show();
    return form;
}
