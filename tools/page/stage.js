// The place of one large picture: keeps its shape, and has what is drawn over it in the same place.
import {make, setText} from "./dom.js";
import {drawZones} from "./zones.js";

export class Stage {
    constructor() {
        this.overlay = make("canvas", {class: "overlay", "aria-hidden": "true"});
        this.head = make("strong");
        this.text = make("span");
        this.notice = make("div", {class: "notice", hidden: true}, this.head, this.text);
        this.frame = make("div", {class: "frame"}, this.overlay, this.notice);
        this.element = make("div", {class: "stage"}, this.frame);
        this.picture = null;
        this.editor = null;
        this.shape = [4, 3]; // of the picture
        this.editorShape = null; // of what an editor works on
        this.lay();
    }

    setPicture(element) {
        this.picture?.remove();
        this.picture = element;
        this.frame.prepend(element);
    }

    setShape(width, height) {
        if (width > 0 && height > 0) this.shape = [width, height];
        this.lay();
    }

    /// Null: that of the picture again.
    setEditorShape(shape) {
        this.editorShape = shape;
        this.lay();
    }

    lay() {
        const [width, height] = this.editorShape ?? this.shape;
        this.frame.style.setProperty("--shape", (width / height).toFixed(4));
    }

    /// Something to work on over the picture; null takes it away.
    setEditor(element) {
        this.editor?.remove();
        this.editor = element;
        this.element.classList.toggle("editing", element !== null);
        if (element) this.frame.append(element);
    }

    showZones(zones, rows, mask) {
        drawZones(this.overlay, zones, this.editor ? null : rows, mask);
    }

    /// What is shown is not live: dimmed, with the reason over it.
    tell(head, text = "", dim = head !== "") {
        this.element.classList.toggle("old", dim);
        this.notice.hidden = head === "";
        setText(this.head, head);
        setText(this.text, text);
    }
}
