#!/usr/bin/env python3
"""Every sample of every topic is one line that tells the truth about it."""

import re

import harness


class Samples(harness.InteropTest):
    RECREATED = 20

    def publisher(self, make, *writers):
        """A peer with these writers, and a spy whose readers they are matched with."""
        peer = make()
        peer.do("participant")
        for writer in writers:
            peer.do(f"writer {writer}")
        return peer

    def watched(self, make, *writers, spy_options=(), mode=None):
        spy = self.spy(*spy_options, mode=mode)
        peer = self.publisher(make, *writers)
        for writer in writers:
            peer.do(f"matched {writer.split()[0]}")
        return peer, spy

    def with_each_maker(self, check):
        """Runs check with the function that starts a peer, in a network of its own for each maker."""
        for maker in ("cyclone", "fastdds"):
            with self.subTest(maker):
                self.setUp()
                check(getattr(self, maker))

    def test_life_of_a_keyed_instance(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=Square type=keyed", spy_options=("-showHandle",))
            peer.do("write w count=3 key=5")
            spy.wait_for_samples(3)
            peer.do("dispose w key=5")
            spy.wait_for_samples(4)
            self.end(spy)
            self.assertEqual([sample.what for sample in spy.samples()],
                             ["New data", "Modified instance", "Modified instance", "Disposed instance"], spy.story())
            for sample in spy.samples():
                self.assertEqual((sample.address, sample.topic, sample.type, sample.guid),
                                 ("127.0.0.1", "Square", "peers::Keyed", peer.guids["w"]))
            self.assertEqual(spy.topic_statistics(), {("Square", "peers::Keyed"): (3, 1, 0)})

        self.with_each_maker(check)

    def test_a_dispose_with_only_a_key_hash(self):
        """Fast DDS sends no payload with it: the instance is known by its hash, data or not."""
        peer, spy = self.watched(self.fastdds, "w topic=Square type=keyed", spy_options=("-showHandle",))
        peer.do("write w key=77")
        peer.do("dispose w key=77")
        disposed = spy.wait_for_samples(1, what="Disposed instance")[0]
        self.assertEqual(disposed.id, 77)
        self.end(spy)

    def test_unkeyed(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=Plain type=unkeyed", spy_options=("-showHandle",))
            peer.do("write w count=3 key=5 keys=2")
            spy.wait_for_samples(3)
            self.end(spy)
            self.assertEqual([(sample.what, sample.key, sample.guid) for sample in spy.samples()],
                             [("New data", None, None)] * 3, spy.story())
            self.assertEqual(spy.topic_statistics(), {("Plain", "peers::Unkeyed"): (3, 0, 0)})

        self.with_each_maker(check)

    def test_no_writers(self):
        """When the last writer goes, and not before."""
        def check(make):
            for kind in ("keyed", "unkeyed"):
                peer, spy = self.watched(make, f"a topic=T type={kind}", f"b topic=T type={kind}")
                for writer in ("a", "b"):
                    peer.do(f"write {writer}")
                spy.wait_for_samples(2)
                peer.do("delete a")
                spy.wait_for_event("Deleted writer", guid=None)
                peer.do("delete b")
                spy.wait_for_samples(1, what="No writers")
                self.end(spy)
                self.assertEqual(len(spy.samples(what="No writers")), 1, spy.story())
                self.assertEqual(list(spy.topic_statistics().values()), [(2, 0, 1)])

        self.with_each_maker(check)

    def test_no_writers_after_a_crash(self):
        """The instances of an application that died have no writers once its lease is over."""
        peer, spy = self.watched(lambda: self.cyclone(lease=5), "w topic=T type=keyed")
        peer.do("write w count=2 keys=2")
        spy.wait_for_samples(2)
        peer.kill()
        spy.wait_for_samples(2, what="No writers")
        self.end(spy)
        self.assertEqual(list(spy.topic_statistics().values()), [(2, 0, 2)])

    def test_sequence_numbers(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=T type=keyed", spy_options=("-showSampleIdentity", "-useFirstPublicationQos"))
            peer.do("write w count=200 keys=3")
            spy.wait_for_samples(200)
            peer.do("dispose w")
            spy.wait_for_samples(201)
            self.end(spy)
            self.assertEqual([sample.number for sample in spy.samples()], list(range(1, 202)), spy.story())
            self.assertEqual({sample.virtual_guid for sample in spy.samples()}, {peer.guids["w"]})
            self.assertEqual({sample.related_guid for sample in spy.samples()}, {None})

        self.with_each_maker(check)

    def test_entity_names_and_partitions(self):
        peer, spy = self.watched(self.cyclone, "w topic=T type=keyed entity_name=hugo partitions=A,B",
                                 "v topic=U type=keyed", spy_options=("-showEntityName", "-showPartition"))
        peer.do("write w")
        peer.do("write v")
        named = spy.wait_for_samples(1, topic="T")[0]
        plain = spy.wait_for_samples(1, topic="U")[0]
        self.assertEqual((named.name, named.dp_partition, named.partition), ("hugo", None, "A,B"))
        self.assertEqual((plain.name, plain.dp_partition, plain.partition), (None, None, None))
        self.end(spy)

    def test_names_only_on_request(self):
        peer, spy = self.watched(self.cyclone, "w topic=T type=keyed entity_name=hugo partitions=A")
        peer.do("write w")
        sample = spy.wait_for_samples(1)[0]
        self.assertEqual((sample.key, sample.number, sample.name, sample.partition), (None, None, None, None))
        self.end(spy)

    def test_widths(self):
        peer, spy = self.watched(self.cyclone, "w topic=LongTopicName type=keyed",
                                 spy_options=("-topicWidth", "4", "-typeWidth", "7"))
        peer.do("write w")
        sample = spy.wait_for_samples(1)[0]
        self.assertEqual((sample.topic, sample.type), ("Long", "peers::"))
        self.end(spy)
        self.assertEqual(spy.topic_statistics(), {("LongTopicName", "peers::Keyed"): (1, 0, 0)})

    def test_modes(self):
        user, discovery = self.spy(mode="USER"), self.spy(mode="DISC")
        both = self.spy(mode=None)
        peer = self.publisher(self.fastdds, "w topic=T type=keyed")
        peer.do("matched w count=2")
        peer.do("write w count=2")
        for spy in (user, both):
            spy.wait_for_samples(2)
        for spy in (discovery, both):
            spy.wait_for_event("New writer", topic="T")
        for spy in (user, discovery, both):
            self.end(spy)
        self.assertEqual((user.events, discovery.samples()), ([], []))
        self.assertEqual((user.topic_statistics(), discovery.topic_statistics()),
                         ({("T", "peers::Keyed"): (2, 0, 0)}, {}))

    def test_filters_by_name(self):
        spy = self.spy("-topicRegex", "Sq*", "-topicRegex", "T?p", "-typeRegex", "*::Keyed", mode=None)
        peer = self.publisher(self.fastdds, "a topic=Square type=keyed", "b topic=Top type=keyed",
                              "c topic=Circle type=keyed", "d topic=Squid type=unkeyed")
        peer.do("matched a")
        peer.do("matched b")
        for writer in "abcd":
            peer.do(f"write {writer}")
        for topic in ("Square", "Top"):
            spy.wait_for_samples(1, topic=topic)
        spy.wait_for_event("New writer", topic="Squid")
        self.end(spy)
        self.assertEqual(spy.topic_statistics(), {("Square", "peers::Keyed"): (1, 0, 0), ("Top", "peers::Keyed"): (1, 0, 0)})

    def test_several_writers_of_one_topic(self):
        """Of both makers: one reader, each line with the writer that it comes from."""
        spy = self.spy("-showHandle", mode=None)
        peers = [self.publisher(make, "a topic=T type=keyed", "b topic=T type=keyed") for make in (self.cyclone, self.fastdds)]
        for peer in peers:
            for writer in ("a", "b"):
                # Writers that know our reader already may write before the spy knows their address.
                spy.wait_for_event("New writer", guid=peer.guids[writer])
                peer.do(f"matched {writer}")
                peer.do(f"write {writer} count=25")
        spy.wait_for_samples(100)
        for peer in peers:
            for writer in ("a", "b"):
                self.assertEqual(len(spy.samples(guid=peer.guids[writer], address="127.0.0.1")), 25, spy.story())
        self.end(spy)
        self.assertEqual(spy.topic_statistics(), {("T", "peers::Keyed"): (100, 0, 0)})

    def test_one_topic_name_with_two_types(self):
        """The second type is watched by a participant of its own."""
        spy = self.spy(mode=None)
        peer = self.publisher(self.cyclone, "a topic=T type=keyed")
        peer.do("matched a")
        other = self.publisher(self.fastdds, "b topic=T type=unkeyed")
        other.do("matched b")
        peer.do("write a count=3")
        other.do("write b count=4")
        spy.wait_for_samples(3, type="peers::Keyed")
        spy.wait_for_samples(4, type="peers::Unkeyed")
        self.end(spy)
        self.assertEqual(spy.topic_statistics(), {("T", "peers::Keyed"): (3, 0, 0), ("T", "peers::Unkeyed"): (4, 0, 0)})
        self.assertEqual(spy.statistics(), (2, 0))

    def test_a_restarted_application(self):
        spy = self.spy("-showSampleIdentity", mode=None)
        for attempt in (1, 2, 3):
            peer = self.publisher(self.fastdds, "w topic=T type=unkeyed")
            peer.do("matched w")
            peer.do("write w count=5")
            spy.wait_for_samples(5 * attempt, what="New data")
            self.assertEqual([sample.number for sample in spy.samples(virtual_guid=peer.guids["w"])], [1, 2, 3, 4, 5])
            peer.quit()
            spy.wait_for_samples(attempt, what="No writers")
        self.end(spy)

    def test_a_recreated_writer(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=T type=keyed", spy_options=("-useFirstPublicationQos",))
            for attempt in range(1, self.RECREATED + 1):
                # A writer that knows our reader already may write before we know the writer.
                spy.wait_for_event("New writer", count=attempt)
                peer.do("write w count=2")
                spy.wait_for("the samples", lambda: len(spy.samples()) - len(spy.samples(what="No writers")) == 2 * attempt)
                peer.do("delete w")
                spy.wait_for_samples(attempt, what="No writers")
                peer.do("writer w topic=T type=keyed")
                peer.do("matched w")
            self.end(spy)
            self.assertEqual(spy.topic_statistics(), {("T", "peers::Keyed"): (2 * self.RECREATED, 0, self.RECREATED)})

        self.with_each_maker(check)

    def test_a_thousand_instances(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=T type=keyed", spy_options=("-showSampleIdentity", "-showHandle", "-useFirstPublicationQos"))
            peer.do("write w count=3000 keys=1000")
            spy.wait_for_samples(3000)
            for number in range(1000):
                peer.do(f"dispose w key={number}")
            spy.wait_for_samples(4000)
            samples = spy.samples()
            self.assertEqual([sample.number for sample in samples], list(range(1, 4001)))
            self.assertEqual({sample.what for sample in samples[3000:]}, {"Disposed instance"})
            self.assertEqual({sample.id for sample in samples[3000:]}, set(range(1000)))
            if make == self.cyclone:  # Fast DDS sends no hashes with data: its samples are of one instance here
                self.assertEqual([sample.what for sample in samples[:3000]],
                                 ["New data"] * 1000 + ["Modified instance"] * 2000)
                self.assertEqual({sample.id for sample in samples[:1000]}, set(range(1000)))
            self.end(spy)
            self.assertEqual(spy.topic_statistics(), {("T", "peers::Keyed"): (3000, 1000, 0)})

        self.with_each_maker(check)

    def test_a_sample_of_20_megabytes(self):
        def check(make):
            peer, spy = self.watched(make, "w topic=T type=keyed depth=1",
                                     spy_options=("-showSampleIdentity", "-useFirstPublicationQos"))
            for number in (1, 2, 3):
                peer.do("write w size=20000000", limit=60 * harness.SLOWNESS)
                spy.wait_for_samples(number, limit=60 * harness.SLOWNESS)
            self.end(spy)
            self.assertEqual([sample.number for sample in spy.samples()], [1, 2, 3])

        self.with_each_maker(check)

    def test_a_dispose_that_brings_data(self):
        peer, spy = self.watched(self.cyclone, "w topic=T type=keyed", spy_options=("-printSample", "COMPACT"))
        for command in ("write w key=1 value=6", "writedispose w key=1 value=7", "writedispose w key=2 value=8"):
            peer.do(command)

        def contents():
            return [re.match(r'.{9}(New data|Disposed instance) .* sample=\{"id":(\d),"value":(\d)', line)
                    for line in spy.lines if " sample=" in line]

        spy.wait_for("the contents of all three", lambda: len(contents()) == 3)
        self.assertEqual([found and found.groups() for found in contents()],
                         [("New data", "1", "6"), ("Disposed instance", "1", "7"), ("Disposed instance", "2", "8")])
        self.end(spy)
        self.assertEqual(spy.topic_statistics(), {("T", "peers::Keyed"): (3, 0, 0)})


if __name__ == "__main__":
    harness.main()
