#!/usr/bin/env python3
"""The harness itself: that networks are separate and that a wait can fail. The tool is not needed."""

import os
import unittest

import harness


class Harness(harness.InteropTest):
    def test_networks_are_private_and_can_be_joined(self):
        other = self.new_network()
        self.assertEqual(len(self.network.ip("-o", "link").splitlines()), 1)
        harness.join_by_cable(self.network, other)
        self.assertIn("10.77.0.1/24", self.network.ip("-o", "-4", "address"))
        self.assertIn("10.77.0.2/24", other.ip("-o", "-4", "address"))
        self.assertIn("eth0", other.ip("route", "get", "239.255.0.1"))

    def test_a_router_joins_networks(self):
        other, router = self.new_network(), self.new_network()
        if harness.join_by_router(self.network, router, other):
            self.assertIn("via 10.77.1.2", self.network.ip("route", "get", "10.77.2.1"))

    def test_a_network_can_be_without_ipv4(self):
        network = self.new_network(ipv4=False)
        self.assertEqual(network.ip("-o", "-4", "address"), "")
        self.assertIn("::1/128", network.ip("-o", "-6", "address"))

    def test_waiting_in_vain_fails_and_tells_what_was_said(self):
        process = self.keep(harness.Process(self.network, ["sh", "-c", "echo heard; echo wrong >&2; exec sleep 60"]))
        process.wait_for_line("heard")
        with self.assertRaisesRegex(AssertionError, r"(?s)waited in vain.*heard.*wrong"):
            process.wait_for_line("never", limit=0.2)
        with self.assertRaisesRegex(AssertionError, "still running"):
            process.wait(limit=0.1)

    def test_everything_ends_with_its_test(self):
        process = harness.Process(self.network, ["sleep", "60"])
        process.close()
        with self.assertRaises(ProcessLookupError):
            os.kill(process.pid, 0)

    def test_lines_are_taken_apart(self):
        line = ('12:12:29 New writer        from 192.168.43.223  : topic="Square" type="T" '
                'guid="0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202" name="n" DP partition="A,B" S  partition="C"')
        event = harness.Event(line, harness.EVENT.fullmatch(line))
        self.assertEqual((event.what, event.address, event.topic, event.type, event.name, event.dp_partition, event.partition),
                         ("New writer", "192.168.43.223", "Square", "T", "n", "A,B", "C"))
        unknown = '12:12:29 Deleted reader    from unknown ip      : topic="a" type="b"'
        self.assertEqual(harness.Event(unknown, harness.EVENT.fullmatch(unknown)).address, "unknown ip")
        shifted = line.replace("New writer        ", "New writer       ")
        with self.assertRaises(AssertionError):
            harness.Event(shifted, harness.EVENT.fullmatch(shifted))

    def test_peers_tell_what_they_made(self):
        for make in (self.cyclone, self.fastdds):
            with self.subTest(make.__name__):
                peer = make()
                peer.do("participant")
                peer.do("writer w{i} topic=T{i} count=2")
                self.assertEqual(set(peer.guids), {"participant", "w0", "w1"})
                self.assertEqual(peer.guids["w0"][:32], peer.guids["participant"][:32])
                with self.assertRaisesRegex(AssertionError, "no writer called x"):
                    peer.do("write x")
                self.assertEqual(peer.quit(), 0)


if __name__ == "__main__":
    harness.main()
