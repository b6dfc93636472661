"""Plays Zelvo to the screen server: listens on the private socket, and answers questions."""

import os
import socket
import struct
import threading
import time

VERSION = 6
HELLO, LISTENING, QUESTION, OVER, INSIDE, LEFT, REPLY, RIGHTS, DISCONNECT = range(9)
REFUSE, WATCH, CONTROL = range(3)
LINK = 12
EVERYBODY = 0


class ZelvoEnd:
    """The socket in the folder, which only its owner may enter. Answers every question at once, with
    nothing where the answer is None."""

    def __init__(self, folder, answer=CONTROL):
        self.path = os.path.join(folder, "screen-sharing")
        self.answer = answer
        self.messages = []
        # When each answer was given, on the clock that all programs of this machine have.
        self.answered = []
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(self.path)
        self._listener.listen(1)
        self._server = None
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        self._server, _ = self._listener.accept()
        self.send(HELLO)
        while packet := self._server.recv(600):
            assert packet[0] == VERSION, packet
            self.messages.append((packet[1], packet[2:]))
            if packet[1] == QUESTION and self.answer is not None:
                self.answered.append(time.monotonic())
                self.send(REPLY, packet[2:6] + bytes([self.answer]))

    def send(self, kind, body=b""):
        self._server.send(bytes([VERSION, kind]) + body)

    def disconnect(self, viewer=EVERYBODY):
        self.send(DISCONNECT, struct.pack(">I", viewer))

    def set_link(self, identifier, key):
        self.send(LINK, bytes([len(identifier)]) + identifier.encode() + key)

    def count(self, kind):
        return sum(1 for message in self.messages if message[0] == kind)

    def close(self):
        self._listener.close()
        # Ends the thread that reads, too.
        self._server.shutdown(socket.SHUT_RDWR)
