// The page's counterpart in earnest: `plendix serve` with simulated cameras, each a process of its own, so
// one can be stopped. PLENDIX names the command; the cameras' addresses are 127.PLENDIX_NET.n.1, those of a
// large fleet 127.(PLENDIX_NET + 1).1.n.
import {spawn} from "node:child_process";
import {once} from "node:events";
import {mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";

const net = Number(process.env.PLENDIX_NET ?? 83);
const silent = ["ignore", "ignore", "ignore"];

function startCameras(command, cameras) {
    if (cameras > 8) {
        // a fleet in one process
        return [
            spawn(
                command,
                [
                    "camera",
                    "--count",
                    String(cameras),
                    "--address",
                    `127.${net + 1}.1.1`,
                    "--sensor",
                    "640x480"
                ],
                {stdio: silent}
            )
        ];
    }
    return Array.from({length: cameras}, (_, i) =>
        spawn(command, ["camera", "--address", `127.${net}.${i + 1}.1`, "--sensor", "800x608"], {
            stdio: silent
        })
    );
}

function writeConfiguration(folder, cameras) {
    const name = (i) => ["Gate", "Yard", "<script>alert(1)</script>"][i] ?? `Camera ${i + 1}`;
    const camera = (_, i) =>
        `[[camera]]\naddress = "${cameras > 8 ? `127.${net + 1}.1.${i + 1}` : `127.${net}.${i + 1}.1`}"\n` +
        `name = "${name(i)}"\ncodec = "${i === 1 ? "h264" : "jpeg"}"\nrate = ${cameras > 8 ? 2 : 20}\n`;
    const path = join(folder, "cameras.toml");
    writeFileSync(
        path,
        `[record]\noutput = "${folder}/recording"\nsegment = "10s"\n\n` +
            Array.from({length: cameras}, camera).join("\n")
    );
    return path;
}

export async function startServe({cameras = 4} = {}) {
    const command = process.env.PLENDIX;
    const folder = mkdtempSync(join(tmpdir(), "plendix-page-"));
    const configuration = writeConfiguration(folder, cameras);
    const simulated = startCameras(command, cameras);
    let listen = "127.0.0.1:0";
    let server;
    const start = async () => {
        server = spawn(command, ["serve", "--config", configuration, "--listen", listen], {
            cwd: folder,
            stdio: ["ignore", "pipe", "inherit"]
        });
        const [line] = await once(server.stdout, "data");
        const base = String(line).trim();
        listen = new URL(base).host;
        return base;
    };
    const end = async (process, signal) => {
        process.kill("SIGCONT");
        process.kill(signal);
        if (process.exitCode === null && process.signalCode === null) await once(process, "exit");
    };
    const bench = {
        base: await start(),
        get pid() {
            return server.pid;
        },
        silence: async (number) => simulated[number - 1].kill("SIGSTOP"),
        speak: async () => simulated.forEach((camera) => camera.kill("SIGCONT")),
        restart: async () => {
            await end(server, "SIGTERM");
            setTimeout(start, 4000);
        },
        stop: async () => {
            await Promise.all([end(server, "SIGTERM"), ...simulated.map((camera) => end(camera, "SIGKILL"))]);
            rmSync(folder, {recursive: true, force: true});
        }
    };
    return bench;
}
