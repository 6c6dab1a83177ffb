#!/usr/bin/env python3
"""Names come from the network: a line stays one line, and a terminal has nothing to obey."""

import re
import struct

import harness

PREFIX = bytes.fromhex("010f00000000000000000002")
PARTICIPANT = PREFIX + bytes.fromhex("000001c1")

SEND = """import socket, sys
link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for line in sys.stdin:
    link.sendto(bytes.fromhex(line), ("239.255.0.1", 7400))
    print("sent", flush=True)
"""


def text(value):
    padded = value + b"\0"
    return struct.pack("<I", len(padded)) + padded + bytes(-len(padded) % 4)


def parameters(*entries):
    body = b"\0\x03\0\0"  # a parameter list, little-endian
    for identifier, value in (*entries, (1, b"")):
        value += bytes(-len(value) % 4)
        body += struct.pack("<HH", identifier, len(value)) + value
    return body


def datagram(reader, writer, number, payload):
    entities = (int.from_bytes(bytes.fromhex(entity), "little") for entity in (reader, writer))
    data = struct.pack("<HHIIiI", 0, 16, *entities, 0, number)
    return b"RTPS\x02\x03\x01\x0f" + PREFIX + struct.pack("<BBH", 0x15, 5, len(data + payload)) + data + payload


def participant():
    here = struct.pack("<iI12x4B", 1, 7499, 127, 0, 0, 1)  # no socket is there
    return datagram("000100c7", "000100c2", 1, parameters(
        (0x15, b"\x02\x03"), (0x16, b"\x01\x0f"), (0x50, PARTICIPANT), (0x58, struct.pack("<I", 0x3f)), (0x32, here),
        (0x31, here), (0x02, struct.pack("<iI", 100, 0))))


def writer(number, topic, type_name, name, partition):
    return datagram("000003c7", "000003c2", number, parameters(
        (0x5a, PREFIX + bytes((0, 0, number, 3))), (0x50, PARTICIPANT), (0x05, text(topic)), (0x07, text(type_name)),
        (0x62, text(name)), (0x29, struct.pack("<I", 1) + text(partition))))


class Names(harness.InteropTest):
    def test_control_characters_and_what_is_no_text(self):
        forged = b'T\n12:00:00 New writer        from 10.0.0.1        : topic="Forged" type="Y"'
        spy = self.spy("-verbosity", "2", "-showPartition", "-showEntityName", "-topicWidth", "100", mode=None)
        sender = self.keep(harness.Process(self.network, ["python3", "-c", SEND]))
        for packet in (participant(),
                       writer(1, forged, b"\x1b[2J\x7f", b"\xc2\x9b31m\r", b"\xff\xfe\\"),
                       writer(2, "gr\u00fc\u00dfe \u2202".encode(), "\u2202".encode() * 20, b"plain", b"P")):
            sender.write(packet.hex())

        def lines():
            return [line for line in spy.lines if re.match(r"\d\d:\d\d:\d\d ", line)]

        spy.wait_for("both writers", lambda: len(lines()) == 2)
        shown = forged.decode().replace("\n", r"\x0a")
        spy.wait_for("the topic", lambda: f"ferret: Creating topic... {shown}" in spy.lines)
        self.end(spy)
        told = lines()
        self.assertTrue(told[0].endswith(
            rf' topic="{shown}" type="\x1b[2J\x7f" name="\x9b31m\x0d" S  partition="\xff\xfe\"'), told[0])
        # 50 octets hold 16 characters of three and no half of the next.
        self.assertTrue(told[1].endswith(
            ' topic="gr\u00fc\u00dfe \u2202" type="' + "\u2202" * 16 + '" name="plain" S  partition="P"'), told[1])
        self.assertIn(rf'ferret: Registering type... \x1b[2J\x7f', spy.lines)
        self.assertIn(f"ferret: Creating topic... {shown}", spy.lines)
        self.assertIn(rf'	0, 0, 0 	(Topic="{shown}"  Type="\x1b[2J\x7f")', spy.lines)
        for line in spy.lines:
            self.assertIsNone(re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f]", line), ascii(line))


if __name__ == "__main__":
    harness.main()
