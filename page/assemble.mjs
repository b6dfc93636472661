// Puts the page together as one file, with what it shows in its languages.
//
// usage: node assemble.mjs SOURCE_FOLDER RESOURCES NOVNC SCRIPT PAGE
import {createHash} from "node:crypto";
import {existsSync, readdirSync, readFileSync, writeFileSync} from "node:fs";
import {join} from "node:path";
import {gzipSync} from "node:zlib";

const [source, resources, novnc, script, page] = process.argv.slice(2);
const read = (...path) => readFileSync(join(...path), "utf8");
const Languages = ["en", "de", "fr", "es", "zh-Hans"];

function readTable(language) {
    const table = {};
    const text = read(resources, language + ".lproj", "Localizable.strings");
    for (const [, key, value] of text.matchAll(/^("(?:[^"\\]|\\.)*") = ("(?:[^"\\]|\\.)*");$/gm))
        table[JSON.parse(key)] = JSON.parse(value);
    return table;
}

const template = read(source, "page.html");
const sources = readdirSync(join(source, "src")).map((name) => read(source, "src", name)).join("\n");
const tables = Object.fromEntries(Languages.map((language) => [language, readTable(language)]));

// Each literal that is a key; and a key that is asked for must be one.
const literals = [...(template + sources).matchAll(/"([^"\\\n]+)"/g)].map(([, literal]) => literal);
const asked = [...template.matchAll(/data-text="([^"]+)"/g), ...sources.matchAll(/\btext\("([^"]+)"/g),
               ...read(source, "src", "endings.js").matchAll(/"([A-Z%][^"]{2,})"/g)].map(([, key]) => key);
const missing = asked.filter((key) => !tables.en[key]);
if (missing.length)
    throw new Error("not in the string tables: " + missing.join("; "));
const keys = [...new Set(literals)].filter((literal) => tables.en[literal]).sort();
const texts = Object.fromEntries(Languages.map((language) =>
    [language, Object.fromEntries(keys.map((key) => [key, tables[language][key]]))]));

const parts = {
    ICON: "data:image/svg+xml;base64," + Buffer.from(read(resources, "zelvo.svg")).toString("base64"),
    STYLE: read(source, "style.css").replace(/\n\s*/g, "\n"),
    NOSCRIPT: Languages.map((language) =>
        `<p lang="${language}">${tables[language]["This page needs JavaScript."]}</p>`).join(""),
    // Nothing in a table ends the element that holds it.
    TEXTS: JSON.stringify(texts).replaceAll("<", "\\u003c"),
    SCRIPT: read(script).trimEnd(),
};
const hashOf = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;
// Nothing but what is in the page; what it connects to, the service narrows down.
parts.POLICY = `default-src 'none'; script-src ${hashOf(parts.SCRIPT)}; style-src ${hashOf(parts.STYLE)}; ` +
    "img-src data:; connect-src 'self' wss:; base-uri 'none'; form-action 'none'";
// It has moved between versions.
const des = [["des.js"], ["crypto", "des.js"]].map((path) => join(novnc, "core", ...path)).find(existsSync);
const [terms] = /^\/\*[^]*?\*\//.exec(read(des));
const notices = `<!--\n${read(source, "NOTICES")}\n${terms}\n-->\n`;
const text = template.replace(/@([A-Z]+)@/g, (_, name) => parts[name]) + notices;
writeFileSync(page, text);
writeFileSync(page + ".gz", gzipSync(text, {level: 9}));
const hash = createHash("sha256").update(text).digest("hex");
writeFileSync(page + ".sha256", hash + "  page.html\n");
console.log(`page.html: SHA-256 ${hash}`);
