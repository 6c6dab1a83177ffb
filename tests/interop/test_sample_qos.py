#!/usr/bin/env python3
"""What the reader's policies, those of the profile and those of the options, make of the samples of others."""

import pathlib
import tempfile
import time

import harness
from harness import SLOWNESS


class SampleQos(harness.InteropTest):
    def peer(self, make, *writers):
        peer = make()
        peer.do("participant")
        for writer in writers:
            peer.do(f"writer {writer}")
        return peer

    def with_each_maker(self, check):
        """Runs check with the function that starts a peer, in a network of its own for each maker."""
        for maker in ("cyclone", "fastdds"):
            with self.subTest(maker):
                self.setUp()
                check(getattr(self, maker))

    def end_with_warnings(self, spy):
        """Like end, for a spy whose logger has something to say; returns that."""
        self.assertEqual(spy.interrupt()[0], 1, spy.story())
        return spy.errors

    def test_best_effort_and_reliable_writers(self):
        """The default reader takes what either kind of writer offers."""
        def check(make):
            spy = self.spy(mode=None)
            peer = self.peer(make, "r topic=R type=keyed", "b topic=B type=keyed best_effort")
            for writer in "rb":
                peer.do(f"matched {writer}")
                peer.do(f"write {writer} count=20 rate=200")
            spy.wait_for_samples(20, topic="R")
            spy.wait_for_samples(20, topic="B")
            self.end(spy)

        self.with_each_maker(check)

    def test_late_spy_and_transient_local_history(self):
        """History arrives where the first publication's policies are asked for, and only then."""
        def check(make):
            peer = self.peer(make, "w topic=T type=keyed transient_local depth=10", "v topic=V type=keyed")
            for writer in "wv":
                peer.do(f"write {writer} count=5")
            late = self.spy("-useFirstPublicationQos", "-showSampleIdentity", mode=None)
            late.wait_for_samples(5, topic="T")
            self.assertEqual([sample.number for sample in late.samples(topic="T")], [1, 2, 3, 4, 5])
            plain = self.spy("-showSampleIdentity", mode=None)
            for writer in "wv":
                peer.do(f"matched {writer} count=2")
                peer.do(f"write {writer}")
            for spy, first in ((late, 1), (plain, 6)):
                spy.wait_for("sample 6 of each", lambda: len([one for one in spy.samples() if one.number == 6]) == 2)
                self.assertEqual([sample.number for sample in spy.samples(topic="T")], list(range(first, 7)))
                self.assertEqual([sample.number for sample in spy.samples(topic="V")], [6])
                self.end(spy)

        self.with_each_maker(check)

    def test_partitions_of_writers(self):
        """A spy without partitions of its own sees the default one and every name; only patterns match no pattern."""
        def check(make):
            spy = self.spy("-showPartition", mode=None)
            offers = {"A": "", "B": "partitions=X", "C": "partitions=X,Y", "D": "partitions=sensors/*", "E": "partitions=,Z"}
            peer = self.peer(make, *(f"{name} topic={name} type=keyed {offer}" for name, offer in offers.items()))
            for name in offers:
                if name == "D":
                    peer.do("write D")
                    continue
                peer.do(f"matched {name}")
                peer.do(f"write {name}")
                sample = spy.wait_for_samples(1, topic=name)[0]
                self.assertEqual(sample.partition, {"A": None}.get(name, offers[name][11:]))
            if make == self.cyclone:  # Fast DDS takes two patterns for a match where one matches the other's text
                self.assertEqual(peer.do("matched D count=0"), ["matched D 0"])
            self.end(spy)
            self.assertEqual(spy.samples(topic="D"), [])

        self.with_each_maker(check)

    def test_subscriber_partitions(self):
        """Each spy gets what the partitions let through, names and patterns on either side."""
        def check(make):
            offers = {"A": "", "B": "partitions=X", "C": "partitions=Y,X2", "D": "partitions=X*"}
            cases = {("X",): "BD", ("X*",): "BC", ("Y",): "C", ("Y", "X"): "BCD", ("*",): "ABC"}
            spies = {case: self.spy(*(word for name in case for word in ("-subscriberPartition", name)), mode=None)
                     for case in cases}
            peer = self.peer(make, *(f"{name} topic={name} type=keyed {offer}" for name, offer in offers.items()))
            readers = {name: sum(name in topics for topics in cases.values()) for name in offers}
            if make == self.fastdds:  # it takes two patterns for a match where one matches the other's text
                readers["D"] = sum(any("X" in name or "*" in name for name in case) for case in cases)
            for name in offers:
                peer.do(f"matched {name} count={readers[name]}")
                peer.do(f"write {name}")
            for case, topics in cases.items():
                for topic in topics:
                    spies[case].wait_for_samples(1, topic=topic)
            for case, spy in spies.items():
                self.end_with_warnings(spy)
                self.assertEqual("".join(sorted(sample.topic for sample in spy.samples(what="New data"))), cases[case], case)

        self.with_each_maker(check)

    def test_participant_partitions(self):
        """A participant in another partition is not matched; one that announces the same is."""
        if harness.options.peer_fastdds is not None and harness.release_of(harness.options.peer_fastdds)[:2] == (2, 6):
            self.skipTest("Fast DDS 2.6 announces no properties of applications, so no partition of a participant either")
        spy = self.spy("-participantPartition", "P", mode="USER")
        everywhere = self.spy(mode="USER")
        inside, outside = self.fastdds(), self.fastdds()
        inside.do("participant property:dds.domain_participant.partition=P")
        outside.do("participant property:dds.domain_participant.partition=Q")
        for peer, matches in ((inside, 2), (outside, 1)):
            peer.do("writer w topic=T type=keyed")
            # It matches no more: a spy that does not listen tells of no reader for which a writer would wait.
            peer.do(f"matched w count={matches}")
            peer.do("write w count=3")
        spy.wait_for_samples(3)
        everywhere.wait_for_samples(6)
        self.end_with_warnings(spy)
        self.end_with_warnings(everywhere)
        self.assertEqual(len(spy.samples()), 3)
        self.assertEqual(len(everywhere.samples()), 6)

    def test_exclusive_ownership(self):
        """Only the strongest writer's samples, until it goes."""
        def check(make):
            spy = self.spy("-showSampleIdentity", mode=None)
            peer = self.peer(make, "weak topic=T type=unkeyed strength=1", "strong topic=T type=unkeyed strength=9")
            for writer in ("weak", "strong"):
                peer.do(f"matched {writer}")
            peer.do("write strong count=3")
            spy.wait_for_samples(3, virtual_guid=peer.guids["strong"])
            peer.do("write weak count=3")
            peer.do("write strong count=1")
            spy.wait_for_samples(4, virtual_guid=peer.guids["strong"])
            peer.do("delete strong")
            spy.wait_for_event("Deleted writer")
            peer.do("write weak count=2")
            spy.wait_for_samples(2, virtual_guid=peer.guids["weak"], what="New data")
            self.end(spy)
            self.assertEqual([one.number for one in spy.samples(virtual_guid=peer.guids["weak"], what="New data")], [4, 5])

        self.with_each_maker(check)

    def test_deadline_missed(self):
        def check(make):
            spy = self.spy("-deadline", "0.5", mode=None)
            peer = self.peer(make, "w topic=T type=unkeyed deadline=0.2")
            peer.do("matched w")
            peer.do("write w count=5 rate=10")
            spy.wait_for_samples(5)
            spy.wait_for_line(r'^ferret: Deadline number 000001 missed for Topic "T"\.$')
            spy.wait_for_line(r'^ferret: Deadline number 000002 missed for Topic "T"\.$')
            self.end(spy)
            self.assertEqual(len(spy.samples()), 5)

        self.with_each_maker(check)

    def test_incompatible_deadline(self):
        """Said on standard output, and by the logger with writer, topic and policy."""
        def check(make):
            spy = self.spy("-deadline", "0.5", "-verbosity", "2", mode=None)
            peer = self.peer(make, "w topic=T type=keyed")
            spy.wait_for_line(r'^ferret: Matched Topic "T" has incompatible deadline QoS\.$')
            spy.wait_for_line(r"^ferret: \.\.\. will not receive updates from it$")
            peer.do("write w")
            errors = self.end_with_warnings(spy)
            self.assertEqual(spy.samples(), [])
            told = [line for line in errors if "deadline" in line.lower()]
            self.assertEqual(len(told), 1, spy.story())
            self.assertIn(" warning ", told[0])
            self.assertIn('"T"', told[0].replace("'", '"'))
            words = peer.guids["w"].replace("0x", "").replace(",", "").replace(":", "").lower()
            self.assertIn(words, told[0].lower().translate({ord(sign): None for sign in ".:,-|"}).replace("0x", ""))

        self.with_each_maker(check)

    def test_every_policy_that_keeps_samples_away_is_told(self):
        """At default verbosity, once for a topic, with the policy and what each side says."""
        asked = {
            "liveliness: offered AUTOMATIC with a lease of infinite, requested MANUAL_BY_TOPIC":
                "<datareader_qos><liveliness><kind>MANUAL_BY_TOPIC_LIVELINESS_QOS</kind></liveliness></datareader_qos>",
            "destination order: offered BY_RECEPTION_TIMESTAMP, requested BY_SOURCE_TIMESTAMP":
                "<datareader_qos><destination_order><kind>BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS</kind></destination_order>"
                "</datareader_qos>",
            "presentation: offered INSTANCE, requested TOPIC":
                "<subscriber_qos><presentation><access_scope>TOPIC_PRESENTATION_QOS</access_scope></presentation></subscriber_qos>",
            'partition: offered "X,Y", requested "Elsewhere"':
                "<subscriber_qos><partition><name><element>Elsewhere</element></name></partition></subscriber_qos>",
        }
        document = "<dds><qos_library name='L'>" + "".join(
            f"<qos_profile name='P{i}'>{policies}</qos_profile>" for i, policies in enumerate(asked.values())) + "</qos_library></dds>"
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        file = pathlib.Path(folder.name, "qos.xml")
        file.write_text(document)

        def check(make):
            spies = [self.spy("-qosFile", str(file), "-qosProfile", f"L::P{i}",
                              *(() if "partition" in words else ("-subscriberPartition", "*")), mode=None)
                     for i, words in enumerate(asked)]
            peer = self.peer(make, *(f"w{i} topic=T type=keyed partitions=X,Y" for i in range(3)))
            for words, spy in zip(asked, spies):
                spy.wait_for_event("New writer", count=3)
                told = [line for line in self.end_with_warnings(spy) if "is not read" in line]
                self.assertEqual(len(told), 1, spy.story())
                self.assertIn(' error ferret subscription: writer guid="', told[0])
                self.assertIn(words, told[0])

        self.with_each_maker(check)

    def test_incompatible_with_the_first_publication(self):
        """The first writer is reliable and transient local; what a weaker one offers is then not enough."""
        def check(make):
            spy = self.spy("-useFirstPublicationQos", "-verbosity", "2", mode=None)
            peer = self.peer(make, "a topic=T type=keyed transient_local")
            peer.do("matched a")
            peer.do("writer b topic=T type=keyed best_effort")
            spy.wait_for_line(r"^ferret: Matched topic has incompatible QoS policies: \[ (2, 11, |11, 2, )\];$")
            peer.do("writer c topic=T type=keyed")
            spy.wait_for_event("New writer", count=3)
            for writer in "abc":
                peer.do(f"write {writer}")
            spy.wait_for_samples(1)
            errors = self.end_with_warnings(spy)
            self.assertEqual(len(spy.samples()), 1, spy.story())
            self.assertTrue(any("reliability: offered BEST_EFFORT, requested RELIABLE" in line and
                                "durability: offered VOLATILE, requested TRANSIENT_LOCAL" in line for line in errors), spy.story())

        self.with_each_maker(check)

    def test_time_filter(self):
        """At most one sample of an instance per period."""
        def check(make):
            spy = self.spy("-timeFilter", "0.4", "-showSampleIdentity", mode=None)
            peer = self.peer(make, "w topic=T type=unkeyed")
            peer.do("matched w")
            begin = time.monotonic()
            peer.do("write w count=40 rate=20", limit=20 * SLOWNESS)
            lasted = time.monotonic() - begin
            peer.do("delete w")
            spy.wait_for_event("Deleted writer")
            self.end(spy)
            count = len(spy.samples(what="New data"))
            self.assertGreaterEqual(count, 3, spy.story())
            self.assertLessEqual(count, lasted / 0.4 + 1, spy.story())

        self.with_each_maker(check)

    def test_history_of_a_late_reader(self):
        """The history that a writer kept is cut to the depth of the reader, per instance, or arrives whole."""
        def check(make):
            peer = self.peer(make, "w topic=T type=unkeyed transient_local")
            peer.do("write w count=2000")
            for depth in (4000, 5):
                spy = self.spy("-useFirstPublicationQos", "-showSampleIdentity", "-history", str(depth), mode=None)
                spy.wait_for("the last sample", lambda: spy.samples() and spy.samples()[-1].number == 2000)
                numbers = [sample.number for sample in spy.samples()]
                self.assertEqual(numbers[-5:], list(range(1996, 2001)))
                if depth == 4000:
                    self.assertEqual(numbers, list(range(1, 2001)))
                self.end_with_warnings(spy)

        self.with_each_maker(check)

    def test_a_short_history_never_disorders(self):
        """With a depth of 1 samples may be overwritten before they are printed: the logger counts them, and what is
        printed is in order."""
        spy = self.spy("-history", "1", "-showSampleIdentity", "-verbosity", "2", "-useFirstPublicationQos", mode=None)
        peer = self.peer(self.cyclone, "w topic=T type=unkeyed")
        peer.do("matched w")
        peer.do("write w count=20000")
        peer.do("write w")
        spy.wait_for("the last sample", lambda: spy.samples() and spy.samples()[-1].number == 20001, limit=20 * SLOWNESS)
        errors = self.end_with_warnings(spy)
        numbers = [sample.number for sample in spy.samples()]
        self.assertEqual(numbers, sorted(set(numbers)))
        lost = 20001 - len(numbers)
        print(f"{lost} overwritten", end=" ", flush=True)
        # 20,000 samples come quicker than lines are written.
        self.assertGreater(lost, 0)
        self.assertTrue(any(str(lost) in line for line in errors), spy.story())


if __name__ == "__main__":
    harness.main()
