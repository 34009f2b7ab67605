// Motion zones over a picture. Rows are numbers as the camera sends them: bit 7 - c of a row is column c.

export const isActive = (rows, row, column) => (((rows?.[row] ?? 0) >> (7 - column)) & 1) === 1;

export const anyActive = (rows) => rows?.some((row) => row !== 0) ?? false;

/// Whether the mask lets the zone count; without a mask all do.
export const isCounted = (mask, row, column) => !mask || mask[row]?.[column] !== ".";

/// Where zone (row, column) lies on the picture, in parts of its sides, cut at its edges; null: beside it.
export function zoneBox(zones, row, column) {
    const left = Math.max(0, zones.left + column * zones.width);
    const top = Math.max(0, zones.top + row * zones.height);
    const right = Math.min(1, zones.left + (column + 1) * zones.width);
    const bottom = Math.min(1, zones.top + (row + 1) * zones.height);
    return right - left < 0.001 || bottom - top < 0.001
        ? null
        : {left, top, width: right - left, height: bottom - top};
}

/// Every zone that is seen on the picture: {row, column, box}.
export function visibleZones(zones) {
    const seen = [];
    if (!zones) return seen;
    for (let row = 0; row < Math.min(8, zones.rows); ++row) {
        for (let column = 0; column < Math.min(8, zones.columns); ++column) {
            const box = zoneBox(zones, row, column);
            if (box) seen.push({row, column, box});
        }
    }
    return seen;
}

/// Paints the zones with motion; those that the mask leaves out with a broken line only.
export function paintZones(context, zones, rows, mask) {
    if (!anyActive(rows)) return;
    const {width, height} = context.canvas;
    context.lineWidth = 2;
    for (const {row, column, box} of visibleZones(zones)) {
        if (!isActive(rows, row, column)) continue;
        const counted = isCounted(mask, row, column);
        const place = [
            box.left * width + 1,
            box.top * height + 1,
            box.width * width - 2,
            box.height * height - 2
        ];
        context.fillStyle = "rgb(255 178 36 / 22%)";
        context.strokeStyle = counted ? "rgb(255 178 36 / 95%)" : "rgb(255 255 255 / 70%)";
        context.setLineDash(counted ? [] : [4, 4]);
        if (counted) context.fillRect(...place);
        context.strokeRect(...place);
    }
}

/// The same on a canvas of its own, which lies over the picture.
export function drawZones(canvas, zones, rows, mask) {
    const {clientWidth: width, clientHeight: height} = canvas;
    if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
    }
    const context = canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    paintZones(context, zones, rows, mask);
}
