import {concat} from "./bytes.js";

/// noVNC takes one step of RFB's beginning with a message, and each of them whole: the version, the
/// types of security, the result. A host says them in one go.
const Beginning = [12, 2, 4];

/// What noVNC takes in the place of a connection: RFB within a sealed line, from the time on at which
/// we are inside.
export class RfbChannel {
    binaryType = "arraybuffer";
    protocol = "";
    readyState = "open";
    onopen = null;
    onmessage = null;
    onerror = null;
    onclose = null;
    #steps = [...Beginning];
    #rest = new Uint8Array();

    constructor(line) {
        this.line = line;
    }
    send(bytes) {
        if (this.readyState === "open")
            this.line.send(bytes);
    }
    deliver(bytes) {
        let rest = concat(this.#rest, bytes);
        while (this.#steps.length > 0 && rest.length >= this.#steps[0]) {
            const length = this.#steps.shift();
            this.onmessage?.({data: rest.slice(0, length)});
            rest = rest.slice(length);
        }
        this.#rest = this.#steps.length > 0 ? rest : new Uint8Array();
        if (this.#steps.length === 0 && rest.length > 0)
            this.onmessage?.({data: rest});
    }
    /// Also called by noVNC, which waits for the event.
    close() {
        if (this.readyState === "closed")
            return;
        this.readyState = "closed";
        this.onclose?.({code: 1000, reason: ""});
    }
}
