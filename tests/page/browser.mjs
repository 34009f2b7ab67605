// Debian's Chromium, and what the tests ask of a page in it.
import assert from "node:assert/strict";
import {readFileSync} from "node:fs";
import {chromium} from "playwright-core";

const limit = 20000; // ms that a condition may take

export async function startBrowser() {
    const args = process.getuid() === 0 ? ["--no-sandbox"] : []; // which root's processes have not
    return chromium.launch({executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium", args});
}

/// A page whose complaints, and requests to any other host, are kept in `page.complaints`. `expected` are the
/// complaints that a test brings about itself.
export async function openPage(browser, base, options = {}) {
    const {expected = /^$/, ...rest} = options;
    const page = await browser.newPage({viewport: {width: 1280, height: 800}, ...rest});
    page.setDefaultTimeout(limit);
    page.complaints = [];
    page.on("pageerror", (error) => page.complaints.push(String(error.stack)));
    page.on("console", (message) => {
        const text = `${message.text()} ${message.location().url}`;
        if (["error", "warning"].includes(message.type()) && !expected.test(text)) page.complaints.push(text);
    });
    page.on("request", (request) => {
        if (!request.url().startsWith(new URL(base).origin) && !/^(blob|data):/.test(request.url()))
            page.complaints.push(request.url());
    });
    await page.goto(base);
    return page;
}

/// Waits until `ask()` brings something true, and returns it.
export async function until(what, ask, most = limit) {
    const end = Date.now() + most;
    for (;;) {
        const found = await ask();
        if (found) return found;
        assert.ok(Date.now() < end, `not within ${most} ms: ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
}

/// A number of what a canvas or a video shows now: another picture has another one.
export const pixels = (locator) =>
    locator.evaluate((element) => {
        const small = new OffscreenCanvas(64, 48);
        const context = small.getContext("2d");
        if (!(element.videoWidth || element.width)) return 0;
        context.drawImage(element, 0, 0, 64, 48);
        return context
            .getImageData(0, 0, 64, 48)
            .data.reduce((sum, value, i) => (sum * 31 + value * (i + 1)) % 1000003, 7);
    });

/// So many different pictures are shown within the limit.
export async function moves(locator, count = 5) {
    const seen = new Set();
    await until(`${count} different pictures`, async () => {
        const now = await pixels(locator).catch(() => 0);
        if (now) seen.add(now);
        return seen.size >= count;
    });
}

/// Bytes of memory that a process has.
export const memoryOf = (pid) =>
    1024 * Number(/VmRSS:\s*(\d+)/.exec(readFileSync(`/proc/${pid}/status`, "utf8"))?.[1] ?? 0);

/// {scripts, pictures}: bytes that the page's scripts keep alive, and that the browser has for pages and what
/// they draw; {nodes, listeners}: how many there are.
export async function memory(page) {
    const session = await page.context().newCDPSession(page);
    await session.send("HeapProfiler.collectGarbage");
    await session.send("Performance.enable");
    const {metrics} = await session.send("Performance.getMetrics");
    await session.detach();
    const whole = await page.context().browser().newBrowserCDPSession();
    const {processInfo} = await whole.send("SystemInfo.getProcessInfo");
    await whole.detach();
    const drawing = processInfo.filter(({type}) => ["renderer", "GPU"].includes(type));
    const metric = (wanted) => metrics.find(({name}) => name === wanted).value;
    return {
        scripts: metric("JSHeapUsedSize"),
        nodes: metric("Nodes"),
        listeners: metric("JSEventListeners"),
        pictures: drawing.reduce((sum, {id}) => sum + memoryOf(id), 0)
    };
}
