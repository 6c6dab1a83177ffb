"""What the fault tests are made of: the tool under attack, applications made of forged packets, the healthy applications
that must not suffer, and bounds.

A test file ends with faults.main(). --long makes storms longer and windows wider; without it every test is a few seconds.
INTEROP_SLOWNESS stretches limits of time; limits of memory and traffic are what they are.
"""

import subprocess
import sys
import threading
import time

from basics import LONG, LONG_FLAG, METATRAFFIC_PORT, MIB, USER_PORT, harness, measure_for, short_or_long, wait_until
import forge
from forged import Forged
from tool import PROTOCOL_THREAD, RawTool, Tool

BUDGET = 256 * MIB  # of the process, as the documents tell
BUDGET_SLACK = 1.1
HEALTHY_RATE = 100


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

    def breaks(self, line):
        """The test fails with this line when it is over."""
        self.__dict__.setdefault("_broken", []).append(line)

    def bound(self, what, measured, limit, unit, digits=0):
        """Says what was measured; the test fails where it is more than it may be."""
        line = f"{what}: {measured:.{digits}f} {unit}, at most {limit:.{digits}f}"
        print(f"\n    {line}", end="", file=sys.stderr, flush=True)
        if measured > limit:
            self.breaks(line)

    def at_least(self, what, measured, limit, unit, digits=0):
        line = f"{what}: {measured:.{digits}f} {unit}, at least {limit:.{digits}f}"
        print(f"\n    {line}", end="", file=sys.stderr, flush=True)
        if measured < limit:
            self.breaks(line)

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
            self.breaks(f"a new application is not discovered within {limit:g} s")
        self.bound("discovery of a new application", time.monotonic() - begin, limit * harness.SLOWNESS + 0.5, "s", 2)
        peer.close()

    def cost(self, tool, send, thread=PROTOCOL_THREAD):
        """Processor seconds of a thread for what send() sends."""
        tool.wait_at_rest()
        before = tool.processor_time(thread)
        send()
        tool.wait_at_rest(60)
        return tool.processor_time(thread) - before


def main():
    """FILE --tool PATH [--peer-cyclone PATH] [--peer-fastdds PATH] [--long] [arguments of unittest]"""
    if harness.INSIDE in sys.argv and LONG:
        sys.argv.remove(LONG_FLAG)
    harness.main()
