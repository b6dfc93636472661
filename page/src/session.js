import {askForFacts} from "./facts.js";
import {HostLine} from "./line.js";
import {RfbChannel} from "./RfbChannel.js";

/// Whoever is let back in is so within this time.
const ReturnsWithin = 60000;
const PauseBetweenReturns = 1000;
const Stages = [undefined, "in-line", "asked", "inside", "inside"];
const Asked = 2;
const Controlling = 4;

/// From one link to the end of its session, and again. `state` is told whenever it changes:
/// stage (asking, in-line, asked, inside, returning or ended), and what belongs to it.
export class Session {
    #line;
    #channel;
    #secret;
    #timers = {};
    #facts;
    /// Tells one attempt from those before it.
    #start;

    constructor(link, {changed, rfbBegan, rfbEnded}) {
        Object.assign(this, {link, changed, rfbBegan, rfbEnded, state: {stage: "ended"}});
    }

    /// Whose screen it is; false, and at its end, where it cannot be asked for.
    async prepare() {
        const start = (this.#start = {});
        const facts = await askForFacts(this.link.identifier);
        if (this.#start !== start)
            return false;
        if (!facts.ending) {
            this.#facts = facts;
            this.state = {...this.state, host: facts.name, facts};
        }
        if (facts.ending || facts.relay === "")
            this.#end(facts.ending ?? "no-relay");
        return this.#start === start;
    }

    /// With the name under which one asks.
    async start(name) {
        this.name = name;
        const facts = this.#facts;
        this.#stopEverything();
        this.state = {stage: "asking", digits: "", host: facts?.name, facts};
        this.#change({});
        // What was told is good for one attempt.
        if (facts || (await this.prepare())) {
            this.#change({});
            this.#connect();
        }
    }

    leave() {
        if (this.state.stage !== "ended")
            this.#end("left");
    }

    pictureFailed() {
        if (this.#line)
            this.#end("picture-broken");
    }

    #change(what) {
        this.state = {...this.state, ...what};
        this.changed(this.state);
    }

    /// Who ends the link while we are away has no line to say so, and may have moved.
    async #askAgain() {
        const start = this.#start;
        if (this.isAskedAgain)
            return;
        this.isAskedAgain = true;
        const facts = await askForFacts(this.link.identifier);
        this.isAskedAgain = false;
        if (this.#start !== start || this.state.stage !== "returning")
            return;
        if (facts.ending === "unknown-link" || facts.ending === "not-shared")
            this.#end("link-ended");
        else if (facts.relay)
            this.#facts = facts;
    }

    #connect() {
        const {relay, port} = this.#facts;
        const secret = this.#secret;
        if (secret)
            this.#askAgain();
        this.#line = new HostLine(`wss://${relay}/${port}`, this.link, this.name, secret, {
            opened: (digits) => {
                // It has been shown, and is of use once.
                this.#secret = undefined;
                this.#change({digits, comparesAgain: secret !== undefined});
            },
            isBack: () => this.#change({comparesAgain: false}),
            stands: (place, seconds) => this.#stands(place, seconds),
            rfb: (bytes) => this.#rfb(bytes),
            ended: (how, fresh) => this.#lineEnded(how, fresh),
        });
    }

    #stands(place, seconds) {
        clearInterval(this.#timers.countdown);
        if (place === Asked)
            this.#timers.countdown = setInterval(() => {
                if (this.state.seconds > 0)
                    this.#change({seconds: this.state.seconds - 1});
            }, 1000);
        else if (Stages[place] === "inside")
            clearTimeout(this.#timers.lastReturn);
        this.#change({stage: Stages[place], seconds, controls: place === Controlling});
    }

    #rfb(bytes) {
        if (!this.#channel) {
            this.#channel = new RfbChannel(this.#line);
            this.rfbBegan(this.#channel);
        }
        this.#channel.deliver(bytes);
    }

    #endRfb() {
        if (this.#channel)
            this.rfbEnded();
        this.#channel?.close();
        this.#channel = undefined;
    }

    #lineEnded(how, secret) {
        if (secret)
            return this.#comeBack(secret);
        if (this.#secret === undefined || !["unreachable", "silent"].includes(how))
            return this.#end(how);
        this.#timers.nextReturn = setTimeout(() => this.#connect(), PauseBetweenReturns);
    }

    #comeBack(secret) {
        this.#endRfb();
        this.#secret = secret;
        clearTimeout(this.#timers.lastReturn);
        this.#timers.lastReturn = setTimeout(() => {
            if (this.state.stage === "returning")
                this.#end("cut");
        }, ReturnsWithin);
        this.#change({stage: "returning", digits: ""});
        // A host that lets go again and again is not to keep us busy.
        this.#timers.nextReturn =
            setTimeout(() => this.#connect(), this.state.cameBack ? PauseBetweenReturns : 0);
        this.state.cameBack = true;
    }

    #stopEverything() {
        this.#endRfb();
        this.#line?.leave();
        this.#line = this.#secret = this.#start = undefined;
        clearInterval(this.#timers.countdown);
        clearTimeout(this.#timers.nextReturn);
        clearTimeout(this.#timers.lastReturn);
    }

    #end(ending) {
        this.#stopEverything();
        this.#facts = undefined;
        this.#change({stage: "ended", ending, digits: ""});
    }
}
