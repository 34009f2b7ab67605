// Tells screen readers what changed: state changes one by one, many at once as their count.
import {cameraTitle, stateName} from "./states.js";
import {store} from "./store.js";

const gathering = 1000; // ms

export function startAnnouncer(region) {
    const before = new Map();
    let changes = new Map();
    let timer = 0;

    const tell = () => {
        timer = 0;
        region.textContent =
            changes.size > 3 ? summary([...changes.values()]) : details([...changes.values()]);
        changes = new Map();
    };
    store.addEventListener("cameras", ({detail}) => {
        for (const number of detail) {
            const camera = store.cameras.get(number);
            const old = before.get(number);
            if (camera) before.set(number, camera.state);
            else before.delete(number);
            if (!camera || old === undefined || old === camera.state) continue;
            changes.set(number, camera);
            timer ||= setTimeout(tell, gathering);
        }
    });
}

const details = (cameras) =>
    cameras.map((camera) => `${cameraTitle(camera)}: ${stateName(camera)}`).join(". ");

function summary(cameras) {
    const counts = new Map();
    for (const camera of cameras) counts.set(stateName(camera), (counts.get(stateName(camera)) ?? 0) + 1);
    return `${cameras.length} cameras changed: ${[...counts].map(([name, n]) => `${n} ${name}`).join(", ")}`;
}
