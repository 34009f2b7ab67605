// Says that the server is out of reach, as long as it is, and that another version runs since.
import {store} from "./store.js";

const grace = 1500; // ms: a connection that comes back at once is nothing to tell

export function announceConnection(banner) {
    let timer = 0;
    let version = null;
    const show = (text) => {
        banner.textContent = text;
        banner.hidden = text === "";
    };
    const lost = () => {
        if (!store.running) return; // nobody is logged in, or nobody looks
        document.body.classList.add("lost");
        show("The connection to the server is lost: nothing here is live. It is tried again by itself.");
    };
    store.addEventListener("connection", () => {
        clearTimeout(timer);
        if (!store.connected) {
            timer = setTimeout(lost, grace);
            return;
        }
        document.body.classList.remove("lost");
        version ??= store.version;
        show(
            version === store.version
                ? ""
                : `The server runs version ${store.version} now: load this page anew to have its own.`
        );
    });
    timer = setTimeout(lost, 2 * grace); // it may be away from the beginning
}
