// The page: which view is shown (by the part of the address behind #), and what stands around it.
import {announceConnection} from "./banner.js";
import {startAnnouncer} from "./announcer.js";
import {get, post, session} from "./api.js";
import {showCamera} from "./camera_view.js";
import {button, icon, make} from "./dom.js";
import {showHealth} from "./health.js";
import {showLogin} from "./login.js";
import {showRecordings} from "./recordings.js";
import {store} from "./store.js";
import {themeSwitch} from "./theme.js";
import {showWall} from "./wall.js";

const main = document.getElementById("main");
const nav = document.getElementById("nav");
const tools = document.getElementById("tools");

const links = [
    ["#/", "Wall", "wall"],
    ["#/health", "Health", "health"],
    ["#/recordings", "Recordings", "recordings"]
];
let view = null; // {ending: AbortController}
let entered = false; // nobody has to log in any more
let moved = false; // by somebody who is here: the new view gets the focus

function route() {
    const [name, value] = location.hash.replace(/^#\/?/, "").split("/");
    if (name === "camera" && /^\d+$/.test(value))
        return ["Camera", (...of) => showCamera(...of, Number(value))];
    if (name === "health") return ["Health", showHealth];
    if (name === "recordings") return ["Recordings", (...of) => showRecordings(...of, Number(value) || 0)];
    return ["Wall", showWall];
}

function begin(title, show) {
    view?.abort();
    view = new AbortController();
    main.replaceChildren();
    document.title = title === "Wall" ? "Plendix" : `${title} - Plendix`;
    for (const link of nav.children) {
        if (link.dataset.view === title) link.setAttribute("aria-current", "page");
        else link.removeAttribute("aria-current");
    }
    window.scrollTo(0, 0);
    show(main, view.signal);
    if (moved && !main.contains(document.activeElement)) main.focus({preventScroll: true});
    moved = true;
}

const showRoute = () => begin(...route());

function showTools(name) {
    const leave = async () => {
        await post("/api/logout").catch(() => null);
        location.reload();
    };
    tools.replaceChildren(
        themeSwitch(),
        name ? button("Log out", "leave", leave, {class: "quiet narrow", title: `Log out ${name}`}) : ""
    );
}

async function start() {
    showTools(null);
    const known = await get("/api/session").catch(() => null);
    if (known?.login && !known.name) return askLogin();
    showTools(known?.name);
    nav.replaceChildren(
        ...links.map(([href, text, name]) =>
            make("a", {href, "data-view": text}, icon(name), make("span", {}, text))
        )
    );
    window.addEventListener("hashchange", showRoute);
    entered = true;
    look();
    showRoute();
}

function askLogin() {
    entered = false;
    window.removeEventListener("hashchange", showRoute);
    store.stop();
    nav.replaceChildren();
    showTools(null);
    begin("Log in", (place) => showLogin(place, start));
}

// A browser has six connections to a server for all its pages: one that nobody sees, opened behind another or
// left behind, gives its own back.
const resting = 5000; // ms
let rest = 0;
function look() {
    clearTimeout(rest);
    if (!entered) return;
    if (!document.hidden) store.start();
    else if (store.running) rest = setTimeout(() => store.stop(), resting);
}
document.addEventListener("visibilitychange", look);

session.addEventListener("login", () => {
    if (entered) askLogin(); // many requests are refused at once: what is typed already stays
});

document.querySelector(".skip").addEventListener("click", (event) => {
    event.preventDefault(); // the address behind # is the view's
    main.focus();
});

document.addEventListener("keydown", (event) => {
    if (event.key !== "Escape" || event.defaultPrevented || document.fullscreenElement) return;
    if (event.target.matches("input, select"))
        event.target.blur(); // first out of the field
    else if (location.hash.length > 2) location.hash = "#/";
});

announceConnection(document.getElementById("banner"));
startAnnouncer(document.getElementById("live"));
start();
