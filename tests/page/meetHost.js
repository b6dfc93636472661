import {RfbChannel} from "../../page/src/RfbChannel.js";
import {Screen} from "../../page/src/Screen.js";

/// Has the page's screen meet a host that says this within its sealed line, in base64: what became of it.
globalThis.meetHost = async (words) => {
    let fate = "shown";
    const screen = new Screen(() => { fate = "failed"; });
    screen.setControls(true);
    const channel = new RfbChannel({send() {}});
    screen.begin(channel);
    try {
        for (const word of words) {
            channel.deliver(Uint8Array.from(atob(word), (c) => c.charCodeAt(0)));
            await new Promise((wake) => setTimeout(wake, 50));
        }
    } catch {
        fate = "failed"; // The line ends there.
    }
    screen.end();
    return fate;
};
