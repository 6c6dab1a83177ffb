#!/usr/bin/env python3
"""Hundreds of endpoints: each is reported once, none is missing, and the statistics say the same."""

import time

import harness
from harness import SLOWNESS

COUNT = 250


class ManyEndpoints(harness.InteropTest):
    def check(self, peers, spy_first):
        spy = self.spy() if spy_first else None
        for peer in peers:
            peer.do("participant")
            peer.do(f"writer w{{i}} topic=Topic{{i}} partitions=P count={COUNT // len(peers)}", limit=60 * SLOWNESS)
            peer.do(f"reader r{{i}} topic=Topic{{i}} partitions=P count={COUNT // len(peers)}", limit=60 * SLOWNESS)
        begin = time.monotonic()
        spy = spy or self.spy()
        guids = {guid for peer in peers for name, guid in peer.guids.items() if name != "participant"}
        self.assertEqual(len(guids), 2 * COUNT)
        spy.wait_for("all endpoints", lambda: len({event.guid for event in spy.events}) >= len(guids), 30 * SLOWNESS)
        print(f"{len(guids)} endpoints after {time.monotonic() - begin:.2f} s", end=" ", flush=True)
        self.end(spy)
        self.assertEqual(len(spy.events), len(guids), "an endpoint is reported once")
        self.assert_nothing_else(spy, *guids)
        self.assertEqual(spy.statistics(), (COUNT, COUNT))

    def test_cyclone_all_there(self):
        self.check([self.cyclone()], spy_first=False)

    def test_cyclone_all_coming(self):
        self.check([self.cyclone()], spy_first=True)

    def test_fastdds_all_there(self):
        self.check([self.fastdds()], spy_first=False)

    def test_many_participants(self):
        self.check([self.cyclone() for _ in range(5)], spy_first=False)

    def test_all_gone_at_once(self):
        peer, spy = self.cyclone(), self.spy()
        peer.do("participant")
        peer.do(f"writer w{{i}} topic=Topic{{i}} count={COUNT}", limit=60 * SLOWNESS)
        spy.wait_for("all endpoints", lambda: len(spy.having("New writer")) == COUNT, 30 * SLOWNESS)
        peer.quit(30 * SLOWNESS)
        spy.wait_for("all to be gone", lambda: len(spy.having("Deleted writer")) == COUNT, 30 * SLOWNESS)
        self.end(spy)
        self.assertEqual(len(spy.events), 2 * COUNT)
        self.assertEqual(spy.statistics(), (COUNT, 0))


if __name__ == "__main__":
    harness.main()
