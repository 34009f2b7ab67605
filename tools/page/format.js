// Numbers and times as people read them. Times are those of the viewer's own zone.

const clock = new Intl.DateTimeFormat(undefined, {
    hour: "2-digit",
    minute: "2-digit",
    second: "2-digit",
    hourCycle: "h23"
});
const shortClock = new Intl.DateTimeFormat(undefined, {hour: "2-digit", minute: "2-digit", hourCycle: "h23"});
const date = new Intl.DateTimeFormat(undefined, {day: "numeric", month: "short"});
const count = new Intl.NumberFormat();

export const number = (value) => count.format(value);

export const clockText = (time) => clock.format(time);

export const shortClockText = (time) => shortClock.format(time);

export function dayText(time) {
    return date.format(time);
}

export function momentText(time) {
    const day = new Date(time).toDateString() === new Date().toDateString() ? "" : `${dayText(time)} `;
    return day + clockText(time);
}

/// "0.4 s", "12 s", "3 min", "2 h 5 min", "4 days"
export function spanText(ms) {
    const seconds = Math.max(0, ms) / 1000;
    if (seconds < 2) return `${seconds.toFixed(1)} s`;
    if (seconds < 120) return `${Math.floor(seconds)} s`;
    const minutes = Math.floor(seconds / 60);
    if (minutes < 60) return `${minutes} min`;
    const hours = Math.floor(minutes / 60);
    if (hours < 48) return minutes % 60 ? `${hours} h ${minutes % 60} min` : `${hours} h`;
    return `${Math.floor(hours / 24)} days`;
}

export function rateText(rate) {
    return rate === null || rate === undefined ? "" : `${rate.toFixed(rate < 10 ? 1 : 0)}/s`;
}

export function bytesText(bytes) {
    const units = ["B", "KB", "MB", "GB", "TB"];
    let value = bytes;
    let unit = 0;
    while (value >= 1000 && unit + 1 < units.length) {
        value /= 1000;
        ++unit;
    }
    return `${value.toFixed(value < 10 && unit > 0 ? 1 : 0)} ${units[unit]}`;
}

export function codecText(codec) {
    return codec === "h264" ? "H.264" : codec === "jpeg" ? "JPEG" : "";
}

/// For <input type="datetime-local">, in the viewer's zone.
export function localInput(time) {
    const shifted = new Date(time - new Date(time).getTimezoneOffset() * 60000);
    return shifted.toISOString().slice(0, 19);
}
