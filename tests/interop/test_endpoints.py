#!/usr/bin/env python3
"""Writers and readers of other applications appear, change and go, and each time there is one right line."""

import time

import harness


class Endpoints(harness.InteropTest):
    def check_new_lines(self, peer, spy, names):
        """A writer and a reader with everything that a line can tell."""
        peer.do("participant")
        name = "entity_name=blue" if names else ""
        peer.do(f"writer w topic=Square type=keyed partitions=A,B {name}")
        peer.do("reader r topic=Circle type=unkeyed best_effort partitions=C*")
        peer.do("writer d topic=Default type=unkeyed")

        writer = spy.wait_for_event("New writer", guid=peer.guids["w"])
        self.assertEqual((writer.address, writer.topic, writer.type, writer.name, writer.side, writer.partition),
                         ("127.0.0.1", "Square", "peers::Keyed", "blue" if names else None, "S", "A,B"))
        reader = spy.wait_for_event("New reader", guid=peer.guids["r"])
        self.assertEqual((reader.address, reader.topic, reader.type, reader.name, reader.side, reader.partition),
                         ("127.0.0.1", "Circle", "peers::Unkeyed", None, "P", "C*"))
        default = spy.wait_for_event("New writer", guid=peer.guids["d"])
        self.assertEqual((default.topic, default.partition), ("Default", None))
        self.assertEqual([event.dp_partition for event in spy.events], [None, None, None])
        self.assert_nothing_else(spy, peer.guids["w"], peer.guids["r"], peer.guids["d"])
        self.assertEqual(len(spy.events), 3, spy.story())

    def test_cyclone_after_the_spy(self):
        self.check_new_lines(self.cyclone(), self.spy(), names=True)

    def test_fastdds_after_the_spy(self):
        self.check_new_lines(self.fastdds(), self.spy(), names=False)

    def check_late_spy(self, peer):
        peer.do("participant")
        peer.do("writer w{i} topic=T{i} count=5")
        spy = self.spy()
        started = time.monotonic()
        for index in range(5):
            spy.wait_for_event("New writer", guid=peer.guids[f"w{index}"], topic=f"T{index}")
        print(f"all lines {time.monotonic() - started:.2f} s after the spy listens", end=" ", flush=True)
        self.end(spy)
        self.assertEqual(spy.statistics(), (5, 0))

    def test_cyclone_before_the_spy(self):
        self.check_late_spy(self.cyclone())

    def test_fastdds_before_the_spy(self):
        self.check_late_spy(self.fastdds())

    def check_update(self, peer, spy, endpoint, command, **expected):
        peer.do(command)
        event = spy.wait_for_event("Updated writer", guid=peer.guids[endpoint])
        for field, value in expected.items():
            self.assertEqual(getattr(event, field), value, event)

    def test_a_partition_change_is_an_update(self):
        peer, spy = self.fastdds(), self.spy()
        peer.do("participant")
        peer.do("writer w topic=T partitions=A")
        spy.wait_for_event("New writer", guid=peer.guids["w"], partition="A")
        self.check_update(peer, spy, "w", "partitions w partitions=B,C", partition="B,C", topic="T")
        peer.do("reader r topic=T partitions=A")
        spy.wait_for_event("New reader", guid=peer.guids["r"], partition="A")
        peer.do("partitions r partitions=D")
        spy.wait_for_event("Updated reader", guid=peer.guids["r"], partition="D")
        # What is shown when it goes is what was known last.
        peer.do("delete w")
        spy.wait_for_event("Deleted writer", guid=peer.guids["w"], partition="B,C")
        self.end(spy)
        self.assertEqual(spy.statistics(), (1, 1))

    def test_new_user_data_is_an_update(self):
        peer, spy = self.cyclone(), self.spy()
        peer.do("participant")
        peer.do("writer w topic=T entity_name=n user_data=one")
        spy.wait_for_event("New writer", guid=peer.guids["w"])
        self.check_update(peer, spy, "w", "user_data w user_data=two", topic="T", name="n")

    def check_deletion(self, peer, spy):
        peer.do("participant")
        peer.do("writer w topic=T")
        peer.do("reader r topic=T")
        spy.wait_for_event("New writer", guid=peer.guids["w"])
        spy.wait_for_event("New reader", guid=peer.guids["r"])
        peer.do("delete w")
        deleted = spy.wait_for_event("Deleted writer", guid=peer.guids["w"])
        self.assertEqual((deleted.address, deleted.topic, deleted.type), ("127.0.0.1", "T", "peers::Keyed"))
        self.assertEqual(spy.having("Deleted reader"), [])
        watch = harness.Stopwatch()
        self.assertEqual(peer.quit(), 0)
        spy.wait_for_event("Deleted reader", guid=peer.guids["r"])
        self.assertLess(watch.seconds(), 5 * harness.SLOWNESS, "a farewell is not waited for")
        self.end(spy)
        self.assertEqual(len(spy.having("Deleted writer")), 1, spy.story())
        self.assertEqual(len(spy.having("Deleted reader")), 1, spy.story())

    def test_cyclone_deletions(self):
        self.check_deletion(self.cyclone(), self.spy())

    def test_fastdds_deletions(self):
        self.check_deletion(self.fastdds(), self.spy())

    def test_a_peer_that_comes_again_is_new(self):
        spy = self.spy()
        for turn in range(3):
            peer = self.cyclone()
            peer.do("participant")
            peer.do("writer w topic=Again")
            spy.wait_for_event("New writer", guid=peer.guids["w"])
            peer.quit()
            spy.wait_for_event("Deleted writer", guid=peer.guids["w"])
        self.end(spy)
        self.assertEqual(spy.statistics(), (3, 0))

    def test_two_makers_see_each_other_beside_the_spy(self):
        spy, cyclone, fastdds = self.spy(), self.cyclone(), self.fastdds()
        cyclone.do("participant")
        fastdds.do("participant")
        cyclone.do("writer w topic=T partitions=A")
        fastdds.do("reader r topic=T partitions=A")
        spy.wait_for_event("New writer", guid=cyclone.guids["w"])
        spy.wait_for_event("New reader", guid=fastdds.guids["r"])
        cyclone.do("matched w")
        # In DISC mode the spy has no readers: only the other peer matches.
        self.assertEqual(cyclone.do("matched w count=0"), ["matched w 1"])
        fastdds.do("matched r")
        cyclone.do("write w count=10")
        fastdds.do("received r count=10")

    def test_ddsperf(self):
        spy = self.spy()
        self.ddsperf("pub", "1Hz", "size", "32")
        writer = spy.wait_for_event("New writer", topic="DDSPerfRDataKS")
        self.assertEqual((writer.address, writer.type), ("127.0.0.1", "KeyedSeq"))

    def test_widths_cut_names(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=Abcdefghij")
        spy = self.spy("-topicWidth", "4", "-typeWidth", "7")
        self.assertEqual(spy.wait_for_event("New writer", guid=peer.guids["w"]).line[48:],
                         f': topic="Abcd" type="peers::" guid="{peer.guids["w"]}"')

    def test_modes_choose_what_is_shown(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T partitions=A entity_name=n")
        plain = self.spy(mode=None)
        event = plain.wait_for_event("New writer", topic="T")
        self.assertEqual((event.guid, event.name, event.partition), (None, "n", None))
        # It reads the topic by now, which another spy would rightly report.
        self.end(plain)
        silent = self.spy(mode="USER")
        peer.do("matched w")
        self.end(silent)
        self.assertEqual(silent.events, [])
        # Hidden lines count all the same.
        self.assertEqual(silent.statistics(), (1, 0))


if __name__ == "__main__":
    harness.main()
