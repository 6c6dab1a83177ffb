#!/usr/bin/env python3
"""Makes the seeds of fuzz_message and fuzz_parameter_list from the recorded datagrams in tests/unit/wire/data.

A datagram is a seed of the first as it is; the payload and the inline QoS of each of its DATA submessages are seeds of
the second, equal ones once.
"""
import pathlib
import struct

HERE = pathlib.Path(__file__).resolve().parent
DATA = HERE.parent / "unit" / "wire" / "data"


def load(path):
    lines = (line.split("#")[0] for line in path.read_text().splitlines())
    return bytes.fromhex(" ".join(lines))


def inline_qos_size(data, order):
    at = 0
    while True:
        pid, length = struct.unpack_from(order + "HH", data, at)
        at += 4
        if pid == 1:
            return at
        at += length


def parts(datagram):
    at = 20
    while at < len(datagram):
        kind, flags = datagram[at], datagram[at + 1]
        order = "<" if flags & 1 else ">"
        (length,) = struct.unpack_from(order + "H", datagram, at + 2)
        body = datagram[at + 4 : at + 4 + length]
        at += 4 + length
        if kind != 0x15:
            continue
        rest = body[4 + struct.unpack_from(order + "H", body, 2)[0] :]
        if flags & 2:
            size = inline_qos_size(rest, order)
            yield rest[:size]
            rest = rest[size:]
        if rest:
            yield rest


def store(target, name, content):
    folder = HERE / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)


seen = set()
for path in sorted(DATA.glob("*.hex")):
    datagram = load(path)
    store("fuzz_message", path.stem, datagram)
    for number, part in enumerate(parts(datagram)):
        if part not in seen:
            seen.add(part)
            store("fuzz_parameter_list", f"{path.stem}_{number}", part)
