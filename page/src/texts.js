/// The page's texts in its languages, which the build puts into it from the string tables.
const tables = JSON.parse(document.getElementById("texts").textContent);

function choose() {
    for (const wish of navigator.languages ?? []) {
        if (/^zh\b/i.test(wish))
            return "zh-Hans";
        const plain = wish.slice(0, 2).toLowerCase();
        if (tables[plain])
            return plain;
    }
    return "en";
}

export const language = choose();

/// The text of a key, with each "%@" replaced.
export function text(key, ...values) {
    let shown = tables[language][key] ?? key;
    for (const value of values)
        shown = shown.replace("%@", () => value);
    return shown;
}

/// A stranger's name, kept apart from the sentence around.
export const apart = (name) => "\u2068" + name + "\u2069";
