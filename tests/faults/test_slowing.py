#!/usr/bin/env python3
"""The tool does not slow the applications that it watches, and does not leave them waiting when it ends or moves.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

import faults
import forge
import packets
from faults import short_or_long

SHARED_MEMORY = 16  # the kind of Fast DDS's shared memory locators


class Acknowledgements(faults.FaultTest):
    def written_per_second(self, size):
        """How fast ddsperf wrote beside the reliable readers that there are: the best of its seconds."""
        publisher = self.ddsperf("-D", str(short_or_long(4, 8)), "pub", "size", str(size))
        publisher.wait(30 * faults.harness.SLOWNESS)
        rates = [float(found[1]) * (1000 if found[2] else 1) for found in
                 (re.search(r"\d\.\d{3}\s+([\d.]+)(k?)/s", line) for line in publisher.lines) if found]
        self.assertTrue(rates, publisher.story())
        return max(rates)

    def compare(self, size, share):
        reference = self.ddsperf("sub")
        beside_another = self.written_per_second(size)
        reference.close()
        with tempfile.TemporaryFile() as output:
            tool = self.raw_tool(output, "-useFirstPublicationQos")
            beside_the_tool = self.written_per_second(size)
            tool.close()
        self.at_least(f"samples of {size} bytes a second, {beside_another:.0f} beside ddsperf sub", beside_the_tool,
                      share * beside_another, "samples/s")

    def test_large_samples(self):
        """A Cyclone DDS writer of samples of 64 KiB, whose window is small, beside the tool and beside ddsperf sub.
        Seen: a quarter of the rate: the tool acknowledges at most once a millisecond.
        Bound: 0.7 of the rate."""
        self.compare(65536, 0.7)

    def test_small_samples(self):
        """The same with samples of 1 KiB.
        Seen: 0.6 of the rate.
        Bound: 0.7 of the rate, which the tool's printing limits too."""
        self.compare(1024, 0.7)


class Stops(faults.FaultTest):
    LEASE = 6.5  # seconds that the tool announces

    def check(self, number):
        """A reliable keep-all writer, whose window is full within a second, waits for a reader that is there and does not answer."""
        subscriber = self.subscriber()
        with tempfile.TemporaryFile() as output:
            child = self.network.start([str(faults.harness.options.tool), "-useFirstPublicationQos"], stdout=output,
                                       stderr=subprocess.DEVNULL)
            self.addCleanup(lambda: (child.kill(), child.wait()))
            self.healthy_publisher(size=60000, rate=300, others=2)
            subscriber.start()
            faults.wait_until("samples at the other subscriber", lambda: subscriber.received and subscriber.received[-1][1] > 100)
            begin = time.monotonic()
            child.send_signal(number)
            faults.measure_for(short_or_long(10, 20))
            longest = subscriber.longest_below(faults.HEALTHY_RATE, begin)
            self.bound(f"another subscriber after {number.name}", longest, (self.LEASE + 1.5) * faults.harness.SLOWNESS, "s", 1)

    def test_killed(self):
        """The tool ends by SIGKILL, without a farewell.
        Seen: the writer waits for 6.5 s, as long as the tool's lease.
        Bound: the lease and 1.5 s."""
        self.check(signal.SIGKILL)

    def test_stopped(self):
        """The tool is stopped, as by Ctrl+Z or a debugger, and stays so.
        Seen and bound: the same; and once only."""
        self.check(signal.SIGSTOP)


class MessageSize(faults.FaultTest):
    COUNT = 20000

    def seconds_for(self, *arguments):
        """How long 20,000 samples of 100 bytes take from a reliable writer to the tool's lines."""
        with tempfile.TemporaryFile("w+b") as output:
            tool = self.raw_tool(output, "-useFirstPublicationQos", "-showSampleIdentity", *arguments)
            publisher = self.cyclone()
            publisher.do("participant")
            publisher.do("writer w topic=T type=keyed")
            publisher.do("matched w")
            begin = time.monotonic()
            publisher.send(f"write w count={self.COUNT} size=100")
            last = f"virtual_sn=(0, {self.COUNT})".encode()

            def tail():
                output.seek(0, 2)
                output.seek(max(0, output.tell() - 4096))
                return last in output.read()

            try:
                faults.wait_until("the last sample", tail, 20)
            except AssertionError:
                pass
            seconds = time.monotonic() - begin
            tool.close()
            publisher.close()
        return seconds

    def test_the_option_limits_messages_only(self):
        """20,000 reliable samples of 100 bytes with -msgMaxSize.
        Seen: 0.5 s without, 6 s at 9000, not done in 20 s at 1400: receive buffers get as small as messages.
        Bound: one second more than without."""
        without = self.seconds_for()
        for size in short_or_long((1400,), (9000, 1400, 576)):
            self.bound(f"-msgMaxSize {size}, without it {without:.1f} s", self.seconds_for("-msgMaxSize", str(size)),
                       without + 1 * faults.harness.SLOWNESS, "s", 1)


class NoRoute(faults.FaultTest):
    def test_a_writer_with_shared_memory_only(self):
        """A reliable writer whose endpoints announce only shared memory, in a participant that has a UDP address for
        discovery: Fast DDS 3 on its transports "P2P", and others.
        Seen: the tool announces a reliable reader and never acknowledges anything: the writer stalls.
        Bound: it acknowledges where the participant can be reached, or announces no reliable reader; and says so."""
        tap = packets.Tap(self.network)
        self.addCleanup(tap.close)
        tool = self.tool("-useFirstPublicationQos")
        shared = forge.locator("127.0.0.1", 7411, SHARED_MEMORY)
        application = self.forged()
        application.announce(default=[shared])
        writer = application.publish("Shared", more=[(forge.UNICAST, shared)])
        application.wait_until_read(forge.PUBLICATIONS)
        tool.wait_for_event("New writer", topic="Shared")
        for _ in range(short_or_long(20, 60)):
            application.send(forge.heartbeat(writer, 1, 0, application.next_count()), port=faults.USER_PORT)
            faults.measure_for(0.1)
        reliable = [datagram for datagram in tap.arrived("lo") for data in datagram.data()
                    if data.writer == packets.READERS and data.parameters and data.parameters.text(packets.TOPIC) == "Shared"
                    and data.parameters.integer(forge.RELIABILITY) == 2]
        if reliable:
            self.assertIn(writer, application.acknowledged, "a reliable reader that acknowledges nothing")
        self.assertTrue(any("Shared" in line for line in tool.errors), f"nothing on standard error\n{tool.story()}")


class Addresses(faults.FaultTest):
    def check(self, make, *arguments):
        here, there = self.new_network(), self.new_network()
        faults.harness.join_by_cable(here, there)
        tool = self.tool("-showSampleIdentity", *arguments, network=here)
        publisher = make(there)
        publisher.do("participant")
        publisher.do("writer w topic=Healthy type=keyed")
        publisher.do("matched w")
        publisher.send("write w count=1000000 rate=100")
        self.wait_for_flow(tool)
        here.ip("address", "delete", "10.77.0.1/24", "dev", "eth0")
        here.ip("address", "add", "10.77.0.101/24", "dev", "eth0")
        here.route_multicast("eth0")
        begin = time.monotonic()
        before = len(tool.numbers("Healthy"))
        try:
            self.wait_for_flow(tool, count=200, limit=20)
        except AssertionError:
            pass
        seconds = time.monotonic() - begin
        self.at_least("samples in the 20 s after", len(tool.numbers("Healthy")) - before, 200, "samples")
        self.bound("until 200 samples came", seconds, 15 * faults.harness.SLOWNESS, "s", 1)
        self.assertTrue(any("address" in line or "interface" in line for line in tool.errors),
                        f"nothing on standard error\n{tool.story()}")

    def test_our_own_address_changes(self):
        """The tool's host gets another address, as by DHCP.
        Seen: the other makers keep sending to the old one: from 100 lines a second to none, for good; nothing is said.
        Bound: data comes again within 15 s; a line on standard error."""
        for make, arguments in ((self.cyclone, ()), (self.fastdds, ("-useFirstPublicationQos",))):
            with self.subTest(make.__name__):
                self.check(make, *arguments)


class Farewells(faults.FaultTest):
    def check(self, end, *arguments):
        tap = packets.Tap(self.network)
        self.addCleanup(tap.close)
        with tempfile.TemporaryFile("w+") as errors:
            tool = end(tap, errors, *arguments)
            tool.wait(10)
            tap.wait_for("a farewell", lambda: tap.announcements(disposed=True))
            errors.seek(0)
            self.assertEqual(errors.read(), "")

    def start(self, tap, errors, output):
        child = self.network.start([str(faults.harness.options.tool)], stdout=output, stderr=errors)
        self.addCleanup(lambda: (child.kill(), child.wait()))
        tap.wait_for("announcements", lambda: len(tap.announcements()) >= 2)
        faults.wait_until("the handler of Ctrl+C", lambda: self.catches(child.pid, signal.SIGINT))
        return child

    @staticmethod
    def catches(pid, number):
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        return int(re.search(r"SigCgt:\s+(\w+)", status)[1], 16) >> (number - 1) & 1

    def test_signals(self):
        """SIGTERM and SIGHUP.
        Seen: it ends without farewell; with a reliable reader another subscriber of a keep-all writer gets nothing for
        6 s.
        Bound: a farewell, and the status of Ctrl+C."""
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            with self.subTest(number.name):
                self.setUp()

                def end(tap, errors, signal_number=number):
                    with tempfile.TemporaryFile() as output:
                        child = self.start(tap, errors, output)
                        # Its own line, after which it must be ready for all of them.
                        faults.wait_until("the line that it listens", lambda: b"listening" in os.pread(output.fileno(), 4096, 0))
                        child.send_signal(signal_number)
                        child.wait(10)
                    self.assertEqual(child.returncode, 1)
                    return child

                self.check(end)

    def test_standard_output_is_closed(self):
        """The program that reads its lines ends ("ferret | head").
        Seen: it ends without farewell.
        Bound: a farewell."""
        def end(tap, errors):
            reader = self.network.start(["sleep", "1000"], stdin=subprocess.PIPE)
            child = self.start(tap, errors, reader.stdin)
            reader.stdin.close()
            reader.kill()
            reader.wait()
            publisher = self.cyclone()
            publisher.do("participant")
            publisher.do("writer w topic=T")
            return child

        self.check(end)


if __name__ == "__main__":
    faults.main()
