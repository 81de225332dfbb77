"""Seeds of the RADIUS targets."""
import hashlib
import hmac
import itertools
import random
import struct

from daemon_seeds import block

REQUEST, ACCEPT, REJECT, CHALLENGE = 1, 2, 3, 11
SECRET = b"secret"  # of radius_packet.cpp
AUTHENTICATOR = bytes([1, 2, 3]).ljust(16, b"\0")


def attribute(kind, value):
    return bytes([kind, 2 + len(value)]) + value


def microsoft(*attributes):
    return attribute(26, struct.pack(">I", 311) + b"".join(attributes))


def hidden_key(kind, length, secret=SECRET, request=AUTHENTICATOR):
    clear = bytes([length]) + bytes(range(length))
    clear += bytes(-len(clear) % 16)
    text, before = b"", request + b"\x80\x01"
    for at in range(0, len(clear), 16):
        stream = hashlib.md5(secret + before).digest()
        before = bytes(a ^ b for a, b in zip(clear[at:at + 16], stream))
        text += before
    return attribute(kind, b"\x80\x01" + text)


VAP = attribute(30, b"02-00-00-00-10-00:office") + attribute(31, b"02-00-00-00-00-0A")
MAC_QUESTION = attribute(1, b"02000000000a") + attribute(2, bytes(16)) + VAP
IDENTITY = attribute(1, b"user") + VAP + attribute(79, b"\2\1\0\x09\1user")
RESPONSE = IDENTITY + attribute(24, b"state")
CHALLENGED = attribute(79, bytes(200)) + attribute(79, b"\1\2") + attribute(24, b"state")
KEYS = (attribute(27, struct.pack(">I", 3600)) + microsoft(hidden_key(17, 32)) + microsoft(hidden_key(16, 64)) +
        attribute(79, b"\3\1\0\4"))
ODD_ANSWERS = [microsoft(attribute(12, bytes(32)), attribute(7, bytes(4))), microsoft(), microsoft(b"\x11\1"),
               microsoft(hidden_key(17, 32)[:-1]), attribute(69, bytes(19)), attribute(26, b"\0\0\1"),
               attribute(26, b"\0\0\0\x09\1\3x"), microsoft(hidden_key(16, 0), hidden_key(17, 33)), attribute(79, b"")]
ODD_REQUESTS = [IDENTITY + attribute(2, bytes(16)), IDENTITY + attribute(3, bytes(17)), attribute(1, b"x") + VAP,
                VAP, MAC_QUESTION + attribute(79, b""), attribute(30, b"02-00-00-00-10-00") + IDENTITY]


def packet(code, attributes, request=AUTHENTICATOR):
    def head(size):
        return struct.pack(">BBH", code, 7, 20 + size) + request
    bare = attribute(80, bytes(16)) + attributes
    signature = hmac.new(SECRET, head(len(bare)) + bare, hashlib.md5).digest()
    return head(len(bare)) + attribute(80, signature) + attributes


def packets():
    bodies = [MAC_QUESTION, IDENTITY, RESPONSE, CHALLENGED, KEYS, *ODD_ANSWERS, *ODD_REQUESTS]
    yield from (packet(REQUEST, body) for body in bodies)
    yield packet(ACCEPT, KEYS) + b"padding"
    yield packet(ACCEPT, KEYS)[:-3]
    yield packet(CHALLENGE, attribute(79, bytes(253)) * 15)
    yield packet(CHALLENGE, attribute(69, bytes(253)) * 15 + attribute(69, bytes(229)))
    yield packet(REQUEST, attribute(80, bytes(16)))


def event(kind, content):
    return bytes([kind]) + block(content)


def ask(identifier, attributes, port=0, number=0):
    return event(1, bytes([port, identifier, number]) + attributes)


def answer(code, attributes, server=0, back=0):
    return event(4, bytes([server, back, code]) + attributes)


def key_answer(length, server=0, back=0):
    return event(5, bytes([server, back, length]))


def wait(seconds):
    return event(7, struct.pack(">H", int(100 * seconds)))


def verdict(which, allowed):
    return event(6, bytes([which, allowed]))


REPEAT = event(2, b"\0")


def services():
    yield b"\0" + ask(1, MAC_QUESTION) + REPEAT + verdict(0, 1) + REPEAT + ask(1, MAC_QUESTION, 0, 1) + verdict(1, 0)
    yield b"\0" + ask(1, IDENTITY) + wait(61) + ask(2, MAC_QUESTION) + verdict(9, 1)
    login = ask(1, IDENTITY) + answer(CHALLENGE, CHALLENGED) + ask(2, RESPONSE) + key_answer(32) + REPEAT
    yield b"\1" + login
    yield b"\1" + ask(1, IDENTITY) + answer(REJECT, b"") + ask(2, IDENTITY) + answer(ACCEPT, b"") + key_answer(64)
    yield b"\2" + ask(1, IDENTITY) + wait(3) + answer(CHALLENGE, CHALLENGED, 1) + ask(2, RESPONSE) + key_answer(32, 1)
    yield b"\3" + ask(1, IDENTITY) + wait(12) + ask(2, IDENTITY, 1) + wait(40) + login
    yield b"\1" + b"".join(ask(n, IDENTITY, n % 2) for n in range(30)) + wait(4) + key_answer(16, 0, 7)
    yield from (b"\1" + ask(1, IDENTITY) + answer(ACCEPT, body) for body in ODD_ANSWERS)
    yield b"\1" + b"".join(ask(n, body) for n, body in enumerate(ODD_REQUESTS))
    yield b"\1" + event(0, b"\0" + packet(REQUEST, IDENTITY)) + event(3, b"\0" + packet(ACCEPT, KEYS)) + login


def random_events(dice):
    def one():
        return dice.choice([
            lambda: ask(dice.randrange(8), dice.choice([IDENTITY, RESPONSE, MAC_QUESTION]), dice.randrange(3),
                        dice.randrange(3)),
            lambda: answer(dice.choice([ACCEPT, REJECT, CHALLENGE]), dice.choice([CHALLENGED, b"", *ODD_ANSWERS]),
                           dice.randrange(3), dice.randrange(4)),
            lambda: key_answer(dice.choice([0, 31, 32, 64, 239]), dice.randrange(3), dice.randrange(3)),
            lambda: wait(dice.choice([0.1, 1, 3, 10, 31, 61])),
            lambda: verdict(dice.randrange(6), dice.randrange(2)),
            lambda: event(2, bytes([dice.randrange(8)])),
        ])()
    while True:
        yield one()


def random_services():
    for seed in range(30):
        dice = random.Random(seed)
        yield bytes([dice.randrange(4)]) + b"".join(itertools.islice(random_events(dice), 30))


def all_seeds():
    return {"radius": [*services(), *random_services()], "radius_packet": list(packets())}
