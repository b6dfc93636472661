"""As much of RFC 6455 as somebody needs who listens in, or sits in between."""

import base64
import hashlib
import os
import struct

BINARY, CLOSE = 2, 8
GUID = b"258EAFA5-E914-47DA-95CA-C5AB0DC85B11"


def request():
    return (b"GET / HTTP/1.1\r\nHost: zelvo\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            b"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: zelvo.1\r\nSec-WebSocket-Key: " +
            base64.b64encode(os.urandom(16)) + b"\r\n\r\n")


def reply(head):
    fields = dict(line.lower().split(b": ", 1)[:1] + line.split(b": ", 1)[1:]
                  for line in head.split(b"\r\n")[1:] if line)
    proof = base64.b64encode(hashlib.sha1(fields[b"sec-websocket-key"] + GUID).digest())
    return (b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            b"Sec-WebSocket-Protocol: zelvo.1\r\nSec-WebSocket-Accept: " + proof + b"\r\n\r\n")


def masked(data, mask):
    return bytes(byte ^ mask[i % 4] for i, byte in enumerate(data))


def frame(payload, is_masked=False, opcode=BINARY):
    size = len(payload)
    length, more = (size, b"") if size < 126 else (126, struct.pack(">H", size))
    mask = os.urandom(4) if is_masked else b""
    return (bytes([0x80 | opcode, length | (0x80 if is_masked else 0)]) + more + mask +
            (masked(payload, mask) if is_masked else payload))


class Reader:
    """Of what `more` gives: at least one byte each time, or nothing at the end."""

    def __init__(self, more):
        self._more, self._rest = more, b""

    def _fill(self):
        part = self._more()
        if not part:
            raise EOFError
        self._rest += part

    def take(self, size):
        while len(self._rest) < size:
            self._fill()
        taken, self._rest = self._rest[:size], self._rest[size:]
        return taken

    def head(self):
        while b"\r\n\r\n" not in self._rest:
            self._fill()
        return self.take(self._rest.index(b"\r\n\r\n") + 4)

    def frame(self):
        """As it came: before the payload, and the payload."""
        start = self.take(2)
        size = start[1] & 127
        if size > 125:
            start += self.take(2 if size == 126 else 8)
            size = int.from_bytes(start[2:], "big")
        if start[1] & 128:
            start += self.take(4)
        return start, self.take(size)

    def message(self):
        """Its opcode, and what it says."""
        start, payload = self.frame()
        return start[0] & 15, masked(payload, start[-4:]) if start[1] & 128 else payload
