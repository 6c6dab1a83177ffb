#!/usr/bin/env python3
"""What arrives at the ports of the domain and cannot be used: the tool goes on, and says what it dropped."""

import re
import socket
import tempfile

import harness

PORT = 7411  # user data of the first participant of domain 0
HEADER = b"RTPS\x02\x03\xff\xff" + 12 * b"\x09"
COUNT = 500
SMALL_BUFFER = """<dds><qos_library name="L"><qos_profile name="P" is_default_qos="true"><domain_participant_qos>
    <receiver_pool><buffer_size>2000</buffer_size></receiver_pool>
    </domain_participant_qos></qos_profile></qos_library></dds>"""


class Rubbish(harness.InteropTest):
    def send(self, datagram, count):
        with self.network.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for _ in range(count):
                sender.sendto(datagram, ("127.0.0.1", PORT))

    def test_it_is_told_once_and_as_totals(self):
        document = tempfile.NamedTemporaryFile("w", suffix=".xml")
        self.addCleanup(document.close)
        document.write(SMALL_BUFFER)
        document.flush()
        spy = self.spy("-verbosity", "2", "-qosFile", document.name, "-qosProfile", "L::P", mode=None)
        kinds = {
            "not RTPS": (b"no message of this protocol", "it is not RTPS",
                         f"{COUNT} datagrams were not RTPS and dropped"),
            "cut off": (HEADER + b"\x15\x01\x64\x00", "from its first malformed submessage on",
                        f"{COUNT} datagrams were malformed and dropped, from the first fault on"),
            "too large": (3000 * b"x", "larger than the receive buffer of 2000 bytes",
                          f"{COUNT} datagrams were larger than the receive buffer and dropped"),
            "secured": (HEADER + b"\x30\x01\x00\x00", "sends secured messages",
                        f"{COUNT} secured submessages were not read"),
        }
        for datagram, first, _ in kinds.values():
            self.send(datagram, COUNT)
            spy.wait_for(first, lambda first=first: any(first in line for line in spy.errors))
        # A sample shows that all before it was taken: the port is the same.
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T")
        peer.do("matched w")
        peer.do("write w")
        spy.wait_for_samples(1)
        self.assertEqual(spy.interrupt()[0], 1, spy.story())
        for name, (_, first, total) in kinds.items():
            with self.subTest(name):
                self.assertEqual(sum(first in line for line in spy.errors), 1, spy.story())
                self.assertEqual(sum(line.endswith(total) for line in spy.errors), 1, spy.story())

    def test_nothing_of_it_in_plain_runs(self):
        spy = self.spy(mode=None)
        self.send(b"no message of this protocol", 10)
        self.end(spy)

    def test_nothing_is_told_where_nothing_was_dropped(self):
        spy = self.spy("-verbosity", "2", mode=None)
        peer = self.fastdds()
        peer.do("participant")
        peer.do("writer w topic=T")
        peer.do("matched w")
        peer.do("write w count=5")
        spy.wait_for_samples(5)
        spy.interrupt()
        self.assertEqual([line for line in spy.errors if re.search("dropped|malformed|not read", line)], [], spy.story())


if __name__ == "__main__":
    harness.main()
