/// Bytes and texts, as the channel counts them.

export const utf8 = (text) => new TextEncoder().encode(text);

export function concat(...parts) {
    const all = new Uint8Array(parts.reduce((size, part) => size + part.length, 0));
    let at = 0;
    for (const part of parts) {
        all.set(part, at);
        at += part.length;
    }
    return all;
}

/// Base64url without padding; undefined where it is not the one text of those bytes.
export function fromBase64url(text) {
    if (!/^[A-Za-z0-9_-]*$/.test(text) || text.length % 4 === 1)
        return undefined;
    const binary = atob(text.replaceAll("-", "+").replaceAll("_", "/"));
    const again = btoa(binary).replaceAll("+", "-").replaceAll("/", "_").replaceAll("=", "");
    return again === text ? Uint8Array.from(binary, (c) => c.charCodeAt(0)) : undefined;
}

/// In constant time.
export function areEqual(a, b) {
    let difference = a.length ^ b.length;
    for (let i = 0; i < a.length; ++i)
        difference |= a[i] ^ b[i];
    return difference === 0;
}
