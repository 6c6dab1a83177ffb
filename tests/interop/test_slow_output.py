#!/usr/bin/env python3
"""The run ends in time whatever standard output does: slow, standing still, or closed."""

import fcntl
import os
import pty
import re
import signal
import subprocess
import threading
import time

import harness

END_LIMIT = 1.5 * harness.SLOWNESS
TEXT_LIMIT = 3 * harness.SLOWNESS  # for which it waits for an output that takes nothing
FAREWELL_LIMIT = 3  # sooner than the lease ends of one that says none, and announced itself 2 s ago
STATISTICS = re.compile(rb"---- Statistics ----\r?\nDiscovered \d+ DataWriters and \d+ DataReaders\r?\n")
DROPPED = re.compile(rb"^(\d+) samples were not printed\r?$", re.MULTILINE)


class Output:
    """The other end of the tool's standard output, read at a limited rate, or not at all while it is stopped."""

    def __init__(self, terminal, rate):
        self.reading, self.writing = pty.openpty() if terminal else os.pipe()
        self.rate = rate
        self.text = bytearray()
        self.changed = threading.Condition()
        self.running = threading.Event()
        self.running.set()
        self.thread = threading.Thread(target=self._read, daemon=True)
        self.thread.start()

    def _read(self):
        while True:
            self.running.wait()
            begin = time.monotonic()
            try:
                chunk = os.read(self.reading, 4096)
            except OSError:  # a terminal whose last user has gone
                return
            if not chunk:
                return
            with self.changed:
                self.text += chunk
                self.changed.notify_all()
            if self.rate:
                time.sleep(max(0, len(chunk) / self.rate - (time.monotonic() - begin)))

    def wait_for(self, what, condition, limit=harness.DEFAULT_LIMIT):
        end = time.monotonic() + limit
        with self.changed:
            while not condition(self.text):
                if time.monotonic() > end:
                    raise AssertionError(f"waited in vain for {what}: {bytes(self.text[-400:])}")
                self.changed.wait(0.1)

    def whole_text(self):
        """What came until the tool closed it."""
        self.rate = None
        self.running.set()
        self.thread.join(10)
        return bytes(self.text)


class SlowOutput(harness.InteropTest):
    def start(self, *arguments, terminal, rate=None, errors=subprocess.PIPE):
        """errors=subprocess.STDOUT: messages go where the lines go."""
        output = Output(terminal, rate)
        child = self.network.start([str(harness.options.tool), *arguments], stdout=output.writing, stderr=errors)
        os.close(output.writing)
        if child.stderr is not None:
            self.addCleanup(child.stderr.close)
        self.addCleanup(child.wait)
        self.addCleanup(child.kill)
        output.wait_for("the start", lambda text: b"listening" in text)
        return child, output

    def write_much(self, topics=6, rate=100, size=10000):
        peer = self.cyclone()
        peer.do("participant")
        for number in range(topics):
            writer = self.cyclone()
            writer.do("participant")
            writer.do(f"writer w topic=T{number} type=unkeyed best_effort depth=1")
            writer.send(f"write w count=1000000000 rate={rate} size={size}")
        return peer

    def end_in(self, child, limit, *signals):
        """Ends it, one signal after the other, and gives the time from the last one on."""
        for at, number in enumerate(signals):
            if at > 0:
                time.sleep(0.5)  # long enough for two signals not to be one
            watch = harness.Stopwatch()
            child.send_signal(number)
        try:
            status = child.wait(limit + 10)
        except subprocess.TimeoutExpired:
            self.fail("it does not end")
        lasted = watch.seconds()
        print(f"ended after {lasted:.2f} s;", end=" ", flush=True)
        self.assertLess(lasted, limit)
        return status

    def check_text(self, text):
        """Samples were dropped, that is told in one line, and the statistics follow it."""
        dropped = DROPPED.findall(text)
        self.assertEqual(len(dropped), 1, text[-600:])
        self.assertGreater(int(dropped[0]), 0)
        self.assertRegex(text, STATISTICS)
        self.assertLess(text.index(b"samples were not printed"), text.index(b"---- Statistics"))

    def test_slow(self):
        self.write_much()
        for terminal in (True, False):
            for ending in ("interrupt", "timeout"):
                with self.subTest(terminal=terminal, ending=ending):
                    arguments = ["-timeout", "2"] if ending == "timeout" else []
                    watch = harness.Stopwatch()
                    child, output = self.start("-printSample", *arguments, terminal=terminal, rate=2e6)
                    if ending == "interrupt":
                        output.wait_for("much text", lambda text: len(text) > 4e6)
                        status = self.end_in(child, END_LIMIT, signal.SIGINT)
                    else:
                        status = child.wait(30)
                        # Whole seconds are compared, so that the time itself takes one more.
                        self.assertLess(watch.seconds(), 3 + END_LIMIT)
                    self.assertEqual(status, 1)
                    self.check_text(output.whole_text())

    def stop(self, output):
        """Nothing is read any more, and no read is in progress."""
        output.running.clear()
        stopped_at = None
        while stopped_at != len(output.text):
            stopped_at = len(output.text)
            time.sleep(0.3)

    def test_messages_stand_still_too(self):
        self.write_much()
        for terminal in (True, False):
            with self.subTest(terminal=terminal):
                child, output = self.start("-printSample", "-verbosity", "5", terminal=terminal, errors=subprocess.STDOUT)
                output.wait_for("samples", lambda text: text.count(b"New data") > 20)
                self.stop(output)
                self.assertEqual(self.end_in(child, END_LIMIT + TEXT_LIMIT, signal.SIGINT), 1)

    def test_standing_still(self):
        peer = self.write_much()
        for terminal in (True, False):
            for signals in ((signal.SIGINT,), (signal.SIGINT, signal.SIGINT), (signal.SIGTERM,)):
                with self.subTest(terminal=terminal, signals=signals):
                    child, output = self.start("-printSample", terminal=terminal)
                    output.wait_for("samples", lambda text: text.count(b"New data") > 20)
                    peer.do("others count=7")
                    self.stop(output)
                    limit = END_LIMIT + (TEXT_LIMIT if len(signals) == 1 else 0)
                    self.assertEqual(self.end_in(child, limit, *signals), 1)
                    self.assertIn(b"output was lost", child.stderr.read())
                    peer.do(f"others count=6 timeout={FAREWELL_LIMIT}")

    def test_goes_on_reading_in_time(self):
        """What stood still while the run ended gets all of it: no line is cut."""
        self.write_much(topics=2, size=100)
        child, output = self.start(terminal=False)
        output.wait_for("samples", lambda text: text.count(b"New data") > 20)
        output.running.clear()
        time.sleep(3)  # 200 lines a second fill the pipe
        child.send_signal(signal.SIGINT)
        time.sleep(1)
        output.running.set()
        self.assertEqual(child.wait(10), 1)
        text = output.whole_text().decode()
        self.assertRegex(text, STATISTICS.pattern.decode())
        rest = [line for line in text.split("\n") if " from " in line and
                not harness.SAMPLE.fullmatch(line) and not harness.EVENT.fullmatch(line)]
        self.assertEqual(rest, [])

    def test_discovery_lines_wait_too(self):
        """Main thread and reader: it is in a write when it is to end."""
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w{i} topic=T{i} count=1000")
        child, output = self.start("-mode", "DISC", terminal=False, rate=20e3)
        output.wait_for("lines", lambda text: text.count(b"New writer") > 20)
        output.running.clear()
        time.sleep(1)
        self.assertEqual(self.end_in(child, END_LIMIT + TEXT_LIMIT, signal.SIGINT), 1)

    def test_other_programs_keep_a_blocking_output(self):
        """The description that was inherited is shared; only the tool's own does not block."""
        reading, writing = os.pipe()
        child = self.network.start([str(harness.options.tool), "-timeout", "1"], stdout=writing)
        self.addCleanup(child.kill)
        while b"listening" not in os.read(reading, 4096):
            pass
        self.assertEqual(fcntl.fcntl(writing, fcntl.F_GETFL) & os.O_NONBLOCK, 0)
        child.wait(10)
        os.close(reading)
        os.close(writing)


class Signals(harness.InteropTest):
    def test_terminate_and_hang_up(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        for number in (signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                spy = self.spy()
                spy.wait_for_event("New writer", topic="T")
                peer.do("others count=1")
                watch = harness.Stopwatch()
                spy.signal(number)
                self.assertEqual(spy.wait(), 1, spy.story())
                self.assertLess(watch.seconds(), END_LIMIT)
                self.assertEqual(spy.statistics(), (1, 0))
                peer.do(f"others count=0 timeout={FAREWELL_LIMIT}")

    def test_hang_up_that_was_ignored(self):
        """As by nohup."""
        spy = self.keep(harness.Process(self.network, ["sh", "-c", 'trap "" HUP; exec "$0"', str(harness.options.tool)]))
        spy.wait_for_line("listening")
        spy.signal(signal.SIGHUP)
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        spy.wait_for_line("New writer")
        spy.signal(signal.SIGINT)
        self.assertEqual(spy.wait(), 1)

    def test_the_reader_has_read_enough(self):
        """ferret | head: its end is quiet and in order, also when there is nothing more to print."""
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        spy = self.keep(harness.Process(self.network, [
            "sh", "-c", '{ "$0"; echo "ended $?" >&2; } | head -n 3', str(harness.options.tool)]))
        spy.wait_for_line("built with")
        spy.wait_for("the end", lambda: f"ended {128 + signal.SIGPIPE}" in spy.errors)
        self.assertEqual(len(spy.errors), 1, spy.errors)
        peer.do(f"others count=0 timeout={FAREWELL_LIMIT}")


if __name__ == "__main__":
    harness.main()
