"""What the fault tests are made of: the tool and what it costs, applications made of forged packets, and the healthy
applications that must not suffer.

A test file ends with faults.main(). --long makes storms longer and windows wider; without it every test is a few seconds.
INTEROP_SLOWNESS stretches limits of time; limits of memory and traffic are what they are.
"""

import itertools
import os
import pathlib
import re
import resource
import select
import socket
import struct
import subprocess
import sys
import threading
import time

import forge  # and with it the way to the modules of the interop tests

import harness
import packets

LONG_FLAG = "--long"
LONG = LONG_FLAG in sys.argv
MIB = 1 << 20
BUDGET = 256 * MIB       # of the process, as the documents tell
BUDGET_SLACK = 1.1
METATRAFFIC_PORT, USER_PORT = 7410, 7411  # of the first participant on a host, which the tool has to be
PROTOCOL_THREAD = "rtps"
HEALTHY_RATE = 100
# What an attack makes the tool take ends the tool, and not the machine.
ADDRESS_SPACE = 6 << 30


def short_or_long(short, long):
    return long if LONG else short


class Tool(harness.Spy):
    """The tool under attack, and what it takes of the machine."""

    def __init__(self, network, *arguments, mode=None, **settings):
        super().__init__(network, *arguments, mode=mode, **settings)
        self.limit_memory()
        if not self.owns_the_ports():
            raise AssertionError("start the tool before every other participant on its host")

    def limit_memory(self):
        if harness.SLOWNESS == 1:  # sanitizers reserve more than there is
            resource.prlimit(self.pid, resource.RLIMIT_AS, (ADDRESS_SPACE, ADDRESS_SPACE))

    def wait_for_text(self, text, limit=None, start=0):
        """Waits for a line that contains the text, among many lines: each is looked at once."""
        position = start

        def found():
            nonlocal position
            while position < len(self.lines):
                position += 1
                if text in self.lines[position - 1]:
                    return True
            return False

        self.wait_for(f"a line with {text!r}", found, limit)

    def numbers(self, topic):
        """The sequence numbers of a topic's samples so far. Each line is looked at once, however many there are."""
        looked_at, numbers = self.__dict__.setdefault("_numbers", {}).get(topic, (0, []))
        end = len(self.lines)
        name = f'topic="{topic}"'
        for line in self.lines[looked_at:end]:
            if name in line:
                found = re.search(r" virtual_sn=\(0, (\d+)\)", line)
                if found:
                    numbers.append(int(found[1]))
        self._numbers[topic] = end, numbers
        return numbers

    def _proc(self, name):
        try:
            return pathlib.Path(f"/proc/{self.pid}/{name}").read_text()
        except (FileNotFoundError, ProcessLookupError):
            raise AssertionError(f"the tool has ended\n{self.story()}") from None

    def story(self):
        """The end of what it said; a storm has many lines, and long ones."""
        said = [f"  {line[:160]}" for line in self.lines[-8:]] + [f"  (error) {line[:160]}" for line in self.errors[-4:]]
        return f"{self.label} (status {self._child.poll()}) said at last:\n" + "\n".join(said)

    def alive(self):
        return self._child.poll() is None

    def _status(self, field):
        for line in self._proc("status").splitlines():
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
        raise AssertionError(f"the tool has ended\n{self.story()}")

    def memory(self):
        """Resident bytes."""
        return self._status("VmRSS")

    def peak(self):
        """The most resident bytes so far."""
        return self._status("VmHWM")

    def threads(self):
        """Name -> (its directory below task/), of one thread of each name."""
        found = {}
        if not self.alive():
            raise AssertionError(f"the tool has ended\n{self.story()}")
        for entry in os.listdir(f"/proc/{self.pid}/task"):
            try:
                found[self._proc(f"task/{entry}/comm").strip()] = entry
            except AssertionError:
                continue  # a thread that ended meanwhile
        return found

    def processor_time(self, thread=None):
        """Seconds that one thread or all of them ran so far."""
        if thread is not None:
            return int(self._proc(f"task/{self.threads()[thread]}/schedstat").split()[0]) / 1e9
        return sum(int(self._proc(f"task/{entry}/schedstat").split()[0])
                   for entry in os.listdir(f"/proc/{self.pid}/task")) / 1e9

    def _sockets(self):
        """The lines that /proc has of the UDP sockets at the known ports."""
        lines = [line.split() for line in self._proc("net/udp").splitlines()[1:]]
        return [fields for fields in lines if int(fields[1].split(":")[1], 16) in (METATRAFFIC_PORT, USER_PORT)]

    def owns_the_ports(self):
        own = {os.readlink(f"/proc/{self.pid}/fd/{number}") for number in os.listdir(f"/proc/{self.pid}/fd")}
        return len(self._sockets()) == 2 and all(f"socket:[{fields[9]}]" in own for fields in self._sockets())

    def queued(self):
        """Bytes that wait in its sockets."""
        return sum(int(fields[4].split(":")[1], 16) for fields in self._sockets())

    def is_at_rest(self):
        """It has read all that was sent to it, and its protocol thread waits for more."""
        if self.queued() > 0:
            return False
        state = self._proc(f"task/{self.threads()[PROTOCOL_THREAD]}/stat").rpartition(")")[2].split()[0]
        return state == "S" and self.queued() == 0

    def wait_at_rest(self, limit=30.0):
        """Waits until everything sent to it so far is dealt with; returns how long that took."""
        begin = time.monotonic()
        calm = 0
        while calm < 3:  # asleep three times in a row: no lock and no timer that happened to be waited for
            calm = calm + 1 if self.is_at_rest() else 0
            if time.monotonic() > begin + limit * harness.SLOWNESS:
                raise AssertionError(f"the tool is still busy after {limit:g} s with what it was sent")
            time.sleep(0.003)
        return time.monotonic() - begin

    def wait_for_room(self, bytes_waiting=64 * 1024, limit=60.0):
        """Waits until a storm can go on without being lost at the tool's socket."""
        end = time.monotonic() + limit * harness.SLOWNESS
        while self.queued() > bytes_waiting:
            if time.monotonic() > end:
                raise AssertionError(f"the tool did not read what it was sent for {limit:g} s")
            time.sleep(0.001)


class RawTool(Tool):
    """A tool whose output is the test's own business."""

    def __init__(self, child):
        self._child = child
        self.label, self.lines, self.errors = "ferret", [], []
        self.limit_memory()
        wait_until("its sockets", lambda: PROTOCOL_THREAD in self.threads() and self.owns_the_ports())

    def close(self):
        if self._child.poll() is None:
            self._child.kill()
        self._child.wait()


class Forged:
    """An application that consists of the packets a test sends in its name. What is sent to its address is counted, and its
    writers send again what the tool asks for: an attack does not depend on luck."""

    _numbers = itertools.count(1)

    def __init__(self, network, address="127.0.0.1", target="127.0.0.1", vendor=forge.VENDOR, prefix=None,
                 builtin=forge.BUILTIN_ENDPOINTS, obliging=True):
        """target: where the tool is. obliging: acknowledges what it is sent, as a healthy application does."""
        self.target = target
        self.prefix = prefix or bytes(vendor) + b"fault." + struct.pack(">I", next(Forged._numbers))
        self.vendor = vendor
        self.builtin = builtin
        self.obliging = obliging
        self.address = address
        self._socket = network.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind((address, 0))
        self.port = self._socket.getsockname()[1]
        self.datagrams = self.bytes = 0
        self.sent_datagrams = self.sent_bytes = 0
        self.acknowledged = {}  # writer -> the base of the last ACKNACK
        self.subscribed = set()  # topics of the readers that the tool told of
        self._written = {}      # writer -> [submessages], the first has number 1
        self._announcements = 0
        self._counts = itertools.count(1)
        self._changed = threading.Condition()
        self._closed = False
        self._thread = threading.Thread(target=self._hear, daemon=True)
        self._thread.start()

    def close(self):
        self._closed = True
        self._thread.join()
        self._socket.close()

    def locator(self):
        return forge.locator(self.address, self.port)

    def send(self, *submessages, port=METATRAFFIC_PORT, prefix=None):
        datagram = forge.message(prefix or self.prefix, *submessages, vendor=self.vendor)
        self._socket.sendto(datagram, (self.target, port))
        self.sent_datagrams += 1
        self.sent_bytes += len(datagram)
        return len(datagram)

    def next_count(self):
        return next(self._counts)

    def announce(self, metatraffic=None, prefix=None, **changes):
        """Announces this participant, or another in whose name it speaks."""
        self._announcements += 1
        payload = forge.participant(prefix or self.prefix, [self.locator()] if metatraffic is None else metatraffic,
                                    **{"vendor": self.vendor, "builtin": self.builtin, **changes})
        return self.send(forge.data(packets.PARTICIPANTS, self._announcements, payload), prefix=prefix)

    def leave(self, prefix=None):
        """Says farewell, in its own name, for itself or for another participant."""
        self._announcements += 1
        key = forge.listed([(packets.PARTICIPANT_GUID, forge.guid(prefix or self.prefix, forge.PARTICIPANT))])
        self.send(forge.data(packets.PARTICIPANTS, self._announcements, key, key=True,
                             inline=[forge.status(forge.DISPOSED | forge.UNREGISTERED)]))

    def write(self, writer, payload, port=METATRAFFIC_PORT, **settings):
        """The next sample of a writer, in a datagram of its own."""
        self.write_all(writer, [payload], port, **settings)

    def write_all(self, writer, payloads, port=METATRAFFIC_PORT, tool=None, **settings):
        """The next samples of a writer, in as few datagrams as hold them; with a tool never more than it can take in."""
        written = self._written.setdefault(writer, [])
        first = len(written) + 1
        for payload in payloads:
            written.append(forge.data(writer, len(written) + 1, payload, **settings))
        self._send_from(writer, first, port, tool)

    def _send_from(self, writer, first, port, tool=None, most=None):
        batch, size, sent = [], 0, 0
        for one in self._written[writer][first - 1:]:
            if batch and size + len(one) > 60000:
                self.send(*batch, port=port)
                batch, size, sent = [], 0, sent + 1
                if most is not None and sent >= most:
                    return
                if tool is not None:
                    tool.wait_for_room()
            batch.append(one)
            size += len(one)
        if batch:
            self.send(*batch, port=port)

    def wait_until_read(self, writer, port=METATRAFFIC_PORT, limit=30.0):
        """Waits until the tool acknowledged all that this reliable writer wrote, and sends again what it asks for."""
        last = len(self._written[writer])
        end = time.monotonic() + limit * harness.SLOWNESS
        while self.acknowledged.get(writer, 0) <= last:
            self.send(forge.heartbeat(writer, 1, last, self.next_count()), port=port)
            with self._changed:
                self._changed.wait_for(lambda: self.acknowledged.get(writer, 0) > last, 0.1)
                base = self.acknowledged.get(writer, 0)
            if 0 < base <= last:
                self._send_from(writer, base, port, most=4)
            if time.monotonic() > end:
                raise AssertionError(f"after {limit:g} s the tool acknowledged {max(base - 1, 0)} of {last} samples of a "
                                     "reliable writer")

    def wait_until_subscribed(self, topic, limit=15.0):
        """Waits until the tool has announced a reader of the topic to this application."""
        wait_until(f"a reader of topic {topic}", lambda: topic in self.subscribed, limit)

    def begin(self, writer, limit=15.0):
        """Waits until the tool's reliable reader answers a heartbeat of a writer that has written nothing."""
        self.acknowledged.pop(writer, None)

        def answered():
            self.send(forge.heartbeat(writer, 1, 0, self.next_count()), port=USER_PORT)
            with self._changed:
                return self._changed.wait_for(lambda: writer in self.acknowledged, 0.1)

        wait_until("an acknowledgement of a user writer", answered, limit)

    def publish(self, topic, type_name="fault::Type", entity=0x00000103, **settings):
        """Announces a writer; returns its entity id."""
        self.write(forge.PUBLICATIONS, forge.endpoint(self.prefix, entity, topic, type_name, **settings))
        return entity

    def _hear(self):
        while not self._closed:
            if not select.select([self._socket], [], [], 0.1)[0]:
                continue
            datagram = self._socket.recv(65536)
            with self._changed:
                self.datagrams += 1
                self.bytes += len(datagram)
                self._changed.notify_all()
            answers = [answer for one in forge.submessages(datagram) for answer in self._take(*one)]
            if answers and self.obliging and not self._closed:
                self.send(*answers)

    def _take(self, kind, flags, body):
        order = "<" if flags & 1 else ">"
        if kind == forge.ACKNACK:
            writer, = struct.unpack_from(">I", body, 4)
            high, low = struct.unpack_from(order + "iI", body, 8)
            with self._changed:
                self.acknowledged[writer] = (high << 32) + low
                self._changed.notify_all()
        elif kind == forge.DATA:
            announced = packets.Data(None, None, flags, body, False)
            if announced.writer == forge.SUBSCRIPTIONS and announced.parameters:
                self.subscribed.add(announced.parameters.text(packets.TOPIC))
        elif kind == forge.HEARTBEAT and not flags & 2:
            writer, = struct.unpack_from(">I", body, 4)
            high, low = struct.unpack_from(order + "iI", body, 16)
            # The next count, whatever thread asks: the tool takes only ones that grow.
            yield forge.acknack(forge.reader_of(writer), writer, (high << 32) + low + 1, (), self.next_count(), final=True)


class Subscriber(threading.Thread):
    """Another maker's reader, and when each of its samples came."""

    def __init__(self, peer, name):
        super().__init__(daemon=True)
        self.peer, self.name = peer, name
        self.received = []  # (when, how many so far)
        self._stop = threading.Event()

    def run(self):
        total = 0
        while not self._stop.is_set():
            try:
                facts = self.peer.do(f"received {self.name} count=1 timeout=1", limit=10)
                total += int(facts[-1].split()[-1])
                self.received.append((time.monotonic(), total))
            except (AssertionError, OSError, ValueError):
                continue  # nothing came for a second, or the test is over

    def stop(self):
        self._stop.set()

    def longest_below(self, rate, since, until=None):
        """The longest time, in seconds, over which it got fewer than this many samples a second."""
        until = until or time.monotonic()
        before = max((total for when, total in self.received if when < since), default=0)
        events = [(since, before), *(event for event in self.received if since <= event[0] <= until), (until, None)]
        longest = 0.0
        # From each sample on: as long as what came since is fewer than the rate promises.
        for first, (begin, counted) in enumerate(events[:-1]):
            for when, total in events[first + 1:]:
                longest = max(longest, when - begin)
                if total is None or total - counted >= rate * (when - begin):
                    break
        return longest


class FaultTest(harness.InteropTest):
    def tearDown(self):
        """All bounds of a test are measured before it fails, so that one run tells them all."""
        broken = self.__dict__.get("_broken")
        if broken:
            self.fail("bounds that do not hold:\n  " + "\n  ".join(broken))

    def tool(self, *arguments, network=None, **settings):
        return self.keep(Tool(network or self.network, *arguments, **settings))

    def raw_tool(self, output, *arguments):
        """Writes its lines to a file or descriptor."""
        return self.keep(RawTool(self.network.start([str(harness.options.tool), *arguments],
                                                    stdout=output, stderr=subprocess.DEVNULL)))

    def forged(self, network=None, **settings):
        return self.keep(Forged(network or self.network, **settings))

    def matched_writer(self, tool, reliable=True, entity=0x00000103, topic="Attacked", type_name="fault::Type", more=(),
                       **settings):
        """A forged application, and a writer of it that the tool reads. A reliable reader has begun at number 1."""
        application = self.forged(**settings)
        application.announce()
        application.publish(topic, type_name, entity, reliable=reliable, more=more)
        application.wait_until_read(forge.PUBLICATIONS)
        application.wait_until_subscribed(topic)
        if reliable:
            # A volatile reader begins with the first heartbeat.
            application.begin(entity)
        tool.wait_at_rest()
        return application, entity

    def bound(self, what, measured, limit, unit, digits=0):
        """Says what was measured; the test fails where it is more than it may be."""
        line = f"{what}: {measured:.{digits}f} {unit}, at most {limit:.{digits}f}"
        print(f"\n    {line}", end="", file=sys.stderr, flush=True)
        if measured > limit:
            self.__dict__.setdefault("_broken", []).append(line)

    def at_least(self, what, measured, limit, unit, digits=0):
        line = f"{what}: {measured:.{digits}f} {unit}, at least {limit:.{digits}f}"
        print(f"\n    {line}", end="", file=sys.stderr, flush=True)
        if measured < limit:
            self.__dict__.setdefault("_broken", []).append(line)

    def bound_memory(self, tool, before, budget=BUDGET, what="memory at its highest"):
        """What the tool took at most since it took `before`."""
        self.bound(what, (tool.peak() - before) / MIB, budget * BUDGET_SLACK / MIB, "MiB more than before")

    def healthy_publisher(self, name="w", topic="Healthy", size=0, rate=HEALTHY_RATE, others=1, **settings):
        """A reliable keep-all writer on Cyclone DDS, matched with so many readers, that writes until the test is over."""
        peer = self.cyclone(**settings)
        peer.do("participant")
        peer.do(f"writer {name} topic={topic} type=keyed")
        peer.do(f"matched {name} count={others}")
        peer.writing = f"write {name} count=1000000 rate={rate}" + (f" size={size}" if size else "")
        peer.send(peer.writing)
        return peer

    @staticmethod
    def write_on(publisher):
        """Starts a healthy publisher again whose write had to wait too long; True where it was so."""
        failed = publisher.lines[-1].startswith("error")
        if failed:
            publisher.send(publisher.writing)
        return failed

    def subscriber(self, topic="Healthy", name="r"):
        """Another reader than the tool's. Start it before the publisher."""
        peer = self.cyclone()
        peer.do("participant")
        peer.do(f"reader {name} topic={topic} type=keyed")
        subscriber = Subscriber(peer, name)
        self.addCleanup(subscriber.stop)
        return subscriber

    def wait_for_flow(self, tool, count=20, limit=10.0, topic="Healthy"):
        """Waits for so many more samples of the healthy publisher; needs -showSampleIdentity."""
        wanted = len(tool.numbers(topic)) + count
        try:
            wait_until(f"{count} more samples", lambda: len(tool.numbers(topic)) >= wanted, limit)
        except AssertionError as failure:
            raise AssertionError(f"{failure} of topic {topic}\n{tool.story()}") from None

    def assert_no_loss(self, tool, topic="Healthy"):
        """Needs -showSampleIdentity and a reliable reader."""
        numbers = tool.numbers(topic)
        missing = len(set(range(numbers[0], numbers[-1] + 1)) - set(numbers)) if numbers else 0
        self.bound("lost samples of the healthy publisher", missing, 0, f"of {len(numbers)}")

    def assert_discovers(self, tool, limit=5.0, network=None):
        """A new application is seen, whatever came before it."""
        topic = f"New{time.monotonic_ns()}"
        start = len(tool.lines)
        peer = self.cyclone(network)
        peer.do("participant")
        begin = time.monotonic()
        peer.do(f"writer w topic={topic} type=keyed transient_local")
        try:
            tool.wait_for_text(topic, limit * harness.SLOWNESS, start)
        except AssertionError:
            self.__dict__.setdefault("_broken", []).append(f"a new application is not discovered within {limit:g} s")
        self.bound("discovery of a new application", time.monotonic() - begin, limit * harness.SLOWNESS + 0.5, "s", 2)
        peer.close()

    def cost(self, tool, send, thread=PROTOCOL_THREAD):
        """Processor seconds of a thread for what send() sends."""
        tool.wait_at_rest()
        before = tool.processor_time(thread)
        send()
        tool.wait_at_rest(60)
        return tool.processor_time(thread) - before


def wait_until(what, condition, limit=10.0):
    """Waits for a condition that no process tells of."""
    end = time.monotonic() + limit * harness.SLOWNESS
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)


def measure_for(seconds):
    """A window in which something is counted."""
    time.sleep(seconds)


def main():
    """FILE --tool PATH [--peer-cyclone PATH] [--peer-fastdds PATH] [--long] [arguments of unittest]"""
    if harness.INSIDE in sys.argv and LONG:
        sys.argv.remove(LONG_FLAG)
    harness.main()
