#!/usr/bin/env python3
"""Without an attack every bound holds that the other files measure: what they find is the tool's doing, and not theirs."""

import unittest

import faults
import forge


class Measures(unittest.TestCase):
    def test_the_longest_time_below_a_rate(self):
        subscriber = faults.Subscriber(None, "r")
        steady = [(number / 100, number) for number in range(1, 201)]
        # Two seconds of 100 a second, nothing for three, then a second of 20 a second.
        subscriber.received = steady + [(5 + number / 20, 200 + number) for number in range(1, 21)]
        self.assertLess(subscriber.longest_below(50, 0.0, 2.0), 0.05)
        self.assertAlmostEqual(subscriber.longest_below(50, 0.0, 5.0), 3.0, delta=0.1)
        self.assertAlmostEqual(subscriber.longest_below(50, 3.0, 6.0), 3.0, delta=0.1)
        self.assertAlmostEqual(subscriber.longest_below(50, 10.0, 12.5), 2.5, delta=0.01)


class Control(faults.FaultTest):
    def test_healthy_applications(self):
        tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity")
        subscriber = self.subscriber()
        before = tool.memory()
        self.healthy_publisher(size=8000, others=2)
        subscriber.start()
        self.wait_for_flow(tool)
        begin = subscriber.received[-1][0]
        faults.measure_for(5)
        self.bound("the other subscriber got less than half for", subscriber.longest_below(faults.HEALTHY_RATE / 2, begin), 1,
                   "s", 2)
        self.at_least("samples in 5 s", len(tool.numbers("Healthy")), 5 * faults.HEALTHY_RATE * 0.9, "samples")
        self.assert_no_loss(tool)
        self.assert_discovers(tool)
        self.bound_memory(tool, before)

    def test_a_forged_application_that_behaves(self):
        """It is discovered, its samples are printed, and it is gone when it leaves."""
        tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity")
        application, writer = self.matched_writer(tool, topic="Forged")
        tool.wait_for_event("New writer", topic="Forged")
        application.write_all(writer, [b"\0\1\0\0" + bytes(12)] * 300, port=faults.USER_PORT)
        application.wait_until_read(writer, port=faults.USER_PORT)
        tool.wait_for_samples(300, topic="Forged")
        self.bound("time per datagram", 1000 * self.cost(tool, lambda: application.write(
            writer, b"\0\1\0\0" + bytes(60000), port=faults.USER_PORT)), 5, "ms", 2)
        application.leave()
        tool.wait_for_event("Deleted writer", topic="Forged")

    def test_a_forged_application_in_fragments(self):
        """Its fragments and gaps are what the tool takes for fragments and gaps."""
        tool = self.tool("-useFirstPublicationQos", "-showSampleIdentity")
        application, writer = self.matched_writer(tool, topic="Forged")
        payload = b"\0\1\0\0" + bytes(2396)
        for first in (1, 2):
            application.send(forge.data_frag(writer, 1, first, payload[1200 * (first - 1):1200 * first], len(payload)),
                             port=faults.USER_PORT)
        # Gaps count for numbers that a heartbeat has named.
        application.send(forge.heartbeat(writer, 1, 8, application.next_count()), port=faults.USER_PORT)
        application.send(forge.gap(writer, 2, 5, [5, 7]), port=faults.USER_PORT)
        for number in (6, 8):
            application.send(forge.data(writer, number, b"\0\1\0\0" + bytes(12)), port=faults.USER_PORT)
        tool.wait_for_samples(3, topic="Forged")
        self.assertEqual([sample.number for sample in tool.samples()], [1, 6, 8], tool.story())


if __name__ == "__main__":
    faults.main()
