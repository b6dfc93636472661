import {text} from "./texts.js";

/// X11/keysymdef.h.
const Control = 0xFFE3;
const Alt = 0xFFE9;
const Super = 0xFFEB;

const hotKeyTexts = () => ({
    32: text("viewer-all-windows"),
    33: text("viewer-application-windows"),
    64: text("viewer-search"),
    79: text("viewer-workspace-left"),
    81: text("viewer-workspace-right"),
});
const cornerTexts = () => ({
    2: text("viewer-all-windows"),
    3: text("viewer-application-windows"),
    4: text("viewer-desktop"),
    13: text("viewer-lock"),
});
const placeText = (place, action) => [
    text("viewer-top-left", action),
    text("viewer-top-right", action),
    text("viewer-bottom-left", action),
    text("viewer-bottom-right", action),
][place];

/// What the host's keys and corners do: {name, keys} or {name, corner}.
export function hostActions({hotKeys, corners}) {
    return [
        ...hotKeys.map(({number, keys}) => ({name: hotKeyTexts()[number], keys})),
        ...corners.map((corner) => ({
            name: placeText(corner.place, cornerTexts()[corner.action] ?? text("viewer-corner")),
            corner,
        })),
        {name: text("viewer-ctrl-alt-del"), keys: [Control, Alt, 0xFFFF]},
        {name: text("viewer-super"), keys: [Super]},
        {name: text("viewer-print"), keys: [0xFF61]},
        {name: text("viewer-alt-tab"), keys: [Alt, 0xFF09]},
    ];
}

/// All of them down, and up in the reverse order.
export function strike(rfb, keys) {
    for (const key of keys)
        rfb.sendKey(key, null, true);
    for (const key of [...keys].reverse())
        rfb.sendKey(key, null, false);
}
