#!/usr/bin/env python3
"""The run ends when it should, with its statistics and its status."""

import os
import signal
import subprocess
import time

import harness


class Endings(harness.InteropTest):
    def test_interrupt_in_an_empty_domain(self):
        spy = self.spy()
        self.end(spy)
        self.assertEqual(spy.statistics(), (0, 0))
        at = spy.lines.index("---- Statistics ----")
        self.assertEqual(spy.lines[at - 2:], ["", "", "---- Statistics ----", "Discovered 0 DataWriters and 0 DataReaders",
                                              "", ""])

    def test_interrupt_while_much_happens(self):
        peer, spy = self.cyclone(), self.spy()
        peer.do("participant")
        peer.do("writer w{i} topic=T{i} count=100")
        spy.wait_for("a line", lambda: spy.events)
        self.end(spy)
        # Lines and statistics tell the same, however far it came.
        self.assertEqual(spy.statistics(), (len(spy.having("New writer")), 0))

    def test_interrupted_at_once(self):
        spy = self.spy(listening=False)
        spy.wait_for_line("listening")
        spy.signal(signal.SIGINT)
        self.assertIn(spy.interrupt(5 * harness.SLOWNESS)[0], (1, -signal.SIGINT))

    def test_timeout(self):
        """Whole seconds are compared, and the difference has to exceed the limit: 2 means 2 to 3 seconds and a turn."""
        peer = self.fastdds()
        peer.do("participant")
        peer.do("writer w topic=T")
        watch = harness.Stopwatch()
        spy = self.spy("-timeout", "2")
        self.assertEqual(spy.wait(), 1, spy.story())
        self.assertGreater(time.monotonic() - spy.started, 2)
        self.assertLess(watch.seconds(), 3 + 5 * harness.SLOWNESS)
        self.assertEqual(spy.statistics(), (1, 0))
        self.assertEqual(spy.errors, [])

    def test_a_thread_that_cannot_be_had(self):
        """Room for one stack, or for none, beside the program: then it says so and ends as after any failed start."""
        megabyte = 1 << 20
        for stacks in (0, 1):
            limits = ["prlimit", f"--stack={512 * megabyte}", f"--as={(300 + 512 * stacks) * megabyte}"]
            if subprocess.run([*limits, str(harness.options.tool), "-help"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode != 0:
                self.skipTest("this build needs more address space than it could be denied")
            peer = self.cyclone()
            peer.do("participant")
            peer.do("writer w topic=T")
            peer.do("write w")
            spy = self.spy(mode=None, listening=False, prefix=limits)
            self.assertEqual(spy.wait(), 0, spy.story())
            self.assertIn("cannot start a thread", "\n".join(spy.errors), spy.story())

    def shell(self, script):
        """A script in which "$0" is the tool."""
        return self.keep(harness.Process(self.network, ["sh", "-c", script, str(harness.options.tool)]))

    def test_the_reader_of_the_output_has_gone(self):
        """Also where the signal that tells of it was ignored by the process that started the spy."""
        spy = self.shell("""{ trap "" PIPE; "$0" -mode DISC -timeout 20; echo "ended $?" >&2; } | { head -n 4; echo read >&2; }""")
        spy.wait_for("the end of the reader", lambda: "read" in spy.errors)
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w{i} topic=T{i} count=10")
        spy.wait_for("the end of the spy", lambda: f"ended {128 + signal.SIGPIPE}" in spy.errors)

    def target(self, process, descriptor):
        try:
            return os.readlink(f"/proc/{process.pid}/fd/{descriptor}")
        except FileNotFoundError:
            return None

    def test_no_output_at_all(self):
        """The place of a closed standard stream is not taken by a socket, into which lines would go."""
        if os.readlink("/proc/self") != str(os.getpid()):
            self.skipTest("/proc shows another process namespace")
        spy = self.shell("""exec "$0" -mode DISC -timeout 5 >&- <&-""")
        spy.wait_for("streams that lead nowhere",
                     lambda: [self.target(spy, number) for number in (0, 1)] == ["/dev/null"] * 2)
        self.assertEqual(spy.wait(2 * harness.DEFAULT_LIMIT), 1)
        self.assertEqual(spy.errors, [])

    def test_output_that_finds_no_room(self):
        spy = self.shell("""exec "$0" -mode DISC -timeout 1 > /dev/full""")
        self.assertEqual(spy.wait(), 1)
        self.assertEqual(spy.errors, ["ferret: output was lost: No space left on device"])

    def test_a_spy_that_leaves_says_farewell(self):
        """Its peers know at once, long before its lease of 6.5 s is over."""
        cyclone, fastdds, spy = self.cyclone(), self.fastdds(), self.spy()
        for peer in (cyclone, fastdds):
            peer.do("participant")
        for peer in (cyclone, fastdds):
            peer.do("others count=2")
        self.end(spy)
        for peer in (cyclone, fastdds):
            peer.do(f"others count=1 timeout={3 * harness.SLOWNESS}")

    def test_the_first_line_comes_soon(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        watch = harness.Stopwatch()
        spy = self.spy()
        spy.wait_for_event("New writer", guid=peer.guids["w"])
        first_line = watch.seconds()
        print(f"listening after {spy.listening_after:.3f} s, first line after {first_line:.3f} s", end=" ", flush=True)
        self.assertLess(first_line, 3 * harness.SLOWNESS)


if __name__ == "__main__":
    harness.main()
