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

/// What keeps the relay from being switched; "" where nothing does.
function relayDoubt(state, length) {
    if (state === "off" || state === "refused") return "The camera is not in use: its relay was not switched.";
    if (state !== "connecting") return "";
    const later = length ? `only if it is within ${length} s` : "when it is";
    return `The camera is not reached just now: its relay is switched ${later}.`;
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

    let doubt = "";
    const switchRelay = async (on, length) => {
        await detail.relay(on, length);
        doubt = relayDoubt(detail.camera?.state, length);
        return doubt;
    };
    const pulse = () => {
        if (!seconds.reportValidity()) return null;
        return switchRelay(true, Number(seconds.value));
    };
    const show = () => {
        const {camera} = detail;
        for (const part of element.querySelectorAll("button, input")) part.disabled = !camera;
        if (!camera) return;
        if (camera.state === "live" && problem.textContent === doubt) setText(problem, "");
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
