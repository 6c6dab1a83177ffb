#!/usr/bin/env python3
"""Limits that a storm reaches make room again, cost the same at the end as at the beginning, and are told.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import attacks
import faults
import forge
from faults import short_or_long

PARTICIPANTS = 10000


class Limits(faults.FaultTest):
    def test_participants_that_stay_for_ever(self):
        """Attack: 10,500 announcements (1.9 MB) of participants with an infinite lease that are never heard of again.
        Seen: the 10,000 places are taken and later participants are never seen, without a word on standard error; each
        announcement costs 4.6 ms in the end, and 24 us at the beginning: the cost is quadratic.
        Bound: a new application is discovered within 5 s; a line on standard error; at most 0.5 ms each, in the end as
        in the beginning."""
        tool = self.tool()
        attacker = self.forged(obliging=False)

        def announce(first, count):
            attacks.participants_that_stay(attacker, tool, first, count)

        first = self.cost(tool, lambda: announce(0, 500)) / 500
        announce(500, PARTICIPANTS - 1000)
        last = self.cost(tool, lambda: announce(PARTICIPANTS - 500, 500)) / 500
        announce(PARTICIPANTS, 500)
        tool.wait_at_rest(120)
        self.assert_discovers(tool)
        self.bound("time of an announcement at the beginning", 1e6 * first, 500 * faults.harness.SLOWNESS, "us")
        self.bound("time of an announcement at the end", 1e6 * last, 500 * faults.harness.SLOWNESS, "us")
        self.assertTrue(any("participants" in line for line in tool.errors), f"nothing on standard error\n{tool.story()}")

    def test_endpoints_of_one_participant(self):
        """Attack: one participant announces 20,000 endpoints (the long form 250,000, more than there are places).
        Seen: the protocol thread is done with them in 0.2 s, the main thread prints them for 9 s and more: it looks for
        each among all that it knows. A new application comes behind them.
        Bound: a new application is discovered within 5 s; at most 0.5 ms each."""
        tool = self.tool()
        attacker = self.forged()
        attacker.announce()
        count = short_or_long(20000, 250000)

        def announce():
            attacker.write_all(forge.PUBLICATIONS, attacks.many_endpoints(attacker, 0, count), tool=tool)
            attacker.wait_until_read(forge.PUBLICATIONS, limit=120)

        seconds = self.cost(tool, announce)
        self.bound("time of an announcement", 1e6 * seconds / count, 500 * faults.harness.SLOWNESS, "us")
        self.assert_discovers(tool)

    def test_types_of_one_topic(self):
        """Attack: one application announces 300 types of one topic (60 KB), for which the tool makes 255 further participants,
        and leaves. Then come four applications with 400 writers each.
        Seen: each endpoint takes 1 KiB in each participant: the fourth application is never seen, nor are others as large, to
        the end of the run; 236 MiB; each limit is told 256 times.
        Bound: all are seen; 100 MiB; ten lines on standard error beside those of writers that are not read."""
        tool = self.tool()
        before = tool.memory()
        attacker = self.forged()
        attacker.announce()
        attacker.write_all(forge.PUBLICATIONS, attacks.types_of_one_topic(attacker, 300), tool=tool)
        attacker.wait_until_read(forge.PUBLICATIONS)
        faults.wait_until("all participants of the tool", lambda: any("read other types" in line for line in tool.errors), 30)
        attacker.leave()
        for number in range(4):
            application = self.forged()
            application.announce()
            application.write_all(forge.PUBLICATIONS, attacks.many_endpoints(application, 0, 400, f"Healthy{number}"), tool=tool)
            application.wait_until_read(forge.PUBLICATIONS)
        tool.wait_at_rest(60)
        self.assert_discovers(tool)
        seen = sum("New writer" in line and "Healthy" in line for line in tool.lines)
        self.at_least("writers that are seen", seen, 1600, "writers")
        self.bound("memory", (tool.memory() - before) / faults.MIB, 100, "MiB more than before")
        self.bound("lines on standard error", sum("is not read" not in line for line in tool.errors), 10, "lines")

    def test_oversized_types(self):
        """Attack: 400 announcements (the long form 4,000) of types larger than -tcMaxSize.
        Seen: a line on standard error for each.
        Bound: ten lines a minute for a participant, with a count."""
        tool = self.tool()
        attacker = self.forged(builtin=attacks.EVERY_BUILTIN_ENDPOINT)
        attacker.announce()
        count = short_or_long(400, 4000)
        attacker.write_all(forge.PUBLICATIONS, attacks.oversized_types(attacker, 0, count), tool=tool)
        attacker.wait_until_read(forge.PUBLICATIONS)
        tool.wait_at_rest()
        self.bound(f"lines on standard error after {count} types", len(tool.errors), 10, "lines")
        self.at_least("lines on standard error", len(tool.errors), 1, "lines")


if __name__ == "__main__":
    faults.main()
