"""A channel's arithmetic, written from docs/sealing.md alone on Debian's python3-cryptography, so that what it
and sealing/ agree on is what that page says."""

import hashlib

from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric.x25519 import X25519PrivateKey, X25519PublicKey
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
from cryptography.hazmat.primitives.kdf.hkdf import HKDF
from cryptography.hazmat.primitives.serialization import Encoding, PublicFormat

NAME = b"Noise_NNpsk0_25519_AESGCM_SHA256"
RECORDS_BETWEEN_KEYS = 65536


def sha256(data):
    return hashlib.sha256(data).digest()


def hkdf(salt, secret, info, length):
    return HKDF(hashes.SHA256(), length, salt, info).derive(secret)


class Cipher:
    def __init__(self, key):
        self.key, self.count = key, 0

    def seal(self, plain, associated=b""):
        return self._next(AESGCM(self.key).encrypt, plain, associated)

    def open(self, sealed, associated=b""):
        return self._next(AESGCM(self.key).decrypt, sealed, associated)

    def _next(self, change, data, associated):
        changed = change(bytes(4) + self.count.to_bytes(8, "big"), data, associated)
        self.count += 1
        if self.count % RECORDS_BETWEEN_KEYS == 0:
            self.key = AESGCM(self.key).encrypt(bytes(4) + b"\xff" * 8, bytes(32), b"")[:32]
        return changed


class Handshake:
    """One side's, or one's who knows all secrets and makes both messages."""

    def __init__(self, identifier, link_key):
        self.psk = hkdf(b"zelvo/1", link_key, b"channel", 32)
        self.prologue = b"zelvo/1\0" + identifier.encode()
        self.h = self.ck = NAME
        self._mix_hash(self.prologue)
        out = hkdf(self.ck, self.psk, b"", 96)
        self.ck, self.key = out[:32], out[64:]
        self._mix_hash(out[32:64])

    def _mix_hash(self, data):
        self.h = sha256(self.h + data)

    def _mix_key(self, secret):
        out = hkdf(self.ck, secret, b"", 64)
        self.ck, self.key = out[:32], out[32:]

    def _mix_public(self, public, private, peer):
        self._mix_hash(public)
        self._mix_key(public)
        if private and peer:
            self._mix_key(X25519PrivateKey.from_private_bytes(private).exchange(
                X25519PublicKey.from_public_bytes(peer)))

    def write(self, private, payload, peer=None):
        """A message; the second needs the peer's public half."""
        own = X25519PrivateKey.from_private_bytes(private).public_key().public_bytes(
            Encoding.Raw, PublicFormat.Raw)
        self._mix_public(own, private, peer)
        sealed = Cipher(self.key).seal(payload, self.h)
        self._mix_hash(sealed)
        return own + sealed

    def read(self, message, private=None):
        """What a message says; the second needs one's own private half."""
        self._mix_public(message[:32], private, message[:32])
        payload = Cipher(self.key).open(message[32:], self.h)
        self._mix_hash(message[32:])
        return payload

    def ciphers(self):
        """To the host, and to the opener."""
        keys = hkdf(self.ck, b"", b"", 64)
        return Cipher(keys[:32]), Cipher(keys[32:])

    def digits(self, openers_value, hosts_value):
        number = int.from_bytes(sha256(self.h + openers_value + hosts_value)[:8], "big") % 10**12
        return " ".join(f"{number:012d}"[i:i + 3] for i in range(0, 12, 3))
