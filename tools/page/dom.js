// Builds elements. What comes from outside reaches the page as text nodes and attribute values only:
// nothing is ever parsed as HTML.

const svgSpace = "http://www.w3.org/2000/svg";

function apply(element, options) {
    for (const [key, value] of Object.entries(options)) {
        const told = key.startsWith("aria-"); // where "false" says something, too
        if (value === null || value === undefined || (value === false && !told)) continue;
        if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
        else element.setAttribute(key, value === true && !told ? "" : String(value));
    }
}

/// make("button", {type: "button", class: "quiet", onclick: f}, "Save", ...): null children are left out.
export function make(tag, options = {}, ...children) {
    const element = document.createElement(tag);
    apply(element, options);
    element.append(...children.flat(2).filter((child) => child !== null && child !== undefined));
    return element;
}

export function makeSvg(tag, options = {}, ...children) {
    const element = document.createElementNS(svgSpace, tag);
    apply(element, options);
    element.append(...children);
    return element;
}

/// A picture beside a text that says the same: hidden from screen readers.
export function icon(name) {
    const use = makeSvg("use", {href: `#icon-${name}`});
    return makeSvg("svg", {class: "icon", "aria-hidden": "true", focusable: "false"}, use);
}

export function button(name, iconName, onclick, options = {}) {
    return make(
        "button",
        {type: "button", onclick, ...options},
        iconName ? icon(iconName) : null,
        make("span", {}, name)
    );
}

/// Touches the document only where something changed: called many times a second.
export function setText(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

export function setAttribute(element, name, value) {
    const text = String(value);
    if (element.getAttribute(name) !== text) element.setAttribute(name, text);
}

export function swapIcon(svg, name) {
    setAttribute(svg.firstElementChild, "href", `#icon-${name}`);
}

/// Calls `run` every `ms` until the signal is aborted.
export function every(ms, signal, run) {
    const timer = setInterval(run, ms);
    signal.addEventListener("abort", () => clearInterval(timer), {once: true});
}

/// Resolves after `ms`, or at once when the signal is aborted.
export function pause(ms, signal) {
    return new Promise((resolve) => {
        if (signal?.aborted) return resolve();
        const timer = setTimeout(resolve, ms);
        signal?.addEventListener(
            "abort",
            () => {
                clearTimeout(timer);
                resolve();
            },
            {once: true}
        );
    });
}
