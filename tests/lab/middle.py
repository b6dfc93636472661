#!/usr/bin/env python3
"""Sits between a host and whoever opens its link, and does what standard input says.

usage: middle.py PORT HOST

The ways, of which the first four need no link:
    pass                      hands everything on
    flip|cut SIDE NUMBER      the same, but changes that message to the host or the opener, or hangs up
                              in its place
    answer                    plays the host
    greet                     speaks RFB
    replay                    says the last first message that it handed on once more, at once
    both IDENTIFIER KEY       plays the host to the opener, and the opener to the host
"""

import base64
import itertools
import os
import socket
import sys
import threading

import websocket
from noise import Handshake, sha256

way = ["pass"]
first_words = []
# From one address the host lets only few try something at a time.
places = itertools.count(129)


def say(*words):
    print("Middle:", *words, flush=True)


class Line:
    def __init__(self, peer, is_masked=False):
        self.socket = peer
        self.reader = websocket.Reader(lambda: peer.recv(65536))
        self.is_masked = is_masked

    def say(self, data):
        self.socket.sendall(data)

    def tell(self, message):
        self.say(websocket.frame(message, self.is_masked))

    def message(self):
        opcode, payload = self.reader.message()
        if opcode == websocket.CLOSE:
            raise ConnectionError(int.from_bytes(payload[:2], "big"))
        return payload

    def close(self):
        try:
            self.socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def line_to_host():
    return Line(socket.create_connection((sys.argv[2], 5900), 10,
                                         (f"192.168.77.{next(places)}", 0)), is_masked=True)


def hand_on(source, to, spoil):
    """`spoil` is what to do with which message of this direction, or nothing."""
    try:
        for number in itertools.count(1):
            start, payload = source.reader.frame()
            if spoil == ["cut", str(number)]:
                break
            if spoil == ["flip", str(number)]:
                payload = payload[:-1] + bytes([payload[-1] ^ 1])
            if to.is_masked and number == 1:
                first_words[1:] = [start + payload]
            to.say(start + payload)
    except (EOFError, OSError):
        pass
    source.close()
    to.close()


def forward(opener, what="", side="", number=""):
    host = line_to_host()
    first_words[:] = [opener.reader.head()]
    host.say(first_words[0])
    opener.say(host.reader.head())
    spoils = {side: [what, number]}
    threading.Thread(target=hand_on, args=(host, opener, spoils.get("opener"))).start()
    hand_on(opener, host, spoils.get("host"))


def answer(opener):
    opener.say(websocket.reply(opener.reader.head()))
    opener.message()
    opener.tell(os.urandom(80))
    heard = opener.message()
    say("heard", len(heard), "bytes more")


def greet(opener):
    opener.say(b"RFB 003.008\n\1\1" + bytes(4))
    opener.reader.head()
    say("heard", len(opener.reader.take(1)), "bytes more")


def replay():
    host = line_to_host()
    host.say(first_words[0])
    host.reader.head()
    host.say(first_words[1])
    say("heard", len(host.message()), "bytes more")


def relay(source, opens, to, seals):
    try:
        while True:
            to.tell(seals.seal(opens.open(source.message())))
    except (EOFError, OSError):
        to.close()


def both(opener, identifier, key_text):
    key = base64.urlsafe_b64decode(key_text + "==")
    to_opener = Handshake(identifier, key)
    opener.say(websocket.reply(opener.reader.head()))
    first = opener.message()
    to_opener.read(first)
    value = os.urandom(32)
    opener.tell(to_opener.write(os.urandom(32), value, first[:32]))
    from_opener, for_opener = to_opener.ciphers()
    opening = from_opener.open(opener.message())
    digits_there = to_opener.digits(opening[1:33], value)

    host = line_to_host()
    to_host = Handshake(identifier, key)
    host.say(websocket.request())
    host.reader.head()
    private, value = os.urandom(32), os.urandom(32)
    host.tell(to_host.write(private, sha256(value)))
    hosts_value = to_host.read(host.message(), private)
    for_host, from_host = to_host.ciphers()
    host.tell(for_host.seal(b"\1" + value + opening[33:]))
    say("digits", digits_there, "and", to_host.digits(value, hosts_value))
    threading.Thread(target=relay, args=(host, from_host, opener, for_opener)).start()
    relay(opener, from_opener, host, for_host)


def attempt(action, *arguments):
    try:
        action(*arguments)
    except EOFError:
        say("heard nothing more")
    except OSError as error:
        say("heard", *error.args)
    for line in arguments[:1]:
        line.close()


def do_as_told():
    for words in sys.stdin:
        way[:] = words.split()
        if way == ["replay"]:
            attempt(replay)
        say("is ready")


def main():
    listener = socket.create_server(("", int(sys.argv[1])))
    threading.Thread(target=do_as_told, daemon=True).start()
    say("is ready")
    ways = {"pass": forward, "answer": answer, "greet": greet, "both": both}
    while True:
        opener = Line(listener.accept()[0])
        words = way[1:] if way[0] in ways else way
        threading.Thread(target=attempt, daemon=True,
                         args=(ways.get(way[0], forward), opener, *words)).start()


if __name__ == "__main__":
    main()
