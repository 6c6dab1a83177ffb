#!/usr/bin/env python3
"""CTRL+C while ten writers write as fast as they can: always the statistics, always the status of success.

INTEROP_INTERRUPTS (default 10) is how often, 5 times in the short form.
"""

import os
import random
import re
import tempfile
import time

import harness

ROUNDS = 5 if harness.SHORT else int(os.environ.get("INTEROP_INTERRUPTS", "10"))
STATISTICS = re.compile(r"\n\n\n---- Statistics ----\nDiscovered (\d+) DataWriters and 0 DataReaders\n"
                        r"Received samples \(Data, Dispose, NoWriters\):\n"
                        r'(?:\t\d+, 0, 0 \t\(Topic="T\d"  Type="peers::\w+"\)\n)+\n\n')


class SampleInterrupts(harness.InteropTest):
    def test_interrupts_in_full_traffic(self):
        peers = []
        for number in range(10):
            peer = self.cyclone() if number % 2 == 0 else self.fastdds()
            peer.do("participant")
            peer.do(f"writer w topic=T{number % 5} type={'keyed' if number % 5 < 3 else 'unkeyed'} depth=50")
            peer.send("write w count=1000000000 keys=10 size=100")
            peers.append(peer)
        picker = random.Random(1)
        for attempt in range(ROUNDS):
            with self.subTest(attempt), tempfile.TemporaryFile("w+") as output, tempfile.TemporaryFile("w+") as errors:
                spy = self.network.start([str(harness.options.tool), *(["-useFirstPublicationQos"] if attempt % 2 else [])],
                                         stdout=output, stderr=errors)
                end = time.monotonic() + harness.DEFAULT_LIMIT
                while b" New data" not in os.pread(output.fileno(), 100000, 0):
                    self.assertLess(time.monotonic(), end, "no sample came")
                    time.sleep(0.01)
                time.sleep(picker.uniform(0, 0.3))
                watch = harness.Stopwatch()
                harness.end_by_interrupt(spy, 30 * harness.SLOWNESS)
                status = spy.poll()
                spy.kill()
                lasted = watch.seconds()
                output.seek(0)
                errors.seek(0)
                text = output.read()
                self.assertEqual(status, 1, errors.read())
                self.assertRegex(text, STATISTICS)
                # A line may be cut nowhere, not even where the statistics begin.
                rest = [line for line in STATISTICS.sub("\n", text).split("\n")[5:] if line != "" and
                        not harness.SAMPLE.fullmatch(line) and not harness.EVENT.fullmatch(line)]
                self.assertEqual(rest, [])
                self.assertLess(lasted, 5 * harness.SLOWNESS)
                # An answer would mean that a writer has ended.
                self.assertEqual([peer.lines[-1] for peer in peers if not peer.lines[-2].startswith("writer w ")], [])
                print(f"{len(text.splitlines())} lines, ended in {lasted:.1f} s;", end=" ", flush=True)


if __name__ == "__main__":
    harness.main()
