#!/usr/bin/env python3
"""What a user asks for on the command line or in a QoS document is what goes over the wire."""

import itertools
import pathlib
import re
import statistics
import tempfile

import harness
import packets
from packets import UDPV4, UDPV6

BURST = 5  # announcements at the start, before the period counts


class Announcements(harness.InteropTest):
    @classmethod
    def setUpClass(cls):
        """It takes a while until a cable works, so there is one for all, and one without multicast."""
        cls.here, cls.there = cls.hosts()
        cls.here_alone, cls.there_alone = cls.hosts()
        for network in (cls.here_alone, cls.there_alone):
            network.ip("route", "delete", "224.0.0.0/4")
            for device in ("lo", "eth0"):
                network.ip("link", "set", device, "multicast", "off")

    @classmethod
    def hosts(cls):
        networks = [harness.Network() for _ in range(2)]
        for network in networks:
            cls.addClassCleanup(network.close)
        harness.join_by_cable(*networks)
        return networks

    def tap(self, network=None):
        tap = packets.Tap(network or self.network)
        self.addCleanup(tap.close)
        return tap

    def observe(self, *arguments, network=None, count=1, **settings):
        """A spy in a network without other applications, and the tap there: it has sent so many announcements."""
        tap = self.tap(network)
        spy = self.spy(*arguments, network=network, **settings)
        tap.wait_for("announcements", lambda: len(tap.announcements()) >= count)
        return spy, tap

    def announced(self, *arguments, **settings):
        """The parameters of a spy's announcement. The spy has ended when this returns."""
        spy, tap = self.observe(*arguments, **settings)
        self.drop(spy)
        return tap.announcements()[0].parameters

    def drop(self, spy):
        """Ends it without waiting for the end of its turn. It must have had nothing to complain about."""
        spy.close()
        self.assertEqual(spy.errors, [], spy.story())

    def profile(self, participant, library="DefaultSpyLibrary", name="DefaultSpyProfile", reader=""):
        """A QoS document with one profile, and these in its QoS of the participant and of readers."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name, "qos.xml")
        path.write_text(f'<dds><qos_library name="{library}"><qos_profile name="{name}">'
                        f"<domain_participant_qos>{participant}</domain_participant_qos>"
                        f"<datareader_qos>{reader}</datareader_qos>"
                        "</qos_profile></qos_library></dds>")
        return str(path)

    # Who is announced, and where.

    def test_domain_id(self):
        for arguments, domain in ((), 0), (("-domainId", "5"), 5):
            with self.subTest(domain=domain):
                base = 7400 + 250 * domain
                spy, tap = self.observe(*arguments, count=2 * BURST)
                self.drop(spy)
                parameters = tap.announcements()[0].parameters
                self.assertEqual(parameters.integer(packets.DOMAIN_ID), domain)
                self.assertEqual(parameters.locators(packets.METATRAFFIC_MULTICAST), [(UDPV4, "239.255.0.1", base)])
                self.assertEqual(parameters.locators(packets.DEFAULT_MULTICAST), [(UDPV4, "239.255.0.1", base + 1)])
                multicast = {datagram.port for datagram in tap.sent() if datagram.destination.is_multicast}
                unicast = {datagram.port for datagram in tap.sent() if not datagram.destination.is_multicast}
                self.assertEqual(multicast, {base})
                self.assertLessEqual(unicast, {base + 10 + 2 * index for index in range(5)})

    def test_domain_tag(self):
        self.assertEqual(self.announced("-domainTag", "cell 4").text(packets.DOMAIN_TAG), "cell 4")
        self.assertIsNone(self.announced().get(packets.DOMAIN_TAG))

    def test_participant_index(self):
        for arguments, index in ((), 0), (("-index", "7"), 7), (("-index", "50"), 50):
            with self.subTest(index=index):
                parameters = self.announced(*arguments)
                self.assertEqual(parameters.locators(packets.METATRAFFIC_UNICAST),
                                 [(UDPV4, "127.0.0.1", 7410 + 2 * index)])
                self.assertEqual(parameters.locators(packets.DEFAULT_UNICAST),
                                 [(UDPV4, "127.0.0.1", 7411 + 2 * index)])

    def test_application_id(self):
        spy, tap = self.observe("-appId", str(0x12345678))
        self.drop(spy)
        announcement = tap.announcements()[0]
        self.assertEqual(announcement.prefix[4:8].hex(), "12345678")
        self.assertEqual(announcement.parameters.get(packets.PARTICIPANT_GUID), announcement.prefix + b"\x00\x00\x01\xc1")
        given = self.announced().get(packets.PARTICIPANT_GUID)[4:8]
        self.assertNotIn(given.hex(), ("12345678", "00000000"))

    def test_participant_name(self):
        self.assertEqual(self.announced().text(packets.NAME), "Kvo DDS Spy")
        nameless = self.profile("")
        self.assertEqual(self.announced("-qosFile", nameless).text(packets.NAME), "Kvo Meridian DDS Spy")
        named = "<participant_name><name>Line 7</name></participant_name>"
        self.assertEqual(self.announced("-qosFile", self.profile(named)).text(packets.NAME), "Line 7")
        chosen = self.profile(named, "Plant", "Watch")
        self.assertEqual(self.announced("-qosFile", chosen, "-qosProfile", "Plant::Watch").text(packets.NAME), "Line 7")
        self.assertEqual(self.announced("-qosFile", chosen).text(packets.NAME), "Kvo DDS Spy")

    def test_participant_partitions(self):
        name = "dds.domain_participant.partition"
        self.assertEqual(self.announced().properties()[name], "*")
        parameters = self.announced("-participantPartition", "north", "-participantPartition", "s*")
        self.assertEqual(parameters.properties()[name], "north,s*")

    # Where announcements go.

    def test_peers_where_nothing_multicasts(self):
        for arguments, family, ports in ((("-peer", "10.77.0.2"), UDPV4, range(7410, 7420, 2)),
                                         (("-peer", "2@10.77.0.2"), UDPV4, range(7410, 7416, 2)),
                                         (("-peer", "0@10.77.0.2", "-domainId", "1"), UDPV4, [7660]),
                                         (("-transport", "8", "-peer", "1@fd77::2"), UDPV6, range(7410, 7414, 2))):
            with self.subTest(arguments):
                tap = self.tap(self.there_alone)
                spy, own = self.observe(*arguments, network=self.here_alone)
                # The second round at the first port shows that the first round is complete.
                tap.wait_for(f"announcements at ports {list(ports)}", lambda: self.rounds(tap, ports) >= 2)
                self.drop(spy)
                arrived = tap.arrived("eth0")
                self.assertEqual({datagram.port for datagram in arrived}, set(ports))
                self.assertEqual({datagram.family for datagram in arrived}, {family})
                self.assertEqual([datagram for datagram in own.sent() if datagram.destination.is_multicast], [])

    def rounds(self, tap, ports):
        heard = [datagram.port for datagram in tap.arrived("eth0")]
        return heard.count(ports[0]) if set(heard) >= set(ports) else 0

    def test_a_domain_without_multicast_through_a_peer_alone(self):
        peer = self.cyclone(self.there_alone, multicast="false")
        peer.do("participant")
        peer.do("writer w topic=T")
        spy, tap = self.observe("-peer", "10.77.0.2", network=self.here_alone)
        spy.wait_for_event("New writer", guid=peer.guids["w"])
        self.drop(spy)
        self.assertEqual([datagram for datagram in tap.sent() if datagram.destination.is_multicast], [])

    def test_discovery_ttl(self):
        for arguments, ttl in ((), 1), (("-discoveryTTL", "5"), 5), (("-discoveryTTL", "255"), 255):
            with self.subTest(ttl=ttl):
                spy, tap = self.observe("-transport", "9", *arguments, network=self.here)
                multicast = tap.wait_for("multicast of both families on the cable", lambda: self.both_families(
                    datagram for datagram in tap.sent("eth0") if datagram.destination.is_multicast))
                self.drop(spy)
                self.assertEqual({datagram.ttl for datagram in multicast}, {ttl})

    def both_families(self, datagrams):
        datagrams = list(datagrams)
        return datagrams if {datagram.family for datagram in datagrams} == {UDPV4, UDPV6} else None

    def test_discovery_ttl_0_stays_here(self):
        tap = self.tap(self.there)
        spy, own = self.observe("-transport", "9", "-discoveryTTL", "0", network=self.here)
        multicast = own.wait_for("multicast of both families on this host", lambda: self.both_families(
            datagram for datagram in own.sent("lo") if datagram.destination.is_multicast))
        self.drop(spy)
        self.assertEqual({datagram.ttl for datagram in multicast}, {0})
        self.assertEqual([datagram for datagram in tap.arrived("eth0") if datagram.prefix], [])

    def test_transports(self):
        own = {UDPV4: "10.77.0.1", UDPV6: "fd77::1"}
        for mask, families in ("1", {UDPV4}), ("8", {UDPV6}), ("9", {UDPV4, UDPV6}), ("3", {UDPV4}):
            with self.subTest(mask=mask):
                tap = self.tap(self.there)
                spy, mine = self.observe("-transport", mask, network=self.here)
                tap.wait_for("announcements of each family",
                             lambda: {datagram.family for datagram in tap.arrived("eth0")} >= families)
                # What the other host has heard may not be on record here yet.
                mine.wait_for("the record of each family",
                              lambda: {datagram.family for datagram in mine.sent()} >= families)
                self.drop(spy)
                self.assertEqual({datagram.family for datagram in mine.sent()}, families)
                parameters = mine.wait_for("an announcement", lambda: mine.announcements("eth0"))[0].parameters
                for number in (packets.METATRAFFIC_UNICAST, packets.DEFAULT_UNICAST):
                    self.assertEqual({(kind, address) for kind, address, _ in parameters.locators(number)},
                                     {(family, own[family]) for family in families})

    def test_this_host_only(self):
        """Even a spy on another host that multicasts gets no answer."""
        tap = self.tap(self.there)
        spy, own = self.observe("-transport", "2", network=self.here)
        other = self.spy(network=self.there)
        own.wait_for("the other's announcements", lambda: [datagram for datagram in own.arrived("eth0") if datagram.prefix])
        own.wait_for("announcements", lambda: len(own.announcements("lo")) > BURST)
        self.drop(spy)
        self.drop(other)
        self.assertEqual([datagram for datagram in own.sent("eth0") if datagram.prefix], [])
        self.assertEqual([datagram for datagram in tap.arrived("eth0") if datagram.prefix], [])
        for data in own.announcements():
            locators = data.parameters.locators(packets.METATRAFFIC_UNICAST, packets.DEFAULT_UNICAST)
            self.assertEqual({locator[:2] for locator in locators}, {(UDPV4, "127.0.0.1")})

    # When.

    def intervals(self, tap):
        """Between one announcement to the group and the next, after those of the start."""
        times = [data.datagram.time for data in tap.announcements() if data.datagram.destination.is_multicast]
        return [later - earlier for earlier, later in itertools.pairwise(times[BURST - 1:])]

    def test_lease_and_period(self):
        cases = []
        duration = "<{0}><sec>{1}</sec><nanosec>{2}</nanosec></{0}>"
        document = self.profile("<discovery_config>" +
                                duration.format("participant_liveliness_lease_duration", 20, 250000000) +
                                duration.format("participant_liveliness_assert_period", 1, 0) + "</discovery_config>")
        for arguments, lease, period in ((), 6.5, 2.0), (("-qosFile", document), 20.25, 1.0):
            cases.append((*self.observe(*arguments, network=self.quiet_network()), lease, period))
        for spy, tap, lease, period in cases:
            with self.subTest(lease=lease):
                intervals = tap.wait_for("three announcements after the start",
                                         lambda: len(self.intervals(tap)) >= 3 and self.intervals(tap))
                self.drop(spy)
                # One that a busy machine keeps back makes the next interval shorter.
                self.assertAlmostEqual(statistics.median(intervals), period, delta=0.4)
                self.assertEqual({data.parameters.seconds(packets.LEASE) for data in tap.announcements()}, {lease})

    def quiet_network(self):
        network = self.new_network()
        network.route_multicast()
        return network

    def test_farewell(self):
        spy, tap = self.observe()
        prefix = tap.announcements()[0].prefix
        self.assertEqual(tap.announcements(disposed=True), [])
        self.end(spy)
        farewells = tap.wait_for("a farewell to all", lambda: [
            data for data in tap.announcements(disposed=True) if data.datagram.destination.is_multicast])
        for data in farewells:
            self.assertEqual(data.status, 3)
            self.assertEqual(data.prefix, prefix)
            named = [data.parameters.get(packets.PARTICIPANT_GUID) if data.is_key else None, data.inline.get(packets.KEY_HASH)]
            self.assertIn(prefix + b"\x00\x00\x01\xc1", named)
        self.assertGreater(farewells[0].datagram.time, tap.announcements()[-1].datagram.time)

    # Sizes.

    def test_largest_message(self):
        """A reader with much user data is announced in pieces that fit, and its peer puts them together."""
        document = self.profile("", reader=f"<user_data><value>{','.join(['7'] * 5000)}</value></user_data>")
        for arguments, largest in ((), None), (("-msgMaxSize", "1400"), 1400):
            with self.subTest(largest=largest):
                network = self.quiet_network()
                peer = self.cyclone(network)
                peer.do("participant")
                peer.do("writer w topic=T")
                spy, tap = self.observe("-qosFile", document, *arguments, network=network, mode="USER")
                peer.do("matched w")
                self.drop(spy)
                lengths = tap.wait_for("the whole announcement", lambda: self.lengths_of_readers(tap))
                if largest:
                    self.assertLessEqual(max(lengths), largest)
                    self.assertGreater(max(lengths), largest / 2, "smaller than needed")
                else:
                    self.assertGreater(max(lengths), 5000)

    def lengths_of_readers(self, tap):
        lengths = [datagram.length for datagram in tap.sent()
                   if any(data.writer == packets.READERS for data in datagram.data())]
        return lengths if sum(lengths) >= 5000 else None

    def readers(self, tap, prefix):
        """The announced readers of one participant, by topic."""
        return {data.parameters.text(packets.TOPIC): data.parameters for datagram in tap.sent() if datagram.prefix == prefix
                for data in datagram.data()
                if data.writer == packets.READERS and data.parameters and data.parameters.get(packets.TOPIC)}

    def test_socket_buffers(self):
        """The kernel doubles what is asked for. Receive buffers keep 1 MiB, however small messages are to be."""
        for arguments, sends in ((), None), (("-msgMaxSize", "30000"), 60000):
            with self.subTest(arguments):
                spy, _ = self.observe("-transport", "9", *arguments)
                sockets = self.network.start(["ss", "-uamnH"], stdout=-1).communicate()[0].decode()
                self.drop(spy)
                found = re.findall(r":(\d+) .*\s+skmem:\(r\d+,rb(\d+),t\d+,tb(\d+),", sockets)
                self.assertGreaterEqual({port for port, _, _ in found}, {"7400", "7410", "7411"}, sockets)
                self.assertGreaterEqual(min(int(receive) for _, receive, _ in found), 2 << 20, sockets)
                # One socket sends all; the others keep what the system gives them to send.
                sending = {int(send) for port, _, send in found if port == "7410"}
                if sends:
                    self.assertEqual(sending, {sends}, sockets)
                else:
                    self.assertGreater(min(sending), 60000, sockets)

    # Its readers.

    def test_subscriber_partitions(self):
        peer = self.cyclone()
        peer.do("participant")
        peer.do("writer w topic=T partitions=north")
        for arguments, wanted in ((), {"", "*"}), (("-subscriberPartition", "n*", "-subscriberPartition", "b"), {"n*", "b"}):
            with self.subTest(arguments):
                spy, tap = self.observe(*arguments, mode="USER")
                readers = tap.wait_for("a reader", lambda: {
                    prefix: found for prefix in {datagram.prefix for datagram in tap.sent()}
                    for found in [self.readers(tap, prefix)] if found})
                self.drop(spy)
                self.assertEqual([set(found["T"].texts(packets.PARTITION)) for found in readers.values()], [wanted])


if __name__ == "__main__":
    harness.main()
