// The driver's log lines, repeated ones folded by the server.
import {get} from "./api.js";
import {every, make, setText} from "./dom.js";
import {momentText} from "./format.js";
import {store} from "./store.js";

const mostLines = 500;

export function logView(signal) {
    const lines = new Map(); // by what makes them the same; the one said longest ago first
    const list = make("ol", {class: "log", tabindex: 0, "aria-label": "Log lines, newest first"});
    const empty = make("p", {class: "empty"}, "Waiting for the server.");
    let last = 0;
    let due = true;
    let busy = false;

    const put = (line) => {
        const key = `${line.camera} ${line.text.replace(/\d+/g, "#")}`;
        let entry = lines.get(key);
        lines.delete(key);
        if (!entry) {
            const time = make("time", {});
            entry = {time, text: make("span"), repeated: make("span", {class: "repeated"})};
            entry.element = make(
                "li",
                {},
                time,
                make(
                    "span",
                    {class: "text"},
                    line.camera
                        ? make("a", {href: `#/camera/${line.camera}`}, `Camera ${line.camera}`)
                        : null,
                    " ",
                    entry.text
                ),
                entry.repeated
            );
        }
        lines.set(key, entry);
        list.prepend(entry.element);
        setText(entry.text, line.text);
        setText(entry.time, momentText(Date.parse(line.time)));
        setText(entry.repeated, line.repeated > 0 ? `${line.repeated + 1} times` : "");
        last = Math.max(last, line.id);
    };
    const load = async () => {
        if (!due || busy || !store.connected) return;
        due = false;
        busy = true;
        try {
            const got = await get(`/api/log?after=${last}`, signal);
            for (const line of got.lines) put(line);
        } catch {
            due = true;
        }
        busy = false;
        for (const [key, entry] of lines) {
            if (lines.size <= mostLines) break;
            entry.element.remove();
            lines.delete(key);
        }
        empty.hidden = lines.size > 0;
        if (!due) setText(empty, "The driver has said nothing yet.");
    };
    store.addEventListener(
        "event",
        ({detail}) => {
            due ||= detail.kind === "log";
        },
        {signal}
    );
    store.addEventListener(
        "connection",
        () => {
            if (!store.connected) return;
            due = true;
            last = 0; // another process counts anew
            lines.clear();
            list.replaceChildren();
        },
        {signal}
    );
    every(1000, signal, load);
    load();
    return make(
        "section",
        {class: "card", "aria-label": "Log"},
        make("h2", {}, "What the driver says"),
        empty,
        list
    );
}
