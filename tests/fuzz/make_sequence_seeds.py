#!/usr/bin/env python3
"""Makes the seeds of the fuzz targets whose input is a sequence of events: fuzz_participant from the recorded datagrams in
tests/unit/wire/data and from forged ones, fuzz_type_lookup from the recorded types in tests/unit/types/data.
"""
import pathlib
import re
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
UNIT = HERE.parent / "unit"
sys.path.insert(0, str(HERE.parent / "faults"))

import forge  # noqa: E402
import packets  # noqa: E402

PREFIX = b"\x01\x55seeds....."[:12]
WRITER = 0x00000103
TYPES = ("Aliases", "Arrays", "Changeable", "Deep", "Derived", "EmptyUnion", "Enums", "Integers", "KeyString", "Recursive")
SAMPLE = b"\0\1\0\0\7\0\0\0"


def store(target, name, content):
    folder = HERE / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)


def record(what, number, octets=b""):
    return struct.pack("<BBH", what, number, len(octets)) + octets


def datagram(octets):
    return record(0, 0, octets)


def passing(milliseconds):
    return record(192, milliseconds)


def recorded(name):
    lines = (line.split("#")[0] for line in (UNIT / "wire" / "data" / f"{name}.hex").read_text().splitlines())
    return datagram(bytes.fromhex(" ".join(lines)))


def sent(*submessages):
    return datagram(forge.message(PREFIX, *submessages))


def introduction(reliable):
    """A participant and its writer, which has written nothing."""
    locators = [forge.locator("10.0.0.2", 7411)]
    return sent(forge.data(packets.PARTICIPANTS, 1, forge.participant(PREFIX, locators))) + \
        sent(forge.data(forge.PUBLICATIONS, 1, forge.endpoint(PREFIX, WRITER, "T", "t::T", reliable=reliable)),
             forge.heartbeat(forge.PUBLICATIONS, 1, 1, 1)) + sent(forge.heartbeat(WRITER, 1, 0, 1)) + passing(10)


def conversations():
    for name, reliable in (("reliable", True), ("best_effort", False)):
        begin = introduction(reliable)
        data = [forge.data(WRITER, number, SAMPLE) for number in range(1, 9)]
        yield f"{name}_data", begin + sent(*data[:4]) + passing(5) + sent(*data[4:])
        yield f"{name}_disorder", begin + sent(data[3], data[1]) + passing(60) + sent(data[2]) + sent(data[0]) + \
            sent(forge.heartbeat(WRITER, 1, 8, 2)) + passing(200) + sent(*data[4:])
        fragments = [forge.data_frag(WRITER, 1, number, bytes(8), 30) for number in (1, 2, 3)]
        fragments.append(forge.data_frag(WRITER, 1, 4, bytes(6), 30, fragment_size=8))
        yield f"{name}_fragments", begin + sent(*fragments[:2]) + passing(100) + sent(fragments[3], fragments[2]) + \
            sent(forge.heartbeat(WRITER, 1, 1, 2))
        yield f"{name}_gaps", begin + sent(forge.gap(WRITER, 1, 3, [4, 6])) + sent(data[6], data[4]) + \
            sent(forge.heartbeat(WRITER, 5, 8, 2)) + passing(250) + sent(forge.heartbeat(WRITER, 1, 2, 3)) + sent(data[0])
        key = forge.listed([(packets.ENDPOINT_GUID, forge.guid(PREFIX, WRITER))])
        dispose = forge.data(forge.PUBLICATIONS, 2, key, key=True, inline=[forge.status(forge.DISPOSED | forge.UNREGISTERED)])
        yield f"{name}_dispose", begin + sent(*data[:2]) + sent(dispose) + sent(data[2]) + passing(100)
        gone = forge.listed([(packets.PARTICIPANT_GUID, forge.guid(PREFIX, forge.PARTICIPANT))])
        yield f"{name}_farewell", begin + sent(data[0]) + sent(forge.data(
            packets.PARTICIPANTS, 2, gone, key=True, inline=[forge.status(forge.DISPOSED | forge.UNREGISTERED)])) + begin
        yield f"{name}_lease", begin + record(232, 255) + record(232, 255) * 5 + begin
        subscription = forge.endpoint(PREFIX, 0x00000204, "T", "t::T")
        yield f"{name}_acknack", begin + sent(forge.data(forge.SUBSCRIPTIONS, 1, subscription)) + \
            sent(forge.acknack(forge.reader_of(forge.SUBSCRIPTIONS), forge.SUBSCRIPTIONS, 1, [1, 2], 1)) + passing(100) + \
            sent(forge.acknack(forge.reader_of(forge.SUBSCRIPTIONS), forge.SUBSCRIPTIONS, 3, [], 2, final=True))
    yield "cyclone", b"".join(recorded(f"cyclone_{name}") + passing(20) for name in (
        "participant", "heartbeats_and_publications", "subscriptions_and_liveliness", "data_and_heartbeat",
        "data_frag_and_heartbeat_frag", "last_data_frag", "acknacks", "disposed_endpoints"))
    yield "fast", b"".join(recorded(f"fast_{name}") + passing(20) for name in (
        "participant", "publication", "subscription", "heartbeat", "data", "data_frag", "last_data_frag", "gap", "dispose",
        "acknack", "disposed_publication", "disposed_participant"))


def announced(number, information):
    return bytes((number, len(information) // 2)) + information + bytes(len(information) % 2)


def replied(mapping, request):
    """Of the first participant."""
    member_id = struct.unpack_from("<I", forge.type_reply(bytes(14), "S", "m", "<"), 44)[0]
    types = struct.pack("<I", member_id) + struct.pack("<I", len(mapping)) + mapping
    payload = b"\0\7\0\0" + bytes(24) + struct.pack("<iIi", 0, 0x018252D3, 0) + struct.pack("<I", len(types)) + types
    return bytes((64 + 4 * (request - 1),)) + struct.pack(">H", len(payload)) + payload


def payloads(name, kind):
    """The payloads of these datagrams of a recording: what stands in their last submessages with data."""
    text = (UNIT / "types" / "data" / f"{name}.recording").read_text()
    for block in re.findall(rf"(?m)^@{kind}\n([0-9a-f \n]+)", text):
        datagram = bytes.fromhex(block)
        start = re.search(rb"\x15\x05(..)\0\0\x10\0", datagram, re.S)
        size = struct.unpack("<H", start[1])[0]
        yield datagram[start.end() - 4 + 20:start.start() + 4 + size]


def parameter(payload, number):
    at = 4
    while at < len(payload):
        found, size = struct.unpack_from("<HH", payload, at)
        if found == number:
            return payload[at + 4:at + 4 + size]
        at += 4 + size


def plain_lookups():
    """What Fast DDS 2 says: information with its replies, and whole types, the inner one behind the outer one."""
    [publication] = payloads("fast29_plain", "publication")
    content = announced(0, parameter(publication, 0x75))
    for request, payload in enumerate(payloads("fast29_plain", "reply"), start=1):
        content += bytes((64 + 4 * (request - 1),)) + struct.pack(">H", len(payload)) + payload
    yield "plain_asked", content
    inner, outer = (announced(0, parameter(publication, 0x72)) for publication in payloads("fast29_inner", "publication"))
    yield "plain_whole", b"\0\0" + outer[1:] + b"\4\0" + inner[1:] + bytes((225,))


def lookups():
    for maker in ("cyclone", "fastdds"):
        text = (UNIT / "types" / "data" / f"{maker}.corpus").read_text()
        for block in re.split(r"(?m)^type ", text)[1:]:
            name = block.split()[0].replace("::", "_")
            information = re.search(r"(?m)^information (\w+)", block)
            mapping = re.search(r"(?m)^mapping (\w+)", block)
            if name.split("_")[-1] in TYPES and information and mapping:
                information, mapping = bytes.fromhex(information[1]), bytes.fromhex(mapping[1])
                yield f"{maker}_{name}", announced(0, information) + replied(mapping, 1) + replied(mapping, 2) + announced(5, information) + \
                    bytes((161,)) + announced(17, information) + bytes((225, 220, 220))


for name, content in conversations():
    store("fuzz_participant", name, content)
for name, content in (*lookups(), *plain_lookups()):
    store("fuzz_type_lookup", name, content)
