// Light or dark: as the system has it, until somebody chooses.
import {button, setText} from "./dom.js";

const choices = ["auto", "light", "dark"];
const words = {auto: "Colours: automatic", light: "Colours: light", dark: "Colours: dark"};

function stored() {
    try {
        const choice = localStorage.getItem("theme");
        return choices.includes(choice) ? choice : "auto";
    } catch {
        return "auto"; // storage is forbidden: the choice lasts as long as the page
    }
}

function use(choice) {
    document.documentElement.dataset.theme = choice;
    try {
        localStorage.setItem("theme", choice);
    } catch {
        /* as above */
    }
}

export function themeSwitch() {
    let choice = stored();
    use(choice);
    const control = button(
        words[choice],
        "theme",
        () => {
            choice = choices[(choices.indexOf(choice) + 1) % choices.length];
            use(choice);
            setText(control.lastElementChild, words[choice]);
            control.title = words[choice];
        },
        {class: "quiet narrow", title: words[choice]}
    );
    return control;
}
