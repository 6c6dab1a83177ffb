#!/usr/bin/env python3
"""A few packets cannot make the tool take more memory than its budget, nor hold it for ever.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import os

import attacks
import faults
import forge
import packets
from faults import MIB, short_or_long


class Fragments(faults.FaultTest):
    def announce_participants(self, tool, count):
        applications = [self.forged(builtin=attacks.EVERY_BUILTIN_ENDPOINT) for _ in range(count)]
        for application in applications:
            application.announce()
        tool.wait_at_rest()
        return applications

    def test_fragments_with_gaps_over_them(self):
        """Attack: 15 participants each send the first fragment of samples of 64 MiB to the builtin readers, then a gap over
        each: 45 datagrams. Each writer's assembler keeps the buffer of the largest sample that it held.
        Seen: 2,886 MiB, kept.
        Bound: the budget of the process; what is no longer waited for is given back."""
        tool = self.tool("-useFirstPublicationQos")
        applications = self.announce_participants(tool, 15)
        before = tool.memory()
        for application in applications:
            for writer in forge.BUILTIN_WRITERS[:3]:
                application.send(*attacks.fragment_with_a_gap_over_it(writer))
        tool.wait_at_rest()
        self.bound_memory(tool, before)
        self.assert_discovers(tool)

    def test_fragments_to_builtin_readers(self):
        """Attack: 16 fragments of samples of 64 MiB to the builtin readers, which never become whole.
        Seen: 1,026 MiB, held for ever.
        Bound: announcements are small, so a builtin reader holds at most 1 MiB of them."""
        tool = self.tool()
        applications = self.announce_participants(tool, 4)
        before = tool.memory()
        for application in applications:
            for writer in forge.BUILTIN_WRITERS:
                application.send(*attacks.fragment_of_a_large_sample(writer))
        tool.wait_at_rest()
        self.bound("memory at its highest", (tool.peak() - before) / MIB, len(forge.BUILTIN_WRITERS) + 4,
                   "MiB more than before")
        self.assert_discovers(tool)

    def test_fragments_of_user_samples(self):
        """Attack: 40 writers of one topic announce themselves, and each sends one fragment of a sample of 64 MiB.
        Seen: 257 MiB at once, taken as the samples were announced and not as their fragments came.
        Bound: memory comes with the bytes: 40 fragments of 64 bytes are next to nothing."""
        tool = self.tool("-useFirstPublicationQos")
        application = self.forged()
        application.announce()
        writers = [application.publish("Large", entity=0x00000003 | number << 8) for number in range(1, 41)]
        application.wait_until_read(forge.PUBLICATIONS)
        application.wait_until_subscribed("Large")
        before = tool.memory()
        for writer in writers:
            application.begin(writer)
            application.send(*attacks.fragment_of_a_large_sample(writer), port=faults.USER_PORT)
        tool.wait_at_rest()
        self.bound("memory at its highest", (tool.peak() - before) / MIB, 8, "MiB more than before")


class Endpoints(faults.FaultTest):
    def test_updates_with_a_foreign_participant(self):
        """Attack: one endpoint is announced again and again, each time as if it belonged to another participant.
        Seen: 1 KiB more for each update, for ever.
        Bound: none; the second half of the updates takes no more than noise."""
        tool = self.tool()
        application = self.forged()
        application.announce()
        updates = short_or_long(10000, 100000)

        def update(first):
            application.write_all(forge.PUBLICATIONS, attacks.foreign_participants(application, first, updates // 2), tool=tool)
            application.wait_until_read(forge.PUBLICATIONS)
            tool.wait_at_rest()

        update(0)
        before = tool.memory()
        update(updates)
        self.bound(f"memory for {updates // 2} updates", (tool.memory() - before) / 1024, 2048, "KiB more than before")


    def test_partitions_of_a_participant(self):
        """Attack: a participant announces 25,000 names of partitions (50 KB), and 2,000 small writers.
        Seen: the names are taken apart and kept with each writer: 27 s of the main thread, 201 MiB.
        Bound: 12 KiB and 2 ms of all threads for a writer, a line on standard error."""
        tool = self.tool()
        application = self.forged()
        names = forge.text("dds.domain_participant.partition") + forge.text("*" + ",a" * 25000)
        application.announce(more=[(packets.PROPERTIES, b"\1\0\0\0" + names)])
        tool.wait_at_rest()
        before, time_before, count = tool.memory(), tool.processor_time(), 2000
        application.write_all(forge.PUBLICATIONS, attacks.many_endpoints(application, 0, count), tool=tool)
        application.wait_until_read(forge.PUBLICATIONS)
        tool.wait_for_event("New writer", count=count, limit=60)
        self.bound("memory for a writer", (tool.memory() - before) / 1024 / count, 12, "KiB", 1)
        self.bound("time for a writer", 1000 * (tool.processor_time() - time_before) / count, 2 * faults.harness.SLOWNESS, "ms", 2)
        self.assertTrue(any("partitions" in line for line in tool.errors), f"nothing on standard error\n{tool.story()}")

    def test_type_objects(self):
        """Attack: publications with whole types of 59 KB each (500; the long form 9,000), larger than the tool takes.
        Seen: they are kept, and nothing counts them: 60 KB each, 176 MiB for 3,000.
        Bound: 5 KiB each: a type object is not kept once its type was asked for."""
        tool = self.tool()
        application = self.forged()
        application.announce()
        count = short_or_long(500, 9000)
        application.write_all(forge.PUBLICATIONS, attacks.type_objects(application, 0, 50), tool=tool)
        application.wait_until_read(forge.PUBLICATIONS)
        tool.wait_at_rest()
        before = tool.memory()
        application.write_all(forge.PUBLICATIONS, attacks.type_objects(application, 50, count), tool=tool)
        application.wait_until_read(forge.PUBLICATIONS, limit=100)
        tool.wait_at_rest()
        self.bound("memory for a publication", (tool.memory() - before) / 1024 / count, 5, "KiB", 1)


class Samples(faults.FaultTest):
    # The documents tell the limit; this must lie beyond it.
    INSTANCES = 100000

    def test_instances_that_are_never_seen_again(self):
        """Attack: none is needed: a writer whose every sample has a key of its own.
        Seen: 270 bytes for each, as long as the writer lives.
        Bound: the longest unused instance is forgotten at a limit, so the memory levels off."""
        with open(os.devnull, "w") as nowhere:
            tool = self.raw_tool(nowhere, "-useFirstPublicationQos")
        publisher = self.cyclone()
        publisher.do("participant")
        publisher.do("writer w topic=T type=keyed")
        publisher.do("matched w")
        count = self.INSTANCES

        def write(first):
            publisher.do(f"write w count={count} keys={count} key={first} rate=40000", limit=60)
            faults.wait_until("the tool to have read it all", lambda: tool.is_at_rest(), 60)

        write(0)
        before = tool.memory()
        rounds = short_or_long(1, 5)
        for number in range(rounds):
            write((number + 1) * count)
        self.bound(f"memory for {rounds * count} further keys", (tool.memory() - before) / MIB, 4, "MiB more than before")

    def test_what_waited_once_leaves_room(self):
        """Attack: none is needed: on each of 80 topics 60 samples of 100 KB come faster than they are printed, one topic after
        the other; then a sample of 20 MB.
        Seen: 20 MB for each topic where 200 samples waited, for ever.
        Bound: the budget; and the large sample comes."""
        with open(os.devnull, "w") as nowhere:
            tool = self.raw_tool(nowhere, "-useFirstPublicationQos", "-printSample", "COMPACT")
        publisher = self.cyclone()
        publisher.do("participant")
        before = tool.memory()
        for number in range(80):
            publisher.do(f"writer w{number} topic=T{number} type=keyed")
            publisher.do(f"matched w{number}")
            publisher.do(f"write w{number} count=60 size=100000", limit=60)
            publisher.do(f"acknowledged w{number} timeout=60", limit=70)
        faults.wait_until("the tool to have read it all", lambda: tool.is_at_rest(), 60)
        publisher.do("writer large topic=Large type=keyed")
        publisher.do("matched large")
        publisher.do("write large size=15000000", limit=60)
        publisher.do("acknowledged large timeout=20", limit=30)
        self.bound_memory(tool, before)

    def test_small_samples_before_a_stalled_terminal(self):
        """Attack: none is needed: small samples of many instances, and nothing reads standard output.
        Seen: 900,000 samples of 16 bytes count as 14 MB and take 3.8 GiB.
        Bound: the budget counts what is really taken."""
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        tool = self.raw_tool(writer, "-useFirstPublicationQos")
        os.close(writer)
        publisher = self.cyclone()
        publisher.do("participant")
        publisher.do("writer w topic=T type=keyed")
        publisher.do("matched w")
        before = tool.memory()
        # 8192 samples of an instance may wait.
        publisher.do(f"write w count={short_or_long(900000, 3000000)} keys={short_or_long(120, 400)}", limit=120)
        faults.wait_until("the tool to have read it all", lambda: tool.is_at_rest(), 60)
        self.bound_memory(tool, before)


if __name__ == "__main__":
    faults.main()
