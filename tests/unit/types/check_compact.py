#!/usr/bin/env python3
"""Compares the COMPACT texts with what the sender printed itself.

Each COMPACT text in data/cyclone.golden is read by Python's JSON parser; its values must then stand, one after the
other, in the text that Cyclone DDS printed for the same sample. Cyclone DDS prints enumerators and characters as
numbers, six digits of a real number, and runs of printable octets as text; that is all that is translated here.
"""
import json
import re
import struct
import sys

NUMBERS = {
    "RED": 0, "GREEN": 1, "BLUE": 2, "LOW": 2, "HIGH": 40, "T0": 0, "T1": 1, "M0": 0, "M1": 1,
    "F0": 1, "F3": 8, "F7": 128, "G0": 1, "G15": 32768, "H0": 1, "H1": 2, "J0": 1, "J63": 1 << 63, "0": 0,
}


def leaves(value):
    if isinstance(value, dict):
        for part in value.values():
            yield from leaves(part)
    elif isinstance(value, list):
        for part in value:
            yield from leaves(part)
    else:
        yield value


def forms(value):
    """The ways in which the sender may have printed a value."""
    if value is True or value is False:
        return ["true" if value else "false", "1" if value else "0"]
    if isinstance(value, (int, float)):
        # A float is printed with the digits of the nearest double.
        narrow = struct.unpack("<f", struct.pack("<f", value))[0] if abs(value) < 1e38 else value
        as_float = "%g" % value
        bits = struct.unpack("<Q", struct.pack("<d", value))[0]
        result = [str(value), as_float, "%g" % narrow, str(bits)] + (["-0"] if value == 0 else [])  # unions are printed by the bits of their member
        if isinstance(value, int) and value < 0:
            result.append(str(value & 0xFFFFFFFF))
        return result
    result = ['"%s"' % value, value]
    if all(name in NUMBERS for name in value.split(" | ")):
        result.append(str(sum(NUMBERS[name] for name in value.split(" | "))))
    if len(value) == 1:
        result += [str(ord(value)), str(ord(value) - 256)]
    return result


# What may stand between two values: punctuation, absent members, and the headers that the sender prints.
JUNK = r'(?:NULL|dlh:\d+?|pl:\d+,?|lc:\d,m:\d+,|[{},: ])*?'


def matches(text, values):
    pattern = JUNK.join([""] + ["(?:%s)" % "|".join(re.escape(form) for form in forms(v)) for v in values] + [""])
    return re.fullmatch(pattern, text, re.DOTALL) is not None


def as_sent(text):
    """Runs of octets that the sender shows as text, back into numbers."""
    return re.sub(r'(?<=[\d,]),"([^"]*)",(?=\d)', lambda m: "," + ",".join(str(ord(c)) for c in m.group(1)) + ",", text)


def main(folder):
    peers = []
    name = ""
    for line in open(folder + "/cyclone.corpus", encoding="ascii"):
        label, _, rest = line.rstrip("\n").partition(" ")
        if label == "type":
            name = rest
        elif label == "peer":
            peers.append((name, bytes.fromhex(rest).decode("utf-8", "replace")))
    golden = open(folder + "/cyclone.golden", encoding="utf-8", newline="\n").read().split("\n")
    texts = [(golden[i], golden[i + 1]) for i in range(len(golden)) if golden[i].startswith("corpus::")]
    failures = 0
    if len(texts) != len(peers):
        print("%d texts, %d samples" % (len(texts), len(peers)))
        failures += 1
    for (text_name, text), (peer_name, peer) in zip(texts, peers):
        value = json.loads(text)
        if text_name.endswith("PointCloud2_"):
            peer = as_sent(peer)
        if text_name != peer_name or not matches(peer, leaves(value)):
            print("%s\n  ours:  %s\n  peer's: %s" % (text_name, text, peer))
            failures += 1
    print("%d samples compared, %d differ" % (len(texts), failures))
    return 1 if failures or len(texts) < 60 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
