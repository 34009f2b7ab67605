// Pictures for the mock server: JPEGs and fragments of a moving test picture, made by ffmpeg.
import {execFileSync} from "node:child_process";

const ffmpeg = (...args) => execFileSync("ffmpeg", ["-v", "error", ...args, "-"], {maxBuffer: 1 << 28});
const scene = (size, rate, seconds) => [
    "-f",
    "lavfi",
    "-i",
    `testsrc2=size=${size}:rate=${rate}`,
    "-t",
    String(seconds)
];

/// JPEGs of a loop of two seconds, cut where one ends and the next begins.
function jpegs(size) {
    const all = ffmpeg(...scene(size, 20, 2), "-c:v", "mjpeg", "-q:v", "7", "-f", "image2pipe");
    const end = Buffer.from([0xff, 0xd9]);
    const pictures = [];
    for (let at = 0; at < all.length;) {
        const next = all.indexOf(end, at) + 2;
        pictures.push(all.subarray(at, next));
        at = next;
    }
    return pictures;
}

/// {init, fragments: [{bytes, key}]} of a movie, in which each picture is a fragment.
export function fragmentsOf(mp4) {
    const init = [];
    const fragments = [];
    for (let at = 0; at + 8 <= mp4.length;) {
        const size = mp4.readUInt32BE(at);
        const box = mp4.subarray(at, at + size);
        const type = box.toString("latin1", 4, 8);
        if (type === "ftyp" || type === "moov") init.push(box);
        if (type === "moof") fragments.push({bytes: box, key: false});
        if (type === "mdat") {
            const fragment = fragments.at(-1);
            fragment.key = (box[12] & 31) === 5 || box.includes(Buffer.from([0, 0, 0, 1, 0x65]));
            for (let nal = 8; nal + 5 <= box.length; nal += 4 + box.readUInt32BE(nal)) {
                if ((box[nal + 4] & 31) === 5) fragment.key = true;
            }
            fragment.bytes = Buffer.concat([fragment.bytes, box]);
        }
        at += size;
    }
    return {init: Buffer.concat(init), fragments};
}

const fragmented = ["-f", "mp4", "-movflags", "frag_every_frame+empty_moov+default_base_moof"];

/// `movie`: a recording to take instead of the test picture.
export function makeMedia(movie) {
    const source = movie
        ? ["-i", movie, "-c", "copy"]
        : [
              ...scene("800x600", 20, 120),
              "-c:v",
              "libx264",
              "-profile:v",
              "baseline",
              "-preset",
              "ultrafast",
              "-g",
              "20",
              "-b:v",
              "600k"
          ];
    return {
        thumbs: jpegs("320x240"),
        large: jpegs("1600x1184"),
        movie: fragmentsOf(ffmpeg(...source, ...fragmented))
    };
}
