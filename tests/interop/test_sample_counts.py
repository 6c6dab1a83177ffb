#!/usr/bin/env python3
"""What reliable writers write is printed: every sample, each once, however long it goes on.

INTEROP_RATE (default 50000) is the rate in samples per second, for builds that are not made for speed.
"""

import contextlib
import os
import re
import tempfile

import harness

RATE = int(os.environ.get("INTEROP_RATE", "50000"))
SECONDS = 3 if harness.SHORT else 10


class SampleCounts(harness.InteropTest):
    def write_while_it_flows(self, peer, command, output):
        """However long it takes on a busy machine, as long as there are more and more lines."""
        start = len(peer.lines)
        peer.send(command)
        size = -1
        while len(peer.lines) < start + 2 and os.fstat(output.fileno()).st_size > size:
            size = os.fstat(output.fileno()).st_size
            with contextlib.suppress(AssertionError):
                peer.wait_for("the last sample", lambda: len(peer.lines) >= start + 2, limit=20 * harness.SLOWNESS)
        self.assertEqual(peer.lines[start + 1:], ["ok"], f"{size} bytes of lines\n{peer.story()}")

    def check(self, peer, instances):
        """`instances` is how many the spy can tell apart. The lines go into a file, as they would in use: reading them
        here would take the machine from who prints them."""
        peer.do("participant")
        with tempfile.TemporaryFile("w+") as output, tempfile.TemporaryFile("w+") as errors:
            # Room for what comes in a second: on a busy machine the spy does not run all the time.
            spy = self.network.start([str(harness.options.tool), "-useFirstPublicationQos", "-showSampleIdentity",
                                      "-history", str(RATE)], stdout=output, stderr=errors)
            try:
                peer.do("others")
                peer.do("writer w topic=T type=keyed")
                peer.do("matched w")
                self.write_while_it_flows(peer, f"write w count={RATE * SECONDS} rate={RATE} keys=100", output)
                # A writer that is deleted keeps nothing for readers that still miss something.
                peer.do(f"acknowledged w timeout={60 * harness.SLOWNESS}", limit=70 * harness.SLOWNESS)
                peer.do("delete w", limit=60 * harness.SLOWNESS)
                # Lines of up to 100 instances without writers may come behind it.
                peer.wait_for("the spy to hear the farewell", lambda: os.pread(output.fileno(), 65536, max(
                    0, os.fstat(output.fileno()).st_size - 65536)).count(b"Deleted writer"), limit=30 * harness.SLOWNESS)
            finally:
                harness.end_by_interrupt(spy, 30 * harness.SLOWNESS)
                status = spy.poll()
            output.seek(0)
            errors.seek(0)
            text = output.read()
            self.assertEqual((status, errors.read()), (1, ""))
        numbers = [int(number) for number in re.findall(r"(?m)^[^\n]* virtual_sn=\(0, (\d+)\)$", text)]
        self.assertEqual(len(numbers), RATE * SECONDS)
        self.assertTrue(numbers == list(range(1, RATE * SECONDS + 1)), "in order, each once")
        self.assertIn(f'\t{RATE * SECONDS}, 0, {instances} \t(Topic="T"  Type="peers::Keyed")\n', text)

    def test_cyclone(self):
        self.check(self.cyclone(), 100)

    def test_fastdds(self):
        # Without a type and without key hashes, which 2.9 alone leaves out, all samples are one instance.
        peer = self.fastdds()
        self.check(peer, 1 if harness.release_of(harness.options.peer_fastdds)[:2] == (2, 9) else 100)


if __name__ == "__main__":
    harness.main()
