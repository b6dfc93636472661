// The page's end of the sealed channel against the vectors that fix it.
//
// usage: node vectors_test.mjs PAGE_SOURCES VECTORS
import assert from "node:assert/strict";
import {readFileSync} from "node:fs";
import {join} from "node:path";

const [sources, vectors] = process.argv.slice(2);
globalThis.crypto ??= (await import("node:crypto")).webcrypto;
const {asHelperName, readLink} = await import(join(sources, "link.js"));
const {SealedChannel} = await import(join(sources, "sealing.js"));
const read = (name) => JSON.parse(readFileSync(join(vectors, name), "utf8"));
const bytes = (hex) => Uint8Array.from(Buffer.from(hex, "hex"));
const hex = (some) => Buffer.from(some).toString("hex");

const {links, names} = read("text_vectors.json");
for (const {text, fault} of links)
    assert.equal(readLink(text).fault ?? "", fault, JSON.stringify(text));
for (const {typed, name} of names)
    assert.equal(asHelperName(typed), name, JSON.stringify(typed));

const fixed = read("channel_vectors.json");
const [first, second, opening, ...records] = fixed.messages;

async function keyPair(secret) {
    const pkcs8 = Buffer.concat([Buffer.from("302e020100300506032b656e04220420", "hex"), secret]);
    const privateKey = await crypto.subtle.importKey("pkcs8", pkcs8, "X25519", true, ["deriveBits"]);
    const {x} = await crypto.subtle.exportKey("jwk", privateKey);
    const publicKey = await crypto.subtle.importKey("raw", Buffer.from(x, "base64url"), "X25519", true, []);
    return {privateKey, publicKey};
}

async function begin() {
    const secrets = {ephemeral: await keyPair(bytes(fixed.opener.ephemeral)), value: bytes(fixed.opener.value)};
    const channel = await SealedChannel.begin(readLink(fixed.link), secrets);
    assert.equal(hex(channel.firstMessage), first.sealed);
    return channel;
}

let channel = await begin();
await channel.prove(bytes(second.sealed));
assert.equal(channel.digits, fixed.digits);
assert.equal(hex(await channel.opening(fixed.name)), opening.sealed);
for (const {from, plain, times, sealed} of records) {
    if (from === "opener") {
        assert.equal(hex(await channel.toHost.seal(bytes(plain))), sealed);
        continue;
    }
    // Only the last is written down; those before it have numbers all the same.
    channel.toOpener.count += times - 1;
    assert.equal(hex(await channel.toOpener.open(bytes(sealed))), plain);
}

channel = await begin();
await channel.prove(bytes(second.sealed));
const secret = bytes(fixed.back.secret);
assert.equal(hex(await channel.opening(fixed.name, secret)), fixed.back.opening);
const returned = await channel.toOpener.open(bytes(fixed.back.returned));
assert.equal(hex(returned.subarray(1)), hex(await channel.proof(secret, "back, host")));

// A host without the key, one that adds nothing of its own, and a record that was changed.
for (const at of [0, 31, 32, 79]) {
    const wrong = bytes(second.sealed);
    wrong[at] ^= 1;
    await assert.rejects((await begin()).prove(wrong), `byte ${at}`);
}
await assert.rejects((await begin()).prove(new Uint8Array(80)));
await assert.rejects(channel.toOpener.open(bytes(records[0].sealed)));
