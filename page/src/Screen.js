import RFB from "novnc/core/rfb.js";
import keysyms from "novnc/core/input/keysymdef.js";
import {hostActions, strike} from "./hostKeys.js";
import {text} from "./texts.js";

const BackSpace = 0xFF08;
const Return = 0xFF0D;
/// What a telephone's keyboard is shown to have before it, so that it can be deleted.
const Before = "\u00a0".repeat(8);

const element = (id) => document.getElementById(id);

/// The host's screen with what belongs to it. `failed` where what comes is no picture.
export class Screen {
    #rfb;
    #controls = false;

    constructor(failed) {
        this.failed = failed;
        element("full").onclick = () => this.#toggleFullScreen();
        element("size").onclick = () => this.#setFits(!this.fits);
        element("clipboard-text").oninput = ({target}) => this.#rfb?.clipboardPasteFrom(target.value);
        element("clipboard-copy").onclick = () =>
            navigator.clipboard.writeText(element("clipboard-text").value).catch(() => {});
        this.#prepareKeyboard();
        element("screen").addEventListener("keydown", (event) => this.#giveKeysBack(event), true);
        element("screen").addEventListener("pointerdown", () => {
            for (const menu of document.querySelectorAll("details[open]"))
                menu.open = false;
        });
        this.fits = true;
    }

    begin(channel) {
        element("screen").replaceChildren();
        const rfb = new RFB(element("screen"), channel, {shared: true});
        this.#rfb = rfb;
        rfb.background = "#202124";
        rfb.viewOnly = !this.#controls;
        this.#setFits(this.fits);
        rfb.addEventListener("connect", () => this.#shown(rfb));
        rfb.addEventListener("clipboard", ({detail}) => {
            element("clipboard-text").value = detail.text;
        });
        rfb.addEventListener("disconnect", () => {
            if (this.#rfb === rfb)
                this.failed();
        });
    }

    end() {
        const rfb = this.#rfb;
        this.#rfb = undefined;
        rfb?.disconnect();
    }

    setControls(controls) {
        this.#controls = controls;
        if (this.#rfb)
            this.#rfb.viewOnly = !controls;
        for (const id of ["keys", "keyboard", "clipboard"])
            element(id).classList.toggle("off", !controls);
    }

    setFacts(facts) {
        element("key-list").replaceChildren(...hostActions(facts).map(({name, keys, corner}) => {
            const button = document.createElement("button");
            button.type = "button";
            button.textContent = name;
            button.onclick = () => {
                if (this.#rfb)
                    corner ? this.#visit(corner) : strike(this.#rfb, keys);
                element("keys").open = false;
                this.#rfb?.focus();
            };
            return button;
        }));
    }

    #shown(rfb) {
        const canvas = element("screen").querySelector("canvas");
        canvas.tabIndex = 0;
        canvas.setAttribute("role", "application");
        canvas.setAttribute("aria-label", text("viewer-picture"));
        canvas.setAttribute("aria-description", text("viewer-way-out"));
        // Who goes elsewhere with a key down lets it go there, which noVNC hears of the window alone.
        canvas.onblur = () => dispatchEvent(new Event("blur"));
        rfb.focus();
    }

    /// While the picture has the focus Tab is the host's, too.
    #giveKeysBack(event) {
        if (event.key !== "Escape" || !event.ctrlKey || !event.altKey || !event.shiftKey)
            return;
        event.preventDefault();
        event.stopPropagation();
        element("disconnect").focus();
    }

    #setFits(fits) {
        this.fits = fits;
        element("size").textContent = fits ? text("viewer-actual") : text("viewer-fit");
        if (this.#rfb)
            this.#rfb.scaleViewport = fits;
    }

    /// The pointer goes to a corner of the picture while the modifiers are held.
    #visit({place, modifiers}) {
        const canvas = element("screen").querySelector("canvas");
        const {left, top, right, bottom} = canvas.getBoundingClientRect();
        const at = {clientX: place % 2 ? right - 1 : left, clientY: place > 1 ? bottom - 1 : top};
        for (const key of modifiers)
            this.#rfb.sendKey(key, null, true);
        canvas.dispatchEvent(new MouseEvent("mousemove", {...at, bubbles: true}));
        // A motion waits for the one before it.
        setTimeout(() => {
            for (const key of [...modifiers].reverse())
                this.#rfb?.sendKey(key, null, false);
        }, 300);
    }

    async #toggleFullScreen() {
        if (document.fullscreenElement)
            return document.exitFullscreen();
        await element("viewer").requestFullscreen().catch(() => {});
        // The browser's own keys go to the host, too, where it lets us have them.
        await navigator.keyboard?.lock?.().catch(() => {});
        this.#rfb?.focus();
    }

    /// A telephone has no keys, but what it types into a field.
    #prepareKeyboard() {
        const field = element("typing");
        field.value = Before;
        field.setAttribute("aria-label", text("Keyboard"));
        element("keyboard").onclick = () => field.focus();
        field.onkeydown = (event) => {
            if (event.key === "Enter") {
                event.preventDefault();
                this.#type([Return]);
            }
        };
        field.oninput = (event) => {
            if (event.isComposing)
                return;
            const typed = field.value;
            const kept = [...Before].findIndex((letter, i) => typed[i] !== letter);
            if (kept >= 0)
                this.#type(Array(Before.length - kept).fill(BackSpace));
            this.#type([...typed.slice(kept >= 0 ? kept : Before.length)]
                           .map((letter) => keysyms.lookup(letter.codePointAt(0))));
            field.value = Before;
        };
        field.addEventListener("compositionend", field.oninput);
    }

    #type(keys) {
        for (const key of keys)
            if (this.#rfb && this.#controls)
                strike(this.#rfb, [key]);
    }
}
