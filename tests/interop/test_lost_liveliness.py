#!/usr/bin/env python3
"""An application that dies without a word is gone when its own lease is over, no sooner and hardly later."""

import time

import harness

# Cyclone DDS announces itself each 0.8 of it: what is left is how long a busy machine may keep it from that.
LEASE = 6.0
SLACK = 3 * harness.SLOWNESS


class LostLiveliness(harness.InteropTest):
    def check_kill(self, peer, participant, period):
        spy = self.spy()
        peer.do(participant)
        peer.do("writer w{i} topic=T{i} count=3 partitions=A")
        peer.do("reader r topic=T0")
        names = ("w0", "w1", "w2", "r")
        for name in names:
            spy.wait_for_event("New reader" if name == "r" else "New writer", guid=peer.guids[name])
        # Alive for longer than its lease: announcements that come in time keep it.
        begin = time.monotonic()
        spy.wait_for("more than a lease to pass", lambda: time.monotonic() - begin > LEASE * 1.5, LEASE * 6)
        self.assertEqual([event for event in spy.events if event.event == "Deleted"], [], spy.story())

        killed = time.monotonic()
        peer.kill()  # its last announcement can be older than that by one period, and the lease end so much sooner
        for name in names:
            event = spy.wait_for_event("Deleted reader" if name == "r" else "Deleted writer", guid=peer.guids[name])
            self.assertEqual(event.address, "127.0.0.1")
        waited = time.monotonic() - killed
        print(f"gone after {waited:.2f} s of a lease of {LEASE:g} s", end=" ", flush=True)
        self.assertGreater(waited, LEASE - period - 0.5)
        self.assertLess(waited, LEASE + SLACK)
        self.end(spy)
        self.assertEqual(len([event for event in spy.events if event.event == "Deleted"]), len(names), spy.story())
        self.assertEqual(spy.statistics(), (3, 1))

    def test_cyclone(self):
        self.check_kill(self.cyclone(lease=LEASE), "participant", 0.8 * LEASE)

    def test_fastdds(self):
        self.check_kill(self.fastdds(), f"participant lease={LEASE}", LEASE / 3)

    def test_the_others_stay(self):
        spy, dying, living = self.spy(), self.cyclone(lease=LEASE), self.fastdds()
        dying.do("participant")
        living.do(f"participant lease={LEASE}")
        dying.do("writer w topic=T")
        living.do("writer w topic=T")
        spy.wait_for_event("New writer", guid=dying.guids["w"])
        spy.wait_for_event("New writer", guid=living.guids["w"])
        dying.kill()
        spy.wait_for_event("Deleted writer", guid=dying.guids["w"])
        living.do("writer after topic=T")
        spy.wait_for_event("New writer", guid=living.guids["after"])
        self.assertEqual(spy.having(guid=living.guids["w"]), spy.having("New writer", guid=living.guids["w"]))


if __name__ == "__main__":
    harness.main()
