#!/usr/bin/env python3
"""Address families, hosts, and networks without multicast."""

import time

import harness


class Networks(harness.InteropTest):
    def make_endpoints(self, peer, participant="participant"):
        peer.do(participant)
        peer.do("writer w topic=T")
        peer.do("reader r topic=T")

    def check_seen_once(self, spy, *peers, address=None):
        for peer in peers:
            writer = spy.wait_for_event("New writer", guid=peer.guids["w"])
            reader = spy.wait_for_event("New reader", guid=peer.guids["r"])
            if address is not None:
                self.assertEqual((writer.address, reader.address), (address, address))
        self.end(spy)
        self.assertEqual(len(spy.events), 2 * len(peers), spy.story())
        self.assertEqual(spy.statistics(), (len(peers), len(peers)))

    def test_ipv6_only(self):
        network = self.new_network(ipv4=False)
        cyclone = self.cyclone(network, transport="udp6")
        fastdds = self.fastdds(network)
        self.make_endpoints(cyclone)
        self.make_endpoints(fastdds, "participant transport=udpv6")
        self.check_seen_once(self.spy("-transport", "8", network=network), cyclone, fastdds, address="unknown ip")

    def test_ipv6_chosen_where_both_are(self):
        cyclone, other = self.cyclone(transport="udp6"), self.cyclone()
        self.make_endpoints(cyclone)
        self.make_endpoints(other)
        self.check_seen_once(self.spy("-transport", "8"), cyclone)

    def test_both_families(self):
        """A peer that speaks both is one peer, and each endpoint one line."""
        four, six, both = self.cyclone(), self.cyclone(transport="udp6"), self.fastdds()
        self.make_endpoints(four)
        self.make_endpoints(six)
        self.make_endpoints(both, "participant transport=both")
        self.check_seen_once(self.spy("-transport", "9"), four, six, both)

    def test_two_hosts(self):
        here, there = self.new_network(), self.new_network()
        harness.join_by_cable(here, there)
        for make in (self.cyclone, self.fastdds):
            with self.subTest(make.__name__):
                peer = make(there)
                self.make_endpoints(peer)
                self.check_seen_once(self.spy(network=here), peer, address="10.77.0.2")
                peer.quit()

    def test_two_hosts_and_a_peer_on_this_one(self):
        here, there = self.new_network(), self.new_network()
        harness.join_by_cable(here, there)
        near, far = self.fastdds(here), self.cyclone(there)
        self.make_endpoints(near)
        self.make_endpoints(far)
        self.check_seen_once(self.spy(network=here), near, far)

    def test_what_is_made_later_on_two_hosts_with_three_cables(self):
        """A peer may send with another socket over each cable. A second after the tool has met it, what it tells of its
        endpoints counts only from sockets that are known to be its own."""
        here, there = self.new_network(), self.new_network()
        for number in range(3):
            harness.join_by_cable(here, there, subnet=f"10.77.{number}", ipv6=None, device=f"eth{number}")
        for make in (self.cyclone, self.fastdds):
            with self.subTest(make.__name__):
                spy, peer = self.spy(network=here), make(there)
                peer.do("participant")
                peer.do("writer w topic=Earlier type=keyed")
                spy.wait_for_event("New writer", topic="Earlier")
                time.sleep(1.5)
                peer.do("writer v topic=Later type=keyed")
                spy.wait_for_event("New writer", topic="Later")
                peer.quit()
                spy.wait_for_event("Deleted writer", topic="Later")

    def test_two_hosts_over_ipv6(self):
        here, there = self.new_network(ipv4=False), self.new_network(ipv4=False)
        harness.join_by_cable(here, there, subnet=None)
        peer = self.fastdds(there)
        self.make_endpoints(peer, "participant transport=udpv6")
        self.check_seen_once(self.spy("-transport", "8", network=here), peer, address="unknown ip")

    def test_this_host_only(self):
        here, there = self.new_network(), self.new_network()
        harness.join_by_cable(here, there)
        near, far = self.fastdds(here), self.fastdds(there)
        self.make_endpoints(near)
        self.make_endpoints(far)
        self.check_seen_once(self.spy("-transport", "2", network=here), near)

    def routed_hosts(self):
        here, router, there = self.new_network(), self.new_network(), self.new_network()
        if not harness.join_by_router(here, router, there):
            self.skipTest("/proc/sys is read-only here, so there can be no router")
        return here, there

    def test_peers_behind_a_router(self):
        here, there = self.routed_hosts()
        cyclone, fastdds = self.cyclone(there), self.fastdds(there)
        self.make_endpoints(cyclone)
        self.make_endpoints(fastdds)
        self.check_seen_once(self.spy("-peer", "10.77.2.1", network=here), cyclone, fastdds, address="10.77.2.1")

    def test_peers_by_name_that_do_not_multicast(self):
        peer = self.cyclone(multicast="false")
        self.make_endpoints(peer)
        self.check_seen_once(self.spy("-transport", "1", "-peer", "4@localhost"), peer)

    def test_no_application_is_found_without_multicast_and_peers(self):
        """Shows that the tests above are about "-peer"."""
        here, there = self.new_network(), self.new_network()
        harness.join_by_cable(here, there)
        peer = self.cyclone(there, multicast="false")
        self.make_endpoints(peer)
        spy = self.spy("-timeout", "2", network=here)
        self.assertEqual(spy.wait(), 1, spy.story())
        self.assertEqual(spy.events, [])
        self.check_seen_once(self.spy("-peer", "10.77.0.2", network=here), peer, address="10.77.0.2")

    def test_a_peer_that_cannot_be_is_refused(self):
        spy = self.spy("-peer", "no such host!", listening=False)
        self.assertEqual(spy.wait(), 0, spy.story())
        self.assertTrue(any("no such host!" in line for line in spy.errors), spy.story())


if __name__ == "__main__":
    harness.main()
