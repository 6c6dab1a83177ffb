#!/usr/bin/env python3
"""Where the tool cannot see, it says so: at default verbosity, on standard error, one clear line.

What is said to be seen was seen on release builds of 2026-11-21.
"""

import pathlib
import tempfile

import faults
import forge
from faults import short_or_long

TCP, SHARED_MEMORY = 4, 16


class SilenceTest(faults.FaultTest):
    def assert_told(self, process, *words, limit=4, at_most=3):
        """A line with one of these words; and not a flood of them."""
        try:
            process.wait_for(f"a line with one of {words}", lambda: [
                line for line in list(process.errors) if any(word in line.lower() for word in words)], limit)
        except AssertionError:
            self.fail(f"no line with one of {words} on standard error\n{process.story()}")
        self.bound("lines on standard error", len(process.errors), at_most, "lines")

    def shell(self, script, network=None):
        """A script in which "$0" is the tool."""
        return self.keep(faults.harness.Process(network or self.network, ["sh", "-c", script, str(faults.harness.options.tool)]))

    def document(self, participant):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name, "qos.xml")
        path.write_text('<dds><qos_library name="DefaultSpyLibrary"><qos_profile name="DefaultSpyProfile">'
                        f"<domain_participant_qos>{participant}</domain_participant_qos></qos_profile></qos_library></dds>")
        return str(path)


class Interfaces(SilenceTest):
    def test_no_usable_interface(self):
        """Seen: nothing is said."""
        self.network.ip("link", "set", "lo", "down")
        self.assert_told(self.shell('exec "$0" -timeout 3'), "interface")

    def test_interfaces_cannot_be_listed(self):
        """With so few descriptors that the interfaces cannot be asked for (ulimit -n 8).
        Seen: nothing is said."""
        self.assert_told(self.shell('ulimit -n 8; exec "$0" -timeout 3'), "interface", "descriptor", "open files")

    def test_no_ipv6(self):
        """-transport 8 where there is no IPv6.
        Seen: nothing is said."""
        self.network.ip("-6", "address", "flush", "dev", "lo")
        self.assert_told(self.shell('exec "$0" -transport 8 -timeout 3'), "ipv6", "interface", "address family")

    def test_no_allowed_interface(self):
        """A list of allowed interfaces that matches none.
        Seen: nothing is said."""
        name = "dds.transport.UDPv4.builtin.parent.allow_interfaces_list"
        document = self.document(f"<property><value><element><name>{name}</name><value>wlan77</value></element></value></property>")
        self.assert_told(self.shell(f'exec "$0" -qosFile {document} -timeout 3'), "interface")


class Sizes(SilenceTest):
    def test_an_announcement_larger_than_a_message(self):
        """The tool's own announcement does not fit -msgMaxSize.
        Seen: it is dropped: the tool sees nothing and is not seen, and nothing is said even at verbosity 5.
        Bound: it gets out in fragments, and the tool sees a new application."""
        octets = ",".join(["7"] * 3000)
        document = self.document(f"<user_data><value>{octets}</value></user_data>")
        tool = self.tool("-qosFile", document, "-msgMaxSize", "1400")
        self.assert_discovers(tool)

    def test_messages_larger_than_ours(self):
        """-msgMaxSize is smaller than what a writer sends.
        Seen: no line for its samples, and nothing is said."""
        tool = self.tool("-msgMaxSize", "1400")
        publisher = self.cyclone()
        publisher.do("participant")
        publisher.do("writer w topic=T type=keyed")
        publisher.do("matched w")
        publisher.do("write w count=20 rate=100 size=1450")
        try:
            tool.wait_for_samples(20, 3, topic="T")
        except AssertionError:
            self.assert_told(tool, "msgmaxsize", "larger", "truncated")

    def test_samples_that_come_incomplete(self):
        """20 best-effort samples of 20 MB, of which fragments are lost.
        Seen: 0 of 20, and nothing is said.
        Bound: those that came incomplete are counted, and told at the end."""
        tool = self.tool()
        publisher = self.cyclone(extra="<Internal><MaxSampleSize>30000000</MaxSampleSize></Internal>")
        publisher.do("participant")
        publisher.do("writer w topic=T type=keyed")
        publisher.do("matched w")
        count = short_or_long(5, 20)
        publisher.do(f"write w count={count} rate=10 size=20000000", limit=30)
        tool.wait_at_rest()
        # One that stays incomplete on a machine of any speed.
        application, writer = self.matched_writer(tool, reliable=False, topic="Incomplete")
        application.send(forge.data_frag(writer, 1, 1, bytes(1000), 3000), port=faults.USER_PORT)
        tool.wait_at_rest()
        tool.interrupt()
        self.assert_told(tool, "incomplete")


class Messages(SilenceTest):
    def test_a_participant_without_a_udp_address(self):
        """A participant that announces TCP or shared memory only.
        Seen: it is discovered as any, but neither its endpoints nor its data, and nothing is said.
        Bound: "seen but not reachable", once for each."""
        tool = self.tool()
        for kind in (TCP, SHARED_MEMORY):
            application = self.forged()
            for _ in range(3):
                application.announce(metatraffic=[forge.locator("127.0.0.1", 7400, kind)])
        tool.wait_at_rest()
        self.assert_told(tool, "not reachable")

    def test_malformed_datagrams(self):
        """Datagrams that are no RTPS messages, and some that break off.
        Seen: nothing is said.
        Bound: they are counted, and told at the end."""
        tool = self.tool()
        application = self.forged()
        for _ in range(30):
            application.send(b"\x15\x05\xff\x00" + bytes(4))
        tool.wait_at_rest()
        tool.interrupt()
        self.assert_told(tool, "malformed")
        self.assertTrue(any("30" in line for line in tool.errors), tool.story())

    def test_numbers_too_high_to_be_believed(self):
        """Writers whose samples have numbers close to the highest that there can be.
        Seen: the writer is shown, its samples are not, and nothing is said.
        Bound: one line for each."""
        tool = self.tool("-useFirstPublicationQos")
        for reliable in (True, False):
            application, writer = self.matched_writer(tool, reliable=reliable, topic=f"T{reliable}")
            for number in range(2 ** 63 - 20, 2 ** 63 - 10):
                application.send(forge.data(writer, number, b"\x00\x01\x00\x00" + bytes(4)), port=faults.USER_PORT)
        tool.wait_at_rest()
        self.assert_told(tool, "2^62")
        tool.wait_for("a line for each", lambda: sum("2^62" in line for line in tool.errors) == 2, 4)

    def test_transport_properties_without_effect(self):
        """Seen: told as a warning, which default verbosity does not show."""
        document = self.document("<property><value><element><name>dds.transport.UDPv4.builtin.no_such_thing</name>"
                                 "<value>1</value></element></value></property>")
        self.assert_told(self.shell(f'exec "$0" -qosFile {document} -timeout 2'), "no_such_thing")


if __name__ == "__main__":
    faults.main()
