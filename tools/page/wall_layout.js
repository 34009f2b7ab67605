// How many tiles stand side by side, and where the arrow keys lead.

const shape = 4 / 3;
const least = {fit: 150, small: 180, medium: 320, large: 560}; // CSS pixels of a tile's width

/// A tile's height besides its picture, with the gap to the next one.
const caption = () => 2.15 * parseFloat(getComputedStyle(document.documentElement).fontSize);

/// All tiles in the window where that leaves them wide enough; else as many columns as fit, to scroll.
export function columnsFor(count, width, height, size) {
    const smallest = Math.min(least[size], width);
    const most = Math.max(1, Math.floor(width / smallest));
    if (size !== "fit") return most;
    const below = caption();
    for (let columns = 1; columns <= Math.min(most, count); ++columns) {
        const rows = Math.ceil(count / columns);
        if (rows * (width / columns / shape + below) <= height) return columns;
    }
    return Math.min(most, Math.max(1, count));
}

/// What is asked of the server: wide enough for the tile, in few different sizes.
export function thumbnailWidth(cssWidth) {
    const pixels = cssWidth * Math.min(2, window.devicePixelRatio || 1);
    return Math.min(1280, Math.max(160, Math.ceil(pixels / 80) * 80));
}

/// Pictures a second of each tile: many small ones need fewer.
export function thumbnailRate(tiles) {
    return tiles <= 4 ? 12 : tiles <= 16 ? 8 : tiles <= 64 ? 5 : tiles <= 128 ? 2 : 1;
}

const steps = {
    ArrowLeft: () => -1,
    ArrowRight: () => 1,
    ArrowUp: (columns) => -columns,
    ArrowDown: (columns) => columns,
    Home: () => -Infinity,
    End: () => Infinity
};

/// The place that a key leads to from `at`, or null for another key.
export function placeAfter(key, at, count, columns) {
    const step = steps[key]?.(columns);
    if (step === undefined) return null;
    const next = at + step;
    if (Math.abs(step) === columns && (next < 0 || next >= count)) return at;
    return Math.min(count - 1, Math.max(0, next));
}
