import {fromBase64url, utf8} from "./bytes.js";

const Scheme = "zelvo://";
const LongestIdentifier = 128;
const KeyLength = 22;

/// {identifier, key}, or {fault} with the first reason why the text is no link.
export function readLink(text) {
    if (text === "")
        return {fault: "Empty"};
    if (utf8(text).length > Scheme.length + LongestIdentifier + 1 + KeyLength)
        return {fault: "TooLong"};
    if (!text.startsWith(Scheme))
        return {fault: "OtherScheme"};
    const mark = text.indexOf("#");
    if (mark < 0 || mark === text.length - 1)
        return {fault: "NoKey"};
    const identifier = text.slice(Scheme.length, mark);
    if (identifier === "")
        return {fault: "NoIdentifier"};
    if (identifier.length > LongestIdentifier || !/^[A-Za-z0-9._~-]+$/.test(identifier))
        return {fault: "BadIdentifier"};
    const key = text.slice(mark + 1);
    const bytes = key.length === KeyLength ? fromBase64url(key) : undefined;
    return bytes ? {identifier, key: bytes} : {fault: "BadKey"};
}

const LongestName = 40;
const Spaces = /[\t-\r \u0085\u00A0\u1680\u2000-\u200A\u2028\u2029\u202F\u205F\u3000]+/gu;
// What would not be seen, or not stay where it is put.
const Unseen = new RegExp(
    "[\\0-\\x1F\\x7F-\\x9F\\xAD\\u034F\\u061C\\u115F\\u1160\\u17B4\\u17B5\\u180B-\\u180F\\u200B-\\u200F" +
    "\\u2028-\\u202E\\u2060-\\u206F\\u2800\\u3164\\uD800-\\uF8FF\\uFDD0-\\uFDEF\\uFE00-\\uFE0F\\uFEFF" +
    "\\uFFA0\\uFFF0-\\uFFFF\\u{13430}-\\u{1345F}\\u{1BCA0}-\\u{1BCA3}\\u{1D173}-\\u{1D17A}" +
    "\\u{E0000}-\\u{10FFFF}]", "gu");
const Mark = new RegExp(
    "^[\\u0300-\\u036F\\u0483-\\u0489\\u0E34-\\u0E3A\\u0E47-\\u0E4E\\u1AB0-\\u1AFF\\u1DC0-\\u1DFF" +
    "\\u20D0-\\u20FF\\uFE20-\\uFE2F]$", "u");
const MostMarks = 2;

/// What may stand as a name of what somebody typed, which is in NFC; empty where nothing may.
export function asHelperName(typed) {
    const text = typed.replace(Spaces, " ").replace(Unseen, "");
    let name = "";
    let marks = MostMarks;
    let length = 0;
    for (const letter of text) {
        if (letter === " " && (name === "" || name.endsWith(" ")))
            continue;
        if (Mark.test(letter) && marks >= MostMarks)
            continue;
        if (length === LongestName)
            break;
        marks = Mark.test(letter) ? marks + 1 : letter === " " ? MostMarks : 0;
        name += letter;
        ++length;
    }
    return name.trimEnd();
}
