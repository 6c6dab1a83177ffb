"""In whose company the commands of the documents run. A document names one of these scenes before a block.

A scene is a generator: what stands before its yield is there when the command starts, what stands after it happens while the
command runs. A scene waits for the readers of the command's spy only where the command has one for that topic.
"""

import fnmatch
import importlib
import pathlib
import shlex
import sys

HERE = pathlib.Path(__file__).resolve().parent
for folder in ("interop", "faults"):
    sys.path.insert(0, str(HERE.parent / folder))

import forge  # noqa: E402
import harness  # noqa: E402

SCENES = {}
SHAPE, KEYED = "peers::Shape", "peers::Keyed"


def scene(function):
    SCENES[function.__name__] = function
    return function


class Stage(harness.InteropTest):
    """The networks and applications of one command. Ends all of it in doCleanups()."""

    def __init__(self, command, folder):
        super().__init__("play")
        self.command = command
        self.folder = folder  # where the command runs
        self.replace = {}  # words of the document to what they are here
        self.started = False
        self.setUp()
        self.apps = self.network  # where applications run
        words = shlex.split(command)
        values = {option: [after for before, after in zip(words, words[1:]) if before == option]
                  for option in ("-mode", "-topicRegex", "-typeRegex", "-domainId")}
        self._topics, self._types = values["-topicRegex"] or ["*"], values["-typeRegex"] or ["*"]
        self._reads = "DISC" not in values["-mode"] and values["-domainId"] in ([], ["0"])

    def play(self):
        """unittest wants one."""

    def cable(self):
        """Applications run on another host of the network, 192.168.1.2."""
        self.apps = self.new_network()
        harness.join_by_cable(self.network, self.apps, subnet="192.168.1", ipv6=None)

    def app(self, make, *commands, **settings):
        """An application on Cyclone DDS (self.cyclone), Fast DDS (self.fastdds) or of ROS 2 (self.ros)."""
        peer = make(self.apps, **settings)
        for command in commands:
            peer.do(command)
        return peer

    def write(self, peer, writer, topic, type_name, *commands):
        """Waits until the spy reads the topic, if it does, and has the commands done."""
        reads = self._reads and any(fnmatch.fnmatchcase(topic, pattern) for pattern in self._topics) and \
            any(fnmatch.fnmatchcase(type_name, pattern) for pattern in self._types)
        if reads:
            try:
                peer.do(f"matched {writer} timeout={3 * harness.SLOWNESS:g}")
            except AssertionError:
                pass  # their policies do not fit
        for command in commands:
            peer.do(command)

    def put(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


@scene
def alone(stage):
    yield


@scene
def shapes(stage):
    """An application with a writer and a reader comes, writes, and goes."""
    stage.cable()
    yield
    app = stage.app(stage.cyclone, "participant name=shapes", 'writer square topic=Square type=shape entity_name=painter')
    stage.write(app, "square", "Square", SHAPE, "write square key=1", "write square key=2 value=1", "write square key=1 value=2")
    app.do("reader circle topic=Circle type=shape")
    stage.write(app, "square", "Square", SHAPE, "dispose square key=2")
    app.quit()


@scene
def stays(stage):
    """The same application, which is there already and writes on."""
    stage.cable()
    app = stage.app(stage.cyclone, "participant name=shapes", "writer square topic=Square type=shape entity_name=painter",
                    "reader circle topic=Circle type=shape")
    yield
    stage.write(app, "square", "Square", SHAPE, "write square key=1", "write square key=2 value=1", "write square key=1 value=2")


@scene
def shapes_here(stage):
    """An application on this host, which has an interface besides loopback."""
    stage.cable()
    stage.apps = stage.network
    stage.app(stage.cyclone, "participant", "writer w topic=Near type=shape")
    yield


@scene
def plant(stage):
    """Applications of two makers on three topics, in partitions."""
    stage.cable()
    yield
    shapes = stage.app(stage.cyclone, "participant name=shapes", "writer square topic=Square type=shape",
                       "writer circle topic=Circle type=shape partitions=Hall/1")
    stage.write(shapes, "square", "Square", SHAPE, "write square")
    stage.write(shapes, "circle", "Circle", SHAPE, "write circle")
    sensor = stage.app(stage.fastdds, "participant name=thermometer", "writer t topic=Temperature partitions=Hall/1,Hall/2")
    stage.write(sensor, "t", "Temperature", KEYED, "write t key=7 value=21 size=2")


@scene
def everything(stage):
    """One sample with members of every kind."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer w topic=Reading type=everything")
    stage.write(app, "w", "Reading", "peers::Everything", "write w key=5 size=3")


@scene
def history(stage):
    """A writer that keeps its last samples for late readers, written before the command starts."""
    app = stage.app(stage.cyclone, "participant", "writer map topic=Map type=shape transient_local depth=3",
                    "write map key=1", "write map key=1 value=1")
    yield
    stage.write(app, "map", "Map", SHAPE, "write map key=1 value=2")


@scene
def fast_writer(stage):
    """Four samples of an instance in a second."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer w topic=Position type=shape")
    stage.write(app, "w", "Position", SHAPE, "write w count=5 rate=4")


@scene
def unannounced(stage):
    """An application that announces the name of its type only."""
    stage.cable()
    yield
    sensor = stage.app(stage.fastdds, "participant name=thermometer", "writer t topic=Temperature")
    stage.write(sensor, "t", "Temperature", KEYED, "write t key=7 value=21 size=2")


@scene
def idl(stage):
    """The same, and the IDL file of its type."""
    stage.put("Plant.idl", "module peers {\n  @final struct Keyed { @key long id; unsigned long value; sequence<octet> payload; };\n};\n")
    yield from unannounced(stage)


@scene
def ros(stage):
    """A ROS 2 installation, a workspace, and a node that talks."""
    for path, text in importlib.import_module("test_made_types").INTERFACES.items():
        if not path.startswith("plant_msgs"):
            stage.put(f"share/{path}", text)
    stage.put("ws/src/mine/msg/Stamped.msg", "std_msgs/Header header\nfloat64 value\n")
    stage.put("include/Unit.idl", "typedef long Unit;\n")
    stage.put("Plant.idl", '#include "Unit.idl"\nstruct Tank { Unit level; };\n')
    stage.replace = {"/opt/ros/jazzy/share": "share", "~/ws/src": "ws/src"}
    yield
    node = stage.app(stage.ros)
    for writer, topic, type_name in (("string", "rt/chatter", "std_msgs::msg::dds_::String_"),
                                     ("request", "rq/addRequest", "example_interfaces::srv::dds_::AddTwoInts_Request_"),
                                     ("feedback", "rt/fibonacci/_action/feedback",
                                      "example_interfaces::action::dds_::Fibonacci_FeedbackMessage_")):
        node.do(f"writer {writer}")
        stage.write(node, writer, topic, type_name, f"write {writer}")


@scene
def broken_package(stage):
    """A package that uses one which is not there."""
    stage.put("src/mine/msg/Stamped.msg", "std_msgs/Header header\n\nother_msgs/Pose pose\n")
    stage.put("src/std_msgs/msg/Header.msg", "string frame_id\n")
    yield


@scene
def domain_5(stage):
    """Applications in domains 0 and 5."""
    yield
    for domain, topic in ((0, "Square"), (5, "Circle")):
        app = stage.app(stage.cyclone, f"participant domain={domain}", f"writer w topic={topic} type=shape")
        app.do("write w")


@scene
def domain_5_only(stage):
    stage.app(stage.cyclone, "participant domain=5", "writer w topic=Circle type=shape")
    yield


@scene
def tag(stage):
    """Applications with and without a tag."""
    yield
    stage.app(stage.cyclone, "participant", "writer w topic=Untagged type=shape")
    stage.app(stage.cyclone, "participant", "writer w topic=Tagged type=shape", tag="blue")


@scene
def no_multicast(stage):
    """A host that multicast does not reach, 192.168.1.2."""
    stage.cable()
    stage.app(stage.cyclone, "participant", "writer w topic=Square type=shape", multicast="false")
    yield


@scene
def ipv6(stage):
    """An application that speaks IPv6 only."""
    stage.app(stage.cyclone, "participant", "writer w topic=Square type=shape", transport="udp6")
    yield


@scene
def server(stage):
    """Fast DDS applications that meet at a discovery server on this host."""
    stage.app(stage.fastdds, "participant server=11811 name=server")
    client = stage.app(stage.fastdds, "participant client=11811", "writer t topic=Temperature")
    yield
    stage.write(client, "t", "Temperature", KEYED, "write t")


@scene
def patterns(stage):
    """Writers in the default partition, a named one, and in one that is a pattern."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer a topic=Default type=shape",
                    "writer b topic=Named type=shape partitions=Hall/1", "writer c topic=Pattern type=shape partitions=Hall/*")
    for writer, topic in (("a", "Default"), ("b", "Named")):
        stage.write(app, writer, topic, SHAPE, f"write {writer}")
    if "-subscriberPartition" in stage.command:
        stage.write(app, "c", "Pattern", SHAPE)
    app.do("write c")


@scene
def participants_in_partitions(stage):
    """Participants that announce partitions of their own."""
    yield
    for partition in ("Left", "Right"):
        app = stage.app(stage.fastdds, f"participant property:dds.domain_participant.partition={partition}",
                        f"writer t topic=T_{partition}")
        stage.write(app, "t", f"T_{partition}", KEYED, "write t")


@scene
def two_types(stage):
    """A topic whose writers disagree on having a key."""
    yield
    first = stage.app(stage.cyclone, "participant", "writer a topic=Mixed type=keyed type_name=Same")
    stage.write(first, "a", "Mixed", "Same", "write a")
    second = stage.app(stage.cyclone, "participant", "writer b topic=Mixed type=unkeyed type_name=Same")
    second.do("write b")


@scene
def best_effort(stage):
    """A writer that sends nothing again."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer w topic=Position type=shape best_effort")
    app.do("write w")

@scene
def strong_and_weak(stage):
    """Writers of one topic with different kinds of ownership."""
    yield
    first = stage.app(stage.cyclone, "participant", "writer a topic=Valve type=shape")
    stage.write(first, "a", "Valve", SHAPE, "write a")
    second = stage.app(stage.cyclone, "participant", "writer b topic=Valve type=shape exclusive")
    second.do("write b")


def _announce(stage, kind, address="127.0.0.1", more=()):
    """A participant in one datagram, as no application would answer it."""
    link = stage.apps.socket(forge.socket.AF_INET, forge.socket.SOCK_DGRAM)
    stage.addCleanup(link.close)
    prefix = bytes.fromhex("0155000000000000000000") + bytes([kind & 0xff])
    payload = forge.participant(prefix, [forge.locator(address, 7420, kind)], more=more)
    link.sendto(forge.message(prefix, forge.data(0x000100C2, 1, payload, reader=0x000100C7)), ("239.255.0.1", 7400))


@scene
def shared_memory(stage):
    """A participant that announces shared memory only."""
    yield
    _announce(stage, 16, more=[(forge.packets.NAME, forge.text("camera"))])


@scene
def container(stage):
    """A participant on another host that announces an address which is no way to it."""
    stage.cable()
    yield
    _announce(stage, forge.packets.UDPV4, more=[(forge.packets.NAME, forge.text("camera"))])


@scene
def secured(stage):
    """A participant of a secured domain."""
    yield
    token = forge.text("DDS:Auth:PKI-DH:1.0") + bytes(8)
    _announce(stage, forge.packets.UDPV4, more=[(0x1001, token)])


@scene
def large(stage):
    """A writer whose messages are larger than usual."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer w topic=Image type=keyed")
    stage.write(app, "w", "Image", KEYED, "write w size=1450")


@scene
def sizes(stage):
    """A small sample and a large one."""
    yield
    app = stage.app(stage.cyclone, "participant", "writer w topic=Image type=keyed")
    stage.write(app, "w", "Image", KEYED, "write w key=1 size=2", "write w key=1 value=1 size=2000")


@scene
def no_interface(stage):
    stage.network.ip("link", "set", "lo", "down")
    yield


@scene
def no_ipv6(stage):
    stage.network.ip("-6", "address", "flush", "dev", "lo")
    yield


@scene
def picture(stage):
    """What the picture of the first page shows."""
    stage.cable()
    yield
    shapes = stage.app(stage.cyclone, "participant name=shapes", "writer square topic=Square type=shape entity_name=painter")
    stage.write(shapes, "square", "Square", SHAPE, "write square key=1", "write square key=2 value=1", "write square key=1 value=2")
    shapes.do("reader circle topic=Circle type=shape partitions=Demo,Test*")
    sensor = stage.app(stage.fastdds, "participant name=thermometer", "writer t topic=Temperature partitions=Hall")
    stage.write(sensor, "t", "Temperature", KEYED, "write t key=7 value=21 size=2")
    stage.write(shapes, "square", "Square", SHAPE, "dispose square key=2")
    shapes.quit()


@scene
def examples(stage):
    """All that the examples of the manual pages and the first page speak of."""
    stage.replace = {"192.168.1.17": "127.0.0.1", "10.0.0.9:": "127.0.0.1:"}
    if ":11811" in stage.command:
        stage.app(stage.fastdds, "participant server=11811 name=server")
        stage.app(stage.fastdds, "participant client=11811", "writer t topic=Temperature")
    for domain in (0, 5):
        app = stage.app(stage.cyclone, f"participant domain={domain}", "writer w topic=Square type=shape")
        app.send("write w count=10000 rate=20")
    replace = stage.replace
    play = ros(stage)
    next(play)
    stage.replace |= replace
    yield
    yield from play
