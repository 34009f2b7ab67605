// The page's counterpart in earnest: `plendix serve` with simulated cameras, each a process of its own, so
// one can be stopped. PLENDIX names the command; the cameras' addresses are 127.PLENDIX_NET.n.1, with n from
// 11 on where one has to log in, those of a large fleet 127.(PLENDIX_NET + 1).1.n.
import {execFileSync, spawn} from "node:child_process";
import {once} from "node:events";
import {mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";

const net = Number(process.env.PLENDIX_NET ?? 83);
const silent = ["ignore", "ignore", "ignore"];

function startCameras(command, cameras, first) {
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
        spawn(command, ["camera", "--address", `127.${net}.${first + i}.1`, "--sensor", "800x608"], {
            stdio: silent
        })
    );
}

function writeConfiguration(folder, cameras, first) {
    const name = (i) => ["Gate", "Yard", "<script>alert(1)</script>"][i] ?? `Camera ${i + 1}`;
    const camera = (_, i) =>
        `[[camera]]\naddress = "${cameras > 8 ? `127.${net + 1}.1.${i + 1}` : `127.${net}.${first + i}.1`}"\n` +
        `name = "${name(i)}"\ncodec = "${i === 1 ? "h264" : "jpeg"}"\nrate = ${cameras > 8 ? 2 : 20}\n`;
    const path = join(folder, "cameras.toml");
    writeFileSync(
        path,
        `[record]\noutput = "${folder}/recording"\nsegment = "10s"\n\n` +
            Array.from({length: cameras}, camera).join("\n")
    );
    return path;
}

/// Options for a server that wants a name and a password, over TLS: what it needs on a network.
function loginOptions(command, folder) {
    const [passwords, key, certificate] = ["passwords", "key.pem", "cert.pem"].map((name) =>
        join(folder, name)
    );
    const line = execFileSync(command, ["password", "anna"], {input: "right-password\n"});
    writeFileSync(passwords, line, {mode: 0o600});
    const kind = "req -x509 -nodes -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -subj /CN=plendix";
    execFileSync("openssl", [...kind.split(" "), "-keyout", key, "-out", certificate], {stdio: "ignore"});
    return ["--password-file", passwords, "--tls-cert", certificate, "--tls-key", key];
}

export async function startServe({cameras = 4, login = false} = {}) {
    const command = process.env.PLENDIX;
    const folder = mkdtempSync(join(tmpdir(), "plendix-page-"));
    const first = login ? 11 : 1;
    const configuration = writeConfiguration(folder, cameras, first);
    const simulated = startCameras(command, cameras, first);
    const guard = login ? loginOptions(command, folder) : [];
    let listen = "127.0.0.1:0";
    let server;
    const start = async () => {
        server = spawn(command, ["serve", "--config", configuration, "--listen", listen, ...guard], {
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
