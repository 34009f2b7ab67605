// The fields of the settings: what they are called, how they are read and written. A field that is left
// empty is null: the camera's own, all, or the whole of it.
import {make} from "./dom.js";

const levels = (name, label, most, step) => ({name, label, kind: "level", least: 1, most, slider: step});

export const groups = [
    {
        title: "Camera",
        fields: [
            {name: "enabled", label: "Camera on", kind: "check"},
            {name: "name", label: "Name", kind: "text", longest: 64},
            {name: "address", label: "Address", kind: "text", longest: 15}
        ]
    },
    {
        title: "Pictures",
        fields: [
            {
                name: "codec",
                label: "Codec",
                kind: "choice",
                choices: [
                    ["", "the camera's own"],
                    ["jpeg", "JPEG"],
                    ["h264", "H.264"]
                ]
            },
            {
                name: "size",
                label: "Size",
                kind: "text",
                empty: "whole",
                pattern: "\\d{1,5}x\\d{1,5}",
                hint: "as 800x600; empty: whole"
            },
            {name: "rate", label: "Pictures a second", kind: "number", least: 1, most: 60, empty: "all"},
            levels("quality", "Quality", 10, 10),
            levels("brightness", "Brightness", 255, 100),
            levels("saturation", "Saturation", 255, 100),
            levels("sharpness", "Sharpness", 255, 100)
        ]
    },
    {title: "Motion", fields: [levels("sensitivity", "Sensitivity", 10, 10)]},
    {
        title: "Trigger and relay",
        fields: [
            {name: "trigger.name", label: "Trigger name", kind: "text", longest: 64, empty: "Trigger"},
            {name: "trigger.normally_closed", label: "Trigger is normally closed", kind: "check"},
            {name: "relay.name", label: "Relay name", kind: "text", longest: 64, empty: "Alarm"},
            {name: "relay.normally_low", label: "Relay is normally low", kind: "check"}
        ]
    }
];

/// "relay.name" of {"relay": {"name": "Lamp"}}
export const valueAt = (settings, name) =>
    name
        .split(".")
        .reduce((part, key) => (part === null || part === undefined ? undefined : part[key]), settings);

/// The other way round.
export function settingsWith(name, value) {
    return name
        .split(".")
        .reverse()
        .reduce((part, key) => ({[key]: part}), value);
}

/// Whether one of these names ("crop", "relay.name") is the field's or that of the table it is in.
export const isNamed = (names, field) =>
    (names ?? []).some(
        (name) => name === field || field.startsWith(`${name}.`) || name.startsWith(`${field}.`)
    );

const numberOf = (text) => (text.trim() === "" ? null : Number(text));

function checkControl({id, changed}) {
    const input = make("input", {
        type: "checkbox",
        id,
        role: "switch",
        onchange: () => changed(input.checked)
    });
    return {
        input,
        inputs: [input],
        write: (value) => {
            input.checked = value === true;
        }
    };
}

function choiceControl({id, field, changed}) {
    const input = make(
        "select",
        {id, onchange: () => changed(input.value || null)},
        field.choices.map(([value, text]) => make("option", {value}, text))
    );
    return {
        input,
        inputs: [input],
        write: (value) => {
            input.value = value ?? "";
        }
    };
}

function textControl({id, field, changed}) {
    const input = make("input", {
        type: "text",
        id,
        maxlength: field.longest,
        pattern: field.pattern,
        placeholder: field.empty,
        autocomplete: "off",
        spellcheck: "false",
        onchange: () => changed(input.value.trim() || (field.empty ? null : ""))
    });
    return {
        input,
        inputs: [input],
        write: (value) => {
            input.value = value ?? "";
        }
    };
}

function numberControl({id, field, changed}) {
    const input = make("input", {
        type: "number",
        id,
        min: field.least,
        max: field.most,
        placeholder: field.empty,
        onchange: () => changed(numberOf(input.value))
    });
    return {
        input,
        inputs: [input],
        write: (value) => {
            input.value = value ?? "";
        }
    };
}

/// A slider beside the number: the number may be empty, and larger than the slider goes.
function levelControl({id, field, changed}) {
    const input = make("input", {
        type: "number",
        id,
        min: field.least,
        max: field.most,
        onchange: () => changed(numberOf(input.value))
    });
    const slider = make("input", {
        type: "range",
        min: field.least,
        max: field.slider,
        tabindex: 0,
        "aria-label": `${field.label}, slider`,
        oninput: () => {
            input.value = slider.value;
        },
        onchange: () => changed(Number(slider.value))
    });
    const write = (value, reported) => {
        input.value = value ?? "";
        input.placeholder = reported ?? "own";
        slider.value = value ?? reported ?? (field.slider + 1) / 2;
    };
    return {input, inputs: [input, slider], write, extra: slider};
}

const makers = {
    check: checkControl,
    choice: choiceControl,
    text: textControl,
    number: numberControl,
    level: levelControl
};

/// {input, inputs, write(value, reported), extra}: `changed(value)` is called when somebody set another.
export const makeControl = (field, id, changed) => makers[field.kind]({id, field, changed});
