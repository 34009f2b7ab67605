// The motion mask, painted on the zones as the camera has them: with the pointer (a stroke paints what its
// first zone was not), or with the arrow keys and the space bar.
import {button, make, setText} from "./dom.js";
import {standing, standingLine} from "./settings_form.js";
import {visibleZones} from "./zones.js";

const steps = {ArrowLeft: [0, -1], ArrowRight: [0, 1], ArrowUp: [-1, 0], ArrowDown: [1, 0]};
const blank = () => Array.from({length: 8}, () => "########");

/// 8 texts of 8 characters, whatever was there; null: all zones count.
const readMask = (mask) => blank().map((row, r) => (mask?.[r] ?? row).padEnd(8, "#").slice(0, 8));

export class MaskEditor {
    constructor(detail, close) {
        this.detail = detail;
        this.close = close;
        this.mask = readMask(detail.camera.settings?.mask);
        this.cells = new Map(); // "row,column" -> element
        this.painting = null; // the sign that the pointer paints
        this.element = make("div", {
            class: "zones",
            role: "group",
            "aria-label": "Motion zones: arrow keys move, space switches a zone",
            onkeydown: (event) => this.steer(event),
            onclick: (event) => this.press(event),
            onpointerdown: (event) => this.begin(event),
            onpointermove: (event) => this.paint(event),
            onpointerup: () => this.end(),
            onpointercancel: () => this.end()
        });
        this.count = make("span", {class: "count", role: "status"});
        this.line = standingLine("mask-standing");
        this.bar = make(
            "div",
            {class: "row editbar"},
            make("strong", {}, "Motion mask"),
            this.count,
            button("All", null, () => this.fill(() => "#")),
            button("None", null, () => this.fill(() => ".")),
            button("Invert", null, () => this.fill((sign) => (sign === "#" ? "." : "#"))),
            button("Apply", null, () => this.apply(), {class: "main"}),
            button("Close", null, () => close(), {class: "quiet"}),
            this.line.element,
            make(
                "p",
                {class: "help"},
                "Zones with a tick count as motion. Draw over them, or use arrow keys and space."
            )
        );
        this.build();
    }

    build() {
        const seen = visibleZones(this.detail.camera.zones);
        this.shape = JSON.stringify(this.detail.camera.zones);
        this.cells.clear();
        this.element.replaceChildren(
            ...seen.map(({row, column, box}) => {
                const cell = make("button", {
                    type: "button",
                    class: "zone",
                    role: "checkbox",
                    tabindex: -1,
                    "data-row": row,
                    "data-column": column,
                    "aria-label": `Row ${row + 1}, column ${column + 1}`
                });
                for (const [side, part] of Object.entries(box)) cell.style[side] = `${part * 100}%`;
                this.cells.set(`${row},${column}`, cell);
                return cell;
            })
        );
        this.element.firstElementChild?.setAttribute("tabindex", "0");
        this.show();
    }

    show() {
        let counting = 0;
        for (const cell of this.cells.values()) {
            const on = this.mask[cell.dataset.row][cell.dataset.column] === "#";
            cell.setAttribute("aria-checked", on);
            counting += on ? 1 : 0;
        }
        setText(
            this.count,
            this.cells.size === 0
                ? "no zones are known before the first picture"
                : `${counting} of ${this.cells.size} zones count`
        );
    }

    update() {
        if (JSON.stringify(this.detail.camera.zones) !== this.shape) this.build();
        this.line.show(standing(this.detail.camera, "mask"));
    }

    focus() {
        (this.element.querySelector("[tabindex='0']") ?? this.bar.querySelector("button")).focus();
    }

    set(cell, sign) {
        const {row, column} = cell.dataset;
        const text = this.mask[row];
        this.mask[row] = text.slice(0, Number(column)) + sign + text.slice(Number(column) + 1);
        this.show();
    }

    toggled(cell) {
        return this.mask[cell.dataset.row][cell.dataset.column] === "#" ? "." : "#";
    }

    /// Zones that are not on the picture stay as they are.
    fill(sign) {
        for (const cell of this.cells.values())
            this.set(cell, sign(this.mask[cell.dataset.row][cell.dataset.column]));
    }

    move(cell) {
        for (const other of this.cells.values()) other.tabIndex = other === cell ? 0 : -1;
        cell.focus({preventScroll: true});
    }

    steer(event) {
        const cell = event.target.closest(".zone");
        if (!cell) return;
        const step = steps[event.key];
        if (step) {
            const next = this.cells.get(
                `${Number(cell.dataset.row) + step[0]},${Number(cell.dataset.column) + step[1]}`
            );
            if (next) this.move(next);
            event.preventDefault();
        }
    }

    /// Space bar, enter and what a screen reader presses: clicks without a pointer.
    press(event) {
        const cell = event.target.closest(".zone");
        if (cell && event.detail === 0) this.set(cell, this.toggled(cell));
    }

    cellAt({clientX, clientY}) {
        const cell = document.elementFromPoint(clientX, clientY)?.closest(".zone");
        return cell && this.element.contains(cell) ? cell : null;
    }

    begin(event) {
        const cell = this.cellAt(event);
        if (!cell || event.button !== 0) return;
        event.preventDefault();
        this.element.setPointerCapture(event.pointerId);
        this.painting = this.toggled(cell);
        this.move(cell);
        this.set(cell, this.painting);
    }

    paint(event) {
        if (this.painting === null) return;
        // A quick stroke is more points than events.
        for (const point of [...(event.getCoalescedEvents?.() ?? []), event]) {
            const cell = this.cellAt(point);
            if (cell) this.set(cell, this.painting);
        }
    }

    end() {
        this.painting = null;
    }

    async apply() {
        try {
            await this.detail.set({mask: this.mask});
            this.update();
        } catch (error) {
            this.line.show({kind: "problem", text: `not changed: ${error.message}`});
        }
    }
}
