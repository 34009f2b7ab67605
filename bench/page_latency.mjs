// How old a picture is when the page shows it in headless Chromium: the clock that a simulated camera draws
// into it is read from the pixels. Prints JSON, milliseconds.
// Usage: page_latency.mjs URL CAMERA SECONDS WIDTH HEIGHT
import {openPage, startBrowser, until} from "../tests/page/browser.mjs";

const [url, camera, seconds, width, height] = process.argv.slice(2);

/// In the page, before its scripts: keeps what the server says of each picture.
function keepHeads() {
    const parse = JSON.parse;
    window.heads = new Map();
    JSON.parse = (text, ...rest) => {
        const value = parse(text, ...rest);
        if (value?.pts_ms !== undefined) window.heads.set(value.pts_ms, value);
        return value;
    };
}

/// In the page: a row for each picture shown, [age by its clock, age by the server's time of delivery or null].
function watch({camera, duration, width, height}) {
    const unit = Math.max(4, Math.floor(Math.min(width, height) / 24)); // of the scene, as are the segments
    const stroke = Math.max(2, Math.floor(unit / 8));
    const [cell, begin] = [Math.floor(unit / 2), Math.floor(unit / 2) + Math.floor((stroke * 3) / 2)];
    const digits = [0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f];
    const parts = [
        [0.5, 0],
        [1, 0.25],
        [1, 0.75],
        [0.5, 1],
        [0, 0.75],
        [0, 0.25],
        [0.5, 0.5]
    ];
    const small = new OffscreenCanvas(13 * (cell + 2 * stroke), 2 * unit);
    const context = small.getContext("2d", {willReadFrequently: true});
    const at = (from, to, part) => Math.round(from + stroke / 2 + (to - stroke) * part);

    function clockOf(picture) {
        context.drawImage(picture, 0, 0);
        const {data} = context.getImageData(0, 0, small.width, small.height);
        let x = begin;
        let text = "";
        for (const place of "00:00:00.000") {
            if (place !== "0") {
                x += 3 * stroke;
                continue;
            }
            const lit = parts.reduce((bits, [across, down], i) => {
                const pixel = at(begin, unit, down) * small.width + at(x, cell, across);
                return bits | ((data[4 * pixel] > 128 ? 1 : 0) << i);
            }, 0);
            text += digits.indexOf(lit);
            x += cell + 2 * stroke;
        }
        const [, h, m, s, ms] = /^(\d\d)(\d\d)(\d\d)(\d{3})$/.exec(text) ?? [];
        return ms === undefined ? null : ((Number(h) * 60 + Number(m)) * 60 + Number(s)) * 1000 + Number(ms);
    }
    function ageOf(clock, shown) {
        const midnight = new Date(shown);
        return shown - midnight.setHours(0, 0, 0, 0) - clock;
    }
    return new Promise((resolve) => {
        const [rows, wrong] = [[], {count: 0}];
        const picture = document.querySelector(".frame > .shot");
        const end = performance.now() + duration;
        const take = (shownAt, head) => {
            const [clock, shown] = [clockOf(picture), performance.timeOrigin + shownAt];
            if (clock === null) ++wrong.count;
            else rows.push([ageOf(clock, shown), head ? shown - Date.parse(head.time) : null]);
            if (performance.now() > end) resolve({camera, rows, unread: wrong.count});
        };
        const onVideo = (_, frame) => {
            take(frame.expectedDisplayTime, window.heads.get(Math.round(frame.mediaTime * 1000)));
            picture.requestVideoFrameCallback(onVideo);
        };
        let last = null;
        const onCanvas = (now) => {
            const {shown} = document.querySelector(".stage").dataset;
            if (shown !== last) requestAnimationFrame((next) => take(Math.max(now, next), null));
            last = shown;
            requestAnimationFrame(onCanvas);
        };
        if (picture.requestVideoFrameCallback) picture.requestVideoFrameCallback(onVideo);
        else requestAnimationFrame(onCanvas);
    });
}

const browser = await startBrowser();
try {
    const page = await openPage(browser, "about:blank");
    await page.addInitScript(keepHeads);
    await page.goto(`${url}#/camera/${camera}`);
    await until("60 pictures", () =>
        page.evaluate(() => Number(document.querySelector(".stage")?.dataset.shown ?? 0) > 60)
    );
    const duration = 1000 * Number(seconds);
    const result = await page.evaluate(watch, {camera, duration, width: Number(width), height: Number(height)});
    console.log(JSON.stringify(result));
} finally {
    await browser.close();
}
