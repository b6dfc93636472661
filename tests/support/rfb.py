"""A viewer as RFC 6143 has it, in clear, who has the pixels as they are."""

import socket
import struct


class Viewer:
    """Connected, and at the door: `enter` returns once somebody has let it in."""

    def __init__(self, port, address="127.0.0.1"):
        self.socket = socket.create_connection((address, port), timeout=20)
        self.say(b"RFB 003.008\n\1")
        self.size = None
        self.picture = None
        self.cursor = None
        self.copies = 0

    def enter(self):
        self.say(b"\1")
        self.hear(12)
        self.hear(self.hear(1)[0])
        assert self.hear(4) == bytes(4), "not let in"
        self.size = struct.unpack(">HH", self.hear(4))
        self.hear(struct.unpack(">16xI", self.hear(20))[0])
        # Raw; what moves, as copies; sizes that change; the cursor apart, with its place.
        self.say(struct.pack(">BxHiiiii", 2, 5, 0, 1, -223, -239, -232))
        return self

    def say(self, data):
        self.socket.sendall(data)

    def hear(self, size):
        data = bytearray()
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            assert part, "the server has hung up"
            data += part
        return bytes(data)

    def key(self, keysym):
        for down in (1, 0):
            self.say(struct.pack(">BBHI", 4, down, 0, keysym))

    def type(self, text):
        for code in map(ord, text):
            self.key(code if code < 256 else 0x1000000 + code)

    def point(self, x, y, buttons=0):
        self.say(struct.pack(">BBHH", 5, buttons, x, y))

    def click(self, x, y):
        for buttons in (0, 1, 0):
            self.point(x, y, buttons)

    def look(self, incremental=False):
        """The picture after the next update: rows of pixels, each blue, green, red and nothing."""
        self.say(struct.pack(">BBHHHH", 3, incremental, 0, 0, *self.size))
        while (kind := self.hear(1)[0]) != 0:
            # What was cut, or a bell.
            self.hear(struct.unpack(">3xI", self.hear(7))[0] if kind == 3 else 0)
        for _ in range(struct.unpack(">xH", self.hear(3))[0]):
            left, top, width, height, encoding = struct.unpack(">HHHHi", self.hear(12))
            if encoding == -223:
                self.size = (width, height)
                self.picture = None
                continue
            if encoding == -239:
                self.hear(width * height * 4 + (width + 7) // 8 * height)
            if encoding in (-239, -232):
                self.cursor = (left, top) if encoding == -232 else self.cursor
                continue
            if encoding == 1:
                self.copies += 1
                x, y = struct.unpack(">HH", self.hear(4))
                rows = [row[x * 4:(x + width) * 4] for row in self.picture[y:y + height]]
                for row, copied in zip(self.picture[top:top + height], rows):
                    row[left * 4:(left + width) * 4] = copied
                continue
            if not self.picture or len(self.picture) != self.size[1]:
                self.picture = [bytearray(self.size[0] * 4) for _ in range(self.size[1])]
            for y in range(top, top + height):
                self.picture[y][left * 4:(left + width) * 4] = self.hear(width * 4)
        return self.picture

    def pixel(self, x, y):
        blue, green, red = self.picture[y][x * 4:x * 4 + 3]
        return red, green, blue

    def leave(self):
        self.socket.close()
