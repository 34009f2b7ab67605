// Speaks what the page asks of `plendix serve`, without cameras: for work on the page alone.
// node mock_server.mjs [--cameras 8] [--port 8070] [--movie recording.mkv] [--login]
// POST /mock {"silent": [1]} | {"lose": N} (fragments) | {"away": seconds} makes faults.
import {readFileSync} from "node:fs";
import {createServer} from "node:http";
import {parseArgs} from "node:util";
import {makeMedia} from "./mock_media.mjs";

const {values: options} = parseArgs({
    options: {
        cameras: {type: "string", default: "8"},
        movie: {type: "string"},
        port: {type: "string", default: "8070"},
        login: {type: "boolean", default: false}
    }
});
const page = new URL("../../tools/page/", import.meta.url);
const media = makeMedia(options.movie);
const types = {
    html: "text/html; charset=utf-8",
    css: "text/css",
    js: "text/javascript",
    svg: "image/svg+xml"
};
const policy =
    "default-src 'self'; img-src 'self' blob: data:; media-src 'self' blob: data:; frame-ancestors 'none'";
const names = [
    "Gate",
    "Yard",
    "<script>alert(1)</script>",
    "Loading dock, north side, behind the old mill",
    "Hall",
    "Roof"
];
const hour = 3600000;
const iso = (time) => new Date(time).toISOString();
let loggedIn = !options.login;
let lose = 0;
let away = false;

function makeCamera(number) {
    const state = {4: "refused", 5: "off", 6: "connecting"}[number] ?? "live";
    const settings = {
        enabled: state !== "off",
        name: names[number - 1] ?? `Camera ${number}`,
        address: `127.1.1.${number}`,
        codec: number === 2 ? "h264" : "jpeg",
        size: null,
        rate: 20,
        quality: null,
        brightness: null,
        saturation: null,
        sharpness: null,
        sensitivity: null,
        crop: {left: 0, top: 0, width: 10000, height: 10000},
        mask: null,
        trigger: {name: "Trigger", normally_closed: false},
        relay: {name: "Alarm", normally_low: false}
    };
    const reported = {
        ...structuredClone(settings),
        size: "1600x1184",
        quality: 4,
        brightness: 50,
        saturation: 57,
        sharpness: 60,
        sensitivity: 6
    };
    return {
        number,
        name: settings.name,
        address: settings.address,
        state,
        since: iso(Date.now() - number * 100000),
        reason: state === "refused" ? "Model 150 is not supported: update the camera or switch it off" : null,
        model: 105,
        firmware: 61750,
        serial: "02-50-4C-2C-01-01",
        codec: settings.codec,
        width: number === 2 ? 800 : 1600,
        height: number === 2 ? 600 : 1184,
        rate: state === "live" ? 19.8 : 0,
        age_ms: state === "live" ? 43 : null,
        motion: false,
        trigger: false,
        relay: false,
        recording: false,
        recorded: number < 4,
        zones: {columns: 8, rows: 6, left: 0, top: 0, width: 0.14, height: 0.189},
        counters: {
            frames: 1000 * number,
            bytes: 1e6,
            key_frames: 50,
            motion_events: 3,
            lost_blocks: number % 3,
            timeouts: 0,
            connections: 1
        },
        settings,
        reported,
        pending: [],
        differs: [],
        undo: false,
        before: null,
        shownAt: Date.now()
    };
}
const cameras = Array.from({length: Number(options.cameras)}, (_, i) => makeCamera(i + 1));
const short = ({settings, reported, pending, differs, undo, before, shownAt, ...camera}) => camera;
const long = ({before, shownAt, ...camera}) => camera;

// Events, and what they are sent to.
const kept = [];
const listeners = new Set();
const say = (kind, data) => {
    const id = kept.length + 1;
    const text = `id: ${id}\nevent: ${kind}\ndata: ${JSON.stringify(data)}\n\n`;
    kept.push(text);
    for (const response of listeners) response.write(text);
};
const tell = (kind, camera, values) =>
    say(kind, {time: iso(Date.now()), camera: camera.number, kind, values});
const sayCameras = (list) => {
    const text = `event: cameras\ndata: ${JSON.stringify({cameras: list.map(short)})}\n\n`;
    for (const response of listeners) response.write(text);
};
setInterval(() => {
    for (const camera of cameras) {
        if (camera.state === "live") camera.counters.frames += 20;
        if (camera.state === "live" && Math.random() < 0.1) {
            camera.motion = !camera.motion;
            tell("motion", camera, {active: camera.motion});
        }
        if (camera.state === "silent") camera.age_ms = Date.now() - camera.shownAt;
    }
    sayCameras(cameras);
}, 1000).unref();

function setSilent(numbers) {
    for (const camera of cameras.filter((c) => ["live", "silent"].includes(c.state))) {
        const silent = numbers.includes(camera.number);
        camera.muted = silent;
        if (silent) camera.shownAt = Date.now();
        setTimeout(
            () => {
                const state = camera.muted ? "silent" : "live";
                if (camera.state === state) return;
                Object.assign(camera, {state, since: iso(Date.now()), rate: silent ? 0 : 19.8});
                tell("state", camera, {state});
            },
            silent ? 6000 : 0
        ); // the driver takes longer than the picture's own age
    }
}

const message = (head, data = Buffer.alloc(0)) => {
    const text = Buffer.from(JSON.stringify(head));
    const lengths = Buffer.alloc(8);
    lengths.writeUInt32BE(text.length, 0);
    lengths.writeUInt32BE(data.length, 4);
    return Buffer.concat([lengths, text, data]);
};
const rowsAt = (at) => [0, 0, 24, 60, 24, 0, 0, 0].map((row) => (Math.floor(at / 10) % 2 ? row : row >> 1));
const walls = new Map();

function wall(response) {
    const id = String(walls.size + 1);
    walls.set(id, {visible: [], rate: 5});
    response.write(message({id}));
    let at = 0;
    const timer = setInterval(() => {
        ++at;
        for (let i = 0; i < cameras.length; ++i) {
            const camera = cameras[(i + at * 37) % cameras.length]; // each has its turn where not all fit
            const {visible, rate} = walls.get(id);
            if (!visible.includes(camera.number) || camera.state !== "live" || camera.muted) continue;
            if (response.writableNeedDrain || (at + camera.number) % Math.ceil(5 / rate)) continue;
            const thumb = media.thumbs[at % media.thumbs.length];
            response.write(
                message(
                    {
                        camera: camera.number,
                        time: iso(Date.now()),
                        age_ms: 30,
                        width: 320,
                        height: 240,
                        zones: rowsAt(at),
                        motion: camera.motion
                    },
                    thumb
                )
            );
        }
    }, 200);
    response.on("close", () => clearInterval(timer));
}

function pictures(response, camera, time, length) {
    const h264 = camera.codec === "h264";
    response.write(
        message(
            h264
                ? {
                      begin: true,
                      codec: "h264",
                      width: 800,
                      height: 600,
                      mime: 'video/mp4; codecs="avc1.420020"'
                  }
                : {begin: true, codec: "jpeg", width: 1600, height: 1184, mime: "image/jpeg"},
            h264 ? media.movie.init : undefined
        )
    );
    let at = 0;
    let silent = 0;
    const timer = setInterval(() => {
        if (camera.muted || camera.state !== "live") {
            if (++silent % 20 === 0) response.write(message({age_ms: silent * 50, state: camera.state}));
            return;
        }
        const of = h264 ? media.movie.fragments : media.large;
        if (at * 50 > length || (h264 && at >= of.length)) return response.end();
        const picture = h264 ? of[at] : {bytes: of[at % of.length], key: true};
        const head = {
            time: iso(time(at)),
            pts_ms: at * 50,
            zones: rowsAt(at),
            motion: true,
            recording: camera.recording,
            key: picture.key,
            lost: 0
        };
        ++at;
        if (lose > 0 && lose--) return;
        response.write(message(head, picture.bytes));
    }, 50);
    response.on("close", () => clearInterval(timer));
}

function change(camera, wanted) {
    const {settings, reported} = camera;
    if (wanted.rate > 60) return {error: `rate ${wanted.rate} is not from 1 to 60`};
    camera.before = structuredClone(settings);
    for (const [name, value] of Object.entries(wanted)) {
        const part = value !== null && typeof value === "object" && !Array.isArray(value);
        settings[name] = part ? {...settings[name], ...value} : value;
        camera.pending.push(name);
    }
    setTimeout(() => {
        for (const [name, value] of Object.entries(settings))
            if (value !== null) reported[name] = structuredClone(value);
        if (settings.saturation) reported.saturation = 57; // the camera's scale is coarser
        camera.differs = settings.saturation && settings.saturation !== 57 ? ["saturation"] : [];
        camera.pending = [];
        camera.name = settings.name;
        if (settings.enabled !== (camera.state !== "off")) camera.state = settings.enabled ? "live" : "off";
        camera.undo = settings.crop.width === 1;
        tell("config", camera, {name: camera.name});
    }, 700);
    return null;
}

function recording(query) {
    const from = Math.max(Date.parse(query.get("from")), Date.now() - 5 * hour);
    const to = Math.min(Date.parse(query.get("to")), Date.now());
    const spans = (every, length) => {
        const found = [];
        for (let at = Math.ceil(from / every) * every; at < to; at += every) {
            found.push({
                begin: iso(at),
                end: iso(Math.min(to, at + length)),
                bytes: 9e6,
                codec: "jpeg"
            });
        }
        return found;
    };
    return {segments: spans(600000, 590000), motion: spans(170000, 23000), spans: spans(340000, 12000)};
}

const lines = Array.from({length: 30}, (_, i) => ({
    id: i + 1,
    time: iso(Date.now() - (30 - i) * 60000),
    camera: i % 8,
    text: i % 4 ? "Gate receiving video" : "Yard - did not receive block 3 of 5 <b>",
    repeated: i % 5 ? 0 : 17
}));

function history() {
    const of = (make) => Array.from({length: 360}, (_, i) => (i < 20 ? null : make(i)));
    return {
        step_s: 10,
        end: iso(Date.now()),
        rate: of((i) => 18 + 2 * Math.sin(i / 9) - (i % 97 < 6 ? 15 : 0)),
        lost: of((i) => (i % 97 === 3 ? 2 : 0)),
        motion: of((i) => (i % 50 < 12 ? 1 : 0))
    };
}

function cameraApi(request, response, path, body) {
    const [, number, what] = path.match(/^\/api\/cameras\/(\d+)\/?(\w*)$/) ?? [];
    const camera = cameras[number - 1];
    if (!camera) return json(response, {error: `there is no camera ${number}`}, 404);
    if (request.method === "PATCH") {
        const wrong = change(camera, body);
        if (wrong) return json(response, wrong, 400);
    } else if (what === "undo") {
        change(camera, camera.before);
    } else if (what) {
        const put = (on) => {
            camera[what] = on;
            tell(what, camera, {active: on});
        };
        put(body.on);
        if (body.seconds) setTimeout(put, body.seconds * 1000, false);
    }
    return json(response, long(camera));
}

function json(response, value, status = 200) {
    response.writeHead(status, {"Content-Type": "application/json", "Cache-Control": "no-store"});
    response.end(JSON.stringify(value));
}

function api(request, response, url, body) {
    const {pathname: path, searchParams: query} = url;
    const number = Number(path.split("/")[3]?.replace(/\.jpg$/, "") ?? 0);
    if (path === "/api/session")
        return json(response, {
            login: options.login,
            name: options.login && loggedIn ? "anna" : null,
            version: "9.2.3"
        });
    if (path === "/api/login") {
        loggedIn = body.password === "right-password";
        return loggedIn
            ? json(response, {name: "anna"})
            : json(response, {error: "wrong name or password"}, 403);
    }
    if (!loggedIn) return json(response, {error: "log in first"}, 401);
    if (path === "/api/logout") {
        loggedIn = false;
        for (const listener of listeners) listener.end();
        return json(response, {});
    }
    if (path === "/api/cameras")
        return json(response, {time: iso(Date.now()), version: "9.2.3", cameras: cameras.map(short)});
    if (path.startsWith("/api/cameras/")) return cameraApi(request, response, path, body);
    if (path === "/api/events") {
        response.writeHead(200, {"Content-Type": "text/event-stream"});
        response.write(`event: cameras\ndata: ${JSON.stringify({cameras: cameras.map(short)})}\n\n`);
        response.write(kept.slice(Number(request.headers["last-event-id"] ?? kept.length)).join(""));
        listeners.add(response);
        return response.on("close", () => listeners.delete(response));
    }
    if (path === "/api/wall") return wall(response);
    if (path.startsWith("/api/wall/"))
        return json(response, Object.assign(walls.get(path.split("/")[3]), body));
    if (path.startsWith("/api/live/"))
        return pictures(response, cameras[number - 1], () => Date.now(), Infinity);
    if (path.endsWith("/play")) {
        const from = Date.parse(query.get("from"));
        return pictures(response, cameras[number - 1], (at) => from + at * 50, 60000);
    }
    if (path === "/api/recordings") return json(response, {cameras: [1, 2]});
    if (path.startsWith("/api/recordings/")) return json(response, recording(query));
    if (path.startsWith("/api/history/")) return json(response, history());
    if (path === "/api/log")
        return json(response, {lines: lines.filter(({id}) => id > Number(query.get("after")))});
    return json(response, {error: "there is nothing here"}, 404);
}

function file(response, path) {
    try {
        const bytes = readFileSync(new URL(`.${path === "/" ? "/index.html" : path}`, page));
        response.writeHead(200, {
            "Content-Type": types[path.split(".").pop()] ?? types.html,
            "Content-Security-Policy": policy
        });
        response.end(bytes);
    } catch {
        json(response, {error: "there is nothing here"}, 404);
    }
}

const server = createServer({highWaterMark: 1 << 22}, async (request, response) => {
    if (away) return request.socket.destroy();
    const url = new URL(request.url, "http://localhost");
    let text = "";
    for await (const part of request) text += part;
    const body = text ? JSON.parse(text) : {};
    const changes = !["GET", "HEAD"].includes(request.method);
    if (url.pathname === "/mock") return fault(response, body);
    if (changes && request.headers["x-plendix"] !== "1") return json(response, {error: "forged"}, 403);
    if (url.pathname.startsWith("/api/")) return api(request, response, url, body);
    return file(response, url.pathname);
});

function fault(response, {silent, lose: some, away: seconds}) {
    if (silent) setSilent(silent);
    if (some) lose = some;
    json(response, {});
    if (!seconds) return;
    away = true;
    setTimeout(() => server.closeAllConnections(), 50);
    setTimeout(() => {
        away = false;
    }, seconds * 1000);
}

server.listen(Number(options.port), "127.0.0.1", () =>
    console.log(`http://127.0.0.1:${server.address().port}/`)
);
process.on("disconnect", () => process.exit());
process.stdin.on("end", () => process.exit()).resume(); // ends with who started it
