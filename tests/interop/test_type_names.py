#!/usr/bin/env python3
"""Writers of one topic that disagree on its type: each type is read by a participant of its own, and all of these share
sockets, ports and threads."""

import os
import re
import time

import harness
from harness import SLOWNESS

TYPES = 130  # more than a host has participant indices
FIRST_UNICAST_PORT = 7410


def resources(process):
    """Numbers of descriptors and threads, and the indices whose ports are bound."""
    folder = f"/proc/{process.pid}"
    inodes = set()
    descriptors = os.listdir(f"{folder}/fd")
    for descriptor in descriptors:
        found = re.fullmatch(r"socket:\[(\d+)\]", os.readlink(f"{folder}/fd/{descriptor}"))
        if found:
            inodes.add(found[1])
    ports = set()
    for family in ("udp", "udp6"):
        with open(f"{folder}/net/{family}", encoding="ascii") as table:
            for row in list(table)[1:]:
                fields = row.split()
                if fields[9] in inodes:
                    ports.add(int(fields[1].rpartition(":")[2], 16))
    indices = {(port - FIRST_UNICAST_PORT) // 2 for port in ports if port >= FIRST_UNICAST_PORT}
    return len(descriptors), len(os.listdir(f"{folder}/task")), indices


class TypeNames(harness.InteropTest):
    def writers(self, count, **settings):
        peer = self.cyclone(**settings)
        peer.do("participant")
        peer.do(f"writer w{{i}} topic=Square type=keyed type_name=peers::T{{i}} count={count}", limit=60 * SLOWNESS)
        return peer

    def read_all(self, spy, peer, count):
        """Everything that each of the writers writes, and its line in the statistics."""
        for i in range(count):
            peer.do(f"matched w{i} timeout={60 * SLOWNESS:g}", limit=60 * SLOWNESS)
        for i in range(count):
            peer.do(f"write w{i} count=2")
        types = {f"peers::T{i}" for i in range(count)}
        for name in types:
            spy.wait_for_samples(2, limit=60 * SLOWNESS, type=name)
        return types

    def check_statistics(self, spy, types):
        statistics = spy.topic_statistics()
        self.assertEqual({name: row[0] for (topic, name), row in statistics.items() if topic == "Square"},
                         {name: 2 for name in types})

    def test_more_types_than_participant_indices(self):
        peer = self.writers(TYPES)
        spy = self.spy(mode=None)
        begin = time.monotonic()
        types = self.read_all(spy, peer, TYPES)
        print(f"{TYPES} types after {time.monotonic() - begin:.2f} s", end=" ", flush=True)
        descriptors, threads, indices = resources(spy)
        print(f"{descriptors} descriptors, {threads} threads, indices {sorted(indices)}", end=" ", flush=True)
        self.assertLess(descriptors, 40)
        self.assertLess(threads, 10)
        self.assertLessEqual(len(indices), 2)
        # Another application finds a place, is seen, and is read.
        other = self.fastdds()
        other.do("participant")
        other.do("writer other topic=Circle")
        other.do("matched other", limit=30 * SLOWNESS)
        other.do("write other")
        spy.wait_for_samples(1, topic="Circle", limit=30 * SLOWNESS)
        other.quit()
        spy.wait_for_event("Deleted writer", topic="Circle", limit=30 * SLOWNESS)
        self.assertEqual(spy.interrupt(30 * SLOWNESS)[0], 1, spy.story())
        self.assertEqual(spy.errors, [])
        self.check_statistics(spy, types)


if __name__ == "__main__":
    harness.main()
