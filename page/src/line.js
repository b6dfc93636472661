import {areEqual, concat} from "./bytes.js";
import {Kind, LongestRfb, SealedChannel} from "./sealing.js";

/// Until the host has proven itself. A relay gives it 30 seconds to come for us.
const Patience = 40000;
/// Of the minute that there is to come back, one try that gets nowhere is not to take most.
const PatienceToReturn = 8000;
const LongestRecord = 1 + LongestRfb + 16;
const Codes = {Goodbye: 1000, Key: 4001, Nonsense: 4002};
const Reasons = ["", "left", "refused", "no-answer", "disconnected", "too-many", "too-soon",
                 "everybody-refused", "link-ended", "screen-ended"];
const Watching = 3;
const Controlling = 4;
const LastPlace = 4;

/// One sealed connection to a host over a relay. Tells the listener:
///     opened(digits)         the host has proven to have the key
///     isBack()               and to be the one that we came back to
///     stands(place, seconds)
///     rfb(bytes)             what the host's side of RFB says, once we are inside
///     ended(how, secret)     last: an ending's word; the secret by which one may come back after "cut"
export class HostLine {
    #channel;
    #isProving = false;
    #isProven = false;
    #isInside = false;
    #isOver = false;
    #secret;
    #early = [];
    /// What is received and what is sent stays in order, however long each takes to be opened.
    #received = Promise.resolve();
    #sent = Promise.resolve();

    constructor(address, link, name, comesBackBy, listener) {
        Object.assign(this, {link, name, comesBackBy, listener});
        this.patience = setTimeout(() => this.#end("silent", Codes.Goodbye),
            comesBackBy ? PatienceToReturn : Patience);
        this.socket = new WebSocket(address, "zelvo.1");
        this.socket.binaryType = "arraybuffer";
        this.socket.onopen = () => this.#begin().catch(() => this.#end("broken", Codes.Nonsense));
        this.socket.onmessage = ({data}) => this.#take(data);
        this.socket.onclose = ({code}) => this.#whenProven(() => this.#later(() => this.#closed(code)));
    }

    /// RFB of ours.
    send(bytes) {
        for (let at = 0; at < bytes.length; at += LongestRfb)
            this.#seal(concat([Kind.Rfb], bytes.subarray(at, at + LongestRfb)));
    }

    /// Says goodbye where there is somebody to say it to. Nothing more is told then.
    leave() {
        if (this.#isProven && !this.#isOver)
            this.#seal(Uint8Array.of(Kind.Goodbye, Reasons.indexOf("left")));
        this.#isOver = true;
        clearTimeout(this.patience);
        this.#sent.finally(() => this.socket.close(Codes.Goodbye));
    }

    async #begin() {
        this.opened = true;
        this.#channel = await SealedChannel.begin(this.link);
        this.socket.send(this.#channel.firstMessage);
    }

    #take(data) {
        // No host sends text, nor more than a record holds.
        if (typeof data === "string" || data.byteLength > LongestRecord)
            return this.#end("broken", Codes.Nonsense);
        const message = new Uint8Array(data);
        if (this.#isProving)
            return this.#whenProven(() => this.#open(message));
        this.#isProving = true;
        this.#later(() => this.#prove(message));
    }

    /// At once but while the host's second message is being looked at.
    #whenProven(work) {
        if (this.#isProving && !this.#isProven)
            this.#early.push(work);
        else
            work();
    }

    #later(work) {
        this.#received = this.#received.then(work);
    }

    #open(message) {
        const plain = this.#channel.toOpener.open(message);
        // It is awaited in its turn; until then its failure is nobody's.
        plain.catch(() => {});
        this.#later(() => this.#act(plain));
    }

    async #prove(message) {
        try {
            await this.#channel.prove(message);
        } catch {
            return this.#end("not-the-host", Codes.Nonsense);
        }
        if (this.#isOver)
            return;
        this.#isProven = true;
        const opening = this.#channel.opening(this.name, this.comesBackBy);
        this.#sent = opening.then((sealed) => this.socket.send(sealed));
        clearTimeout(this.patience);
        this.listener.opened(this.#channel.digits);
        for (const work of this.#early)
            work();
    }

    async #act(opening) {
        try {
            const plain = await opening;
            if (!this.#isOver && !(await this.#says(plain[0], plain.subarray(1))))
                this.#end("broken", Codes.Nonsense);
        } catch {
            this.#end("broken", Codes.Nonsense);
        }
    }

    /// False for what no host says.
    async #says(kind, body) {
        switch (kind) {
            case Kind.Rfb:
                if (!this.#isInside || body.length === 0 || body.length > LongestRfb)
                    return false;
                this.listener.rfb(body);
                return true;
            case Kind.Goodbye:
                if (body.length !== 1)
                    return false;
                this.#end(body[0] === 1 ? "host-left" : Reasons[body[0]] || "host-left",
                          Codes.Goodbye);
                return true;
            case Kind.Place:
                return body.length === 3 && this.#stands(body);
            case Kind.Secret:
                this.#secret = body.slice();
                return body.length === 32;
            case Kind.IsBack:
                return body.length === 32 && this.#isBackBy(body);
            default:
                return false;
        }
    }

    #stands([place, high, low]) {
        this.#isInside ||= place === Watching || place === Controlling;
        this.hasStood = true;
        if (place > 0 && place <= LastPlace)
            this.listener.stands(place, high * 256 + low);
        return true;
    }

    async #isBackBy(proof) {
        if (!this.comesBackBy || this.hasStood)
            return false;
        const right = await this.#channel.proof(this.comesBackBy, "back, host");
        if (!areEqual(proof, right))
            this.#end("not-the-host", Codes.Nonsense);
        else
            this.listener.isBack();
        return true;
    }

    #seal(plain) {
        if (this.#isOver)
            return;
        const before = this.#sent;
        // The opening takes the first number, which it may not have done yet.
        this.#sent = before.then(async () => {
            const sealed = await this.#channel.toHost.seal(plain);
            if (this.socket.readyState === WebSocket.OPEN)
                this.socket.send(sealed);
        });
    }

    #closed(code) {
        if (this.#isProven)
            this.#end("cut");
        else if (code === Codes.Key)
            this.#end("key-refused");
        else
            this.#end(this.opened ? "silent" : "unreachable");
    }

    #end(how, code) {
        if (this.#isOver)
            return;
        this.#isOver = true;
        clearTimeout(this.patience);
        if (code && this.socket.readyState < WebSocket.CLOSING)
            this.socket.close(code);
        this.listener.ended(how, how === "cut" ? this.#secret : undefined);
    }
}
