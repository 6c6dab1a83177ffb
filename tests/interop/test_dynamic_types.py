#!/usr/bin/env python3
"""Types that Fast DDS applications make at run time and announce, in the way of their release: many in one process, each with
contents, value by value as the application says it wrote them."""

import json
import re

import harness

# As busy ROS nodes have them: structures of structures, arrays, sequences, texts of many lengths.
STRUCTURES = """
Time sec=int32 nanosec=uint32
Header stamp=Time frame_id=string
Vector3 x=float64 y=float64 z=float64
Quaternion x=float64 y=float64 z=float64 w=float64
Point x=float64 y=float64 z=float64
Pose position=Point orientation=Quaternion
Twist linear=Vector3 angular=Vector3
PoseWithCovariance pose=Pose covariance=float64[36]
TwistWithCovariance twist=Twist covariance=float64[36]
Odometry header=Header child_frame_id=string pose=PoseWithCovariance twist=TwistWithCovariance
Imu header=Header orientation=Quaternion orientation_covariance=float64[9] angular_velocity=Vector3
JointState header=Header name=string[] position=float64[] velocity=float64[]
Transform translation=Vector3 rotation=Quaternion
TransformStamped header=Header child_frame_id=string transform=Transform
PointField name=string offset=uint32 datatype=byte count=uint32
PointCloud header=Header height=uint32 width=uint32 parts=PointField[] is_bigendian=bool data=byte[] is_dense=bool
Battery header=Header voltage=float32 percentage=float32 status=byte present=bool cells=float32[] location=string
Range header=Header radiation_type=byte field_of_view=float32 range=float32
Path header=Header poses=Pose[]
Mixture flag=bool small=int16 letter=char octet=byte large=int64 real=float32 word=string last=int64
Points names=string[2] points=Point[2] rest=Point[]
Grid rows=int32[4][3] names=string[2] flags=bool[3] shorts=int16[] longs=int64[]
Wide text=wstring count=int32
Sound rate=int32 left=int16[] right=int16[] gain=float32
Names first=string[] second=string[3] third=string
Octets before=byte data=byte[] after=int64 rest=byte[5]
Reals half=float32 values=float64[] last=float32[]
Flags one=bool many=bool[] letters=char[4] number=uint32
Large a=int64 b=byte c=int64 d=bool e=int64 f=int16 g=float64
""".strip().splitlines()

# Fast DDS 2 announces the outermost structure only (and crashes when it has a collection of structures).
NESTED = re.compile(r"=[A-Z]")


def strict(text):
    """Members have an order, and booleans are no numbers."""
    return json.loads(text, object_pairs_hook=lambda pairs: ("object", pairs), parse_int=lambda number: ("int", number))


class DynamicTypes(harness.InteropTest):
    def check(self, definitions, *arguments, samples=3, unwritten=()):
        spy = self.watch()
        peer = self.dynamic(*arguments)
        names = [definition.split()[0] for definition in definitions if definition not in unwritten]
        self.make(peer, definitions, names)
        self.compare(spy, peer, names, samples)

    def watch(self):
        return self.spy("-printSample", "COMPACT", "-verbosity", "2", mode=None)

    def make(self, peer, definitions, names):
        for definition in definitions:
            peer.do(f"struct {definition}")
        for name in names:
            peer.do(f"writer {name}")

    def compare(self, spy, peer, names, samples=3):
        for name in names:
            peer.do(f"matched {name}", limit=40 * harness.SLOWNESS)
        for name in names:
            facts = [peer.do(f"write {name}")[-1] for _ in range(samples)]
            lines = spy.wait_for(f"samples of {name}", lambda: (lambda found: found if len(found) >= samples else None)(
                [line for line in list(spy.lines) if f'topic="{name}"' in line and " sample=" in line]))
            self.assertEqual([strict(line.split(" sample=", 1)[1]) for line in lines],
                             [strict(fact.split(" ", 1)[1]) for fact in facts], f"{name}\n{spy.story()}")
        self.assertEqual(spy.interrupt()[0], 1, spy.story())

    def test_many_types_of_one_process(self):
        self.check([definition for definition in STRUCTURES if self.is_new() or not NESTED.search(definition)])

    def test_what_is_not_announced_is_told(self):
        if self.is_new():
            self.skipTest("Fast DDS 3 tells all of a type")
        spy, peer = self.watch(), self.dynamic()
        for command in ("struct Inner a=int32", "struct Outer inner=Inner b=string", "writer Outer", "matched Outer", "write Outer"):
            peer.do(command, limit=40 * harness.SLOWNESS)
        spy.wait_for_line(r'New data .* topic="Outer" type="Outer"$')
        spy.wait_for_line("topic 'Outer' is shown without contents: .* what was announced of it cannot be used")
        self.assertEqual(spy.interrupt()[0], 1, spy.story())

    def test_structures_of_other_topics(self):
        """What is inside of a type is announced with topics of its own, before it and behind it."""
        nested = [definition for definition in STRUCTURES if not re.search(r"=[A-Z]\w*\[", definition)]
        self.check(nested)
        peer, names = self.dynamic(), [definition.split()[0] for definition in reversed(nested)]
        self.make(peer, nested, names)
        self.compare(self.watch(), peer, names)

    def test_structures_that_are_asked_for(self):
        """Fast DDS 2 tells them in a form of its own, where the application has the service."""
        self.check(["Time sec=int32 nanosec=uint32", "Header stamp=Time frame_id=string",
                    "Stamped header=Header value=float64 values=int16[]", "Twice first=Header second=Stamped"],
                   "answers", unwritten=("Time sec=int32 nanosec=uint32", "Header stamp=Time frame_id=string"))

    def is_new(self):
        if harness.options.peer_dynamic is None or harness.options.peer_fastdds is None:
            self.skipTest("built without Fast DDS")
        return harness.release_of(harness.options.peer_fastdds) >= (3,)

    def test_mutable_types(self):
        if not self.is_new():
            self.skipTest("Fast DDS 2 makes no mutable types at run time")
        self.check(["Inner mutable octet=byte large=int64", "Outer mutable flag=bool inner=Inner text=string large=int64 last=byte",
                    "Mixed first=byte inner=Inner parts=Inner[] last=float64"])


if __name__ == "__main__":
    harness.main()
