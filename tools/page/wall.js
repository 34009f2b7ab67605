// All cameras at once.
import {every, make, setText} from "./dom.js";
import {cameraTitle} from "./states.js";
import {lastHeard, store} from "./store.js";
import {Tile} from "./tile.js";
import {columnsFor, placeAfter, thumbnailRate, thumbnailWidth} from "./wall_layout.js";
import {WallStream} from "./wall_stream.js";

const filters = {
    all: () => true,
    trouble: (camera) => camera.state !== "live" && camera.state !== "off",
    motion: (camera) => camera.motion === true
};
let kept = {size: "fit", show: "all", text: "", number: 0}; // while the page lives

class Wall {
    constructor(place, signal) {
        this.tiles = new Map(); // by number
        this.shown = []; // tiles that pass the filter, in order
        this.visible = new Set();
        this.columns = 1;
        this.summary = make("p", {class: "summary", role: "status"});
        this.grid = make("ul", {
            class: "wall",
            "aria-label": "Cameras",
            onkeydown: (event) => this.steer(event)
        });
        this.empty = make("p", {class: "empty", hidden: true});
        place.append(
            make("h1", {class: "unseen"}, "All cameras"),
            make("div", {class: "row filter"}, this.summary, this.controls()),
            this.grid,
            this.empty
        );
        this.seen = new IntersectionObserver((entries) => this.noteSeen(entries), {rootMargin: "80px"});
        const sized = new ResizeObserver(() => this.layOut());
        sized.observe(this.grid);
        window.addEventListener("resize", () => this.layOut(), {signal});
        signal.addEventListener("abort", () => this.end(sized), {once: true});
        store.addEventListener("cameras", ({detail}) => this.update(detail), {signal});
        store.addEventListener("connection", () => this.tell(this.shown.length), {signal});
        every(250, signal, () => this.tick());
        this.stream = new WallStream(signal, (head, data) => this.tiles.get(head.camera)?.offer(head, data));
        this.update(new Set(store.cameras.keys()));
        this.tiles.get(kept.number)?.element.focus();
    }

    controls() {
        const choice = (name, key, options) =>
            make(
                "label",
                {},
                `${name} `,
                make(
                    "select",
                    {
                        onchange: ({target}) => {
                            kept[key] = target.value;
                            this.arrange();
                        }
                    },
                    Object.entries(options).map(([value, text]) =>
                        make("option", {value, selected: kept[key] === value}, text)
                    )
                )
            );
        return [
            make(
                "label",
                {},
                "Find ",
                make("input", {
                    type: "search",
                    value: kept.text,
                    placeholder: "name or number",
                    oninput: ({target}) => {
                        kept.text = target.value;
                        this.arrange();
                    }
                })
            ),
            choice("Show", "show", {all: "all", trouble: "in trouble", motion: "with motion"}),
            choice("Size", "size", {fit: "to fit", small: "small", medium: "medium", large: "large"})
        ];
    }

    update(changed) {
        for (const number of changed) {
            const camera = store.cameras.get(number);
            const tile = this.tiles.get(number);
            if (!camera) this.remove(number);
            else if (tile) tile.update(camera);
            else this.tiles.set(number, new Tile(camera));
        }
        this.arrange();
    }

    remove(number) {
        this.tiles.get(number)?.element.parentElement?.remove();
        this.tiles.delete(number);
        this.visible.delete(number);
    }

    wanted() {
        const text = kept.text.trim().toLowerCase();
        return store
            .list()
            .filter(
                (camera) =>
                    filters[kept.show](camera) &&
                    (text === "" ||
                        String(camera.number) === text ||
                        cameraTitle(camera).toLowerCase().includes(text))
            );
    }

    /// Puts the tiles that pass the filter into the grid; touches it only when they are others than before.
    arrange() {
        const tiles = this.wanted()
            .map((camera) => this.tiles.get(camera.number))
            .filter(Boolean);
        this.tell(tiles.length);
        if (tiles.length !== this.shown.length || tiles.some((tile, i) => tile !== this.shown[i])) {
            this.place(tiles);
        }
        this.layOut();
    }

    place(tiles) {
        const active = document.activeElement;
        const wanted = new Set(tiles);
        for (const tile of this.shown) {
            if (wanted.has(tile)) continue;
            this.seen.unobserve(tile.element);
            tile.setVisible(false);
            this.visible.delete(tile.camera.number);
        }
        for (const tile of tiles) {
            if (!this.shown.includes(tile)) this.seen.observe(tile.element);
        }
        this.grid.replaceChildren(
            ...tiles.map((tile) => tile.element.parentElement ?? make("li", {}, tile.element))
        );
        this.shown = tiles;
        if (this.grid.contains(active)) active.focus({preventScroll: true});
        this.rove(tiles.find((tile) => tile.camera.number === kept.number) ?? tiles[0]);
        this.wish();
    }

    tell(count) {
        const cameras = store.list();
        const live = cameras.filter((camera) => camera.state === "live").length;
        const trouble = cameras.filter(filters.trouble).length;
        setText(
            this.summary,
            lastHeard() +
                `${live} of ${cameras.length} live${trouble ? `, ${trouble} in trouble` : ""}`
        );
        this.empty.hidden = count > 0;
        setText(
            this.empty,
            !store.known
                ? "Waiting for the server."
                : cameras.length === 0
                  ? "No camera is configured: start 'plendix serve' with addresses or a configuration file."
                  : "No camera matches: choose 'all', or another text."
        );
    }

    layOut() {
        const width = this.grid.clientWidth;
        if (width === 0) return;
        const room = window.innerHeight - this.grid.getBoundingClientRect().top - window.scrollY - 12;
        this.columns = columnsFor(this.shown.length, width, room, kept.size);
        this.grid.style.setProperty("--columns", this.columns);
        this.wish();
    }

    noteSeen(entries) {
        for (const {target, isIntersecting} of entries) {
            const tile = this.tiles.get(Number(target.dataset.number));
            if (!tile || tile.visible === isIntersecting) continue;
            tile.setVisible(isIntersecting);
            if (isIntersecting) this.visible.add(tile.camera.number);
            else this.visible.delete(tile.camera.number);
        }
        this.wish();
    }

    /// Tells the server which tiles are seen, where that changed.
    wish() {
        const visible = [...this.visible].sort((a, b) => a - b);
        const width = thumbnailWidth(this.shown[0]?.element.clientWidth ?? 320);
        const wish = {visible, width, rate: thumbnailRate(visible.length)};
        const text = JSON.stringify(wish);
        if (text === this.wished) return;
        this.wished = text;
        this.stream?.see(wish);
    }

    tick() {
        const now = performance.now();
        for (const number of this.visible) this.tiles.get(number)?.tick(now);
    }

    /// One tile is in the order of the tabulator; the arrow keys go from there.
    rove(tile) {
        for (const other of this.shown) other.element.tabIndex = other === tile ? 0 : -1;
        if (tile) kept.number = tile.camera.number;
    }

    steer(event) {
        const at = this.shown.findIndex((tile) => tile.element === document.activeElement);
        const next = at < 0 ? null : placeAfter(event.key, at, this.shown.length, this.columns);
        if (next === null) return;
        event.preventDefault();
        this.rove(this.shown[next]);
        this.shown[next].element.focus();
    }

    end(sized) {
        sized.disconnect();
        this.seen.disconnect();
        for (const tile of this.tiles.values()) tile.setVisible(false);
    }
}

export function showWall(place, signal) {
    new Wall(place, signal);
}
