#!/usr/bin/env python3
"""Faults of the world: networks that lose, double, disorder and end, clocks that step, processes that stop, systems that have
no room left. The tool goes on where it can and ends in order where it cannot, and says so in one clear line."""

import os
import pathlib
import resource
import signal
import struct
import subprocess
import sys
import tempfile
import time

import attacks
import faults
from cable import BadCable
from faults import MIB, harness, short_or_long

BACK = 20.0  # seconds within which data flows again after an interruption


class NetworkTest(faults.FaultTest):
    def hosts(self, make=None, reliable=True, **settings):
        """A tool here, a publisher there, and a bad cable between them."""
        there = self.new_network()
        self.cable = BadCable(self.network, there)
        self.addCleanup(self.cable.close)
        for name, value in settings.items():
            setattr(self.cable, name, value)
        self.tool_ = self.tool(*(["-useFirstPublicationQos"] if reliable else []), "-showSampleIdentity")
        self.publisher = (make or self.cyclone)(there)
        self.publisher.do("participant")
        self.publisher.do("writer w topic=Healthy type=keyed")
        self.publisher.do("matched w timeout=60", limit=70)

    def makers(self):
        return short_or_long([self.cyclone], [self.cyclone, self.fastdds])

    def wait_for_numbers(self, count, limit):
        faults.wait_until(f"{count} samples", lambda: len(self.tool_.numbers("Healthy")) >= count, limit)
        # Not one more than those.
        self.assertEqual(self.tool_.numbers("Healthy"), list(range(1, count + 1)), "in order, each once")

    def assert_flows_again(self, begin):
        count = len(self.tool_.numbers("Healthy"))
        faults.wait_until("20 more samples", lambda: len(self.tool_.numbers("Healthy")) >= count + 20, BACK * 2)
        self.bound("until samples came again", time.monotonic() - begin, BACK * harness.SLOWNESS, "s", 1)
        self.assertTrue(self.tool_.alive())


class Cables(NetworkTest):
    def check(self, **settings):
        """Every sample of a reliable writer, in order, each once."""
        count = short_or_long(300, 2000)
        for make in self.makers():
            with self.subTest(make.__name__, **settings):
                self.setUp()
                self.hosts(make, **settings)
                self.publisher.do(f"write w count={count} rate=200 size=1000", limit=60 * harness.SLOWNESS)
                self.wait_for_numbers(count, 60)
                print(f"\n    {settings}: {self.cable.passed} frames passed, {self.cable.lost} lost", end="", flush=True)
                self.assertEqual(self.tool_.interrupt()[0], 1, self.tool_.story())
                self.cable.close()

    def test_loss_of_1_percent(self):
        self.check(loss=0.01)

    def test_loss_of_10_percent(self):
        self.check(loss=0.1)

    def test_loss_of_30_percent(self):
        self.check(loss=0.3)

    def test_doubling(self):
        self.check(doubling=0.5)

    def test_disorder(self):
        self.check(disorder=0.3)

    def test_everything_at_once(self):
        self.check(loss=0.1, doubling=0.2, disorder=0.2)

    def test_large_samples(self):
        """Fragments get lost, doubled and disordered too."""
        self.hosts(loss=0.05, doubling=0.1, disorder=0.1)
        self.publisher.do("write w count=20 size=300000", limit=60 * harness.SLOWNESS)
        self.wait_for_numbers(20, 60)

    def test_best_effort_in_order(self):
        """Nothing is asked for again; what is printed is in order, each once, and what is lost is about what the cable lost."""
        self.hosts(reliable=False, loss=0.1, doubling=0.3)
        self.publisher.do("write w count=500 rate=500", limit=60 * harness.SLOWNESS)
        self.cable.loss = 0
        self.publisher.do("write w")
        faults.wait_until("the last sample", lambda: 501 in self.tool_.numbers("Healthy"))
        numbers = self.tool_.numbers("Healthy")
        self.assertEqual(numbers, sorted(set(numbers)))
        self.at_least("samples through a loss of 10 %", len(numbers), 400, "of 501")


class Interruptions(NetworkTest):
    def start_writing(self, make=None):
        self.hosts(make)
        self.publisher.send("write w count=1000000 rate=100")
        self.wait_for_flow(self.tool_)

    def test_separation(self):
        """The cable is cut, in the long form for longer than the lease of either side."""
        for make in self.makers():
            for seconds in short_or_long([3], [10, 20]):
                with self.subTest(make.__name__, seconds=seconds):
                    self.setUp()
                    self.start_writing(make)
                    self.cable.cut = True
                    faults.measure_for(seconds / 2)
                    self.tool_.wait_at_rest()
                    before = len(self.tool_.numbers("Healthy"))
                    faults.measure_for(seconds / 2)
                    self.assertEqual(len(self.tool_.numbers("Healthy")), before, "separated")
                    self.cable.cut = False
                    self.assert_flows_again(time.monotonic())
                    self.cable.close()

    def test_interface_down_and_up(self):
        for seconds in short_or_long([2], [2, 12]):
            with self.subTest(seconds=seconds):
                self.setUp()
                self.start_writing()
                self.network.ip("link", "set", "eth0", "down")
                faults.measure_for(seconds)
                self.network.ip("link", "set", "eth0", "up")
                self.network.route_multicast("eth0")
                self.assert_flows_again(time.monotonic())
                self.cable.close()

    def test_the_tool_stops_and_continues(self):
        """As by Ctrl+Z; in the long form for longer than its lease."""
        for seconds in short_or_long([3], [3, 15]):
            with self.subTest(seconds=seconds):
                self.setUp()
                self.start_writing()
                self.tool_.signal(signal.SIGSTOP)
                faults.measure_for(seconds)
                self.tool_.signal(signal.SIGCONT)
                self.assert_flows_again(time.monotonic())
                self.cable.close()

    def test_the_publisher_stops_and_continues(self):
        """In the long form for longer than its lease: it is gone, and comes again."""
        for seconds in short_or_long([3], [3, 15]):
            with self.subTest(seconds=seconds):
                self.setUp()
                self.start_writing()
                self.publisher.signal(signal.SIGSTOP)
                faults.measure_for(seconds)
                self.publisher.signal(signal.SIGCONT)
                self.assert_flows_again(time.monotonic())
                self.cable.close()


class Clocks(faults.FaultTest):
    def test_steps_of_the_wall_clock(self):
        """An hour ahead, a day back, before 1970, back again. Lines of samples whose writer does not tell the time show it,
        and nothing else follows it: no lease ends and no sample is late."""
        library = os.environ.get("FAULTS_CLOCK_STEP")
        if not library:
            self.skipTest("no library that steps the clock was built, or it cannot be preloaded into this build")
        with tempfile.NamedTemporaryFile() as step:
            step.write(struct.pack("=q", 0))
            step.flush()
            tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity",
                             env={"LD_PRELOAD": library, "CLOCK_STEP": step.name})
            self.healthy_publisher()
            self.wait_for_flow(tool)
            application, writer = self.matched_writer(tool, topic="Timeless")
            for count, seconds in enumerate((3600, -86400, -int(time.time()) - 3600, 1 << 33, 0), 1):
                os.pwrite(step.fileno(), struct.pack("=q", seconds), 0)
                begin = time.time() + seconds
                application.write(writer, attacks.NUMBER, port=faults.USER_PORT)
                line = tool.wait_for_samples(count, topic="Timeless")[-1].line
                if 0 <= begin < 1 << 31:
                    possible = range(int(begin), int(time.time() + seconds) + 2)
                    self.assertIn(line[:8], {time.strftime("%H:%M:%S", time.gmtime(second)) for second in possible})
                self.wait_for_flow(tool)
            self.assertEqual(tool.having("Deleted writer"), [])
            self.assert_no_loss(tool)
            self.assertEqual(tool.interrupt()[0], 1, tool.story())
            self.assertEqual(tool.errors, [])


class Resources(faults.FaultTest):
    """Nothing but a clear word and an end in order: with statistics, or with the status of a start that failed."""

    ENDS = (0, 1)

    def setUp(self):
        super().setUp()
        if harness.SLOWNESS > 1:
            self.skipTest("sanitizers need more than what is denied here")

    def run_limited(self, *prefix, arguments=("-timeout", "1"), tool=None):
        """Runs the tool beside a writer until it ends; returns what it said on standard error."""
        process = self.keep(harness.Process(self.network, [*prefix, str(tool or harness.options.tool), *arguments]))
        status = process.wait(30 * harness.SLOWNESS)
        self.assertIn(status, self.ENDS, process.story())
        if status == 0:
            self.assertTrue(process.errors or len(process.lines) > 4, f"it failed without a word\n{process.story()}")
        self.assertLessEqual(len(process.errors), 5, process.story())
        return status, process.errors

    def publisher(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w{i} topic=T{i} type=keyed count=3")
        peer.send("write w{i} over=3 count=1000000 rate=300")

    def test_few_descriptors(self):
        self.publisher()
        for number in short_or_long((4, 5, 6, 9, 14), range(4, 25)):  # 3 do not even load the program
            with self.subTest(number):
                self.run_limited("prlimit", f"--nofile={number}")

    def test_little_memory(self):
        """From what does not even load the program to what does."""
        self.publisher()
        for mebibytes in short_or_long((8, 16, 24, 32, 48, 100), range(6, 120, 4)):
            with self.subTest(mebibytes):
                if subprocess.run(["prlimit", f"--as={mebibytes * MIB}", str(harness.options.tool), "-help"],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode not in self.ENDS:
                    continue  # the loader or the run time library of the compiler had no room
                self.run_limited("prlimit", f"--as={mebibytes * MIB}")

    def test_no_more_memory_while_it_runs(self):
        """Nothing reads what a running tool prints, samples of many instances wait for that, and it gets no more memory.
        It waits on, and ends when it is told to; or it says that there is none, and ends."""
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        with tempfile.TemporaryFile("w+") as errors:
            tool = self.network.start([str(harness.options.tool), "-useFirstPublicationQos"], stdout=writing, stderr=errors)
            self.addCleanup(lambda: (tool.kill(), tool.wait()))
            os.close(writing)
            peer = self.cyclone()
            peer.do("participant")
            peer.do("writer w topic=T type=keyed")
            peer.do("matched w")
            pages = int(pathlib.Path(f"/proc/{tool.pid}/statm").read_text().split()[0])
            most = pages * resource.getpagesize() + 2 * MIB
            resource.prlimit(tool.pid, resource.RLIMIT_AS, (most, most))
            peer.send("write w count=200000 keys=2000")
            try:
                tool.wait(short_or_long(3, 10))
            except subprocess.TimeoutExpired:
                tool.send_signal(signal.SIGTERM)
            status = tool.wait(20 * harness.SLOWNESS)
            errors.seek(0)
            told = errors.read().splitlines()
        print(f"\n    status {status}, {told}", end="", file=sys.stderr, flush=True)
        self.assertEqual(len(told), 1)
        self.assertRegex(told[0], "no memory is left" if status == 0 else "output was lost")

    def test_no_threads(self):
        """The user may have no more processes. The system's administrator always may, so it is another user."""
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            tool = pathlib.Path(folder, "ferret")
            tool.write_bytes(harness.options.tool.read_bytes())
            tool.chmod(0o755)
            unprivileged = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
            if subprocess.run([*unprivileged, str(tool), "-help"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              check=False).returncode != 0:
                self.skipTest("no other user can be had here")
            self.publisher()
            for number in (1, 2, 3):
                with self.subTest(number):
                    status, errors = self.run_limited("prlimit", f"--nproc={number}", *unprivileged, tool=tool)
                    if status == 0:
                        self.assertTrue(any("thread" in line for line in errors), errors)

    def test_output_without_room(self):
        """/dev/full, and a file system that fills while it runs."""
        self.publisher()
        script = 'exec "$1" -timeout 2 > /dev/full'
        status, errors = self.run_limited("sh", "-c", script, "sh", arguments=())
        self.assertEqual((status, len(errors)), (1, 1), errors)
        self.assertIn("output was lost", errors[0])
        with tempfile.TemporaryDirectory() as folder:
            process = self.keep(harness.Process(self.network, [
                "sh", "-c", 'ulimit -f 8; trap "" XFSZ; exec "$0" -printSample -timeout 3 > "$1"', str(harness.options.tool),
                f"{folder}/lines"]))
            self.assertEqual(process.wait(30 * harness.SLOWNESS), 1, process.story())
            self.assertEqual(len(process.errors), 1, process.story())
            self.assertIn("output was lost", process.errors[0])

    def test_closed_streams(self):
        self.publisher()
        for closed in (">&-", "2>&-", "<&- >&- 2>&-"):
            with self.subTest(closed):
                status, _ = self.run_limited("sh", "-c", f'exec "$1" -timeout 1 {closed}', "sh", arguments=())
                self.assertEqual(status, 1)


if __name__ == "__main__":
    faults.main()
