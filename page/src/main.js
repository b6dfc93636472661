import {Endings} from "./endings.js";
import {asHelperName, readLink} from "./link.js";
import {Screen} from "./Screen.js";
import {canSeal} from "./sealing.js";
import {Session} from "./session.js";
import {apart, language, text} from "./texts.js";

const element = (id) => document.getElementById(id);
const Faults = {NoKey: "fragment-lost", BadKey: "bad-key"};

let session;
let screen;
let host = "";
let shownStage = "";

const say = (title, sentence) => {
    element("title").textContent = title;
    // What is said again is read out again.
    if (element("sentence").textContent !== sentence)
        element("sentence").textContent = sentence;
};
const show = (id, isShown) => {
    element(id).hidden = !isShown;
};

/// The fragment of the address, which goes from there at once, so that nobody reads it over a shoulder, or copies it
/// with the address. The browser may have put it into its history before.
function takeLink() {
    const link = readLink("zelvo://" + location.pathname.slice(1) + location.hash);
    if (location.hash)
        history.replaceState(null, "", location.pathname);
    return link;
}

function showEnding(word) {
    const [title, sentence] = Endings[word];
    say(text(title), text(sentence, apart(host || text("The other computer"))));
}

function waitingText({stage, seconds, facts}) {
    const name = apart(host);
    switch (stage) {
        case "asking":
            return [text("Asking the computer..."),
                    facts ? text("Connecting to %@.", name)
                          : text("The sharing service is being asked where the computer is.")];
        case "in-line":
            return [text("Waiting for your turn"),
                    text("The user of %@ is being asked about somebody else first.", name)];
        case "asked":
            return [seconds > 0 ? text("Waiting for a yes (%@)", seconds) : text("Waiting for a yes"),
                    text("The user of %@ is being asked whether you may see the screen.", name)];
        case "inside":
            return [text("You may come in"), text("The picture of %@ is on its way.", name)];
        default:
            return [text("Coming back"),
                    text("The connection to %@ was lost. For a minute you are let in again without a question.", name)];
    }
}

function changed(state) {
    const {stage, ending, digits, comparesAgain, controls, facts} = state;
    host = state.host ?? host;
    document.body.dataset.stage = stage;
    document.body.dataset.ending = stage === "ended" ? ending : "";
    document.title = host ? `${host} – Zelvo` : "Zelvo";
    if (stage === "ended")
        showEnding(ending);
    else
        say(...waitingText(state));
    const isInside = stage === "inside";
    const isNew = stage !== shownStage;
    shownStage = stage;
    show("card", !isInside);
    show("viewer", isInside);
    show("again", stage === "ended" && ending !== "no-relay");
    show("leave", !["ended", "inside"].includes(stage));
    // Two would be asked about.
    show("open", stage === "ended");
    show("digits", Boolean(digits));
    for (const id of ["numbers", "bar-numbers"])
        element(id).textContent = digits ?? "";
    show("bar-note", Boolean(comparesAgain));
    show("unproven", Boolean(facts && !facts.addressIsProven && digits));
    // What had the focus may just have gone. Whoever was inside may be typing, and is to press nothing by that.
    if (isNew && !isInside)
        element({ended: "again", returning: "title"}[stage] ?? "leave").focus();
    element("standing").textContent =
        (controls ? text("You control the screen") : text("You can only watch")) + " · " + apart(host);
    screen.setControls(Boolean(controls));
    if (facts)
        screen.setFacts(facts);
    if (!isInside && document.fullscreenElement)
        document.exitFullscreen();
}

function ask(event) {
    event.preventDefault();
    const name = asHelperName(element("name").value.normalize("NFC"));
    if (name === "") {
        element("name-fault").textContent =
            text("Tell your name: at least one letter of it can be shown.");
        return element("name").focus();
    }
    show("ask", false);
    session.start(name);
}

/// What stands in the page is a key of the tables.
function translate() {
    document.documentElement.lang = language;
    for (const part of document.querySelectorAll("[data-text]"))
        part.textContent = text(part.dataset.text);
}

async function begin(link) {
    session?.leave();
    for (const id of ["ask", "again", "leave", "open", "digits", "viewer"])
        show(id, false);
    show("card", true);
    if (link.fault)
        return showEnding(Faults[link.fault] ?? "bad-link");
    const key = btoa(String.fromCharCode(...link.key))
        .replaceAll("+", "-").replaceAll("/", "_").replaceAll("=", "");
    element("open").href = `zelvo://${link.identifier}#${key}`;
    show("open", true);
    if (!(await canSeal()))
        return showEnding("old-browser");
    host = "";
    session = new Session(link, {
        changed,
        rfbBegan: (channel) => screen.begin(channel),
        rfbEnded: () => screen.end(),
    });
    say(text("See another screen"), text("The sharing service is being asked where the computer is."));
    if (!(await session.prepare()))
        return;
    host = session.state.host;
    say(apart(host),
        text("You were sent a link to somebody’s screen. Before you see anything, they are asked."));
    show("ask", true);
    element("name").focus();
}

translate();
screen = new Screen(() => session.pictureFailed());
element("ask").onsubmit = ask;
element("again").onclick = () => (session.name ? session.start(session.name) : begin(session.link));
for (const id of ["leave", "disconnect"])
    element(id).onclick = () => session.leave();
// Another link to the same computer, put into the address bar of this page.
addEventListener("hashchange", () => location.hash && begin(takeLink()));
addEventListener("pagehide", () => session?.leave());
begin(takeLink());
