// What is done to a camera at once: relay on, off or for some seconds; the recording
// mark; taking a change back.
import {button, icon, make, setText} from "./dom.js";

const says = {true: "on", false: "off"};

/// Calls `act`, and shows why it did not work, or what it has to say.
function guarded(problem, act) {
    return async () => {
        setText(problem, "");
        try {
            setText(problem, (await act()) ?? "");
        } catch (error) {
            setText(problem, `Not done: ${error.message}`);
        }
    };
}

export function cameraControls(detail, signal) {
    const problem = make("p", {class: "problem", role: "alert"});
    const run = (act) => guarded(problem, act);
    const seconds = make("input", {
        type: "number",
        min: 1,
        max: 3600,
        value: 5,
        "aria-label": "Seconds for the relay"
    });
    const relay = make("span", {class: "value"});
    const record = make("span", {class: "value"});
    const undo = make("div", {class: "undo", role: "alert", hidden: true});

    const switchRelay = async (on, length) => {
        await detail.relay(on, length);
        if (detail.camera?.state === "live") return "";
        return "The camera is not reached just now: its relay is switched when it is.";
    };
    const pulse = () => {
        if (!seconds.reportValidity()) return null;
        return switchRelay(true, Number(seconds.value));
    };
    const show = () => {
        const {camera} = detail;
        for (const part of element.querySelectorAll("button, input")) part.disabled = !camera;
        if (!camera) return;
        setText(relay, says[camera.relay] ?? "not known");
        setText(record, says[camera.recording] ?? "not known");
        if (undo.hidden === !camera.undo) return;
        undo.hidden = !camera.undo;
        undo.replaceChildren(
            ...(camera.undo
                ? [
                      make("p", {}, icon("silent"), " No pictures since the last change of the settings."),
                      button(
                          "Take the change back",
                          "undo",
                          run(() => detail.undo()),
                          {class: "main"}
                      )
                  ]
                : [])
        );
    };
    const element = make(
        "section",
        {class: "card controls", "aria-label": "Relay and recording mark"},
        make(
            "div",
            {class: "row"},
            make("span", {class: "label"}, icon("relay"), "Relay"),
            relay,
            button(
                "On",
                null,
                run(() => switchRelay(true)),
                {"aria-label": "Relay on"}
            ),
            button(
                "Off",
                null,
                run(() => switchRelay(false)),
                {"aria-label": "Relay off"}
            ),
            make(
                "span",
                {class: "row"},
                button("On for", null, run(pulse), {"aria-label": "Relay on for these seconds"}),
                seconds,
                "s"
            )
        ),
        make(
            "div",
            {class: "row"},
            make("span", {class: "label"}, icon("recording"), "Recording mark"),
            record,
            button(
                "On",
                null,
                run(() => detail.record(true)),
                {"aria-label": "Recording mark on"}
            ),
            button(
                "Off",
                null,
                run(() => detail.record(false)),
                {"aria-label": "Recording mark off"}
            )
        ),
        problem
    );
    detail.addEventListener("change", show, {signal});
    show();
    return {element, undo};
}
