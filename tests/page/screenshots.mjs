// Pictures of the page for the README: from `plendix serve` with simulated cameras that show a film.
// node screenshots.mjs FOLDER; PLENDIX names the command, SCENE the film. scripts/screenshots calls it.
import {spawn} from "node:child_process";
import {once} from "node:events";
import {mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {moves, openPage, startBrowser} from "./browser.mjs";

const target = process.argv[2];
const command = process.env.PLENDIX;
const folder = mkdtempSync(join(tmpdir(), "plendix-pictures-"));
const names = ["Gate", "Yard", "Ramp", "Hall", "Stairs", "Dock"];
const camera = (name, i) =>
    `[[camera]]\naddress = "127.89.1.${i + 1}"\nname = "${name}"\ncodec = "${i % 2 ? "h264" : "jpeg"}"\nrate = 10\n`;
writeFileSync(
    join(folder, "cameras.toml"),
    `[record]\noutput = "${folder}/recording"\nsegment = "10s"\n\n${names.map(camera).join("\n")}`
);
const cameras = spawn(
    command,
    ["camera", "--count", String(names.length - 1), "--address", "127.89.1.1", "--sensor", "1280x960"].concat(
        process.env.SCENE ? ["--scene", process.env.SCENE] : []
    ),
    {stdio: "ignore"}
);
const server = spawn(command, ["serve", "--config", join(folder, "cameras.toml"), "--listen", "127.0.0.1:0"], {
    stdio: ["ignore", "pipe", "ignore"]
});
const browser = await startBrowser();
try {
    const [line] = await once(server.stdout, "data");
    const base = String(line).trim();
    const shoot = async (name, hash, ready, options = {}) => {
        const page = await openPage(browser, base + hash, {deviceScaleFactor: 1, ...options});
        await ready(page);
        await page.screenshot({path: join(target, `page-${name}.png`)});
        await page.close();
    };
    const tiles = async (page) => {
        await page.getByText("5 of 6 live").waitFor({timeout: 60000});
        await page.waitForTimeout(12000); // rates of ten seconds, and the sixth camera is told of
    };
    await shoot("wall", "#/", tiles, {colorScheme: "dark"});
    await shoot("camera", "#/camera/2", (page) => moves(page.locator("video").first()), {colorScheme: "light"});
    await shoot(
        "mask",
        "#/camera/1",
        async (page) => {
            await moves(page.locator("canvas").first());
            await page.getByRole("button", {name: "Mask", exact: true}).click();
            const zone = (row, column) =>
                page.getByRole("checkbox", {name: `Row ${row}, column ${column}`, exact: true}).boundingBox();
            for (const row of [1, 2]) {
                const [from, to] = [await zone(row, 1), await zone(row, 8)];
                await page.mouse.move(from.x + 20, from.y + 20);
                await page.mouse.down();
                await page.mouse.move(to.x + 20, to.y + 20, {steps: 20});
                await page.mouse.up();
            }
        },
        {colorScheme: "light"}
    );
    await shoot(
        "recordings",
        "#/recordings",
        async (page) => {
            await page.getByLabel("Show").selectOption("10 minutes");
            await page.waitForTimeout(150000); // something to see
            await page.getByRole("button", {name: "Now"}).click();
            await page.waitForTimeout(4000);
            const line = await page.locator(".lane.kept").first().boundingBox();
            await page.mouse.click(line.x + line.width / 2, line.y + line.height / 2);
            await moves(page.locator(".frame > .shot"));
            await page.getByRole("button", {name: "Mark begin"}).click();
            await page.getByRole("button", {name: "Search zones"}).click();
            for (const key of [...Array(4).fill("ArrowDown"), "ArrowRight", "Shift+ArrowRight"])
                await page.keyboard.press(key);
            await page.getByRole("button", {name: "Search", exact: true}).click();
            await page.locator(".found li").first().waitFor();
        },
        {colorScheme: "dark"}
    );
    await shoot("phone", "#/", tiles, {viewport: {width: 360, height: 740}, colorScheme: "light"});
} finally {
    await browser.close();
    const ended = once(server, "exit");
    server.kill();
    cameras.kill();
    await ended;
    rmSync(folder, {recursive: true, force: true});
}
