#!/usr/bin/env python3
"""An application that dies without a word is gone when its own lease is over, no sooner and hardly later; one that comes back
with the same GUID before that is a new one at once."""

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


class SecondLives(harness.InteropTest):
    """A process that is killed, and starts again with the same GUID on the same ports, as an application with a fixed prefix
    does that a watchdog starts again."""

    LIVES = 5 if harness.SHORT else 9
    SAMPLES = 5

    def next_life(self, writer):
        peer = self.fastdds()
        peer.do("participant prefix=01.0f.77.01.02.03.04.05.06.07.08.09")
        peer.do(f"writer w {writer}")
        return peer

    def check(self, types):
        """Restarts right after the death, later, and after the first announcements are over. A new life is told of within
        1 s, after the end of the one before, and every sample of it is shown."""
        spy = self.spy("-useFirstPublicationQos", mode=None)
        slowest = 0
        for life in range(self.LIVES):
            kind = types[life % len(types)]
            watch = harness.Stopwatch()
            peer = self.next_life(f"topic=T type={kind} transient_local")
            spy.wait_for_event("New writer", count=life + 1)
            if life > 0:
                slowest = max(slowest, watch.seconds())
            peer.do(f"write w count={self.SAMPLES}")
            spy.wait_for("the samples", lambda: sum(sample.what != "No writers" for sample in spy.samples()) ==
                         self.SAMPLES * (life + 1))
            for topic_kind, event in zip([types[n % len(types)] for n in range(life + 1)], spy.having("New writer")):
                self.assertEqual(event.type, "peers::" + topic_kind.capitalize())
            if life < self.LIVES - 1:
                pause = 0 if life % 3 == 0 else life % 3 + 1
                rest = time.monotonic()
                spy.wait_for("a pause", lambda: time.monotonic() - rest >= pause)
            peer.kill()
        print(f"a new life is told of after {slowest:.2f} s at most", end=" ", flush=True)
        events = [event.what for event in spy.having(guid=None) if event.topic == "T"]
        self.assertEqual(events, ["New writer"] + ["Deleted writer", "New writer"] * (self.LIVES - 1), spy.story())
        # About 0.7 s on an idle machine; without the signs of a restart it is the lease, or never.
        self.assertLess(slowest, 10 * harness.SLOWNESS)
        self.end(spy)

    def test_the_same_writer(self):
        self.check(["keyed"])

    def test_another_type_on_the_same_topic(self):
        self.check(["keyed", "unkeyed"])


if __name__ == "__main__":
    harness.main()
