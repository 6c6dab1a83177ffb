#!/usr/bin/env python3
"""Several spies in one domain, and what no spy ever reports: its own."""

import harness


class Spies(harness.InteropTest):
    def test_two_spies_report_the_same_and_not_each_other(self):
        first, second = self.spy(), self.spy()
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        peer.do("reader r topic=T")
        for spy in (first, second):
            spy.wait_for_event("New writer", guid=peer.guids["w"])
            spy.wait_for_event("New reader", guid=peer.guids["r"])
        self.end(second)
        peer.do("writer x topic=U")
        first.wait_for_event("New writer", guid=peer.guids["x"])
        self.end(first)
        for spy in (first, second):
            self.assert_nothing_else(spy, *peer.guids.values())
        self.assertEqual(first.statistics(), (2, 1))
        self.assertEqual(second.statistics(), (1, 1))

    def test_many_spies_find_room(self):
        """Each takes a participant index, that is ports, of its own."""
        spies = [self.spy() for _ in range(8)]
        peer = self.fastdds()
        peer.do("participant")
        peer.do("writer w topic=T")
        for spy in spies:
            spy.wait_for_event("New writer", guid=peer.guids["w"])
            self.assert_nothing_else(spy, peer.guids["w"])

    def check_knowledge(self, peer):
        """The peer knows the spy by its name, as long as it runs: beyond its lease, which it asserts in time."""
        spy = self.spy()
        peer.do("participant")
        self.assertRegex(peer.do("others count=1")[0], '^other "Kvo DDS Spy" ')
        peer.do("writer w topic=T")
        spy.wait_for_event("New writer", guid=peer.guids["w"])
        # A number that is never reached makes the peer look on for longer than the lease of 6.5 s.
        with self.assertRaisesRegex(AssertionError, "timeout"):
            peer.do("others count=0 timeout=8")
        self.assertRegex("\n".join(peer.lines), '(?s).*other "Kvo DDS Spy"[^\n]*\nerror timeout')

    def test_cyclone_knows_the_spy_as_long_as_it_runs(self):
        self.check_knowledge(self.cyclone())

    def test_fastdds_knows_the_spy_as_long_as_it_runs(self):
        self.check_knowledge(self.fastdds())

    def test_peers_accept_the_spy_and_are_not_disturbed(self):
        """A peer that writes at full speed to its own reader loses nothing while spies come and go."""
        writer, reader = self.cyclone(), self.cyclone()
        for peer in (writer, reader):
            peer.do("participant")
        reader.do("reader r topic=T")
        writer.do("writer w topic=T")
        writer.do("matched w")
        reader.do("matched r")
        for _ in range(2):
            spy = self.spy()
            spy.wait_for_event("New writer", guid=writer.guids["w"])
            writer.do("write w count=2000")
            reader.do("received r count=2000")
            self.end(spy)


if __name__ == "__main__":
    harness.main()
