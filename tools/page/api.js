// The server's API. Every request that changes something carries the header that a forged one cannot have.

const patience = 10000; // ms that a change may take
const tooLate =
    "no answer for 10 s: the server is busy, or too many windows of this page leave no connection for it";

export class ApiError extends Error {
    constructor(status, text) {
        super(text);
        this.status = status;
    }
}

/// Told with the word "login" when the server wants a name and a password first.
export const session = new EventTarget();

export function requireLogin(status) {
    if (status === 401) session.dispatchEvent(new Event("login"));
}

async function errorOf(response) {
    const body = await response.json().catch(() => null);
    return new ApiError(response.status, body?.error ?? `the server answered ${response.status}`);
}

async function ask(path, options) {
    let response;
    try {
        response = await fetch(path, {cache: "no-store", credentials: "same-origin", ...options});
    } catch (error) {
        if (error.name === "AbortError") throw error;
        if (error.name === "TimeoutError") throw new ApiError(0, tooLate);
        throw new ApiError(0, "the server does not answer");
    }
    if (!response.ok) {
        if (path !== "/api/login") requireLogin(response.status);
        throw await errorOf(response);
    }
    const text = await response.text();
    return text === "" ? null : JSON.parse(text);
}

export const get = (path, signal) => ask(path, {signal});

function change(method, path, body = {}) {
    const headers = {"Content-Type": "application/json", "X-Plendix": "1"};
    return ask(path, {method, headers, body: JSON.stringify(body), signal: AbortSignal.timeout(patience)});
}

export const post = (path, body) => change("POST", path, body);
export const patch = (path, body) => change("PATCH", path, body);
