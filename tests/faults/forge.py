"""RTPS messages byte by byte, also ones that no sound application sends (OMG DDSI-RTPS 2.5, 8.3, 9.4 and 9.6; OMG DDS-XTypes
1.3 for type information). packets.py is the other half: it reads what really went over the wire.

Everything is little endian. A submessage is a bytes object; message() puts a header before several of them.
"""

import hashlib
import pathlib
import socket
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "interop"))

import packets  # noqa: E402

VENDOR = (0x01, 0x55)  # assigned to no maker
UNKNOWN = 0
PUBLICATIONS, SUBSCRIPTIONS, PARTICIPANT_MESSAGES = 0x000003C2, 0x000004C2, 0x000200C2
TYPE_REQUESTS, TYPE_REPLIES = 0x000300C3, 0x000301C3
BUILTIN_WRITERS = (PUBLICATIONS, SUBSCRIPTIONS, PARTICIPANT_MESSAGES, TYPE_REPLIES)
PARTICIPANT = 0x000001C1
# Announces and detects participants, publications and subscriptions; sends and reads participant messages.
BUILTIN_ENDPOINTS = 0x0C3F
TYPE_LOOKUP_ENDPOINTS = 0xF000

ACKNACK, HEARTBEAT, GAP, INFO_TS, INFO_DST, HEARTBEAT_FRAG, DATA_FRAG, DATA = 0x06, 0x07, 0x08, 0x09, 0x0E, 0x13, 0x16, 0x15

TYPE_NAME, PARTITION_NAMES, VENDOR_ID, PROTOCOL_VERSION = 0x07, 0x29, 0x16, 0x15
RELIABILITY, DURABILITY, BUILTIN_SET, UNICAST, TYPE_INFORMATION = 0x1A, 0x1D, 0x58, 0x2F, 0x75
LIVELINESS, TYPE_OBJECT = 0x1B, 0x72
LEASE_FOR_EVER = struct.pack("<iI", 0x7FFFFFFF, 0xFFFFFFFF)

DISPOSED, UNREGISTERED = 1, 2


def reader_of(writer):
    """The builtin reader that belongs to a builtin writer."""
    return writer + (1 if writer & 0xFF == 0xC3 else 5)


def _sequence_number(number):
    return struct.pack("<iI", number >> 32, number & 0xFFFFFFFF)


def _set(base, members):
    """A sequence number set; the members lie within 256 of its base."""
    bits = max((member - base + 1 for member in members), default=0)
    words = [0] * ((bits + 31) // 32)
    for member in members:
        words[(member - base) // 32] |= 1 << (31 - (member - base) % 32)
    return _sequence_number(base) + struct.pack(f"<I{len(words)}I", bits, *words)


def submessage(kind, flags, body):
    if len(body) > 0xFFFF:
        raise ValueError(f"a submessage of {len(body)} bytes")
    return struct.pack("<BBH", kind, flags | 1, len(body)) + body


def message(prefix, *submessages, vendor=VENDOR):
    return b"RTPS\x02\x03" + bytes(vendor) + prefix + b"".join(submessages)


def data(writer, number, payload=None, reader=UNKNOWN, inline=(), key=False):
    flags = (2 if inline else 0) | (0 if payload is None else 8 if key else 4)
    body = struct.pack("<HH", 0, 16) + struct.pack(">II", reader, writer) + _sequence_number(number)
    if inline:
        body += parameters(inline)
    return submessage(DATA, flags, body + (payload or b""))


def data_frag(writer, number, first, payload, sample_size, fragment_size=None, count=1, reader=UNKNOWN):
    body = struct.pack("<HH", 0, 28) + struct.pack(">II", reader, writer) + _sequence_number(number) + \
        struct.pack("<IHHI", first, count, fragment_size or len(payload), sample_size) + payload
    return submessage(DATA_FRAG, 0, body)


def gap(writer, start, base, irrelevant=(), reader=UNKNOWN):
    return submessage(GAP, 0, struct.pack(">II", reader, writer) + _sequence_number(start) + _set(base, irrelevant))


def heartbeat(writer, first, last, count, final=False, reader=UNKNOWN):
    return submessage(HEARTBEAT, 2 if final else 0, struct.pack(">II", reader, writer) + _sequence_number(first) +
                      _sequence_number(last) + struct.pack("<i", count))


def heartbeat_frag(writer, number, last_fragment, count, reader=UNKNOWN):
    return submessage(HEARTBEAT_FRAG, 0, struct.pack(">II", reader, writer) + _sequence_number(number) +
                      struct.pack("<Ii", last_fragment, count))


def acknack(reader, writer, base, missing, count, final=False):
    return submessage(ACKNACK, 2 if final else 0, struct.pack(">II", reader, writer) + _set(base, missing) +
                      struct.pack("<i", count))


def parameters(values):
    """A parameter list of (number, octets) pairs."""
    result = b""
    for number, value in values:
        value += bytes(-len(value) % 4)
        result += struct.pack("<HH", number, len(value)) + value
    return result + struct.pack("<HH", 1, 0)


def listed(values):
    """The payload of a discovery sample."""
    return b"\x00\x03\x00\x00" + parameters(values)


def text(value):
    """A string of CDR, padded to what may follow."""
    octets = (value if isinstance(value, bytes) else value.encode()) + b"\x00"
    return struct.pack("<I", len(octets)) + octets + bytes(-len(octets) % 4)


def texts(values):
    return struct.pack("<I", len(values)) + b"".join(text(value) for value in values)


def locator(address, port, kind=packets.UDPV4):
    return struct.pack("<iI", kind, port) + bytes(12) + socket.inet_aton(address)


def guid(prefix, entity):
    return prefix + struct.pack(">I", entity)


def participant(prefix, metatraffic, default=None, vendor=VENDOR, lease=None, domain=0, builtin=BUILTIN_ENDPOINTS, more=()):
    """The payload of an announcement. metatraffic and default are locators."""
    return listed([
        (PROTOCOL_VERSION, b"\x02\x03\x00\x00"), (VENDOR_ID, bytes(vendor) + b"\x00\x00"),
        (packets.DOMAIN_ID, struct.pack("<I", domain)), (packets.PARTICIPANT_GUID, guid(prefix, PARTICIPANT)),
        (BUILTIN_SET, struct.pack("<I", builtin)), (packets.LEASE, lease or struct.pack("<iI", 100, 0)),
        *((packets.METATRAFFIC_UNICAST, one) for one in metatraffic),
        *((packets.DEFAULT_UNICAST, one) for one in (metatraffic if default is None else default)), *more])


def endpoint(owner, entity, topic, type_name, reliable=True, participant_prefix=None, more=()):
    """The payload of an announcement of a writer or reader; the second word of reliability is a time."""
    return listed([
        (packets.ENDPOINT_GUID, guid(owner, entity)),
        (packets.PARTICIPANT_GUID, guid(participant_prefix or owner, PARTICIPANT)),
        (packets.TOPIC, text(topic)), (TYPE_NAME, text(type_name)),
        (RELIABILITY, struct.pack("<IiI", 2 if reliable else 1, 0, 0)), *more])


def status(flags):
    """Inline QoS that says what became of an instance."""
    return packets.STATUS, struct.pack(">I", flags)


def key_hash(octets):
    return packets.KEY_HASH, octets


def _appendable(body):
    return struct.pack("<I", len(body)) + body


def type_information(type_hash, size):
    """The parameter that says: ask for the complete type of this hash (14 octets), whose object has this size."""
    identifier = b"\xf2" + type_hash
    with_size = _appendable(identifier + bytes(-(4 + len(identifier)) % 4) + struct.pack("<I", size))
    dependencies = struct.pack("<i", 0) + _appendable(struct.pack("<I", 0))
    complete = _appendable(with_size + dependencies)
    # Length code 5: the length of the member stands in its own first word.
    member = struct.pack("<I", 5 << 28 | 0x1002) + complete
    return TYPE_INFORMATION, _appendable(member)


def submessages(datagram):
    """(kind, flags, body) of each submessage of a datagram that is little endian."""
    at = 20
    while datagram[:4] == b"RTPS" and at + 4 <= len(datagram):
        kind, flags = datagram[at], datagram[at + 1]
        length, = struct.unpack_from("<H" if flags & 1 else ">H", datagram, at + 2)
        end = at + 4 + length if length else len(datagram)
        yield kind, flags, datagram[at + 4:end]
        at = end


def _identified(octets, order):
    """With the length of what follows before it."""
    return struct.pack(order + "I", len(octets)) + octets


def _aligned(octets, order, value):
    return octets + bytes(-len(octets) % 4) + value


def _string(value, order):
    octets = value.encode() + b"\x00"
    return struct.pack(order + "I", len(octets)) + octets


def structure_object(name, member, order="<"):
    """The complete type object of a final structure with one member, a 32-bit number."""
    header = _identified(b"\x00\x00\x00\x00" + _string(name, order), order)
    field = _identified(struct.pack(order + "IH", 0, 1) + b"\x04\x00" + _string(member, order) + b"\x00\x00", order)
    members = _identified(struct.pack(order + "I", 1) + field, order)
    body = b"\xf2\x51" + struct.pack(order + "H", 1) + header
    return _identified(_aligned(body, order, members), order)


def type_reply(type_hash, name, member, order=">"):
    """The payload of a reply of the type lookup service, to a request that it does not name."""
    member_id = struct.unpack("<I", hashlib.md5(b"types").digest()[:4])[0] & 0x0FFFFFFF
    pair = _aligned(b"\xf2" + type_hash, order, structure_object(name, member, order))
    pairs = _identified(struct.pack(order + "I", 1) + pair, order)
    types = struct.pack(order + "I", 4 << 28 | member_id) + _identified(pairs, order)
    return (b"\x00\x06" if order == ">" else b"\x00\x07") + b"\x00\x00" + bytes(24) + \
        struct.pack(order + "iIi", 0, 0x018252D3, 0) + _identified(types, order)
