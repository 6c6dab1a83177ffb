#!/usr/bin/env python3
"""Domain ids and domain tags keep applications apart."""

import harness


class Domains(harness.InteropTest):
    def settle(self, *peers, domain=0):
        """Each peer has a writer, and the spies' silence about it is not just slowness: others saw it already."""
        for peer in peers:
            peer.do(f"participant domain={domain}")
            peer.do("writer w topic=T")
            peer.do("reader r topic=T")
        for peer in peers:
            peer.do(f"matched w count={len(peers)}")

    def test_ids_separate(self):
        zero, one = [self.cyclone(), self.fastdds()], [self.cyclone(), self.fastdds()]
        self.settle(*zero)
        self.settle(*one, domain=1)
        for domain, peers in ((0, zero), (1, one)):
            spy = self.spy("-domainId", str(domain))
            for peer in peers:
                spy.wait_for_event("New writer", guid=peer.guids["w"])
                spy.wait_for_event("New reader", guid=peer.guids["r"])
            self.end(spy)
            self.assertEqual(spy.statistics(), (2, 2))
            self.assert_nothing_else(spy, *(guid for peer in peers for guid in peer.guids.values()))

    def test_the_greatest_id(self):
        peer = self.cyclone()
        peer.do("participant domain=230")
        peer.do("writer w topic=T")
        spy = self.spy("-domainId", "230")
        spy.wait_for_event("New writer", guid=peer.guids["w"])

    def test_tags_separate(self):
        blue, red, plain = self.cyclone(tag="blue"), self.cyclone(tag="red"), self.fastdds()
        for peer in (blue, red, plain):
            self.settle(peer)
        for arguments, wanted in ((["-domainTag", "blue"], blue), (["-domainTag", "red"], red), ([], plain)):
            with self.subTest(arguments):
                early = self.spy(*arguments)
                early.wait_for_event("New writer", guid=wanted.guids["w"])
                # The others are asked once more to announce themselves, and are still not seen.
                for peer in (blue, red, plain):
                    peer.do(f"writer x{len(peer.guids)} topic=U")
                early.wait_for_event("New writer", guid=list(wanted.guids.values())[-1])
                self.end(early)
                self.assert_nothing_else(early, *wanted.guids.values())

    def test_a_tag_that_no_application_has(self):
        self.settle(self.cyclone(), self.fastdds())
        spy = self.spy("-domainTag", "unused", "-timeout", "2")
        self.assertEqual(spy.wait(), 1)
        self.assertEqual(spy.events, [])
        self.assertEqual(spy.statistics(), (0, 0))


if __name__ == "__main__":
    harness.main()
