// A camera's state in words: never by colour alone.
import {spanText} from "./format.js";
import {store} from "./store.js";

const names = {live: "Live", connecting: "Connecting", silent: "Silent", refused: "Refused", off: "Off"};

export const stateName = (camera) => names[camera.state] ?? camera.state;

/// Trouble first, then by number: what needs somebody is on top.
export const stateOrder = ["refused", "silent", "connecting", "live", "off"];

const advice = {
    connecting: (camera) => `No picture yet: check power, cable and the address ${camera.address}`,
    silent: () => "The pictures stopped: check power and cable. It is tried again by itself",
    refused: () => "The driver does not support this model or firmware: update the camera, or switch it off",
    off: () => "Switched off: 'Camera on' in its settings switches it on"
};

/// What is wrong and what to do; "" while live.
export function stateReason(camera) {
    if (camera.state === "live") return "";
    return camera.reason || advice[camera.state]?.(camera) || "";
}

export function stateSince(camera) {
    const since = Date.parse(camera.since);
    return Number.isNaN(since) ? "" : spanText(store.now() - since);
}

export const unnamed = (camera) => `Camera ${camera.number}`; // also what the driver calls it

export const cameraTitle = (camera) => camera.name || unnamed(camera);

/// "3 Gate", and "Camera 3" where it has no name of its own.
export const numberedTitle = (camera) =>
    cameraTitle(camera) === unnamed(camera) ? unnamed(camera) : `${camera.number} ${camera.name}`;
