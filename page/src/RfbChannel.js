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

    constructor(line) {
        this.line = line;
    }
    send(bytes) {
        if (this.readyState === "open")
            this.line.send(bytes);
    }
    deliver(bytes) {
        // Its buffer is read to the end, so that it must hold nothing else.
        this.onmessage?.({data: bytes.slice().buffer});
    }
    /// Also called by noVNC, which waits for the event.
    close() {
        if (this.readyState === "closed")
            return;
        this.readyState = "closed";
        this.onclose?.({code: 1000, reason: ""});
    }
}
