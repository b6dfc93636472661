import {areEqual, concat, utf8} from "./bytes.js";

/// The opener's end of a sealed channel: the handshake and its records, and no wire.

const subtle = globalThis.crypto?.subtle;
const Protocol = utf8("Noise_NNpsk0_25519_AESGCM_SHA256");
const RecordsBetweenKeys = 65536;
const KeyLength = 32;
const HandshakeLength = 80;

export const Kind = {Opening: 1, Rfb: 2, Goodbye: 3, Place: 4, Secret: 5, Return: 6, IsBack: 7};
export const LongestRfb = 16384;

const sha256 = async (bytes) => new Uint8Array(await subtle.digest("SHA-256", bytes));

async function hkdf(salt, secret, info, length) {
    const key = await subtle.importKey("raw", secret, "HKDF", false, ["deriveBits"]);
    const how = {name: "HKDF", hash: "SHA-256", salt, info: utf8(info)};
    return new Uint8Array(await subtle.deriveBits(how, key, 8 * length));
}

const importAes = (bytes) => subtle.importKey("raw", bytes, "AES-GCM", false, ["encrypt", "decrypt"]);

function aes(count, associated) {
    const iv = new Uint8Array(12);
    new DataView(iv.buffer).setBigUint64(4, BigInt(count));
    return {name: "AES-GCM", iv, additionalData: associated};
}

const Nothing = new Uint8Array();
const LastCount = 2n ** 64n - 1n;

/// The records of one direction. Their numbers are given when they are asked for, so that several
/// may be on their way at once.
class Cipher {
    constructor(key) {
        this.key = importAes(key);
        this.count = 0;
    }
    seal(plain, associated = Nothing) {
        return this.#next((key, count) => subtle.encrypt(aes(count, associated), key, plain));
    }
    /// Fails where it is not what the other side has sealed next.
    open(sealed, associated = Nothing) {
        return this.#next((key, count) => subtle.decrypt(aes(count, associated), key, sealed));
    }
    async #next(work) {
        const {key, count} = this;
        if (++this.count % RecordsBetweenKeys === 0)
            this.key = key.then(renewed);
        return new Uint8Array(await work(await key, count));
    }
}

async function renewed(key) {
    const bytes = new Uint8Array(
        await subtle.encrypt(aes(LastCount, Nothing), key, new Uint8Array(KeyLength)));
    return importAes(bytes.slice(0, KeyLength));
}

/// What both sides have in common after each step.
class Transcript {
    constructor() {
        this.hash = this.chain = Protocol;
    }
    async mixHash(bytes) {
        this.hash = await sha256(concat(this.hash, bytes));
    }
    async mixKey(secret) {
        const out = await hkdf(this.chain, secret, "", 2 * KeyLength);
        this.chain = out.slice(0, KeyLength);
        this.key = out.slice(KeyLength);
    }
    async mixShared(secret) {
        const out = await hkdf(this.chain, secret, "", 3 * KeyLength);
        this.chain = out.slice(0, KeyLength);
        await this.mixHash(out.slice(KeyLength, 2 * KeyLength));
        this.key = out.slice(2 * KeyLength);
    }
}

export const canSeal = async () => {
    try {
        await subtle.generateKey("X25519", false, ["deriveBits"]);
        return true;
    } catch {
        return false;
    }
};

const freshSecrets = async () => ({
    ephemeral: await subtle.generateKey("X25519", false, ["deriveBits"]),
    value: crypto.getRandomValues(new Uint8Array(KeyLength)),
});

/// A channel whose first message is ready to be sent.
export class SealedChannel {
    #transcript = new Transcript();
    #secrets;

    /// `secrets` only where a test fixes them.
    static async begin({identifier, key}, secrets) {
        const channel = new SealedChannel();
        const transcript = channel.#transcript;
        channel.#secrets = secrets ?? (await freshSecrets());
        const preShared = await hkdf(utf8("zelvo/1"), key, "channel", KeyLength);
        await transcript.mixHash(utf8("zelvo/1\0" + identifier));
        await transcript.mixShared(preShared);
        const own = new Uint8Array(
            await subtle.exportKey("raw", channel.#secrets.ephemeral.publicKey));
        await transcript.mixHash(own);
        await transcript.mixKey(own);
        const promise = await sha256(channel.#secrets.value);
        const sealed = await new Cipher(transcript.key).seal(promise, transcript.hash);
        await transcript.mixHash(sealed);
        channel.firstMessage = concat(own, sealed);
        return channel;
    }

    /// Takes the host's message; fails where it has not the key of the link. From then on the
    /// digits are there and records can be sealed and opened.
    async prove(message) {
        if (message.length !== HandshakeLength)
            throw new Error("length");
        const transcript = this.#transcript;
        const theirs = message.slice(0, KeyLength);
        await transcript.mixHash(theirs);
        await transcript.mixKey(theirs);
        const {ephemeral, value} = this.#secrets;
        const peer = await subtle.importKey("raw", theirs, "X25519", false, []);
        const shared = new Uint8Array(
            await subtle.deriveBits({name: "X25519", public: peer}, ephemeral.privateKey, 256));
        if (areEqual(shared, new Uint8Array(KeyLength)))
            throw new Error("no contribution");
        await transcript.mixKey(shared);
        const sealed = message.slice(KeyLength);
        const theirValue = await new Cipher(transcript.key).open(sealed, transcript.hash);
        await transcript.mixHash(sealed);
        const keys = await hkdf(transcript.chain, Nothing, "", 2 * KeyLength);
        this.toHost = new Cipher(keys.slice(0, KeyLength));
        this.toOpener = new Cipher(keys.slice(KeyLength));
        this.digits = asDigits(await sha256(concat(transcript.hash, value, theirValue)));
        shared.fill(0);
        keys.fill(0);
    }

    /// The opener's first record; with the secret, of one who comes back.
    async opening(name, secret) {
        const {value} = this.#secrets;
        return this.toHost.seal(
            secret ? concat([Kind.Return], value, await this.proof(secret, "back, opener"), utf8(name))
                   : concat([Kind.Opening], value, utf8(name)));
    }

    proof(secret, side) {
        return hkdf(this.#transcript.hash, secret, side, KeyLength);
    }
}

function asDigits(hash) {
    const number = new DataView(hash.buffer).getBigUint64(0) % 10n ** 12n;
    return String(number).padStart(12, "0").match(/.{3}/g).join(" ");
}
