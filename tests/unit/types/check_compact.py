#!/usr/bin/env python3
"""Compares the COMPACT texts with what the sender printed itself.

Each COMPACT text in data/cyclone.golden is read by Python's JSON parser; its values must then stand, one after the
other, in the text that Cyclone DDS printed for the same sample. Cyclone DDS prints enumerators and characters as
numbers, six digits of a real number, and runs of printable octets as text; that is all that is translated here.
Fast DDS writes JSON too: data/fastdds.golden is compared with it part by part.
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


def read_corpus(path):
    peers = []
    name = ""
    for line in open(path, encoding="ascii"):
        label, _, rest = line.rstrip("\n").partition(" ")
        if label == "type":
            name = rest
        elif label == "peer":
            peers.append((name, bytes.fromhex(rest).decode("utf-8", "replace")))
    return peers


def read_golden(path, prefix):
    lines = open(path, encoding="utf-8", newline="\n").read().split("\n")
    return [(lines[i], lines[i + 1]) for i in range(len(lines)) if lines[i].startswith(prefix)]


def is_default(value):
    if isinstance(value, dict):
        return all(is_default(part) for part in value.values())
    return value in (0, "", []) or value is False


def same_json(ours, theirs):
    """Whether our value is the one that Fast DDS wrote."""
    if isinstance(theirs, dict) and "value" in theirs and isinstance(ours, str):
        # Enumerators come as name and value, bit masks as names, bits and value.
        return ours == theirs.get("name") or ours.split(" | ") == theirs.get("active")
    if isinstance(ours, dict) and isinstance(theirs, dict):
        ours = {name: part for name, part in ours.items() if name != "_d"}
        # Absent optional members are written as if they had their default.
        return all(name in theirs for name in ours) and all(
            same_json(ours[name], part) if name in ours else is_default(part) for name, part in theirs.items())
    if isinstance(ours, list) and isinstance(theirs, list):
        return len(ours) == len(theirs) and all(map(same_json, ours, theirs))
    if isinstance(ours, bool) and theirs in (0, 1):
        return ours == bool(theirs)
    return ours == theirs


def main(folder):
    failures = 0
    compared = 0
    for file, prefix in (("cyclone", "corpus::"), ("fastdds", "fast::")):
        peers = read_corpus("%s/%s.corpus" % (folder, file))
        texts = read_golden("%s/%s.golden" % (folder, file), prefix)
        if len(texts) != len(peers):
            print("%s: %d texts, %d samples" % (file, len(texts), len(peers)))
            failures += 1
        for (text_name, text), (peer_name, peer) in zip(texts, peers):
            value = json.loads(text)
            if text_name.endswith("PointCloud2_"):
                peer = as_sent(peer)
            if file == "cyclone":
                same = matches(peer, leaves(value))
            else:
                same = same_json(value, json.loads(peer))
            compared += 1
            if text_name != peer_name or not same:
                print("%s\n  ours:  %s\n  peer's: %s" % (text_name, text, peer))
                failures += 1
    print("%d samples compared, %d differ" % (compared, failures))
    return 1 if failures or compared < 110 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
