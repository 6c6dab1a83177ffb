#!/usr/bin/env python3
"""Samples whose types are not announced are shown with types that ferret-types made: messages of ROS 2 on Fast DDS 2.x, and
types of an IDL file on Cyclone DDS."""

import json
import pathlib
import re
import subprocess
import tempfile

import harness

HERE = pathlib.Path(__file__).resolve().parent
FERRET_TYPES = HERE.parents[1] / "tools/ferret-types/ferret-types"

# The interfaces that the publisher uses, as packages have them.
INTERFACES = {
    "std_msgs/msg/String.msg": "string data",
    "std_msgs/msg/Header.msg": "builtin_interfaces/Time stamp\nstring frame_id",
    "builtin_interfaces/msg/Time.msg": "int32 sec\nuint32 nanosec",
    "geometry_msgs/msg/Vector3.msg": "float64 x\nfloat64 y\nfloat64 z",
    "geometry_msgs/msg/Quaternion.msg": "float64 x 0\nfloat64 y 0\nfloat64 z 0\nfloat64 w 1",
    "sensor_msgs/msg/Imu.msg": "std_msgs/Header header\n"
                               "geometry_msgs/Quaternion orientation\nfloat64[9] orientation_covariance # row major\n"
                               "geometry_msgs/Vector3 angular_velocity\nfloat64[9] angular_velocity_covariance\n"
                               "geometry_msgs/Vector3 linear_acceleration\nfloat64[9] linear_acceleration_covariance",
    "sensor_msgs/msg/JointState.msg": "std_msgs/Header header\nstring[] name\nfloat64[] position\nfloat64[] velocity\n"
                                      "float64[] effort",
    "sensor_msgs/msg/PointField.msg": "uint8 INT8 = 1\nuint8 FLOAT32 = 7\nstring name\nuint32 offset\nuint8 datatype\n"
                                      "uint32 count",
    "sensor_msgs/msg/PointCloud2.msg": "std_msgs/Header header\nuint32 height\nuint32 width\nPointField[] fields\n"
                                       "bool is_bigendian\nuint32 point_step\nuint32 row_step\nuint8[] data\nbool is_dense",
    "plant_msgs/msg/Empty.msg": "# nothing",
    "plant_msgs/msg/Mixture.idl": """
        #include "geometry_msgs/msg/Vector3.idl"
        #include "plant_msgs/msg/Empty.idl"
        module plant_msgs { module msg {
            typedef geometry_msgs::msg::Vector3 Corners[2];
            @verbatim(language="comment", text="what the others do not have")
            struct Mixture {
                boolean flag; octet byte; uint8 letter; int8 tiny; int64 huge; plant_msgs::msg::Empty nothing; float real;
                wstring wide; sequence<boolean> flags; string words[2]; sequence<wstring> wide_words; Corners corners;
                sequence<uint16, 2> bounded; uint64 last;
            };
        }; };""",
    "example_interfaces/srv/AddTwoInts.srv": "int64 a\nint64 b\n---\nint64 sum",
    "example_interfaces/action/Fibonacci.action": "int32 order\n---\nint32[] sequence\n---\nint32[] sequence",
    "unique_identifier_msgs/msg/UUID.msg": "uint8[16] uuid",
}
MESSAGES = {"string": "rt/chatter", "imu": "rt/imu", "joints": "rt/joint_states", "cloud": "rt/points", "mixture": "rt/mixture",
            "request": "rq/addRequest", "feedback": "rt/fibonacci/_action/feedback"}


def parse(text):
    """Numbers stay the texts that they are."""
    return json.loads(text, parse_int=lambda number: f"={number}", parse_float=lambda number: f"={number}")


def plain_of(value, indentation=""):
    """The lines in which PLAIN shows the members of an object."""
    lines = []

    def add(name, member, inner):
        if isinstance(member, dict):
            lines.append(f"{inner}{name}:")
            lines.extend(plain_of(member, inner + "   "))
        elif isinstance(member, list) and member:
            lines.append(f"{inner}{name}:")
            for index, element in enumerate(member):
                add(f"[{index}]", element, inner + "   ")
        elif isinstance(member, str):
            lines.append(f"{inner}{name}: " + (member[1:] if member.startswith("=") else json.dumps(member, ensure_ascii=False)))
        else:
            lines.append(f"{inner}{name}: {json.dumps(member)}")

    for name, member in value.items():
        add(name, member, indentation)
    return lines


def compact_samples(spy):
    """(topic, contents) of each sample."""
    found = (re.search(r' topic="(.*?)" type=".*?" sample=(.*)', line) for line in spy.lines)
    return [(line[1], parse(line[2])) for line in found if line]


def plain_samples(spy):
    """(topic, lines of contents) of each sample."""
    samples = []
    for line in spy.lines:
        found = re.search(r'New data .* topic="(.*?)"', line)
        if found:
            samples.append((found[1], []))
        elif line.startswith("----"):
            break
        elif samples and line:
            samples[-1][1].append(line)
    return samples


class MadeTypes(harness.InteropTest):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def make_document(self, *arguments):
        """The path of a document that ferret-types makes."""
        document = self.folder / "types.xml"
        made = subprocess.run([FERRET_TYPES, *arguments, "-o", document], capture_output=True, text=True)
        if "module 'lark' is missing" in made.stderr:
            self.skipTest(made.stderr)
        self.assertEqual((made.returncode, made.stderr), (0, ""))
        return str(document)


class IdlTypes(MadeTypes):
    TYPES = {"keyed": "Keyed", "unkeyed": "Unkeyed", "appendable": "Appendable", "mutable": "Mutable", "shape": "Shape",
             "everything": "Everything"}

    def publish(self, form, representation):
        """What a publisher wrote of each type, which it announced by the name only."""
        file = self.folder / "peer_types.idl"
        # The compiler of Cyclone DDS makes final what has no annotation; the standard says appendable.
        file.write_text((HERE / "peers/peer_types.idl").read_text().replace("union Reading", "@final union Reading"))
        spy = self.spy("-printSample", form, "-qosFile", self.make_document(file), mode="USER")
        peer = self.cyclone()
        peer.do("participant")
        # Cyclone DDS has no mutable and appendable types in the first version.
        types = [name for name in self.TYPES if representation == 2 or name not in ("appendable", "mutable")]
        for name in types:
            peer.do(f"writer {name} topic={name} type={name} type_name=peers::{self.TYPES[name]} representation={representation}")
        written = []
        for name in types:
            peer.do(f"matched {name}")
            written.append((name, parse(peer.do(f"write {name} key=-5 value=1 size=3 show")[0].removeprefix("sample "))))
            spy.wait_for_line(f'New data .* topic="{name}"')
        self.end(spy)
        return spy, written

    def test_compact(self):
        for representation in (1, 2):
            spy, written = self.publish("COMPACT", representation)
            self.assertEqual(compact_samples(spy), written, spy.story())

    def test_plain(self):
        for representation in (1, 2):
            spy, written = self.publish("PLAIN", representation)
            written = [sample for sample in written if sample[0] != "everything"]  # JSON says too little about its members
            samples = [sample for sample in plain_samples(spy) if sample[0] != "everything"]
            self.assertEqual(samples, [(topic, plain_of(contents)) for topic, contents in written], spy.story())


class RosTypes(MadeTypes):
    def setUp(self):
        super().setUp()
        for name, text in INTERFACES.items():
            path = self.folder / "share" / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text + "\n")
        self.document = self.make_document(self.folder / "share")

    def publish(self, *arguments):
        """A spy and what a publisher wrote of each message, when its lines of the samples are there."""
        spy = self.spy("-printSample", *arguments, mode="USER")
        peer = self.ros()
        for name in MESSAGES:
            peer.do(f"writer {name}")
        written = {}
        for name, topic in MESSAGES.items():
            peer.do(f"matched {name}")
            written[topic] = parse(peer.do(f"write {name}")[0].removeprefix("sample "))
        spy.wait_for("all samples", lambda: sum("New data" in line for line in list(spy.lines)) == len(MESSAGES))
        self.end(spy)
        return spy, written

    def test_compact(self):
        spy, written = self.publish("COMPACT", "-qosFile", self.document)
        self.assertEqual(dict(compact_samples(spy)), written, spy.story())

    def test_plain(self):
        spy, written = self.publish("PLAIN", "-qosFile", self.document)
        self.assertEqual(dict(plain_samples(spy)), {topic: plain_of(message) for topic, message in written.items()}, spy.story())

    def test_without_the_document(self):
        spy, _ = self.publish("COMPACT")
        self.assertEqual([line for line in spy.lines if "sample=" in line], [], spy.story())

    def test_patterns_for_topics(self):
        """A star stands for slashes, too."""
        feedback = "rt/fibonacci/_action/feedback"
        for pattern, topics in (("rt/*", set(MESSAGES.values()) - {"rq/addRequest"}), ("r?/fibonacci/*", {feedback})):
            spy = self.spy("-topicRegex", pattern, mode="USER")
            peer = self.ros()
            for name in MESSAGES:
                peer.do(f"writer {name}")
            for name in (name for name, topic in MESSAGES.items() if topic in topics):
                peer.do(f"matched {name}")
            for name in MESSAGES:
                peer.do(f"write {name}")
            spy.wait_for("samples of all these topics", lambda: {sample.topic for sample in spy.samples()} >= topics)
            self.end(spy)
            self.assertEqual({sample.topic for sample in spy.samples()}, topics, spy.story())


if __name__ == "__main__":
    harness.main()
