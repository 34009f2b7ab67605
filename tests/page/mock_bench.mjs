// The page's counterpart in the quick tests: the mock server as a process that ends with this one.
import {spawn} from "node:child_process";
import {once} from "node:events";

export async function startMock({cameras = 8, login = false} = {}) {
    const script = new URL("mock_server.mjs", import.meta.url).pathname;
    const args = [script, "--port", "0", "--cameras", String(cameras), ...(login ? ["--login"] : [])];
    const process = spawn("node", args, {stdio: ["pipe", "pipe", "inherit"]});
    const [line] = await once(process.stdout, "data");
    const base = String(line).trim();
    const fault = (what) => fetch(`${base}mock`, {method: "POST", body: JSON.stringify(what)});
    return {
        base,
        pid: process.pid,
        silence: (number) => fault({silent: [number]}),
        speak: () => fault({silent: []}),
        lose: (fragments) => fault({lose: fragments}),
        restart: () => fault({away: 4}),
        stop: () => process.kill()
    };
}
