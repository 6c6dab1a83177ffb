#!/usr/bin/env python3
"""No datagram keeps the protocol thread from the others for long, whatever it holds.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import pathlib
import struct
import tempfile

import attacks
import faults
import forge
from faults import MIB, short_or_long

MOST_MEMORY = 6  # bytes kept, per byte of an announcement
MOST = 0.005  # seconds of the protocol thread, per datagram of at most 65 KB


class CostTest(faults.FaultTest):
    def bound_cost(self, tool, what, send, datagrams=1, thread=faults.PROTOCOL_THREAD):
        begin = tool.memory()
        seconds = self.cost(tool, send, thread)
        self.bound(f"{what}: time per datagram", 1000 * seconds / datagrams, 1000 * MOST * faults.harness.SLOWNESS, "ms", 2)
        return tool.memory() - begin


class Datagrams(CostTest):
    def test_gaps_far_ahead(self):
        """Attack: one datagram of 65 KB with 2,000 gaps, each over 4,096 samples far ahead of the reader.
        Seen: 1.7 s of the protocol thread, and 240 MiB.
        Bound: 5 ms, 4 MiB."""
        tool = self.tool("-useFirstPublicationQos")
        application, writer = self.matched_writer(tool)
        gaps = attacks.gaps_far_ahead(writer)
        grown = self.bound_cost(tool, "gaps", lambda: application.send(*gaps, port=faults.USER_PORT))
        self.bound("memory kept", grown / MIB, 4, "MiB more than before")

    def test_gaps_with_bits(self):
        """Attack: the same with gaps that name each second one of 256 samples.
        Seen: 45 ms, 30 MiB.
        Bound: 5 ms, 4 MiB."""
        tool = self.tool("-useFirstPublicationQos")
        application, writer = self.matched_writer(tool)
        gaps = attacks.gaps_with_bits(writer)
        grown = self.bound_cost(tool, "gaps with bits", lambda: application.send(*gaps, port=faults.USER_PORT))
        self.bound("memory kept", grown / MIB, 4, "MiB more than before")

    def test_fragments_of_alternating_sample_sizes(self):
        """Attack: one datagram with 1,500 fragments of one sample, which claim in turn that it has 64 MiB and 8 bytes (the short form 300).
        Seen: 0.5 to 1.1 s of the protocol thread for 300: each other one clears a buffer of 64 MiB.
        Bound: 5 ms: the size that the first fragment tells stands."""
        for options, reliable in ((("-useFirstPublicationQos",), True), ((), False)):
            with self.subTest(reliable=reliable):
                self.setUp()
                tool = self.tool(*options)
                application, writer = self.matched_writer(tool, reliable)
                fragments = attacks.fragments_of_alternating_sample_sizes(writer, short_or_long(300, 1500))
                self.bound_cost(tool, "fragments", lambda: application.send(*fragments, port=faults.USER_PORT))

    def test_fragments_of_many_samples(self):
        """Attack: one datagram with one fragment each of 1,500 samples of 64 MiB (the short form 300).
        Seen: 150 ms for 300.
        Bound: 5 ms."""
        tool = self.tool()
        application, writer = self.matched_writer(tool, reliable=False)
        fragments = attacks.fragments_of_many_samples(writer, short_or_long(300, 1500))
        self.bound_cost(tool, "fragments", lambda: application.send(*fragments, port=faults.USER_PORT))

    def test_heartbeats(self):
        """Attack: one datagram with 2,000 heartbeats that claim ever more samples.
        Seen: 0.2 ms.
        Bound: 5 ms."""
        tool = self.tool("-useFirstPublicationQos")
        application, writer = self.matched_writer(tool)
        beats = attacks.heartbeats_ever_further_ahead(writer, application.next_count)
        self.bound_cost(tool, "heartbeats", lambda: application.send(*beats, port=faults.USER_PORT))


    def test_fragment_heartbeats(self):
        """Attack: four datagrams with fragments of one octet of a sample, then one with 1,900 heartbeats for fragments.
        Seen: 734 ms: each looked for what is missing among all fragments that are there.
        Bound: 5 ms."""
        tool = self.tool("-useFirstPublicationQos")
        application, writer = self.matched_writer(tool)
        for first in range(3, 240000, 60000):
            application.send(*attacks.fragments_of_one_octet(writer, first), port=faults.USER_PORT)
        beats = attacks.fragment_heartbeats(writer, application.next_count)
        self.bound_cost(tool, "heartbeats for fragments", lambda: application.send(*beats, port=faults.USER_PORT))

    def test_samples_of_unknown_writers(self):
        """Attack: one datagram with samples of 2,200 writers, then the announcements of 100 of them.
        Seen: 101 ms: the datagram is kept for each of 69 of them, and taken again as often.
        Bound: 5 ms a datagram."""
        tool = self.tool()
        application = self.forged()
        application.announce()
        tool.wait_at_rest()
        samples = attacks.samples_of_unknown_writers(1)
        self.bound_cost(tool, "samples", lambda: application.send(*samples, port=faults.USER_PORT))

        def announce():
            application.write_all(forge.PUBLICATIONS, attacks.many_endpoints(application, 2101, 100))
            application.wait_until_read(forge.PUBLICATIONS)

        self.bound_cost(tool, "announcements of the writers", announce)


class ManyEndpoints(CostTest):
    """What one datagram costs an application that has told of 9,000 writers of one topic before."""

    def application_with(self, tool, publications):
        application = self.forged()
        application.announce()
        application.write_all(forge.PUBLICATIONS, publications(application, 0, 9000), tool=tool)
        application.wait_until_read(forge.PUBLICATIONS, limit=60)
        faults.wait_until("a reader", lambda: application.subscribed)
        tool.wait_at_rest()
        return application

    def test_liveliness(self):
        """Attack: one datagram with 1,900 heartbeats that say that a writer is alive; all have a lease.
        Seen: 598 ms: each renewed the leases of all writers of the participant.
        Bound: 5 ms."""
        tool = self.tool()
        application = self.application_with(tool, attacks.writers_with_a_lease)
        beats = attacks.heartbeats_with_liveliness(attacks.writer_entity(0), application.next_count)
        self.bound_cost(tool, "heartbeats with liveliness", lambda: application.send(*beats, port=faults.USER_PORT))

    def test_tiny_leases(self):
        """Attack: all 9,000 writers have a lease of a microsecond; then 200 heartbeats of 84 bytes in 0.4 s say that they live.
        Seen: 1.9 ms each, 8 ms where they are 10 ms apart: each revives all, and the next moment all are lost.
        Bound: 0.5 ms each."""
        tool = self.tool()
        application = self.application_with(tool, attacks.writers_with_a_tiny_lease)

        def send():
            for _ in range(200):
                application.send(*attacks.heartbeats_with_liveliness(attacks.writer_entity(0), application.next_count, 1),
                                 port=faults.USER_PORT)
                faults.measure_for(0.002)

        seconds = self.cost(tool, send)
        self.bound("heartbeats with liveliness: time each", 1000 * seconds / 200, 0.5 * faults.harness.SLOWNESS, "ms", 2)

    def test_changes_of_a_participant(self):
        """Attack: one datagram with 250 announcements of the participant, each with another address.
        Seen: 4.0 s: each matched all its endpoints anew.
        Bound: 50 ms; its endpoints are matched anew once a second."""
        tool = self.tool()
        application = self.application_with(tool, attacks.many_endpoints)
        changes = attacks.changes_of_a_participant(application)
        seconds = self.cost(tool, lambda: application.send(*changes))
        self.bound("changes of a participant: time per datagram", 1000 * seconds, 50 * faults.harness.SLOWNESS, "ms", 1)


class Announcements(faults.FaultTest):
    def check(self, publications, size=60000):
        """Publications of nearly 60 KB."""
        tool = self.tool()
        application = self.forged()
        application.announce()
        application.publish("First")
        application.wait_until_read(forge.PUBLICATIONS)
        count = short_or_long(20, 200)
        payloads = list(publications(application, 1, count))

        def send():
            application.write_all(forge.PUBLICATIONS, payloads, tool=tool)
            application.wait_until_read(forge.PUBLICATIONS, limit=60)

        tool.wait_at_rest()
        before = tool.memory()
        all_threads = tool.processor_time()
        seconds = self.cost(tool, send)
        self.bound("time per publication", 1000 * seconds / count, 1000 * MOST * faults.harness.SLOWNESS, "ms", 2)
        faults.wait_until("a line of each", lambda: sum("Wide" in line for line in list(tool.lines)) >= count, 60)
        all_threads = tool.processor_time() - all_threads
        self.bound("of all threads until it is printed", 1000 * all_threads / count, 2000 * MOST * faults.harness.SLOWNESS,
                   "ms", 2)
        self.bound("memory per publication", (tool.memory() - before) / count / 1024, MOST_MEMORY * size / 1024, "KiB")

    def test_empty_partition_names(self):
        """Attack: publications of 60 KB with 14,900 empty partition names each.
        Seen: 1.2 MiB each; 3 ms of the protocol thread, and 11 ms of the main thread, which joins the names one by one.
        Bound: six times their bytes, 5 ms, and 10 ms of all threads."""
        self.check(attacks.empty_partition_names)

    def test_properties(self):
        """Attack: publications of 60 KB with 3,700 properties each.
        Seen: 310 KiB and 0.5 ms each.
        Bound: six times their bytes, 5 ms."""
        self.check(attacks.properties)

    def test_locators(self):
        """Attack: publications of 60 KB with 2,100 locators each.
        Seen: 180 KiB and 0.3 ms each.
        Bound: six times their bytes, 5 ms."""
        self.check(attacks.locators)


class Samples(CostTest):
    def test_chosen_keys(self):
        """Attack: samples whose key hashes all fall into one bucket of a table that has no seed.
        Seen: 130 us a sample with 20,000, and three times as much with 60,000; others take 4 us.
        Bound: 20 us a sample."""
        tool = self.tool()
        application, writer = self.matched_writer(tool, reliable=False, entity=0x00000102)
        count = short_or_long(20000, 60000)

        def send():
            for first in range(0, count, 500):
                tool.wait_for_room()
                application.send(*attacks.samples_with_chosen_keys(writer, first, 500), port=faults.USER_PORT)

        seconds = self.cost(tool, send)
        self.bound("time per sample", 1e6 * seconds / count, 20 * faults.harness.SLOWNESS, "us")

    def test_elements_without_octets(self):
        """Attack: a sample of 60 KB that claims 900,000 elements of a structure without members, before its key.
        Seen: 21 ms of the protocol thread, and 14 MB of text.
        Bound: 5 ms; at most 1 MiB of text, with a mark where it was cut."""
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "types.xml")
            path.write_text('<dds><types><struct name="Nothing" extensibility="final"></struct>'
                            '<struct name="Many" extensibility="final"><member name="all" type="nonBasic" '
                            'nonBasicTypeName="Nothing" sequenceMaxLength="-1"/>'
                            '<member name="id" type="int32" key="true"/></struct></types></dds>')
            tool = self.tool("-printSample", "-qosFile", str(path))
        application, writer = self.matched_writer(tool, reliable=False, entity=0x00000102, type_name="Many")
        tool.wait_for_text("Attacked")
        tool.wait_at_rest()
        many, none = (b"\0\1\0\0" + struct.pack("<I", count) + bytes(60000) for count in (900000, 0))
        self.bound_cost(tool, "a sample", lambda: application.send(forge.data(writer, 1, many), port=faults.USER_PORT))
        application.send(forge.data(writer, 2, none), port=faults.USER_PORT)
        tool.wait_for_samples(2, 30, topic="Attacked")
        self.bound("text", sum(len(line) + 1 for line in tool.lines) / MIB, 1, "MiB", 1)


if __name__ == "__main__":
    faults.main()
