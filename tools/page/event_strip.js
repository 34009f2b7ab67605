// The last minutes of one camera: a lane for each kind of event, and the latest in words.
import {every, icon, make, setAttribute} from "./dom.js";
import {clockText, shortClockText} from "./format.js";
import {lanes, spanPath} from "./lanes.js";
import {store} from "./store.js";

const shownFor = 10 * 60000; // ms
const laneHeight = 10;
const mostWords = 40;
const telling = 3000; // ms that the camera's own word may come behind the event
const kinds = ["motion", "trigger", "relay", "recording", "trouble"];
const titles = {
    motion: "Motion",
    trigger: "Trigger",
    relay: "Relay",
    recording: "Recording mark",
    trouble: "No pictures"
};

/// Whether something begins or ends with this event, and which lane it is in; null: no lane.
function change(event) {
    if (event.kind === "state") {
        const {state} = event.values; // without it the event tells why, of the state that is known
        return state ? {lane: "trouble", on: state !== "live"} : null;
    }
    if (event.kind === "connection") return {lane: "trouble", on: !event.values.connected};
    return kinds.includes(event.kind) ? {lane: event.kind, on: event.values.active === true} : null;
}

/// Whether the camera is in this lane now, as the server told last.
const isOn = (camera, lane) => (lane === "trouble" ? camera?.state !== "live" : camera?.[lane] === true);

/// {motion: [{begin, end}], ...}: what is on still ends now; what ended unseen to begin is left out, and of
/// what was not seen to end, because the server was away, only the beginning is known.
export function spansOf(events, now, camera) {
    const spans = Object.fromEntries(kinds.map((kind) => [kind, []]));
    const open = {};
    for (const event of events) {
        const found = change(event);
        if (!found) continue;
        if (found.on) open[found.lane] ??= event.at;
        else if (open[found.lane] !== undefined) {
            spans[found.lane].push({begin: open[found.lane], end: event.at});
            delete open[found.lane];
        }
    }
    for (const [lane, begin] of Object.entries(open)) {
        const lasts = isOn(camera, lane) || now - begin < telling;
        spans[lane].push({begin, end: lasts ? now : begin});
    }
    return spans;
}

const stateWords = {
    live: "pictures come",
    silent: "no pictures any more",
    connecting: "connecting",
    refused: "refused by the driver",
    off: "switched off"
};

export function wordsOf({kind, values}) {
    if (kind === "state") return stateWords[values.state] ?? values.state ?? values.diagnosis;
    if (kind === "connection") return values.connected ? "video begins" : "video ends";
    if (kind === "clock") return "the clock was set";
    if (kind === "storage")
        return values.paused ? `recording pauses: ${values.reason ?? ""}` : "recording goes on";
    return `${titles[kind] ?? kind} ${values.active ? "begins" : "ends"}`;
}

export function eventStrip(number, signal) {
    const {svg, draw} = lanes(
        kinds.length * laneHeight,
        kinds.map((kind) => `lane ${kind}`),
        {role: "img"}
    );
    const names = make(
        "div",
        {class: "lanenames", "aria-hidden": "true"},
        kinds.map((kind) => make("span", {}, icon(kind === "trouble" ? "silent" : kind), titles[kind]))
    );
    const from = make("span");
    const list = make("ol", {class: "eventlist", tabindex: 0, "aria-label": "Latest events"});
    let latest = null;

    const show = () => {
        const now = store.now();
        const events = store.eventsOf(number);
        const spans = spansOf(events, now, store.cameras.get(number));
        kinds.forEach((kind, i) =>
            draw(i, spanPath(spans[kind], now - shownFor, now, i * laneHeight + 1, laneHeight - 2))
        );
        setAttribute(
            svg,
            "aria-label",
            "The last 10 minutes: " +
                kinds.map((kind) => `${titles[kind]} ${spans[kind].length} times`).join(", ")
        );
        from.textContent = shortClockText(now - shownFor);
        if (events.at(-1) === latest) return;
        latest = events.at(-1);
        list.replaceChildren(
            ...events
                .slice(-mostWords)
                .reverse()
                .map((event) =>
                    make(
                        "li",
                        {},
                        make("time", {datetime: event.time}, clockText(event.at)),
                        " ",
                        wordsOf(event)
                    )
                )
        );
    };
    store.addEventListener("event", ({detail}) => detail.camera === number && show(), {signal});
    every(1000, signal, show);
    show();
    return make(
        "section",
        {class: "card strip", "aria-label": "Events"},
        make("h2", {}, "Last 10 minutes"),
        make(
            "div",
            {class: "lanebox"},
            names,
            make(
                "div",
                {},
                svg,
                make("div", {class: "ends", "aria-hidden": "true"}, from, make("span", {}, "now"))
            )
        ),
        list
    );
}
