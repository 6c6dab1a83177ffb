"""What the interop tests are made of: private networks, processes in them, peers, and the spy itself.

A test file ends with harness.main(), which puts the whole file into a process namespace and network namespace of its own:
whatever way the test ends, the kernel ends every process it started, and the networks go with them. Waiting is always for
a condition with a time limit; nothing here sleeps for a fixed time.
"""

import contextlib
import ctypes
import functools
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

CLONE_NEWNET = 0x40000000
INSIDE = "--inside"
# A slow machine or a sanitizer stretches every limit that is not itself what is being tested.
SLOWNESS = float(os.environ.get("INTEROP_SLOWNESS", "1"))
DEFAULT_LIMIT = 15.0 * SLOWNESS
# The short form for everyday use: fewer rounds of what is long.
SHORT = "INTEROP_SHORT" in os.environ

_libc = ctypes.CDLL(None, use_errno=True)


def _call(name, *arguments):
    if getattr(_libc, name)(*arguments) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{name}: {os.strerror(number)}")


class Network:
    """A network namespace with a loopback interface. It exists as long as this object or a process in it does."""

    def __init__(self, ipv4=True):
        home = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        try:
            _call("unshare", CLONE_NEWNET)
            try:
                self.handle = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
            finally:
                _call("setns", home, CLONE_NEWNET)
        finally:
            os.close(home)
        self.ip("link", "set", "lo", "multicast", "on", "up")
        # The kernel makes this route for every interface that is born with multicast; the loopback one is not.
        self.ip("-6", "route", "replace", "local", "ff00::/8", "dev", "lo", "table", "local")
        if not ipv4:
            self.ip("-4", "address", "flush", "dev", "lo")

    @contextlib.contextmanager
    def _visit(self):
        """This thread, and no other, is in the namespace for as long as the context lasts."""
        home = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        try:
            _call("setns", self.handle, CLONE_NEWNET)
            try:
                yield
            finally:
                _call("setns", home, CLONE_NEWNET)
        finally:
            os.close(home)

    def start(self, command, **options):
        """Starts a process in this network."""
        with self._visit():
            return subprocess.Popen(command, **options)

    def socket(self, *arguments):
        """A socket of this network."""
        with self._visit():
            return socket.socket(*arguments)

    def ip(self, *arguments, handles=()):
        child = self.start(["ip", *arguments], pass_fds=handles, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output = child.communicate()[0].decode()
        if child.returncode != 0:
            raise AssertionError(f"ip {' '.join(arguments)}: {output}")
        return output

    def route_multicast(self, device="lo"):
        self.ip("route", "replace", "224.0.0.0/4", "dev", device)

    def close(self):
        os.close(self.handle)


def join_by_cable(left, right, subnet="10.77.0", ipv6="fd77::", device="eth0"):
    """Two networks become two hosts with a cable between them: addresses subnet.1 and subnet.2, ipv6 1 and 2. Either
    family is left out where it is None."""
    left.ip("link", "add", device, "type", "veth", "peer", "name", device, "netns", f"/proc/self/fd/{right.handle}",
            handles=(right.handle,))
    for number, network in ((1, left), (2, right)):
        if subnet is not None:
            network.ip("address", "add", f"{subnet}.{number}/24", "dev", device)
        if ipv6 is not None:
            network.ip("address", "add", f"{ipv6}{number}/64", "dev", device, "nodad")
        network.ip("link", "set", device, "multicast", "on", "up")
        if subnet is not None:
            network.route_multicast(device)
    # Programs look at their interfaces when they start, so the cable has to be usable by then: carrier on both ends, and
    # no address that is still being checked for duplicates.
    end = time.monotonic() + DEFAULT_LIMIT
    while any("state UP" not in network.ip("-o", "link", "show", "dev", device) or
              "tentative" in network.ip("-o", "-6", "address", "show", "dev", device) for network in (left, right)):
        if time.monotonic() > end:
            raise AssertionError(f"{device} does not come up")
        time.sleep(0.02)


def join_by_router(left, router, right):
    """Two hosts in networks of their own, 10.77.1.1 and 10.77.2.1. A router passes on no multicast. Returns False where
    this machine does not let us have a router."""
    join_by_cable(left, router, subnet="10.77.1", ipv6=None, device="eth1")
    join_by_cable(right, router, subnet="10.77.2", ipv6=None, device="eth2")
    left.ip("route", "add", "default", "via", "10.77.1.2")
    right.ip("route", "add", "default", "via", "10.77.2.2")
    return router.start(["sh", "-c", "echo 1 > /proc/sys/net/ipv4/ip_forward"], stderr=subprocess.DEVNULL).wait() == 0


class Stopwatch:
    """Measures a promise that the tool makes about time. Time in which processes of the machine waited for a processor is no
    fault of the tool's: it counts a tenth. Where the system does not tell, all of it counts."""

    def __init__(self):
        self._begin = time.monotonic(), self._waited()

    @staticmethod
    def _waited():
        try:
            with open("/proc/pressure/cpu", encoding="ascii") as pressure:
                return int(re.match(r"some .* total=(\d+)", pressure.readline())[1]) / 1e6
        except (OSError, TypeError):
            return 0

    def seconds(self):
        begin, waited = self._begin
        lasted = time.monotonic() - begin
        return lasted - 0.9 * min(lasted, self._waited() - waited)


def end_by_interrupt(child, limit=None):
    """Sends SIGINT and waits until the process has ended. Where everything is slow, which means a sanitizer, the signal
    is sent again every second: the runtime of the thread sanitizer loses one now and then."""
    end = time.monotonic() + (DEFAULT_LIMIT if limit is None else limit)
    while True:
        child.send_signal(signal.SIGINT)
        try:
            child.wait(1 if SLOWNESS > 1 else max(0, end - time.monotonic()))
            return
        except subprocess.TimeoutExpired:
            if time.monotonic() >= end:
                return


def wait_until(changed, condition, limit, complaint):
    """Waits until condition() is true and returns its value; it is asked again whenever changed (a threading.Condition) is notified."""
    end = time.monotonic() + (DEFAULT_LIMIT if limit is None else limit)
    with changed:
        while True:
            value = condition()
            if value:
                return value
            left = end - time.monotonic()
            if left <= 0:
                raise AssertionError(complaint())
            changed.wait(min(left, 0.5))


class Process:
    """A process in a network, whose standard output is collected line by line."""

    def __init__(self, network, command, env=None, label=None):
        self.label = label or pathlib.Path(command[0]).name
        self.lines = []
        self.errors = []
        self._changed = threading.Condition()
        self.started = time.monotonic()
        self._child = network.start(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    env={**os.environ, **(env or {})})
        self._threads = [threading.Thread(target=self._collect, args=arguments, daemon=True)
                         for arguments in ((self._child.stdout, self.lines), (self._child.stderr, self.errors))]
        for thread in self._threads:
            thread.start()

    @property
    def pid(self):
        return self._child.pid

    def _collect(self, stream, sink):
        for raw in stream:
            with self._changed:
                sink.append(raw.decode(errors="backslashreplace").rstrip("\n"))
                self._changed.notify_all()
        with self._changed:
            self._changed.notify_all()

    def story(self):
        """Everything it said, for the message of a failed test."""
        lines = [f"  {line}" for line in self.lines[-60:]] + [f"  (error) {line}" for line in self.errors[-20:]]
        return f"{self.label} (status {self._child.poll()}) said:\n" + "\n".join(lines)

    def wait_for(self, what, condition, limit=None):
        """Waits until condition() is true and returns its value; it is asked again after every line."""
        return wait_until(self._changed, condition, limit, lambda: f"waited in vain for {what}\n{self.story()}")

    def wait_for_line(self, pattern, limit=None, start=0):
        """The first line from number start on in which the pattern is found."""
        return self.wait_for(f"a line with {pattern!r}",
                             lambda: next((line for line in self.lines[start:] if re.search(pattern, line)), None), limit)

    def write(self, line):
        """A line of standard input."""
        self._child.stdin.write(line.encode() + b"\n")
        self._child.stdin.flush()

    def signal(self, number):
        self._child.send_signal(number)

    def kill(self):
        self._child.kill()
        self._child.wait()

    def wait(self, limit=None):
        """Its exit status, once it ended by itself and all that it said has been read."""
        try:
            status = self._child.wait(DEFAULT_LIMIT if limit is None else limit)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"still running\n{self.story()}") from None
        for thread in self._threads:
            thread.join(5)
        return status

    def close(self):
        if self._child.poll() is None:
            self._child.kill()
        self._child.wait()
        for thread in self._threads:
            thread.join(5)
        for stream in (self._child.stdin, self._child.stdout, self._child.stderr):
            try:
                stream.close()
            except OSError:
                pass


class Peer(Process):
    """A scriptable application of another maker; peers/README.md lists its commands."""

    def __init__(self, network, program, *arguments, env=None):
        super().__init__(network, [str(program), *arguments], env)
        self.guids = {}

    def send(self, command):
        """Sends one command and does not wait for its answer: for what runs until the peer is ended."""
        self._child.stdin.write(command.encode() + b"\n")
        self._child.stdin.flush()

    def do(self, command, limit=None):
        """Sends one command, waits for its answer and returns the lines of facts before it."""
        start = len(self.lines)
        if command.split()[0] in ("matched", "received", "others") and " timeout=" not in command:
            command += f" timeout={10 * SLOWNESS:g}"
        self.send(command)
        answer = self.wait_for_line(r"^(ok|error .*)$", limit, start)
        facts = self.lines[start:self.lines.index(answer, start)]
        if answer != "ok":
            raise AssertionError(f"{command!r}: {answer}\n{self.story()}")
        for fact in facts:
            found = re.fullmatch(r"(participant|writer|reader) (.*) guid=\"(.*)\"", fact)
            if found:
                self.guids["participant" if found[1] == "participant" else found[2]] = found[3]
        return facts

    def quit(self, limit=None):
        """A clean end: everything is deleted and said farewell to."""
        self._child.stdin.close()
        return self.wait(limit)


EVENT = re.compile(
    r"(?P<time>\d\d:\d\d:\d\d|xx:xx:xx)"
    r" (?P<event>New|Updated|Deleted) (?P<kind>writer|reader) {3,}"
    r"from (?P<address>[^ :]+|unknown ip) *:"
    r" topic=\"(?P<topic>.*?)\" type=\"(?P<type>.*?)\""
    r"(?: guid=\"(?P<guid>0x[0-9A-F]{8},0x[0-9A-F]{8},0x[0-9A-F]{8}:0x[0-9A-F]{8})\")?"
    r"(?: name=\"(?P<name>.*?)\")?"
    r"(?: DP partition=\"(?P<dp_partition>.*?)\")?"
    r"(?: (?P<side>[SP])  partition=\"(?P<partition>.*?)\")?")


class Event:
    """A discovery line, taken apart. A field that is not in the line is None."""

    def __init__(self, line, found):
        self.line = line
        self.what = f"{found['event']} {found['kind']}"
        for field, value in found.groupdict().items():
            setattr(self, field, value)
        # Event and kind are padded to 18 columns and the address to 16, so that columns line up.
        if line[8:26] != f" {self.what}".ljust(18) or line[26:48] != f" from {self.address:16}":
            raise AssertionError(f"columns out of line: {line!r}")

    def __repr__(self):
        return self.line

    def __eq__(self, other):
        return self.line == other.line


_GUID = "0x[0-9A-F]{8},0x[0-9A-F]{8},0x[0-9A-F]{8}:0x[0-9A-F]{8}"
SAMPLE = re.compile(
    r"(?P<time>\d\d:\d\d:\d\d|xx:xx:xx)"
    r" (?P<what>New data|Modified instance|Disposed instance|No writers) +"
    r"from (?P<address>[^ :]+|unknown ip) *:"
    r" topic=\"(?P<topic>.*?)\" type=\"(?P<type>.*?)\""
    rf"(?: key=\"(?P<key>(?:[0-9a-f]{{8}}\.){{3}}[0-9a-f]{{8}})\" guid=\"(?P<guid>{_GUID})\")?"
    r"(?: flags=\"(?P<flags>[LPIR]+)\")?"
    rf"(?: virtual_guid=\"(?P<virtual_guid>{_GUID})\")?"
    rf"(?: related_virtual_guid=\"(?P<related_guid>{_GUID})\")?"
    r"(?: virtual_sn=\((?P<high>-?\d+), (?P<low>\d+)\))?"
    r"(?: related_virtual_sn=\((?P<related_high>-?\d+), (?P<related_low>\d+)\))?"
    r"(?: name=\"(?P<name>.*?)\")?"
    r"(?: DP partition=\"(?P<dp_partition>.*?)\")?"
    r"(?: S partition=\"(?P<partition>.*?)\")?")


class Sample:
    """A line of user data, taken apart. A field that is not in the line is None."""

    def __init__(self, line, found):
        self.line = line
        for field, value in found.groupdict().items():
            setattr(self, field, value)
        self.number = None if self.low is None else (int(self.high) << 32) + int(self.low)
        if line[8:26] != f" {self.what:17}" or line[26:48] != f" from {self.address:16}":
            raise AssertionError(f"columns out of line: {line!r}")

    @property
    def id(self):
        """The key of the instance, where its hash is a 32-bit number; the line shows words as they lie in memory."""
        return int.from_bytes(int(self.key[:8], 16).to_bytes(4, sys.byteorder), "big")

    def __repr__(self):
        return self.line


class Spy(Process):
    """The real tool."""

    LISTENING = "ferret is listening for data, press CTRL+C to stop it."

    def __init__(self, network, *arguments, mode="DISC", env=None, listening=True, prefix=()):
        """prefix: a command that runs the tool, with its arguments."""
        command = [*prefix, str(options.tool), *(["-mode", mode] if mode else []), *arguments]
        super().__init__(network, command, env, label="ferret")
        if listening:
            self.wait_for_line(f"^{re.escape(self.LISTENING)}$")
            self.listening_after = time.monotonic() - self.started

    @property
    def events(self):
        result = []
        for line in list(self.lines):
            found = EVENT.fullmatch(line)
            if found:
                result.append(Event(line, found))
            elif re.search(r" (writer|reader) .* from ", line):
                raise AssertionError(f"not the form of a discovery line: {line!r}")
        return result

    def samples(self, **fields):
        """The lines of user data so far whose fields have these values."""
        known = self.__dict__.setdefault("_samples", [])
        for at in range(self.__dict__.setdefault("_looked_at", 0), len(self.lines)):
            line = self.lines[at]
            found = SAMPLE.fullmatch(line)
            if found:
                known.append(Sample(line, found))
            elif re.search(r" (New data|instance|No writers) +from ", line):
                raise AssertionError(f"not the form of a sample's line: {line!r}")
            self._looked_at = at + 1
        return [sample for sample in known if all(getattr(sample, field) == value for field, value in fields.items())]

    def wait_for_samples(self, count, limit=None, **fields):
        """Waits for that many such lines; returns all of them."""
        return self.wait_for(f"{count} samples with {fields}",
                             lambda: len(self.samples(**fields)) >= count and self.samples(**fields), limit)

    def having(self, what=None, **fields):
        """The events so far of this kind ("New writer") whose fields have these values."""
        return [event for event in self.events if (what is None or event.what == what) and
                all(getattr(event, field) == value for field, value in fields.items())]

    def wait_for_event(self, what, limit=None, count=1, **fields):
        """Waits for that many such events; returns the last."""
        return self.wait_for(f"{count} x {what} with {fields}",
                             lambda: len(self.having(what, **fields)) >= count and self.having(what, **fields)[-1], limit)

    def interrupt(self, limit=None):
        """Ends it as a user does; returns the exit status and how long it took, by a stopwatch."""
        watch = Stopwatch()
        end_by_interrupt(self._child, limit)
        return self.wait(), watch.seconds()

    def statistics(self):
        """The numbers of writers and readers that it counted; for when it ended."""
        text = "\n".join(self.lines)
        found = re.search(r"\n\n\n---- Statistics ----\nDiscovered (\d+) DataWriters and (\d+) DataReaders\n", "\n" + text)
        if not found:
            raise AssertionError(f"no statistics\n{self.story()}")
        return int(found[1]), int(found[2])


    def topic_statistics(self):
        """Per topic and type: numbers of samples with data, disposes and losses of all writers; for when it ended."""
        rows = [re.fullmatch(r"\t(\d+), (\d+), (\d+) \t\(Topic=\"(.*)\"  Type=\"(.*)\"\)", line) for line in self.lines]
        return {(row[4], row[5]): (int(row[1]), int(row[2]), int(row[3])) for row in rows if row}


@functools.lru_cache(None)
def release_of(program):
    """The version of the library below a peer, as numbers; (0,) where there is no such peer."""
    if program is None:
        return (0,)
    told = subprocess.run([program, "release"], stdin=subprocess.DEVNULL, capture_output=True, text=True).stdout
    found = re.search(r"^release .* ([\d.]+)$", told, re.MULTILINE)
    if not found:
        raise AssertionError(f"{program} does not tell its release: {told}")
    return tuple(int(word) for word in found[1].split("."))


class InteropTest(unittest.TestCase):
    """A test with a network of its own, in which everything it started is ended when it is over."""

    def setUp(self):
        self.network = self.new_network()
        self.network.route_multicast()

    def new_network(self, **settings):
        network = Network(**settings)
        self.addCleanup(network.close)
        return network

    def keep(self, process):
        self.addCleanup(process.close)
        return process

    def spy(self, *arguments, network=None, **settings):
        return self.keep(Spy(network or self.network, *arguments, **settings))

    def cyclone(self, network=None, lease=None, tag=None, transport="udp", peers=(), multicast="true", extra="",
                changed=False):
        """changed: another release of the application, some of whose types have changed."""
        if options.peer_cyclone is None:
            self.skipTest("built without Cyclone DDS")
        program = options.peer_cyclone.with_name("peer_cyclone_changed") if changed else options.peer_cyclone
        config = f"<Transport>{transport}</Transport><AllowMulticast>{multicast}</AllowMulticast>"
        discovery = (f"<LeaseDuration>{lease}s</LeaseDuration>" if lease else "") + \
            (f"<Tag>{tag}</Tag>" if tag else "") + "<ParticipantIndex>auto</ParticipantIndex>" + \
            ("<Peers>" + "".join(f'<Peer Address="{peer}"/>' for peer in peers) + "</Peers>" if peers else "")
        uri = f"<CycloneDDS><Domain><General>{config}</General><Discovery>{discovery}</Discovery>{extra}</Domain></CycloneDDS>"
        return self.keep(Peer(network or self.network, program, env={"CYCLONEDDS_URI": uri}))

    def fastdds(self, network=None):
        if options.peer_fastdds is None:
            self.skipTest("built without Fast DDS")
        return self.keep(Peer(network or self.network, options.peer_fastdds))

    def ros(self, network=None):
        """A publisher of ROS 2 messages on Fast DDS; see peers/peer_ros.cpp."""
        if options.peer_ros is None:
            self.skipTest("built without Fast DDS")
        return self.keep(Peer(network or self.network, options.peer_ros))

    def dynamic(self, *arguments, network=None):
        """A publisher of types that Fast DDS announces; see peers/peer_dynamic.cpp."""
        if options.peer_dynamic is None:
            self.skipTest("built without Fast DDS")
        return self.keep(Peer(network or self.network, options.peer_dynamic, *arguments))

    def ddsperf(self, *arguments, network=None):
        if options.ddsperf is None:
            self.skipTest("ddsperf is not installed")
        return self.keep(Process(network or self.network, [str(options.ddsperf), *arguments],
                                 {"CYCLONEDDS_URI": "<Discovery><LeaseDuration>3s</LeaseDuration></Discovery>"}))

    def assert_nothing_else(self, spy, *guids):
        """Every event is about one of these endpoints: nothing else exists, least of all anything of the spy's."""
        strangers = [event for event in spy.events if event.guid not in guids]
        self.assertEqual(strangers, [], spy.story())

    def end(self, spy):
        """Interrupts the spy; it has to end in time and with its status for success."""
        status, duration = spy.interrupt()
        self.assertEqual(status, 1, spy.story())
        self.assertLess(duration, 1.5 * SLOWNESS, spy.story())
        self.assertEqual(spy.errors, [], spy.story())


class Options:
    tool = None
    peer_cyclone = None
    peer_fastdds = None
    peer_ros = None
    peer_dynamic = None
    ddsperf = None


options = Options()


def _enter_namespaces():
    """Starts this program again as the first process of a new process namespace."""
    command = ["unshare", *([] if os.geteuid() == 0 else ["--map-root-user"]), "--net", "--pid", "--fork", "--kill-child"]
    probe = subprocess.run([*command, "true"], stderr=subprocess.PIPE, text=True)
    if probe.returncode != 0:
        sys.exit(f"cannot make private namespaces ({probe.stderr.strip()}); root or unprivileged user namespaces are needed")
    # A /proc that fits the process ids: the leak sanitizer looks its process up there. Containers may refuse it.
    if subprocess.run([*command, "--mount-proc", "true"], stderr=subprocess.DEVNULL).returncode == 0:
        command.append("--mount-proc")
    else:
        os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
    os.execvp("unshare", [*command, sys.executable, *sys.argv, INSIDE])


def main():
    """Runs the tests of the calling file: FILE --tool PATH [--peer-cyclone PATH] [--peer-fastdds PATH] [--peer-ros PATH]
    [--peer-dynamic PATH] [--ddsperf PATH] [unittest's own arguments, for example the name of one test]."""
    if INSIDE not in sys.argv:
        _enter_namespaces()
    sys.argv.remove(INSIDE)
    signal.signal(signal.SIGHUP, signal.SIG_DFL)  # under nohup it is ignored, and everything started would inherit that
    for field in ("tool", "peer_cyclone", "peer_fastdds", "peer_ros", "peer_dynamic", "ddsperf"):
        flag = "--" + field.replace("_", "-")
        if flag in sys.argv:
            at = sys.argv.index(flag)
            setattr(options, field, pathlib.Path(sys.argv[at + 1]).resolve())
            del sys.argv[at:at + 2]
    if options.tool is None or not os.access(options.tool, os.X_OK):
        sys.exit(f"no program at {options.tool}; use --tool PATH")
    unittest.main(module="__main__", verbosity=2)
