#!/usr/bin/env python3
"""A few packets do not make the tool send many, and sending never keeps it from receiving.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import time

import attacks
import faults
import forge
from faults import short_or_long

MOST_ANSWERED = 3  # bytes sent to an address that never answered, per byte that came in its participant's name


class AbsentAddresses(faults.FaultTest):
    def test_participants_at_absent_addresses(self):
        """Attack: 150 announcements (27.6 KB) of participants at addresses of the tool's network where nothing is.
        Seen: the one send socket fills with datagrams that wait for ARP, the receive thread waits 5 ms for each of
        them: for 6 to 25 s the other subscriber of a reliable keep-all writer gets next to nothing.
        Bound: the other subscriber's rate is never below half for more than one second; no sample of the healthy
        publisher is lost; a new application is discovered within 5 s."""
        here, there = self.network, self.new_network()
        faults.harness.join_by_cable(here, there)
        subscriber_peer = self.cyclone(there)
        tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity", network=here)
        subscriber_peer.do("participant")
        subscriber_peer.do("reader r topic=Healthy type=keyed")
        subscriber = faults.Subscriber(subscriber_peer, "r")
        self.addCleanup(subscriber.stop)
        self.healthy_publisher(network=there, size=8000, others=2)
        subscriber.start()
        self.wait_for_flow(tool)

        attacker = self.forged(there, address="10.77.0.2", target="10.77.0.1")
        begin = time.monotonic()
        attacks.participants_at_absent_addresses(attacker)
        faults.measure_for(short_or_long(25, 60))
        self.bound("the other subscriber got less than half for", subscriber.longest_below(faults.HEALTHY_RATE / 2, begin), 1,
                   "s", 1)
        self.wait_for_flow(tool)
        self.assert_no_loss(tool)
        self.assert_discovers(tool, network=there)


class Amplification(faults.FaultTest):
    def attacked_address(self):
        """An address that others name, and that sends nothing."""
        return self.forged(obliging=False)

    def tool_with_readers(self, count):
        """A tool that has so many readers to tell of."""
        tool = self.tool()
        peer = self.cyclone()
        peer.do("participant")
        peer.do(f"writer w{{i}} topic=T{{i}} type=keyed count={count}", limit=30)
        for number in range(0, count, 10):
            peer.do(f"matched w{number}")
        tool.wait_at_rest()
        return tool

    def bound_answers(self, victim, attacker, what):
        sent = attacker.sent_bytes
        self.bound(f"{what}: {sent} bytes became", victim.bytes / sent, MOST_ANSWERED, "times as many", 1)

    def test_one_announcement(self):
        """Attack: one announcement (184 bytes) that names another address, with an infinite lease.
        Seen: 31 times the bytes in 10 s, 118 times in a minute, and then for ever.
        Bound: three times the bytes, then silence."""
        tool = self.tool()
        victim, attacker = self.attacked_address(), self.forged(obliging=False)
        attacker.announce(metatraffic=[victim.locator()], lease=forge.LEASE_FOR_EVER)
        tool.wait_at_rest()
        faults.measure_for(short_or_long(10, 90))
        self.bound_answers(victim, attacker, "one announcement")
        # The end of the back-off: not one more.
        if faults.LONG:
            before = victim.datagrams
            faults.measure_for(30)
            self.bound("datagrams in 30 s, 90 s later", victim.datagrams - before, 0, "datagrams")

    def test_one_announcement_to_many_participants(self):
        """Attack: 300 publications of one topic, each of another type, for which the tool makes 256 participants of its own;
        then one announcement (172 bytes) that names another address.
        Seen: 643 times the bytes: each of them answered.
        Bound: three times."""
        tool = self.tool()
        application = self.forged()
        application.announce()
        application.write_all(forge.PUBLICATIONS, attacks.types_of_one_topic(application, 300))
        application.wait_until_read(forge.PUBLICATIONS)
        tool.wait_for_text("fault::T299", 30)
        tool.wait_at_rest()
        victim, attacker = self.attacked_address(), self.forged(obliging=False)
        attacker.announce(metatraffic=[victim.locator()], lease=forge.LEASE_FOR_EVER)
        tool.wait_at_rest()
        faults.measure_for(short_or_long(5, 60))
        self.bound_answers(victim, attacker, "one announcement")

    def test_one_acknack(self):
        """Attack: behind the announcement one ACKNACK (64 bytes) that asks for all that the tool told of its readers.
        Seen: 129 times the bytes.
        Bound: three times."""
        tool = self.tool_with_readers(100)
        victim, attacker = self.attacked_address(), self.forged(obliging=False)
        attacker.announce(metatraffic=[victim.locator()])
        attacker.send(*attacks.acknacks(attacker.next_count, 1))
        tool.wait_at_rest()
        faults.measure_for(2)
        self.bound_answers(victim, attacker, "one ACKNACK")

    def test_many_acknacks_in_a_datagram(self):
        """Attack: the same with 1,000 ACKNACKs in one datagram.
        Seen: 234 times the bytes.
        Bound: three times; and to an address that does answer one answer per pause and reader."""
        tool = self.tool_with_readers(100)
        victim, attacker = self.attacked_address(), self.forged(obliging=False)
        attacker.announce(metatraffic=[victim.locator()])
        attacker.send(*attacks.acknacks(attacker.next_count, 1000))
        tool.wait_at_rest()
        faults.measure_for(2)
        self.bound_answers(victim, attacker, "1,000 ACKNACKs")

    def test_many_acknacks_of_an_application_that_answers(self):
        """Attack: an application that acknowledges as it should, and then asks 1,000 times in one datagram.
        Seen: everything is sent 330 times and more, as far as there is room on the way.
        Bound: answers to one reader are paced: 20 times at most in 2 s."""
        tool = self.tool_with_readers(100)
        asker = self.forged()
        asker.announce()
        faults.wait_until("the tool's readers", lambda: asker.bytes > 1000)
        tool.wait_at_rest()
        faults.measure_for(1)
        before = asker.bytes
        asker.send(*attacks.acknacks(asker.next_count, 1))
        faults.wait_until("an answer", lambda: asker.bytes > before)
        faults.measure_for(0.5)
        once = asker.bytes - before
        before = asker.bytes
        asker.send(*attacks.acknacks(asker.next_count, 1000))
        tool.wait_at_rest()
        faults.measure_for(2)
        self.bound("answers to 1,000 ACKNACKs", (asker.bytes - before) / once, 20, "times the answer to one", 1)


class TypeRequests(faults.FaultTest):
    def loopback_packets(self):
        output = self.network.ip("-s", "-o", "link", "show", "dev", "lo")
        return int(output.split("RX:")[1].split("\\")[1].split()[1])

    def test_many_unknown_types(self):
        """Attack: one participant announces 12,000 publications (2.6 MB; the short form 3,000), each of a type of its own
        that it never tells of; nor does it acknowledge requests.
        Seen: 106,000 to 132,000 datagrams for 3,000, 425,000 for 12,000, to three others that have nothing to do with it.
        With 30,000 the tool does not read its sockets for more than a minute.
        Bound: as many datagrams as a limited number of open requests makes; the types of others are looked up as
        before."""
        tool = self.tool("-printSample")
        others = [self.cyclone() for _ in range(3)]
        for other in others:
            other.do("participant")
        for other in others:
            other.do(f"others count={len(others)}")
        attacker = self.forged(builtin=attacks.EVERY_BUILTIN_ENDPOINT, obliging=False)
        attacker.announce()
        tool.wait_at_rest()
        count = short_or_long(3000, 12000)
        before, own = self.loopback_packets(), attacker.sent_datagrams
        attacker.write_all(forge.PUBLICATIONS, attacks.unknown_types(attacker, 0, count), tool=tool)
        attacker.wait_until_read(forge.PUBLICATIONS, limit=60)
        faults.measure_for(5)
        seen = self.loopback_packets() - before - (attacker.sent_datagrams - own)
        self.bound(f"datagrams after {count} publications", seen, 3000, "datagrams")
        publisher = others[0]
        publisher.do("writer w topic=Known type=keyed transient_local")
        publisher.do("matched w")
        publisher.do("write w value=4711")
        tool.wait_for_text("value: 4711", 10 * faults.harness.SLOWNESS)


if __name__ == "__main__":
    faults.main()
