// The page in a real browser: against `plendix serve` and simulated cameras where PLENDIX names the command,
// else against the mock server. PAGE_SECONDS: how long memory is watched.
import assert from "node:assert/strict";
import {readFileSync} from "node:fs";
import {createRequire} from "node:module";
import {after, before, test} from "node:test";
import {memory, memoryOf, moves, openPage, startBrowser, until} from "./browser.mjs";
import {startMock} from "./mock_bench.mjs";
import {startServe} from "./serve_bench.mjs";

const real = Boolean(process.env.PLENDIX);
const start = real ? startServe : startMock;
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");
let bench;
let browser;

before(async () => {
    [bench, browser] = await Promise.all([start(), startBrowser()]);
});
after(async () => {
    await browser?.close();
    await bench?.stop();
});

const tile = (page, number) => page.locator(`.tile[data-number="${number}"]`);
const cameraOf = async (number) => (await fetch(`${bench.base}api/cameras/${number}`)).json();
const patch = (number, settings) =>
    fetch(`${bench.base}api/cameras/${number}`, {
        method: "PATCH",
        headers: {"X-Plendix": "1"},
        body: JSON.stringify(settings)
    });
const megabytes = (bytes) => (bytes / 1e6).toFixed(1);
const nonsense = /(undefined|NaN|Invalid Date|\[object)[^\n]*/;
const quiet = async (page) => {
    assert.deepEqual(page.complaints, []);
    const missing = await page
        .locator("svg.icon:visible")
        .evaluateAll((icons) => icons.filter((icon) => icon.getBBox().width === 0).length);
    assert.equal(missing, 0, "icons that are not drawn");
    assert.equal(nonsense.exec(await page.locator("body").innerText())?.[0], undefined);
};
const lineOf = (page, field) => page.locator(`#setting-${field}-standing`);

/// No finding of these weights, in both colour schemes.
async function accessible(page, view) {
    for (const colorScheme of ["light", "dark"]) {
        await page.emulateMedia({colorScheme, reducedMotion: "reduce"});
        await page.evaluate(`if (!window.axe) { ${axe} }`);
        const {violations} = await page.evaluate(() => window.axe.run());
        const grave = violations.filter(({impact}) => ["serious", "critical"].includes(impact));
        assert.deepEqual(
            grave.map(
                ({id, nodes}) => `${view} ${colorScheme} ${id} ${nodes[0].html} ${nodes[0].failureSummary}`
            ),
            []
        );
    }
}

test("the wall shows what is live, dims what is not, and is steered by keys", async () => {
    const page = await openPage(browser, bench.base);
    await Promise.all([1, 2].map((number) => moves(tile(page, number).locator(".shot"))));
    assert.match(await tile(page, 3).textContent(), /<script>alert\(1\)<\/script>/);
    await accessible(page, "wall");

    await bench.silence(1);
    const begun = Date.now();
    await until(
        "a dimmed tile",
        () => tile(page, 1).evaluate((element) => element.classList.contains("old")),
        3000
    );
    assert.match(await tile(page, 1).locator(".notice").textContent(), /No picture for|last picture/);
    await until("the state in words", async () =>
        /^Silent/.test(await tile(page, 1).locator(".notice").textContent())
    );
    await page.locator("#live", {hasText: "Gate: Silent"}).waitFor();
    await bench.speak();
    await until("a live tile again", () =>
        tile(page, 1).evaluate((element) => !element.classList.contains("old"))
    );
    await moves(tile(page, 1).locator(".shot"));
    assert.ok(Date.now() - begun > 2000);

    await tile(page, 1).focus();
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("Enter");
    await page.getByRole("heading", {name: /^2 Yard/}).waitFor();
    await page.keyboard.press("Escape");
    await until("the focus on the tile it came from", () =>
        tile(page, 2).evaluate((element) => element === document.activeElement)
    );
    await page.getByLabel("Find").fill("script");
    await until("one tile", async () => (await page.locator(".tile").count()) === 1);
    await quiet(page);
    await page.close();
});

test("a camera is seen at its full rate in both codecs, and lost fragments are overcome", async () => {
    for (const [number, kind] of [
        [1, "canvas"],
        [2, "video"]
    ]) {
        const page = await openPage(browser, `${bench.base}#/camera/${number}`);
        const picture = page.locator(`.frame > ${kind}.shot`);
        await moves(picture, 10);
        const shown = () => page.locator(".stage").evaluate((stage) => Number(stage.dataset.shown));
        const first = await shown();
        await until("60 pictures more", async () => (await shown()) > first + 60, 10000);
        await until("zones over it", () =>
            page.locator(".frame > .overlay").evaluate(
                (overlay) =>
                    overlay.width > 0 &&
                    overlay
                        .getContext("2d")
                        .getImageData(0, 0, overlay.width, overlay.height)
                        .data.some((byte) => byte > 0)
            )
        );
        if (kind === "video") {
            await until("less than 0.3 s behind", () =>
                picture.evaluate((video) => Math.abs(video.dataset.behindMs) < 300)
            );
            await bench.lose?.(7);
            const before = await shown();
            await until("pictures behind the gap", async () => (await shown()) > before + 40, 10000);
            await until("at the edge again", () =>
                picture.evaluate((video) => Math.abs(video.dataset.behindMs) < 300)
            );
        }
        await accessible(page, kind);
        await quiet(page);
        await page.close();
    }
});

test("settings are sent, pending until reported, and what the camera has otherwise is told", async () => {
    const page = await openPage(browser, `${bench.base}#/camera/1`, {expected: /400 \(Bad Request\)/});
    await moves(page.locator(".frame > .shot"), 2);
    await page.getByRole("button", {name: "Mask", exact: true}).click();
    const zone = (row, column) =>
        page.getByRole("checkbox", {name: `Row ${row}, column ${column}`, exact: true});
    const [from, to] = [await zone(1, 1).boundingBox(), await zone(2, 3).boundingBox()];
    await page.mouse.move(from.x + 20, from.y + 20);
    await page.mouse.down();
    await page.mouse.move(to.x + 20, from.y + 20, {steps: 12});
    await page.mouse.move(to.x + 20, to.y + 20, {steps: 6});
    await page.mouse.up();
    await page.keyboard.press("ArrowDown");
    await page.keyboard.press("Space");
    await accessible(page, "mask");
    await page.getByRole("button", {name: "Apply"}).click();
    const painted = ["...#####", ".#.#####", ...Array(6).fill("########")];
    await until(
        "the mask as painted",
        async () => JSON.stringify((await cameraOf(1)).reported.mask) === JSON.stringify(painted)
    );
    await page.keyboard.press("Escape");

    await page.getByRole("button", {name: "Crop", exact: true}).click();
    for (let i = 0; i < 20; ++i) await page.keyboard.press("Shift+ArrowLeft");
    await page.keyboard.press("ArrowRight");
    await page.getByRole("button", {name: "Apply"}).click();
    await until("the crop as drawn", async () => {
        const {left, width} = (await cameraOf(1)).reported.crop;
        return left === 100 && width === 8000;
    });
    await accessible(page, "crop");
    await page.keyboard.press("Escape");

    await page.getByLabel("Saturation", {exact: true}).fill("60");
    await page.keyboard.press("Tab");
    await until("pending", async () => /not reported/.test(await lineOf(page, "saturation").textContent()));
    await until("what the camera has", async () =>
        /has 57/.test(await lineOf(page, "saturation").textContent())
    );
    await page.getByLabel("Name", {exact: true}).fill("<b>Gate</b>");
    await page.keyboard.press("Tab");
    await page.getByRole("heading", {name: "1 <b>Gate</b>"}).waitFor();
    await page.getByLabel("Pictures a second").evaluate((input) => {
        input.removeAttribute("max");
    });
    await page.getByLabel("Pictures a second").fill("99");
    await page.keyboard.press("Tab");
    await until("the server's refusal", async () => /rate 99/.test(await lineOf(page, "rate").textContent()));

    await page.getByRole("button", {name: "Relay on for these seconds"}).click();
    await page.locator(".head .chip.relay").waitFor();
    await page.locator(".head .chip.relay").waitFor({state: "hidden"});
    await page.getByRole("button", {name: "Recording mark on"}).click();
    await page.locator(".head .chip.recording").waitFor();
    await page.getByRole("button", {name: "Recording mark off"}).click();
    const {crop} = (await cameraOf(1)).settings;
    await patch(1, {crop: {left: 0, top: 0, width: 1, height: 1}}); // leaves no picture
    await page.getByRole("button", {name: "Take the change back"}).click({timeout: 40000});
    await until(
        "what was before",
        async () => JSON.stringify((await cameraOf(1)).settings.crop) === JSON.stringify(crop)
    );
    await moves(page.locator(".frame > .shot"), 3);

    if (real) {
        const {address} = await cameraOf(1);
        const doubt = page.locator(".controls > .problem");
        for (const [change, state, words] of [
            [{enabled: false}, "Off", /relay was not switched/],
            [{enabled: true, address: "127.255.0.9"}, "Connecting", /switched when it is/]
        ]) {
            await patch(1, change);
            await page.locator(".head .chip", {hasText: state}).waitFor();
            await page.getByRole("button", {name: "Relay on", exact: true}).click();
            await until("what becomes of it", async () => words.test(await doubt.textContent()));
        }
        await page.locator(".eventlist").getByText("nothing listens on its UDP port 69").waitFor();
        await patch(1, {address});
        await moves(page.locator(".frame > .shot"), 3);
        await until("no doubt any more", async () => (await doubt.textContent()) === "");
        await page.getByRole("button", {name: "Relay off"}).click();
    }
    await quiet(page);
    await page.close();
});

test("health and recordings are there, and fit any width", async () => {
    const page = await openPage(browser, `${bench.base}#/health`);
    await page.locator("tbody tr").nth(3).waitFor();
    await page.getByRole("button", {name: "Camera", exact: true}).click();
    assert.match(await page.locator("tbody tr").first().textContent(), /^1 /);
    await page.locator(".plot").first().waitFor();
    await page.locator(".log li").first().waitFor();
    await accessible(page, "health");

    await page.getByRole("link", {name: "Recordings"}).click();
    const line = page.getByRole("slider", {name: /^Recording of 1/});
    await page.locator(".timerow").first().locator("small", {hasText: "MB"}).waitFor();
    await line.focus();
    await page.keyboard.press("End");
    for (let i = 0; i < (real ? 1 : 60); ++i) await page.keyboard.press("ArrowLeft");
    const mark = page.getByRole("button", {name: "Mark begin"});
    await page.keyboard.press("Enter");
    await moves(page.locator(".frame > .shot"));
    await page.getByRole("button", {name: "Pause"}).click();
    await mark.click();
    if (real) {
        const clip = page.waitForEvent("download");
        await page.getByRole("button", {name: /^Export/}).click();
        const kept = await clip;
        assert.match(kept.suggestedFilename(), /^camera-1-2\d{3}-.*\.mkv$/);
        assert.equal(readFileSync(await kept.path()).readUInt32BE(), 0x1a45dfa3); // EBML
    }
    await page.getByRole("button", {name: "Search zones"}).click();
    await page.keyboard.press("Shift+ArrowRight");
    const asked = page.waitForRequest(/search\?zones=0-0%2C0-1&/);
    await page.getByRole("button", {name: "Search", exact: true}).click();
    await asked;
    await page.getByText(/found$|Nothing moved/).waitFor();
    await accessible(page, "recordings");
    await quiet(page);
    await page.getByRole("slider", {name: /^Recording of 2/}).click(); // what was found was the other one's
    assert.equal(await page.locator(".found li").count(), 0);
    await page.keyboard.press("Escape"); // leaves the search, not the view
    await page.getByRole("button", {name: "Search", exact: true}).waitFor({state: "hidden"});
    assert.match(page.url(), /#\/recordings$/);

    let before, after;
    for (const [width, height] of [
        [360, 640],
        [3840, 2160],
        [3840, 2160]
    ]) {
        await page.setViewportSize({width, height});
        before = after;
        for (const view of ["#/", "#/camera/1", "#/health", "#/recordings"]) {
            await page.evaluate((hash) => {
                location.hash = hash;
            }, view);
            const overflow = () => page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
            await until(
                `no scrolling to the side at ${width} in ${view}`,
                async () => (await overflow()) <= 0,
                3000
            );
        }
        after = await memory(page);
    }
    assert.ok(after.listeners <= before.listeners, `${before.listeners}, then ${after.listeners} listeners`);
    assert.ok(after.nodes < before.nodes + 200, `${before.nodes}, then ${after.nodes} nodes`);
    await quiet(page);
    await page.close();
});

test("a reload and a server that restarts cost no more than the time they take", async () => {
    const page = await openPage(browser, bench.base, {expected: /Failed to load resource|ERR_/});
    await moves(tile(page, 1).locator(".shot"));
    await page.reload();
    await moves(tile(page, 1).locator(".shot"));
    await bench.restart();
    await page.locator("#banner").getByText("connection to the server is lost").waitFor();
    await until("no live picture", () =>
        tile(page, 1).evaluate((element) => element.classList.contains("old"))
    );
    await page.locator("#banner").waitFor({state: "hidden"});
    await moves(tile(page, 1).locator(".shot"));
    await page.close();
});

test("pages that nobody sees leave the connections to the others, and say what they find", async () => {
    const context = await browser.newContext();
    await context.addInitScript(() => {
        let hidden = location.search === "?behind";
        Object.defineProperty(document, "hidden", {get: () => hidden});
        window.show = (shown) => {
            hidden = !shown;
            document.dispatchEvent(new Event("visibilitychange"));
        };
    });
    for (let i = 0; i < 6; ++i) await openPage(context, `${bench.base}?behind`);
    const page = await openPage(context, bench.base, {expected: /Failed to load resource|ERR_/});
    await moves(tile(page, 1).locator(".shot"));

    let asked = 0; // a list of cameras that does not come is asked for again
    await page.route("**/api/cameras", (route) =>
        ++asked > 2 ? route.continue() : route.fulfill({status: 503, body: "{}"})
    );
    await page.reload();
    await moves(tile(page, 1).locator(".shot"));
    assert.ok(asked > 2);

    const rested = page.waitForEvent("requestfailed", (request) => request.url().endsWith("/api/events"));
    await page.evaluate(() => window.show(false));
    await rested;
    await page.waitForTimeout(2000); // what is lost from here on is not told by what was lost before
    await bench.restart();
    await page.evaluate(() => window.show(true));
    await page.locator("#banner").getByText("connection to the server is lost").waitFor();
    await tile(page, 1).click();
    await page.locator(".stage").getByText("Not connected to the server").waitFor();
    assert.ok(await page.getByLabel("Camera on").isDisabled(), "settings that are not known");
    await page.locator("#banner").waitFor({state: "hidden"});
    await moves(page.locator(".frame > .shot"));
    assert.ok(await page.getByLabel("Camera on").isChecked());
    await quiet(page);
    await context.close();
});

test(
    "a wall of 255 cameras takes pictures of the tiles seen, and no memory that grows",
    {timeout: 300000},
    async (t) => {
        const many = await start({cameras: 255});
        try {
            const page = await openPage(browser, many.base);
            await until("filled tiles", async () => (await page.locator(".tile[data-shown]").count()) > 20);
            assert.ok(
                (await page.locator(".tile[data-shown]").count()) < 200,
                "tiles out of sight are left alone"
            );
            await page.mouse.wheel(0, 100000);
            await page.locator(".tile[data-number='255'][data-shown]").waitFor();
            const taken = async () => ({...(await memory(page)), server: memoryOf(many.pid)});
            const begun = await taken();
            await page.waitForTimeout(1000 * Number(process.env.PAGE_SECONDS ?? 15));
            const now = await taken();
            for (const [part, most] of [
                ["scripts", 3],
                ["pictures", 80],
                ["server", real ? 16 : Infinity]
            ]) {
                t.diagnostic(`${part}: from ${megabytes(begun[part])} to ${megabytes(now[part])} MB`);
                assert.ok(
                    now[part] - begun[part] < most * 1e6,
                    `${part}: from ${begun[part]} to ${now[part]} bytes`
                );
            }
            await quiet(page);
            await page.close();
        } finally {
            await many.stop();
        }
    }
);

test("who has to log in is asked, also when the session ends in the middle", async () => {
    const guarded = await start({cameras: 2, login: true});
    try {
        const page = await openPage(browser, guarded.base, {
            expected: /40[13]|ERR_INCOMPLETE_CHUNKED_ENCODING/,
            ignoreHTTPSErrors: true
        });
        await page.getByLabel("Name", {exact: true}).fill("anna");
        await page.getByLabel(/^Password/).fill("wrong-password");
        await page.keyboard.press("Enter");
        await page.getByText("Not logged in: wrong name or password").waitFor();
        await accessible(page, "login");
        await page.getByLabel(/^Password/).fill("right-password");
        await page.keyboard.press("Enter");
        await moves(tile(page, 1).locator(".shot"), 2);
        await page.reload();
        await moves(tile(page, 1).locator(".shot"), 2);
        const out = await page.request.post(`${guarded.base}api/logout`, {headers: {"X-Plendix": "1"}});
        assert.ok(out.ok());
        await page.getByRole("heading", {name: "Log in"}).waitFor();
        await quiet(page);
        await page.close();
    } finally {
        await guarded.stop();
    }
});
