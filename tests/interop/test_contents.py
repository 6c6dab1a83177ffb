#!/usr/bin/env python3
"""What the samples of other applications hold is shown as they wrote it, wherever the types come from."""

import json
import pathlib
import re
import struct
import sys
import tempfile
import time

import harness

LINE = re.compile(
    r"\d\d:\d\d:\d\d (?P<what>New data|Modified instance|Disposed instance|No writers) +from (?P<address>.*?) *:"
    r" topic=\"(?P<topic>.*?)\" type=\"(?P<type>.*?)\"(?: key=\"(?P<key>[0-9a-f.]*)\" guid=\"(?P<guid>.*?)\")?"
    r"(?:(?: sample=(?P<compact>.*))|to_string failed with retCode \d+)?")

KEYED_DOCUMENT = """<dds>
  <types>
    <module name="peers">
      <struct name="Keyed" extensibility="final">
        <member name="id" type="int32" key="true"/>
        <member name="value" type="uint32"/>
        <member name="payload" type="byte" sequenceMaxLength="-1"/>
      </struct>
      <struct name="Unkeyed">
        <member name="id" type="int32"/>
        <member name="value" type="uint32"/>
        <member name="payload" type="byte" sequenceMaxLength="-1"/>
      </struct>
    </module>
  </types>
</dds>
"""

EVERYTHING_PLAIN = """\
id: -5
value: 1
flag: false
byte: 171
letter: 'x'
medium_signed: -16000
medium_unsigned: 65000
large_unsigned: 4000000000
huge_signed: -9000000000000000000
huge_unsigned: 18000000000000000000
real32: 0.1
real64: -2.25e-100
text: "\\"quoted\\" \\\\ tab\\t grüß 1"
bounded: "bounded"
mood: BUSY
point:
   x: 0.5
   y: 1.5
corners:
   [0]:
      x: 1
      y: 2
   [1]:
      x: 3
      y: 4
track:
   [0]:
      x: 0
      y: 0
   [1]:
      x: 1
      y: 1
   [2]:
      x: 2
      y: 4
words:
   [0]: "first"
   [1]: ""
grid:
   [0][0]: 0
   [0][1]: 1
   [0][2]: 2
   [1][0]: 3
   [1][1]: 4
   [1][2]: 5
reading:
   _d: 2
   real: 0.1
payload:
   [0]: 0
   [1]: 1
   [2]: 2""".split("\n")


# As the tool prints it without the middleware's dynamic data.
EVERYTHING_RAW = f"""\
id: -5
value: 1
flag: false
byte: <ab>
letter: 'x'
medium_signed: -16000
medium_unsigned: 65000
large_unsigned: 4000000000
huge_signed: <{struct.pack('=q', -9000000000000000000).hex()}>
huge_unsigned: <{struct.pack('=Q', 18000000000000000000).hex()}>
real32: 0.100000
real64: -0.000000
text: "\"quoted\" \\ tab\\x09 grüß 1"
bounded: "bounded"
mood: BUSY
point: 
   x: 0.500000
   y: 1.500000
corners: 
   [0]: 
      x: 1.000000
      y: 2.000000
   [1]: 
      x: 3.000000
      y: 4.000000
track: 
   [0]: 
      x: 0.000000
      y: 0.000000
   [1]: 
      x: 1.000000
      y: 1.000000
   [2]: 
      x: 2.000000
      y: 4.000000
words: 
   [0]: "first"
   [1]: ""
grid: 
   [0][0]: 0
   [0][1]: 1
   [0][2]: 2
   [1][0]: 3
   [1][1]: 4
   [1][2]: 5
reading: 
   _d: 2
   real: 0.100000
payload: 
   [0]: <00>
   [1]: <01>
   [2]: <02>""".split("\n")


class Line:
    """A line of user data, with the lines of contents below it."""

    def __init__(self, found):
        self.plain = []
        for field, value in found.groupdict().items():
            setattr(self, field, value)

    def __repr__(self):
        return f"{self.what} {self.topic} {self.compact or self.plain}"


def lines_of(spy):
    """The lines of user data so far. PLAIN contents end with an empty line."""
    result, inside = [], False
    for text in list(spy.lines):
        found = LINE.fullmatch(text)
        if found:
            result.append(Line(found))
        elif harness.EVENT.fullmatch(text):
            continue  # may come at any time
        elif inside and text:
            result[-1].plain.append(text)
        inside = bool(found) or (inside and text != "")
    return result


def wait_for_lines(spy, count, **fields):
    def enough():
        lines = [line for line in lines_of(spy) if all(getattr(line, field) == value for field, value in fields.items())]
        return lines if len(lines) >= count else None
    return spy.wait_for(f"{count} lines with {fields}", enough)


def refuse_constant(name):
    raise AssertionError(f"{name} is not JSON")


def strict(value):
    """Booleans are no numbers, and members have an order."""
    if isinstance(value, bool):
        return ("bool", value)
    if isinstance(value, list):
        return [strict(element) for element in value]
    if isinstance(value, dict):
        return ("object", [(name, strict(member)) for name, member in value.items()])
    return value


def parse(text):
    return strict(json.loads(text, parse_constant=refuse_constant))


def written(facts):
    """What a peer says that it wrote."""
    return [parse(fact[len("sample "):]) for fact in facts if fact.startswith("sample ")]


def announcements(topics):
    """Datagrams of a participant that offers the type lookup service, and of its writers of these topics, whose type
    information names objects that only it could give."""
    prefix = bytes.fromhex("010f00000000000000000001")
    corpus = pathlib.Path(__file__).resolve().parents[1] / "unit/types/data/cyclone.corpus"
    information = bytes.fromhex(re.search(r"^information (\w+)", corpus.read_text(), re.MULTILINE)[1])

    def parameters(*entries):
        body = b"\0\x03\0\0"  # a parameter list, little-endian
        for identifier, value in (*entries, (1, b"")):
            value += bytes(-len(value) % 4)
            body += struct.pack("<HH", identifier, len(value)) + value
        return body

    def text(value):
        return struct.pack("<I", len(value) + 1) + value.encode() + b"\0"

    def datagram(reader, writer, number, payload):
        data = struct.pack("<HHIIiI", 0, 16, *(int.from_bytes(entity, "little") for entity in (reader, writer)), 0, number)
        return b"RTPS\x02\x03\x01\x0f" + prefix + struct.pack("<BBH", 0x15, 5, len(data + payload)) + data + payload

    builtin_endpoints = 0x3f | 0xf << 12  # discovery of participants and endpoints, all of type lookup
    here = struct.pack("<iI12x4B", 1, 7499, 127, 0, 0, 1)  # no socket is there
    yield datagram(bytes.fromhex("000100c7"), bytes.fromhex("000100c2"), 1, parameters(
        (0x15, b"\x02\x03"), (0x16, b"\x01\x0f"), (0x50, prefix + bytes.fromhex("000001c1")),
        (0x58, struct.pack("<I", builtin_endpoints)), (0x32, here), (0x31, here), (0x02, struct.pack("<iI", 100, 0))))
    for number, topic in enumerate(topics, 1):
        guid = prefix + bytes((0, 0, number, 3))
        yield datagram(bytes.fromhex("000003c7"), bytes.fromhex("000003c2"), number, parameters(
            (0x5a, guid), (0x50, prefix + bytes.fromhex("000001c1")), (0x05, text(topic)), (0x07, text("corpus::Integers")),
            (0x75, information)))


SEND = """import socket, sys
link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for line in sys.stdin:
    link.sendto(bytes.fromhex(line), ("239.255.0.1", 7400))
    print("sent", flush=True)
"""


class Contents(harness.InteropTest):
    def document(self, text):
        file = tempfile.NamedTemporaryFile("w", suffix=".xml")
        self.addCleanup(file.close)
        file.write(text)
        file.flush()
        return file.name

    def publisher(self, make, *writers, **settings):
        """A peer whose writers, each with its options, are matched by the one spy."""
        peer = make(**settings)
        peer.do("participant")
        for writer in writers:
            peer.do(f"writer {writer}")
        for writer in writers:
            peer.do(f"matched {writer.split()[0]}")
        return peer

    def end_with_errors(self, spy):
        """Ends a spy whose logger has something to say; returns that."""
        self.assertEqual(spy.interrupt()[0], 1, spy.story())
        return spy.errors

    def assert_compact(self, spy, topic, facts):
        expected = written(facts)
        self.assertTrue(expected)
        lines = wait_for_lines(spy, len(expected), topic=topic)
        self.assertEqual([parse(line.compact) for line in lines], expected)

    # --- types that are looked up

    def check_types(self, representation, types):
        spy = self.spy("-printSample", "COMPACT", "-showHandle", mode=None)
        option = f"representation={representation}" if representation else ""
        peer = self.publisher(self.cyclone, *(f"{name} topic=T_{name} type={name} {option}" for name in types))
        for name in types:
            # Three instances; payloads of lengths that need all paddings.
            facts = []
            for size in range(4):
                facts += peer.do(f"write {name} key=-1 keys=3 count=3 value={10 * size} size={size} show")
            facts += peer.do(f"write {name} value=4294967295 size=70000 show")
            self.assert_compact(spy, f"T_{name}", facts)
            lines = wait_for_lines(spy, 13, topic=f"T_{name}")
            keyed = name != "unkeyed"
            self.assertEqual([line.what for line in lines],
                             ["New data"] * 3 + ["Modified instance"] * 10 if keyed else ["New data"] * 13)
            self.assertEqual(len({line.key for line in lines}), 3 if keyed else 1, lines)
            self.assertEqual({line.guid for line in lines}, {peer.guids[name] if keyed else None})
        self.end(spy)

    def test_cyclone_xcdr1(self):
        self.check_types(1, ["keyed", "unkeyed", "shape", "everything"])

    def test_cyclone_xcdr2(self):
        self.check_types(2, ["keyed", "unkeyed", "appendable", "mutable", "shape", "everything"])

    def test_cyclone_by_default(self):
        self.check_types(None, ["keyed", "unkeyed", "appendable", "mutable", "shape", "everything"])

    def test_plain(self):
        spy = self.spy("-printSample", "PLAIN", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=everything", "v topic=T type=everything representation=2")
        for writer in ("w", "v"):
            peer.do(f"write {writer} key=-5 value=1 size=3")
        lines = wait_for_lines(spy, 2)
        self.end(spy)
        lines = lines_of(spy)
        self.assertEqual([line.plain for line in lines], [EVERYTHING_PLAIN] * 2)
        self.assertEqual([line.what for line in lines], ["New data", "Modified instance"])

    def test_large_values_in_many_samples(self):
        """Contents of samples that come fast belong to their own lines."""
        spy = self.spy("-printSample", "COMPACT", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=keyed", "v topic=U type=shape")
        keyed = peer.do("write w count=300 keys=7 size=50 show")
        shapes = peer.do("write v count=300 keys=7 show")
        self.assert_compact(spy, "T", keyed)
        self.assert_compact(spy, "U", shapes)
        self.end(spy)

    def test_only_user_data(self):
        spy = self.spy(mode="USER")
        peer = self.publisher(self.cyclone, "w topic=T type=shape")
        peer.do("write w key=3 value=8")
        wait_for_lines(spy, 1)
        self.end(spy)
        self.assertEqual([line.plain for line in lines_of(spy)], [['color: "COLOR3"', "x: 8", "y: -8", "shapesize: 30"]])
        self.assertEqual(spy.events, [])

    def test_no_contents_unless_asked_for(self):
        spy = self.spy(mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=keyed")
        peer.do("write w count=2")
        wait_for_lines(spy, 2)
        self.end(spy)
        self.assertEqual([(line.compact, line.plain) for line in lines_of(spy)], [(None, [])] * 2)

    def test_a_dispose_has_no_contents(self):
        spy = self.spy("-printSample", "COMPACT", "-showHandle", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=shape", "v topic=T type=shape representation=2")
        peer.do("write w key=3")
        peer.do("dispose w key=3")
        peer.do("write v key=3")
        peer.do("dispose v key=3")
        lines = wait_for_lines(spy, 4)
        self.assertEqual([line.what for line in lines], ["New data", "Disposed instance"] * 2)
        self.assertEqual([line.compact is None for line in lines], [False, True] * 2)
        self.assertEqual(len({line.key for line in lines}), 1, lines)
        self.end(spy)

    def test_dynamic_data_is_not_a_matter_of_the_option(self):
        refused = self.spy("-printSample", "COMPACT", "-noDynamicData", mode=None, listening=False)
        self.assertEqual(refused.wait(), 0)
        self.assertEqual(refused.lines[-2:], [
            "Cannot use '-printSample COMPACT' and '-noDynamicData' at the same time.",
            "'-printSample COMPACT' is only available with dynamic data."], refused.story())
        spy = self.spy("-printSample", "-noDynamicData", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=shape")
        peer.do("write w")
        wait_for_lines(spy, 1)
        self.end(spy)
        self.assertEqual([line.plain for line in lines_of(spy)], [['color: "COLOR0"', "x: 0", "y: 0", "shapesize: 30"]])

    def test_largest_serialized_size(self):
        """Larger samples are lines without contents, told once and counted, and the reader goes on."""
        for form in ("COMPACT", "PLAIN"):
            with self.subTest(form=form):
                spy = self.spy("-printSample", form, "-maxSizeSerialized", "1000", mode=None)
                peer = self.publisher(self.cyclone, "w topic=T type=keyed")
                peer.do("write w size=900")
                peer.do("write w size=1001 value=1")
                peer.do("write w size=70000 value=2")
                peer.do("write w size=900 value=3")
                lines = wait_for_lines(spy, 4, topic="T")
                shown = [line.plain if form == "PLAIN" else line.compact for line in lines]
                self.assertEqual([bool(contents) for contents in shown], [True, False, False, True], spy.story())
                peer.close()
                errors = self.end_with_errors(spy)
                self.assertEqual(len(errors), 2, spy.story())
                self.assertRegex(errors[0], r'topic "T": a sample of \d+ bytes exceeds the largest serialized size, 1000')
                self.assertRegex(errors[1], r'topic "T": 2 samples exceeded the largest serialized size')
                self.assertTrue(any("\t4, 0, 0" in line for line in spy.lines), spy.story())

    def test_a_type_that_is_too_large(self):
        spy = self.spy("-printSample", "COMPACT", "-tcMaxSize", "100", mode=None)
        self.ddsperf("pub", "20Hz", "size", "32")
        lines = wait_for_lines(spy, 3, topic="DDSPerfRDataKS")
        self.assertEqual({(line.type, line.compact) for line in lines}, {("KeyedSeq", None)})
        wait_for_lines(spy, 1, topic="DDSPerfCPUStats")
        errors = self.end_with_errors(spy)
        told = [found.groups() for found in (re.search(r' error .*type "(\w+)" takes (\d+) bytes.* 100 .*\(-tcMaxSize\)', line)
                                             for line in errors) if found]
        self.assertEqual(len(told), len(errors), spy.story())
        # Once per type, however many endpoints have it.
        self.assertEqual(sorted(name for name, _ in told), ["CPUStats", "KeyedSeq"], errors)
        self.assertTrue(all(int(size) > 100 for _, size in told), errors)

    def test_ddsperf(self):
        spy = self.spy("-printSample", "COMPACT", mode=None)
        self.ddsperf("pub", "50Hz", "size", "32")
        lines = wait_for_lines(spy, 10, topic="DDSPerfRDataKS")
        values = [dict(parse(line.compact)[1]) for line in lines]
        self.assertEqual([list(value) for value in values], [["seq", "keyval", "baggage"]] * len(lines))
        numbers = [value["seq"] for value in values]
        self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))
        self.end(spy)

    def test_a_peer_that_never_answers(self):
        """Its writers are reported after 2 s, and those of others do not wait for that."""
        spy = self.spy("-printSample", "COMPACT", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=keyed")
        peer.do("matched w")
        silent = self.keep(harness.Process(self.network, [sys.executable, "-c", SEND]))
        begin = time.monotonic()
        for count, packet in enumerate(announcements(["Silent", "Silent too"]), 1):
            silent.write(packet.hex())
            silent.wait_for(f"{count} packets", lambda: silent.lines.count("sent") == count)
        facts = peer.do("write w show")
        peer.do("writer v topic=U type=keyed")
        self.assert_compact(spy, "T", facts)
        spy.wait_for_event("New writer", topic="U")
        busy = time.monotonic() - begin
        silent_ones = spy.having(topic="Silent")
        spy.wait_for_event("New writer", topic="Silent")
        spy.wait_for_event("New writer", topic="Silent too", type="corpus::Integers")
        self.assertGreater(time.monotonic() - begin, 1.9, "it was asked")
        if busy < 1.9:  # on a machine that is not too busy to tell
            self.assertEqual(silent_ones, [], "the others do not wait")
        # Another writer of that type need not wait again.
        late = list(announcements(["Silent", "Silent too", "Late"]))[-1]
        begin = time.monotonic()
        silent.write(late.hex())
        spy.wait_for_event("New writer", topic="Late")
        self.assertLess(time.monotonic() - begin, 1.9, "it was asked again")
        self.end(spy)

    # --- types from documents

    def test_fastdds_with_a_document(self):
        spy = self.spy("-printSample", "COMPACT", "-showHandle", "-qosFile", self.document(KEYED_DOCUMENT), mode=None)
        peer = self.publisher(self.fastdds, "w topic=T type=keyed", "v topic=U type=unkeyed")
        facts = []
        for size in range(4):
            facts += peer.do(f"write w key=-1 keys=3 count=3 size={size} show")
        facts += peer.do("write w key=-1 size=70000 show")
        self.assert_compact(spy, "T", facts)
        self.assert_compact(spy, "U", peer.do("write v count=2 size=2 show"))
        peer.do("dispose w key=-1")
        lines = wait_for_lines(spy, 14, topic="T")
        self.assertEqual([line.what for line in lines], ["New data"] * 3 + ["Modified instance"] * 10 + ["Disposed instance"])
        self.assertEqual([line.key for line in lines[:3]], [f"{word}.00000000.00000000.00000000" for word in
                                                            ("ffffffff", "00000000", "01000000")])
        self.assertEqual(lines[-1].key, lines[0].key)
        self.assertEqual({line.key for line in lines_of(spy) if line.topic == "U"}, {None})
        self.end(spy)

    def test_an_announced_type_counts_more_than_a_document(self):
        other = KEYED_DOCUMENT.replace('name="value" type="uint32"', 'name="different" type="float32"')
        spy = self.spy("-printSample", "COMPACT", "-qosFile", self.document(other), mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=keyed")
        self.assert_compact(spy, "T", peer.do("write w size=3 show"))
        self.end(spy)

    def test_a_document_for_other_types(self):
        spy = self.spy("-printSample", "COMPACT", "-qosFile", self.document(KEYED_DOCUMENT.replace("Keyed", "Strange")),
                       mode=None)
        self.check_without_contents(spy)

    def test_an_unknown_type(self):
        for form in ("PLAIN", "COMPACT"):
            with self.subTest(form):
                self.check_without_contents(self.spy("-printSample", form, mode=None))

    # --- types that are read without dynamic data: their writers say otherwise than the type whether there is a key

    def raw_contents(self, spy, topic):
        """The lines of contents below each line of a topic, which begin with an empty one."""
        result, current = [], None
        for text in list(spy.lines):
            found = LINE.fullmatch(text)
            if found or harness.EVENT.fullmatch(text):
                current = [] if found and found["topic"] == topic else None
                result += [current] if current is not None else []
            elif current is not None:
                current.append(text)
        return result

    def wait_for_raw(self, spy, topic, expected):
        spy.wait_for(f"contents {expected}", lambda: self.raw_contents(spy, topic) == expected)

    def test_a_type_with_a_key_that_its_writer_denies(self):
        spy = self.spy("-printSample", "PLAIN", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=contradicting representation=1",
                              "v topic=U type=contradicting representation=2")
        for writer in ("w", "v"):
            peer.do(f"write {writer} key=-5 value=1 size=3")
        # XCDR2 has headers that only the type's own serializer knows, from the first array of structures on.
        cut = EVERYTHING_RAW[:EVERYTHING_RAW.index("corners: ") + 1]
        self.wait_for_raw(spy, "T", [["", *EVERYTHING_RAW]])
        self.wait_for_raw(spy, "U", [["", *cut, ""]])
        peer.do("write w key=-5 value=0 size=0")
        other = "\n".join(EVERYTHING_RAW).replace("value: 1\nflag: false", "value: 0\nflag: true")
        self.assertEqual({line.what for line in wait_for_lines(spy, 2, topic="T")}, {"New data"})
        peer.quit()
        self.end(spy)
        second = self.raw_contents(spy, "T")[1]
        self.assertEqual(second[:4], ["", *other.split("\n")[:3]])
        self.assertIn("   _d: 1", second)
        self.assertIn("   whole: -7", second)
        self.assertIn("mood: CALM", second)

    def test_a_type_with_a_key_that_its_writer_denies_compact(self):
        """One line a sample: its contents are of a form that takes many."""
        spy = self.spy("-printSample", "COMPACT", mode=None)
        peer = self.publisher(self.cyclone, "w topic=T type=contradicting representation=1")
        peer.do("write w key=-5 value=1 size=3 count=2")
        lines = wait_for_lines(spy, 2, topic="T")
        peer.quit()
        self.end(spy)
        self.assertEqual({line.what for line in lines}, {"New data"})
        self.assertEqual([line for line in spy.lines if "retCode" in line],
                         [line for line in spy.lines if line.endswith("to_string failed with retCode 2")])
        self.assertEqual(sum("retCode" in line for line in spy.lines), 2, spy.story())
        self.assertNotIn("value: 1", spy.lines)

    def test_a_document_without_the_key_that_a_writer_has(self):
        spy = self.spy("-printSample", "PLAIN", "-qosFile", self.document(KEYED_DOCUMENT.replace(' key="true"', "")),
                       mode=None)
        peer = self.publisher(self.fastdds, "w topic=T type=keyed")
        peer.do("write w key=-1 value=7 size=2")
        self.wait_for_raw(spy, "T", [["", "id: -1", "value: 7", "payload: ", "   [0]: <00>", "   [1]: <01>"]])
        peer.do("dispose w key=-1")
        self.assertEqual([line.what for line in wait_for_lines(spy, 2)], ["New data", "Disposed instance"])
        self.end(spy)

    def check_without_contents(self, spy):
        peer = self.publisher(self.fastdds, "w topic=T type=keyed")
        peer.do("write w count=2 size=3")
        lines = wait_for_lines(spy, 2)
        self.assertEqual([line.what for line in lines], ["New data", "Modified instance"])
        peer.quit()
        self.end(spy)
        self.assertEqual({line.compact for line in lines_of(spy)}, {None})
        self.assertEqual([line.plain for line in lines_of(spy) if line.plain], [], spy.story())

    # The octets of a payload are no strings.
    UNSUITABLE = KEYED_DOCUMENT.replace('name="payload" type="byte"', 'name="words" type="string"')

    def check_unsuitable(self, form, complaint):
        spy = self.spy("-printSample", form, "-showHandle", "-qosFile", self.document(self.UNSUITABLE), mode=None)
        peer = self.publisher(self.fastdds, "w topic=T type=keyed")
        peer.do("write w key=4 value=7 size=6")
        peer.do("write w key=5 value=8 size=0")
        wait_for_lines(spy, 2)
        errors = self.end_with_errors(spy)
        lines = [line for line in lines_of(spy) if line.what == "New data"]
        self.assertEqual(len(lines), 2, spy.story())
        self.assertEqual([line.key[:8] for line in lines], ["04000000", "05000000"])
        # COMPACT: right behind the fields of the line.
        told = [found for found in (re.fullmatch(rf"(.* key=\S* guid=\S*)?({complaint})", line) for line in spy.lines) if found]
        self.assertEqual([found[2] for found in told], [complaint.replace(r"\d+", "1")])
        self.assertEqual(told[0][1] is not None, form == "COMPACT", spy.story())
        # The logger: topic, member, reason.
        self.assertTrue(errors, spy.story())
        for error in errors:
            self.assertRegex(error, r' error types .*topic "T": a sample cannot be decoded: .*words.*: \w+')
        return lines

    def test_a_document_that_does_not_fit_plain(self):
        broken, whole = self.check_unsuitable("PLAIN", r"print failed with retCode \d+")
        self.assertEqual(broken.plain[:2], ["id: 4", "value: 7"])
        self.assertEqual(whole.plain, ["id: 5", "value: 8", "words: []"])

    def test_a_document_that_does_not_fit_compact(self):
        broken, whole = self.check_unsuitable("COMPACT", r"to_string failed with retCode \d+")
        self.assertIsNone(broken.compact)
        self.assertEqual(parse(whole.compact), parse('{"id":5,"value":8,"words":[]}'))

    def test_a_bad_document(self):
        good = KEYED_DOCUMENT.splitlines()
        for change, reason in (({6: '<member name="payload" type="nonBasic" nonBasicTypeName="Missing"/>'}, "Missing"),
                               ({4: '<member name="id" type="int33" key="true"/>'}, "int33"),
                               ({5: '<member name="value" type="uint32">'}, ""),
                               ({8: '<struct name="Keyed" extensibility="final">'}, "Keyed")):
            with self.subTest(change):
                number, text = next(iter(change.items()))
                file = self.document("\n".join(good[:number] + [text] + good[number + 1:]))
                spy = self.spy("-qosFile", file, mode=None, listening=False)
                self.assertEqual(spy.wait(), 0, spy.story())
                self.assertEqual(len(spy.errors), 1, spy.story())
                self.assertRegex(spy.errors[0], rf" error .*{re.escape(file)}:\d+: .*{reason}")
                line = int(re.search(r":(\d+): ", spy.errors[0].replace(file, ""))[1])
                # What is never closed is noticed where something else is closed instead.
                self.assertEqual(line, number + 1 if reason else 8, spy.errors)

    # --- makers and types together

    def test_makers_agree_about_instances(self):
        spy = self.spy("-printSample", "COMPACT", "-showHandle", "-qosFile", self.document(KEYED_DOCUMENT), mode=None)
        cyclone = self.publisher(self.cyclone, "w topic=T type=keyed", "x topic=T type=keyed representation=2")
        fastdds = self.publisher(self.fastdds, "w topic=T type=keyed")
        lines = []
        total = 0
        for key in (7, -3):
            for peer, writer in ((cyclone, "w"), (fastdds, "w"), (cyclone, "x")):
                peer.do(f"write {writer} key={key}")
                total += 1
                lines = wait_for_lines(spy, total)
            self.assertEqual([line.what for line in lines[-3:]], ["New data", "Modified instance", "Modified instance"],
                             spy.story())
            self.assertEqual(len({line.key for line in lines[-3:]}), 1, lines)
            self.assertEqual(len({line.guid for line in lines[-3:]}), 3, lines)
        self.assertEqual(len({line.key for line in lines}), 2, lines)
        # Fast DDS disposes by the hash alone.
        fastdds.do("dispose w key=-3")
        lines = wait_for_lines(spy, len(lines) + 1)
        self.assertEqual((lines[-1].what, lines[-1].key), ("Disposed instance", lines[-2].key))
        self.assert_documented_contents(lines)
        self.end(spy)

    def test_one_type_of_two_makers_on_two_topics(self):
        """Whichever comes first, asked for or from a document: the other topic is watched with contents too."""
        for first, second in ((self.cyclone, self.fastdds), (self.fastdds, self.cyclone)):
            with self.subTest(first.__name__):
                self.setUp()
                spy = self.spy("-printSample", "COMPACT", "-qosFile", self.document(KEYED_DOCUMENT), mode=None)
                for count, (make, topic) in enumerate(((first, "A"), (second, "B")), 1):
                    peer = self.publisher(make, f"w topic={topic} type=keyed")
                    peer.do("write w key=7")
                    line = wait_for_lines(spy, count)[-1]
                    self.assertEqual((line.topic, parse(line.compact)), (topic, parse('{"id":7,"value":0,"payload":[]}')))
                self.end(spy)
                self.assertNotIn("register_type", spy.story())

    def assert_documented_contents(self, lines):
        self.assertEqual([parse(line.compact) for line in lines if line.compact],
                         [parse(f'{{"id":{key},"value":0,"payload":[]}}') for key in (7, 7, 7, -3, -3, -3)])

    def conflicting_publisher(self, spy, count, writer, **settings):
        """The next of several publishers of one topic. A reader that a conflict made hears nothing before it knows that
        the writer's type is its own, which the writer cannot see."""
        peer = self.publisher(self.cyclone, writer, **settings)
        spy.wait_for(f"{count} matches of readers", lambda: sum(
            line.startswith("ferret: Matched DataWriters change (1).") for line in spy.lines) == count)
        return peer

    def test_a_type_that_is_told_on_another_topic_than_its_name(self):
        spy = self.spy("-printSample", "COMPACT", "-verbosity", "2", mode=None)
        nameless = self.conflicting_publisher(spy, 1, "a topic=T type=keyed type_name=peers::Keyed")
        nameless.do("write a")
        wait_for_lines(spy, 1)
        telling = self.conflicting_publisher(spy, 2, "b topic=U type=keyed")
        expected = written(telling.do("write b count=2 keys=2 show"))
        lines = wait_for_lines(spy, 3)
        self.assertEqual([parse(line.compact) for line in lines[1:]], expected)
        self.assertEqual([line.what for line in lines[1:]], ["New data"] * 2)
        nameless.do("write a")
        self.assertEqual(wait_for_lines(spy, 4)[3].compact, None)
        self.end(spy)
        self.assertEqual([line.strip() for line in spy.lines if "(Topic=" in line],
                         ['2, 0, 0 \t(Topic="T"  Type="peers::Keyed")', '2, 0, 0 \t(Topic="U"  Type="peers::Keyed")'])

    def check_conflict(self, first_settings, first_type, second_settings, second_type, types):
        spy = self.spy("-printSample", "COMPACT", "-verbosity", "2", mode=None)
        first = self.conflicting_publisher(spy, 1, f"a topic=T type={first_type}", **first_settings)
        expected = [written(first.do("write a count=2 size=3 show"))]
        wait_for_lines(spy, 2)
        second = self.conflicting_publisher(spy, 2, f"b topic=T type={second_type}", **second_settings)
        # As applications see it, there are two spies now.
        self.assertEqual(len(second.do("others count=3")), 3)
        expected.append(written(second.do("write b count=3 size=3 show")))
        wait_for_lines(spy, 5)
        # The first one goes on.
        expected[0] += written(first.do("write a count=1 value=9 show"))
        lines = wait_for_lines(spy, 6)
        self.end(spy)
        got = [[parse(line.compact) for line in lines[:2] + lines[5:]], [parse(line.compact) for line in lines[2:5]]]
        self.assertEqual(got, expected)
        self.assertEqual(spy.statistics(), (2, 0))
        rows = [line.strip() for line in spy.lines if "(Topic=" in line]
        self.assertEqual(rows, [f'{count}, 0, 0 \t(Topic="T"  Type="{name}")' for count, name in zip((3, 3), types)])

    def test_one_type_name_with_two_meanings(self):
        self.check_conflict({}, "keyed", {"changed": True}, "keyed", ["peers::Keyed"] * 2)

    def test_two_types_on_one_topic(self):
        self.check_conflict({}, "unkeyed", {}, "shape", ["peers::Unkeyed", "peers::Shape"])

    def test_a_third_type_needs_a_third_participant(self):
        spy = self.spy("-printSample", "COMPACT", "-verbosity", "2", mode=None)
        releases = (("keyed", False), ("shape", False), ("keyed", True), ("shape", True), ("mutable", False))
        peers = [self.conflicting_publisher(spy, count, f"w topic=T type={name}", changed=changed)
                 for count, (name, changed) in enumerate(releases, 1)]
        peers[0].do("others count=8")
        for count, peer in enumerate(peers, 1):
            sample = written(peer.do("write w size=2 show"))
            self.assertEqual([parse(line.compact) for line in wait_for_lines(spy, count)[-1:]], sample)
        self.end(spy)
        # The two releases of the shape are the same type.
        self.assertEqual([line.strip() for line in spy.lines if "(Topic=" in line],
                         [f'{count}, 0, 0 \t(Topic="T"  Type="peers::{name}")' for count, name in
                          ((1, "Keyed"), (2, "Shape"), (1, "Keyed"), (1, "Mutable"))], spy.story())


if __name__ == "__main__":
    harness.main()
