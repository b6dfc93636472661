import {asHelperName} from "./link.js";

const Endpoint = "/app/4.8.1/sharing/get.php";
const LongestSettings = 65536;
const HotKeyNumbers = [32, 33, 64, 79, 81];
const Corners = ["wvous-tl-corner", "wvous-tr-corner", "wvous-bl-corner", "wvous-br-corner"];
const Refusals = {5: "unknown-link", 6: "service-busy", 12: "service-busy", 13: "service-busy"};

/// What the sharing service tells about the host of an identifier; {ending} where it tells nothing.
/// It is the service's word: fit to be shown and tried, proof of nothing.
export async function askForFacts(identifier) {
    let reply;
    try {
        const answer = await fetch(Endpoint, {
            method: "POST",
            // An owner's cookie would count as the host's sign of life.
            credentials: "omit",
            referrerPolicy: "no-referrer",
            cache: "no-store",
            body: new URLSearchParams({link: identifier}),
        });
        reply = readPlist(await answer.text());
    } catch {
        return {ending: "service-no-connection"};
    }
    return factsOf(reply);
}

/// The texts of a property list's outermost dictionary.
function readPlist(text) {
    const root = new DOMParser().parseFromString(text, "text/xml").querySelector("plist > dict");
    const values = new Map();
    const nodes = [...(root?.children ?? [])];
    for (let i = 0; i + 1 < nodes.length; i += 2)
        values.set(nodes[i].textContent, nodes[i + 1].textContent);
    return values;
}

function factsOf(reply) {
    const status = reply.get("StatusCode");
    if (status !== "0")
        return {ending: Refusals[status] ?? "service-nonsense"};
    if (Number(reply.get("availabilityStatus") ?? 0) !== 0)
        return {ending: "not-shared"};
    const port = Number(reply.get("Port"));
    const relay = reply.get("Relay") ?? "";
    if (!Number.isInteger(port) || port < 1 || port > 65535 || !/^[A-Za-z0-9.:[\]-]{0,260}$/.test(relay))
        return {ending: "service-nonsense"};
    const name = ["ComputerName", "LocalHostname", "IPAddress"]
        .map((key) => asHelperName((reply.get(key) ?? "").normalize("NFC")))
        .find((text) => text !== "");
    return {name, port, relay, addressIsProven: reply.get("AddressProven") === "1",
            ...readSettings(reply.get("HotKeys") ?? "")};
}

const isModifier = (keysym) => keysym >= 0xFFE1 && keysym <= 0xFFEE;
// A host names its modifiers as the keys of other computers at the same places: Alt where it means Super,
// and Meta where it means Alt.
const HostsKeys = new Map([[0xFFE9, 0xFFEB], [0xFFE7, 0xFFE9]]);
const asSent = (keys) => keys.map((key) => HostsKeys.get(key) ?? key);
const areKeys = (keys) => Array.isArray(keys) && keys.length <= 5 &&
    keys.every((key) => Number.isInteger(key) && key > 0 && key <= 0x1FFFFFFF);

function readSettings(json) {
    let settings = {};
    try {
        if (json.length <= LongestSettings)
            settings = JSON.parse(json) ?? {};
    } catch {
        // A host without settings that can be read has none.
    }
    const hotKeys = HotKeyNumbers
        .map((number) => ({number, keys: settings[number]}))
        .filter(({keys}) => areKeys(keys) && keys.length > 0 && keys.slice(0, -1).every(isModifier))
        .map(({number, keys}) => ({number, keys: asSent(keys)}));
    const corners = Corners
        .map((key, place) => ({place, action: settings.hotCorners?.[key]?.value,
                               modifiers: settings.hotCorners?.[key]?.modifiers}))
        .filter(({action, modifiers}) => Number.isInteger(action) && action > 1 && areKeys(modifiers) &&
                                         modifiers.every(isModifier))
        .map(({place, action, modifiers}) => ({place, action, modifiers: asSent(modifiers)}));
    return {hotKeys, corners};
}
