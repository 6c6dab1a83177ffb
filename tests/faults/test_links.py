#!/usr/bin/env python3
"""Networks that change while the tool runs: interfaces and addresses that come, go and come back."""

import time

import faults
from faults import harness, short_or_long

SOON = 10.0  # seconds within which a new application is seen over a new link


class Links(faults.FaultTest):
    def lay(self, here, there, number=0, device="eth0", ends=(1, 2)):
        """A cable, with an address at the ends that are named."""
        here.ip("link", "add", device, "type", "veth", "peer", "name", device, "netns", f"/proc/self/fd/{there.handle}",
                handles=(there.handle,))
        for end, network in ((1, here), (2, there)):
            network.ip("link", "set", device, "multicast", "on", "up")
            if end in ends:
                network.ip("address", "add", f"10.77.{number}.{end}/24", "dev", device)
        faults.wait_until("a carrier", lambda: all("state UP" in network.ip("-o", "link", "show", "dev", device)
                                                   for network in (here, there)))

    def publisher(self, network, topic, make=None):
        peer = (make or self.cyclone)(network)
        peer.do("participant" if network.ipv4 else "participant transport=udpv6")
        peer.do(f"writer {topic} topic={topic} type=keyed")
        return peer

    def new_network(self, ipv4=True):
        network = super().new_network(ipv4=ipv4)
        network.ipv4 = ipv4
        return network

    def assert_seen(self, tool, topic):
        begin = time.monotonic()
        tool.wait_for_event("New writer", topic=topic, limit=SOON * harness.SLOWNESS)
        self.bound(f"until the writer of {topic} is seen", time.monotonic() - begin, SOON * harness.SLOWNESS, "s", 1)

    def test_an_address_that_comes_late(self):
        """The tool starts before its host has any address, as at boot. Seen: it works."""
        here, there = self.new_network(), self.new_network()
        tool = self.tool(network=here)
        self.lay(here, there, ends=(2,))
        self.publisher(there, "Late")
        faults.measure_for(1)
        here.ip("address", "add", "10.77.0.1/24", "dev", "eth0")
        self.assert_seen(tool, "Late")
        self.assertEqual(tool.errors, [])

    def test_interfaces_that_come_and_go(self):
        """As of a modem or a tunnel. Seen: groups are not joined from the 20th on, and each time is a line.
        Bound: what comes by multicast only is seen, and one line."""
        here, there = self.new_network(), self.new_network()
        tool = self.tool(network=here)
        for _ in range(short_or_long(22, 60)):
            self.lay(here, there)
            here.ip("link", "delete", "eth0")
        self.lay(here, there)
        peer = self.publisher(there, "Again")
        self.assert_seen(tool, "Again")
        memberships = here.start(["cat", "/proc/self/net/igmp"], stdout=-1).communicate()[0].decode()
        self.assertEqual(memberships.count("0100FFEF"), 2, memberships)  # 239.255.0.1 on lo and eth0
        peer.quit()
        self.bound("lines on standard error", len(tool.errors), 2, "lines")

    def test_a_second_interface(self):
        """It comes with an application behind it, and flaps. Seen: with each time the tool left the domain and joined it
        again. Bound: nothing is lost, and nobody is told to forget the tool."""
        here, there, other = self.new_network(), self.new_network(), self.new_network()
        self.lay(here, there)
        tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity", network=here)
        first = self.publisher(there, "Healthy")
        self.assert_seen(tool, "Healthy")
        first.do("matched Healthy")
        self.lay(here, other, 1, "eth1")
        self.publisher(other, "Second", self.fastdds)
        self.assert_seen(tool, "Second")
        first.send("write Healthy count=1000000 rate=100")
        self.wait_for_flow(tool)
        for _ in range(short_or_long(4, 20)):
            here.ip("link", "set", "eth1", "down")
            faults.measure_for(0.6)
            here.ip("link", "set", "eth1", "up")
            faults.measure_for(0.6)
        numbers = tool.numbers("Healthy")
        self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))
        self.assertEqual(tool.errors, [])

    def test_two_networks(self):
        """An application in each, which can reach the address there only. Cyclone DDS 0.10 sends to the other one. Seen:
        nothing is said. Bound: each is seen, or there is a line why not."""
        here, networks = self.new_network(), (self.new_network(), self.new_network())
        for number, network in enumerate(networks):
            self.lay(here, network, number, f"eth{number}")
        tool = self.tool(network=here)
        for number, network in enumerate(networks):
            self.publisher(network, f"Number{number}")
        faults.wait_until("all", lambda: len(tool.having("New writer")) + len(tool.errors) >= 2, 40)
        self.assertTrue(all("answers nothing" in line for line in tool.errors), tool.story())

    def test_nobody_is_silent(self):
        """Applications that have nothing to tell answer all the same."""
        here, there = self.new_network(), self.new_network()
        self.lay(here, there)
        tool = self.tool(network=here)
        self.cyclone(there).do("participant")
        self.fastdds(there).do("participant")
        self.keep(harness.Spy(there))
        faults.measure_for(24)
        self.assertEqual(tool.errors, [])

    def test_ipv6_only(self):
        """At first there is a link-local address that the system still looks for doubles of, then one that lasts, then a
        temporary one that goes. Seen: the tool left and joined again for each. Bound: not at all."""
        here, there = self.new_network(ipv4=False), self.new_network(ipv4=False)
        self.lay(here, there, ends=())
        tool = self.keep(harness.Spy(here, "-transport", "8"))
        self.publisher(there, "Local", self.fastdds)
        self.assert_seen(tool, "Local")
        for end, network in ((1, here), (2, there)):
            network.ip("address", "add", f"fd77::{end}/64", "dev", "eth0")
        here.ip("address", "add", "fd77::abcd/64", "dev", "eth0", "valid_lft", "3", "preferred_lft", "1")
        faults.measure_for(5)
        self.publisher(there, "Global", self.fastdds)
        self.assert_seen(tool, "Global")
        self.assertEqual(tool.errors, [])

    def test_a_way_that_is_forbidden(self):
        """By a firewall, or a route. Seen: nothing is said. Bound: one line."""
        here, there = self.new_network(), self.new_network()
        self.lay(here, there)
        here.ip("route", "add", "prohibit", "10.77.0.2/32")
        tool = self.tool(network=here)
        self.publisher(there, "Forbidden")
        faults.wait_until("a line", lambda: tool.errors)
        faults.measure_for(3)
        self.assertEqual(len(tool.errors), 1, tool.story())
        self.assertIn("may forbid it", tool.errors[0])


if __name__ == "__main__":
    faults.main()
