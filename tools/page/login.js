// Name and password, where the server wants them.
import {post} from "./api.js";
import {make, setText} from "./dom.js";

export function showLogin(place, entered) {
    const name = make("input", {id: "login-name", name: "name", autocomplete: "username"});
    const password = make("input", {
        id: "login-password",
        name: "password",
        type: "password",
        autocomplete: "current-password",
        required: true
    });
    const problem = make("p", {class: "problem", role: "alert"});
    const submit = make("button", {type: "submit", class: "main"}, "Log in");

    const enter = async (event) => {
        event.preventDefault();
        submit.disabled = true;
        setText(problem, "");
        try {
            await post("/api/login", {name: name.value, password: password.value});
            entered();
        } catch (error) {
            setText(problem, `Not logged in: ${error.message}`);
            password.value = "";
            password.focus();
        } finally {
            submit.disabled = false;
        }
    };
    place.replaceChildren(
        make(
            "form",
            {class: "card login", onsubmit: enter},
            make("h1", {}, "Log in"),
            make("label", {for: "login-name"}, "Name"),
            name,
            make("label", {for: "login-password"}, "Password, or a token"),
            password,
            problem,
            submit
        )
    );
    name.focus();
}
