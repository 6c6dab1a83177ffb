#!/usr/bin/env python3
"""All attacks, one after the other, against one running tool beside healthy applications.

The tool reads a reliable keep-all writer of Cyclone DDS that writes 100 samples of 8,000 bytes a second, which another
reader gets too. None of the attacks may cost a sample of it, keep a new application from being discovered, make memory
exceed the budget by more than 10 %, or lower the other reader's rate below half for more than one second. Everything but
the tool is on another host, so that there are addresses where nothing is.
"""

import sys
import time

import attacks
import faults
import forge
from faults import MIB, short_or_long

WINDOW = short_or_long(3, 15)  # seconds of watching behind each attack


class Together(faults.FaultTest):
    def test_all_attacks(self):
        here, self.there = self.network, self.new_network()
        faults.harness.join_by_cable(here, self.there)
        other = self.cyclone(self.there)
        other.do("participant")
        other.do("reader r topic=Healthy type=keyed")
        self.subscriber = faults.Subscriber(other, "r")
        self.addCleanup(self.subscriber.stop)
        self.tool_ = self.tool("-useFirstPublicationQos", "-showSampleIdentity", "-showHandle", network=here)
        self.before = self.tool_.memory()
        self.publisher = self.healthy_publisher(network=self.there, size=8000, others=2)
        self.subscriber.start()
        self.wait_for_flow(self.tool_)
        self.suffered = []
        for attack in (self.nothing, self.fragments_with_gaps, self.fragments, self.gaps, self.alternating_fragments,
                       self.wide_publications, self.chosen_keys, self.foreign_participants, self.oversized_types,
                       self.unknown_types, self.acknacks, self.fragment_heartbeats, self.type_objects,
                       self.changes_of_a_participant, self.strangers, self.types_of_one_topic, self.topics,
                       self.absent_addresses, self.participants_that_stay):
            if not self.survives(attack):
                break  # there is no tool any more
        if self.tool_.alive():
            self.assert_no_loss(self.tool_)
        if self.suffered:
            self.fail("what the healthy applications suffered:\n  " + "\n  ".join(self.suffered))

    def survives(self, attack):
        name = attack.__name__.replace("_", " ")
        begin = time.monotonic()
        complaints = []
        try:
            attack()
        except AssertionError as failure:
            complaints.append("did not come to its end: " + str(failure).splitlines()[0])
        except OSError as failure:
            complaints.append(f"did not come to its end: {failure}")
        faults.measure_for(WINDOW)
        if not self.tool_.alive():
            self.suffered.append(f"{name}: the tool has ended")
            return False
        starved = self.subscriber.longest_below(faults.HEALTHY_RATE / 2, begin)
        if starved > 1 * faults.harness.SLOWNESS:
            complaints.append(f"the other reader got less than half for {starved:.1f} s")
        if self.write_on(self.publisher):
            complaints.append("a write of the healthy writer timed out")
        grown = self.tool_.peak() - self.before
        if grown > faults.BUDGET * faults.BUDGET_SLACK:
            complaints.append(f"memory {grown / MIB:.0f} MiB more than at the start")
        try:
            self.wait_for_flow(self.tool_, limit=5)
        except AssertionError:
            complaints.append("the tool prints no more samples of the healthy writer")
        found = self.discovers()
        if found is None:
            complaints.append("a new application was not discovered within 5 s")
        line = f"{name}: starved {starved:.1f} s, memory {grown / MIB:.0f} MiB, discovery " + \
            ("failed" if found is None else f"{found:.2f} s")
        print(f"\n    {line}", end="", file=sys.stderr, flush=True)
        self.suffered += [f"{name}: {complaint}" for complaint in complaints]
        return True

    def discovers(self):
        topic = f"New{time.monotonic_ns()}"
        start, begin = len(self.tool_.lines), time.monotonic()
        peer = self.cyclone(self.there)
        peer.do("participant")
        peer.do(f"writer w topic={topic} type=keyed transient_local")
        try:
            self.tool_.wait_for_text(topic, 5 * faults.harness.SLOWNESS, start)
        except AssertionError:
            return None
        finally:
            peer.close()
        return time.monotonic() - begin

    def attacker(self, **settings):
        attacker = self.forged(self.there, address="10.77.0.2", target="10.77.0.1", **settings)
        attacker.announce()
        return attacker

    def attacking_writer(self, **settings):
        """A reliable or best-effort writer that the tool reads, and its application."""
        return self.matched_writer(self.tool_, topic=f"Attack{time.monotonic_ns()}", network=self.there, address="10.77.0.2",
                                   target="10.77.0.1", **settings)

    # The attacks, in order.

    def nothing(self):
        """What is measured without one."""

    def fragments_with_gaps(self):
        attackers = [self.attacker(builtin=attacks.EVERY_BUILTIN_ENDPOINT) for _ in range(15)]
        for attacker in attackers:
            for writer in forge.BUILTIN_WRITERS[:3]:
                attacker.send(*attacks.fragment_with_a_gap_over_it(writer))

    def fragments(self):
        attackers = [self.attacker(builtin=attacks.EVERY_BUILTIN_ENDPOINT) for _ in range(4)]
        for attacker in attackers:
            for writer in forge.BUILTIN_WRITERS:
                attacker.send(*attacks.fragment_of_a_large_sample(writer))

    def gaps(self):
        attacker, writer = self.attacking_writer()
        for _ in range(10):
            attacker.send(*attacks.gaps_far_ahead(writer), port=faults.USER_PORT)
        attacker.send(*attacks.gaps_with_bits(writer), port=faults.USER_PORT)

    def alternating_fragments(self):
        for reliable in (True, False):
            attacker, writer = self.attacking_writer(reliable=reliable)
            for _ in range(short_or_long(2, 5)):
                attacker.send(*attacks.fragments_of_alternating_sample_sizes(writer), port=faults.USER_PORT)

    def wide_publications(self):
        attacker = self.attacker()
        for number, wide in enumerate((attacks.empty_partition_names, attacks.properties, attacks.locators)):
            attacker.write_all(forge.PUBLICATIONS, wide(attacker, 1000 * number, 20), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def chosen_keys(self):
        attacker, writer = self.attacking_writer(entity=0x00000102, type_name="fault::Keyed", reliable=False)
        for first in range(0, short_or_long(20000, 60000), 500):
            self.tool_.wait_for_room()
            attacker.send(*attacks.samples_with_chosen_keys(writer, first, 500), port=faults.USER_PORT)

    def foreign_participants(self):
        attacker = self.attacker()
        attacker.write_all(forge.PUBLICATIONS, attacks.foreign_participants(attacker, 0, 5000), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def oversized_types(self):
        attacker = self.attacker(builtin=attacks.EVERY_BUILTIN_ENDPOINT)
        attacker.write_all(forge.PUBLICATIONS, attacks.oversized_types(attacker, 0, short_or_long(400, 4000)), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def unknown_types(self):
        attacker = self.attacker(builtin=attacks.EVERY_BUILTIN_ENDPOINT)
        attacker.write_all(forge.PUBLICATIONS, attacks.unknown_types(attacker, 0, short_or_long(3000, 12000)), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def acknacks(self):
        attacker = self.attacker(obliging=False)
        attacker.send(*attacks.acknacks(attacker.next_count, 1000))

    def fragment_heartbeats(self):
        attacker, writer = self.attacking_writer()
        for first in range(3, 240000, 60000):
            attacker.send(*attacks.fragments_of_one_octet(writer, first), port=faults.USER_PORT)
        attacker.send(*attacks.fragment_heartbeats(writer, attacker.next_count), port=faults.USER_PORT)

    def type_objects(self):
        attacker = self.attacker()
        attacker.write_all(forge.PUBLICATIONS, attacks.type_objects(attacker, 0, short_or_long(500, 3000)), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def changes_of_a_participant(self):
        attacker = self.attacker()
        attacker.write_all(forge.PUBLICATIONS, attacks.writers_with_a_lease(attacker, 0, short_or_long(2000, 9000)),
                           tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)
        attacker.send(*attacks.changes_of_a_participant(attacker))
        attacker.send(*attacks.heartbeats_with_liveliness(attacks.writer_entity(0), attacker.next_count), port=faults.USER_PORT)

    def strangers(self):
        prefix, entity = self.publisher.guids["w"].replace("0x", "").replace(",", "").split(":")
        prefix, entity = bytes.fromhex(prefix), int(entity, 16)
        attacker = self.attacker()
        attacks.announce_as_its_own(attacker, prefix, entity, "Healthy", "peers::Keyed")
        attacks.dispose_of(attacker, forge.guid(prefix, entity))
        attacker.leave(prefix=prefix)
        attacker.leave()

    def types_of_one_topic(self):
        attacker = self.attacker()
        attacker.write_all(forge.PUBLICATIONS, attacks.types_of_one_topic(attacker, 300), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)

    def topics(self):
        attacker = self.attacker()
        attacker.write_all(forge.PUBLICATIONS, attacks.endpoints_of_topics(attacker, 8000, "Topic"), tool=self.tool_)
        attacker.wait_until_read(forge.PUBLICATIONS)
        attacker.leave()

    def absent_addresses(self):
        attacks.participants_at_absent_addresses(self.attacker())
        faults.measure_for(20)  # the queues fill slowly

    def participants_that_stay(self):
        attacks.participants_that_stay(self.attacker(obliging=False), self.tool_, 0, 10500)


if __name__ == "__main__":
    faults.main()
