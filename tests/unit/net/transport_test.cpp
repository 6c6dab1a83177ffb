#include "rtps/net/udp_transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cstring>

#include "common/private_network.h"
#include "rtps/net/ports.h"

namespace meridian::rtps::net {
namespace {

using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const uint8_t kText[] = "datagram";
const ByteView kMessage(kText, sizeof kText);

Locator locator(const std::string& address, uint32_t port) {
    return to_locator(parse_address(address).value_or(IpAddress{}), port);
}

std::vector<std::string> texts(const LocatorList& locators) {
    std::vector<std::string> result;
    for (const Locator& entry : locators)
        result.push_back(to_string(entry));
    return result;
}

/// A transport whose warnings and received datagrams are kept.
struct Station {
    explicit Station(const TransportConfig& config = {}) {
        const auto keep = [this](const std::string& text) { warnings.push_back(text); };
        const auto keep_error = [this](const std::string& text) { errors.push_back(text); };
        transport = UdpTransport::open(config, Messages{keep, keep_error}, error);
    }

    /// Receives until count datagrams came, or nothing more for the time.
    size_t receive(size_t count, int milliseconds = 10000) {
        std::vector<pollfd> polled;
        for (const int descriptor : transport->descriptors())
            polled.push_back({descriptor, POLLIN, 0});
        while (received.size() < count && poll(polled.data(), polled.size(), milliseconds) > 0) {
            for (size_t i = 0; i < polled.size(); ++i) {
                if (!transport->fetch(i))
                    continue;
                const auto traffic = i < transport->discovery_descriptor_count()
                                         ? UdpTransport::Traffic::discovery
                                         : UdpTransport::Traffic::data;
                transport->dispatch(traffic, [this](ByteView datagram, const Locator& source) {
                    received.emplace_back(datagram.begin(), datagram.end());
                    sources.push_back(source);
                });
            }
        }
        return received.size();
    }
    /// Waits for count datagrams and a little longer for more, which would be wrong.
    size_t receive_only(size_t count) {
        receive(count);
        return receive(count + 1, 50);
    }
    bool hears_nothing() { return receive(1, 50) == 0; }

    std::unique_ptr<UdpTransport> transport;
    std::string error;
    std::vector<std::string> warnings;
    std::vector<std::string> errors;
    std::vector<ByteBuffer> received;
    std::vector<Locator> sources;
};

TransportConfig with_mask(uint32_t mask) {
    TransportConfig config;
    config.mask = mask;
    // Limits of the machine are the subject of one test only.
    config.v4.receive_socket_buffer_size = config.v6.receive_socket_buffer_size = 65536;
    config.v4.send_socket_buffer_size = config.v6.send_socket_buffer_size = 65536;
    return config;
}

/// A plain socket of another program, with what the system tells about each datagram.
class Listener {
  public:
    Listener(const std::string& address, uint16_t port) {
        const IpAddress local = parse_address(address).value_or(IpAddress{});
        socket_ = bind_udp(local, port, PortSharing::shared).socket;
        EXPECT_TRUE(socket_);
        const int on = 1;
        setsockopt(socket_.get(), IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
        if (local.family == Family::v6)
            setsockopt(socket_.get(), IPPROTO_IPV6, IPV6_RECVHOPLIMIT, &on, sizeof on);
    }

    void join(const IpAddress& group, unsigned interface_index) {
        std::string error;
        EXPECT_TRUE(join_group(socket_.get(), group, interface_index, error)) << error;
    }

    /// The TTL or hop limit of the next datagram; -1 when none comes.
    int next_ttl(int milliseconds = 10000) {
        pollfd waiting{socket_.get(), POLLIN, 0};
        if (poll(&waiting, 1, milliseconds) != 1)
            return -1;
        char data[64];
        iovec part{data, sizeof data};
        alignas(cmsghdr) char control[128];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (recvmsg(socket_.get(), &message, 0) < 0)
            return -1;
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
             header = CMSG_NXTHDR(&message, header)) {
            int value = 0;
            std::memcpy(&value, CMSG_DATA(header), sizeof value);
            if ((header->cmsg_level == IPPROTO_IP && header->cmsg_type == IP_TTL) ||
                (header->cmsg_level == IPPROTO_IPV6 && header->cmsg_type == IPV6_HOPLIMIT))
                return value;
        }
        return -2;
    }
    bool hears_nothing() { return next_ttl(50) == -1; }

  private:
    FileDescriptor socket_;
};

TEST(Transport, AnnouncesLoopbackWhereThereIsNothingElse) {
    const Station station(with_mask(1));
    ASSERT_TRUE(station.transport) << station.error;
    const OwnLocators own = station.transport->own_locators();
    EXPECT_THAT(texts(own.metatraffic_unicast), ElementsAre("udpv4:127.0.0.1:7410"));
    EXPECT_THAT(texts(own.default_unicast), ElementsAre("udpv4:127.0.0.1:7411"));
    EXPECT_THAT(texts(own.metatraffic_multicast), ElementsAre("udpv4:239.255.0.1:7400"));
    EXPECT_THAT(texts(own.default_multicast), ElementsAre("udpv4:239.255.0.1:7401"));
    EXPECT_THAT(own.host_default_unicast, IsEmpty()) << "all know it already";
    EXPECT_EQ(station.transport->describe(), "lo 127.0.0.1");
    EXPECT_THAT(station.warnings, IsEmpty());
}

TEST(Transport, TakesTheFirstFreeIndex) {
    const Station first(with_mask(1));
    const Station second(with_mask(9));
    auto third = std::make_unique<Station>(with_mask(2));
    ASSERT_TRUE(first.transport && second.transport && third->transport);
    EXPECT_EQ(first.transport->participant_index(), 0u);
    EXPECT_EQ(second.transport->participant_index(), 1u);
    EXPECT_EQ(third->transport->participant_index(), 2u);
    third.reset();
    EXPECT_EQ(Station(with_mask(8)).transport->participant_index(), 0u)
        << "of IPv6 only the second has used any";
    EXPECT_EQ(Station(with_mask(9)).transport->participant_index(), 2u);
}

TEST(Transport, PassesOverAnIndexOfWhichOnePortIsTaken) {
    const BoundSocket taken = bind_udp(parse_address("127.0.0.1").value(), 7411, PortSharing::exclusive);
    ASSERT_TRUE(taken.socket);
    EXPECT_EQ(Station(with_mask(3)).transport->participant_index(), 1u);
}

TEST(Transport, FixedIndexInUseIsAnError) {
    TransportConfig config = with_mask(3);
    config.domain_id = 5;
    config.participant_index = 3;
    const Station first(config);
    ASSERT_TRUE(first.transport) << first.error;
    EXPECT_EQ(first.transport->participant_index(), 3u);
    EXPECT_THAT(texts(first.transport->own_locators().default_unicast), ElementsAre("udpv4:127.0.0.1:8667"));
    const Station second(config);
    EXPECT_FALSE(second.transport);
    EXPECT_THAT(second.error, HasSubstr("participant index 3 of domain 5 is in use"));
}

TEST(Transport, AllIndexesInUseIsAnError) {
    TransportConfig config = with_mask(2);
    config.domain_id = 232; // has 63 only
    std::vector<BoundSocket> taken;
    for (uint32_t index = 0; unicast_ports(232, index); ++index)
        taken.push_back(bind_udp(IpAddress{}, unicast_ports(232, index)->user, PortSharing::exclusive));
    ASSERT_EQ(taken.size(), 63u);
    const Station station(config);
    EXPECT_FALSE(station.transport);
    EXPECT_THAT(station.error, HasSubstr("all participant indexes of domain 232"));
}

TEST(Transport, SendsUnicastAndMulticastInBothFamilies) {
    Station sender(with_mask(9));
    Station receiver(with_mask(9));
    ASSERT_TRUE(sender.transport && receiver.transport) << sender.error << receiver.error;
    const struct {
        const char* address;
        uint32_t port;
        const char* source;
    } rows[] = {
        {"127.0.0.1", 7412, "udpv4:127.0.0.1:7410"},
        {"127.0.0.1", 7413, "udpv4:127.0.0.1:7410"},
        {"239.255.0.1", 7400, "udpv4:127.0.0.1:7410"},
        {"239.255.0.1", 7401, "udpv4:127.0.0.1:7410"},
        {"::1", 7412, "udpv6:[::1]:7410"},
        {"::1", 7413, "udpv6:[::1]:7410"},
        {"ff02::ffff:efff:1", 7400, "udpv6:[::1]:7410"},
        {"ff02::ffff:efff:1", 7401, "udpv6:[::1]:7410"},
        {"ff1e::ffff:efff:1", 7400, "udpv6:[::1]:7410"},
        {"ff1e::ffff:efff:1", 7401, "udpv6:[::1]:7410"},
    };
    for (const auto& row : rows) {
        receiver.received.clear();
        receiver.sources.clear();
        sender.transport->send(kMessage, locator(row.address, row.port));
        ASSERT_EQ(receiver.receive(1), 1u) << row.address << " " << row.port;
        EXPECT_EQ(receiver.received[0], ByteBuffer(kMessage.begin(), kMessage.end()));
        EXPECT_EQ(to_string(receiver.sources[0]), row.source) << row.address;
        EXPECT_EQ(receiver.receive(2, 10), 1u) << "twice: " << row.address;
    }
    EXPECT_EQ(sender.transport->statistics().datagrams_sent, 10u);
    EXPECT_EQ(sender.transport->statistics().send_errors, 0u);
    EXPECT_EQ(receiver.transport->statistics().datagrams_received, 10u);
    EXPECT_THAT(sender.warnings, IsEmpty());
}

TEST(Transport, DomainsAreApart) {
    TransportConfig config = with_mask(1);
    Station sender(config);
    config.domain_id = 1;
    Station receiver(config);
    sender.transport->send(kMessage, locator("239.255.0.1", 7400));
    EXPECT_TRUE(receiver.hears_nothing());
}

TEST(Transport, MulticastTtlIsTheConfiguredOne) {
    for (const int ttl : {0, 1, 17, 255}) {
        TransportConfig config = with_mask(9);
        config.v4.multicast_ttl = ttl;
        config.v6.multicast_ttl = ttl;
        Station sender(config);
        ASSERT_TRUE(sender.transport) << sender.error;
        Listener v4("0.0.0.0", 7400);
        v4.join(multicast_group_v4(), 1);
        sender.transport->send(kMessage, locator("239.255.0.1", 7400));
        EXPECT_EQ(v4.next_ttl(), ttl);
        Listener v6("::", 7400);
        v6.join(multicast_groups_v6()[0], 1);
        sender.transport->send(kMessage, locator("ff02::ffff:efff:1", 7400));
        EXPECT_EQ(v6.next_ttl(), ttl);
    }
}

TEST(Transport, OversizedMessagesAreNotSent) {
    TransportConfig config = with_mask(1);
    config.v4.message_size_max = 1000;
    Station sender(config);
    Station receiver(with_mask(1));
    const ByteBuffer fits(1000, 0x11);
    const ByteBuffer large(1001, 0x22);
    sender.transport->send(fits, locator("127.0.0.1", 7412));
    sender.transport->send(large, locator("127.0.0.1", 7412));
    sender.transport->send(large, locator("127.0.0.1", 7412));
    EXPECT_EQ(receiver.receive_only(1), 1u);
    EXPECT_EQ(receiver.received[0], fits);
    EXPECT_EQ(sender.transport->statistics().send_errors, 2u);
    EXPECT_THAT(sender.warnings, ElementsAre(HasSubstr("larger than the transport's maximum")))
        << "told once";
}

TEST(Transport, LargestDatagramArrivesWhole) {
    Station sender(with_mask(9));
    TransportConfig config = with_mask(9);
    config.v4.receive_socket_buffer_size = config.v6.receive_socket_buffer_size = 212992;
    Station receiver(config);
    const ByteBuffer largest(kLargestDatagram, 0x33);
    sender.transport->send(largest, locator("127.0.0.1", 7412));
    sender.transport->send(largest, locator("::1", 7412));
    ASSERT_EQ(receiver.receive(2), 2u);
    EXPECT_EQ(receiver.received[0], largest);
    EXPECT_EQ(receiver.received[1], largest);
}

TEST(Transport, DatagramsBeyondTheReceiveBufferAreCountedAndToldOnce) {
    Station sender(with_mask(1));
    TransportConfig config = with_mask(1);
    config.receive_buffer_size = 2000;
    Station receiver(config);
    const ByteBuffer fits(2000, 0x11);
    const ByteBuffer large(2001, 0x22);
    for (const ByteBuffer* message : {&large, &fits, &large})
        sender.transport->send(*message, locator("127.0.0.1", 7412));
    EXPECT_EQ(receiver.receive_only(1), 1u);
    EXPECT_EQ(receiver.received[0], fits);
    EXPECT_THAT(receiver.errors, ElementsAre(HasSubstr("2000 bytes")));
    EXPECT_EQ(receiver.transport->drops().count(DropReport::Kind::truncated), 2u);
    receiver.transport->drops().tell_totals();
    EXPECT_THAT(receiver.errors, ElementsAre(_, HasSubstr("2 datagrams were larger")));
}

int option_of(const Station& station, size_t position, int option) {
    int value = 0;
    socklen_t length = sizeof value;
    getsockopt(station.transport->descriptors()[position], SOL_SOCKET, option, &value, &length);
    return value;
}

int receive_buffer_of(const Station& station, size_t position) {
    return option_of(station, position, SO_RCVBUF);
}

TEST(Transport, BuffersAreAsConfiguredOrTold) {
    const auto size_of = [](const Station& station, int option) { return option_of(station, 0, option) / 2; };
    TransportConfig config = with_mask(1);
    config.v4.receive_socket_buffer_size = 2000000;
    config.v4.send_socket_buffer_size = 20000;
    const Station station(config);
    EXPECT_EQ(size_of(station, SO_SNDBUF), 20000);
    if (size_of(station, SO_RCVBUF) != 2000000)
        EXPECT_THAT(station.warnings, ElementsAre(HasSubstr("net.core.rmem_max")));
    else
        EXPECT_THAT(station.warnings, IsEmpty());

    config.v4.receive_socket_buffer_size = 1 << 30;
    const Station greedy(config);
    if (size_of(greedy, SO_RCVBUF) < 1 << 30)
        EXPECT_THAT(greedy.warnings, ElementsAre(HasSubstr("net.core.rmem_max")));
    else
        EXPECT_THAT(greedy.warnings, IsEmpty());
}

TEST(Transport, ReceiveBuffersOfSocketsHoldBurstsWhateverIsAsked) {
    TransportConfig config = with_mask(9);
    config.v4.receive_socket_buffer_size = config.v6.receive_socket_buffer_size = 1400;
    const Station small(config);
    config.v4.receive_socket_buffer_size = config.v6.receive_socket_buffer_size = 1 << 20;
    const Station floor(config);
    ASSERT_EQ(small.transport->descriptors().size(), floor.transport->descriptors().size());
    for (size_t i = 0; i < small.transport->descriptors().size(); ++i)
        EXPECT_EQ(receive_buffer_of(small, i), receive_buffer_of(floor, i));
}

TEST(Transport, WhatCannotBeSentIsCountedAndToldOncePerDestination) {
    Station station(with_mask(1));
    for (int i = 0; i < 3; ++i) {
        station.transport->send(kMessage, locator("10.1.2.3", 7410)); // nothing but loopback here
        station.transport->send(kMessage, locator("::1", 7410));      // another family
        station.transport->send(kMessage, locator("0.0.0.0", 7410));
        station.transport->send(kMessage, locator("127.0.0.1", 0));
        station.transport->send(kMessage, locator("127.0.0.1", 65536));
        station.transport->send(kMessage, Locator{});
    }
    EXPECT_EQ(station.transport->statistics().send_errors, 18u);
    EXPECT_EQ(station.transport->statistics().datagrams_sent, 0u);
    EXPECT_EQ(station.warnings.size(), 6u);
}

TEST(Transport, AnAddressWithoutSocketIsNoError) {
    Station station(with_mask(9));
    for (int i = 0; i < 10; ++i) {
        station.transport->send(kMessage, locator("127.0.0.1", 9));
        station.transport->send(kMessage, locator("::1", 9));
    }
    EXPECT_TRUE(station.hears_nothing());
    EXPECT_EQ(station.transport->statistics().send_errors, 0u);
    EXPECT_EQ(station.transport->drops().count(DropReport::Kind::receive_error), 0u);
}

TEST(Transport, ConfigurationThatCannotBeIsRefused) {
    TransportConfig config = with_mask(0);
    EXPECT_FALSE(Station(config).transport);
    config.mask = 1;
    config.domain_id = 233;
    const Station station(config);
    EXPECT_FALSE(station.transport);
    EXPECT_THAT(station.error, HasSubstr("domain 233"));
}

TEST(Preference, OnLoopbackOnly) {
    Station station(with_mask(1));
    const UdpTransport& transport = *station.transport;
    const Locator here = locator("127.0.0.1", 7410);
    EXPECT_GT(transport.preference(here, here), 0);
    EXPECT_GT(transport.preference(here, Locator{}), 0);
    EXPECT_EQ(transport.preference(here, locator("10.0.0.7", 7410)), 0);
    EXPECT_EQ(transport.preference(locator("10.0.0.7", 7410), here), 0);
    EXPECT_EQ(transport.preference(locator("::1", 7410), here), 0);
    EXPECT_EQ(transport.preference(locator("127.0.0.1", 0), here), 0);
    EXPECT_EQ(transport.preference(locator("0.0.0.0", 7410), here), 0);
    Locator shared_memory = here;
    shared_memory.kind = 16;
    EXPECT_EQ(transport.preference(shared_memory, here), 0);
}

/// How often the calling thread has given up the processor to wait. Unlike time, it does not depend on what
/// else runs.
long waits_of_this_thread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

/// Two hosts: 10.1.0.1 and 10.1.0.2 on one wire, 10.2.0.1 and 10.2.0.2 on another.
class TwoHosts : public testing::Test {
  protected:
    void SetUp() override {
        other.connect("wire1", "10.1.0.1/24", "wire1", "10.1.0.2/24");
        other.connect("wire2", "10.2.0.1/24", "wire2", "10.2.0.2/24");
        const auto add = [](const std::string& address, const std::string& interface) {
            test::shell("ip addr add " + address + "/64 dev " + interface + " nodad");
        };
        add("fd01::1", "wire1");
        add("fe80::21", "wire2");
        other.run([&add] {
            add("fd01::2", "wire1");
            add("fe80::22", "wire2");
        });
    }
    void TearDown() override {
        test::shell("ip link del wire1");
        test::shell("ip link del wire2");
    }

    std::unique_ptr<Station> station_there(const TransportConfig& config) {
        std::unique_ptr<Station> station;
        other.run([&] { station = std::make_unique<Station>(config); });
        return station;
    }

    test::OtherHost other;
};

TEST_F(TwoHosts, AllAddressesButLoopbackAreAnnounced) {
    const Station here(with_mask(9));
    EXPECT_THAT(texts(here.transport->own_locators().default_unicast),
                ElementsAre("udpv4:10.1.0.1:7411", "udpv4:10.2.0.1:7411", "udpv6:[fd01::1]:7411"));
    EXPECT_THAT(texts(here.transport->own_locators().default_multicast),
                ElementsAre("udpv4:239.255.0.1:7401", "udpv6:[ff02::ffff:efff:1]:7401"));
}

TEST_F(TwoHosts, WhatWaitsForAbsentHostsHoldsUpNothing) {
    Station here(with_mask(1));
    const auto there = station_there(with_mask(1));
    there->transport->send(kMessage, locator("10.1.0.1", 7410));
    ASSERT_EQ(here.receive(1), 1u);

    // Each waits in its socket for the answer to who has the address: some seconds.
    const long before = waits_of_this_thread();
    const ByteBuffer announcement(400);
    for (int round = 0; round < 10; ++round) {
        for (int host = 50; host < 200; ++host)
            here.transport->send(announcement, locator("10.1.0." + std::to_string(host), 7410));
    }
    EXPECT_LT(waits_of_this_thread() - before, 50) << "for 1,500 datagrams";
    for (int i = 0; i < 20; ++i) {
        here.transport->send(kMessage, locator("10.1.0.2", 7410));
        here.transport->send(kMessage, locator("239.255.0.1", 7400)); // over two wires
    }
    EXPECT_EQ(there->receive(60, 1000), 60u);
}

TEST_F(TwoHosts, WhatTheSystemForbidsToSendIsOneError) {
    Station here(with_mask(1));
    test::shell("ip route add prohibit 10.1.0.2/32; ip route add prohibit 10.2.0.2/32");
    for (int i = 0; i < 3; ++i) {
        here.transport->send(kMessage, locator("10.1.0.2", 7410));
        here.transport->send(kMessage, locator("10.2.0.2", 7410));
    }
    EXPECT_THAT(here.errors, ElementsAre(testing::AllOf(HasSubstr("10.1.0.2"), HasSubstr("may forbid it"))));
    EXPECT_THAT(here.warnings, ElementsAre(HasSubstr("10.2.0.2")));
    test::shell("ip route del prohibit 10.1.0.2/32; ip route del prohibit 10.2.0.2/32");
}

TEST_F(TwoHosts, MulticastGoesOutOnEachInterface) {
    Station here(with_mask(9));
    const auto there = station_there(with_mask(9));
    here.transport->send(kMessage, locator("239.255.0.1", 7400));
    ASSERT_EQ(there->receive(2), 2u);
    EXPECT_THAT(texts(there->sources),
                testing::UnorderedElementsAre("udpv4:10.1.0.1:7410", "udpv4:10.2.0.1:7410"));
    EXPECT_EQ(there->receive(3, 20), 2u);

    there->received.clear();
    there->sources.clear();
    here.transport->send(kMessage, locator("ff1e::ffff:efff:1", 7401));
    EXPECT_EQ(there->receive(2), 2u);
    EXPECT_THAT(texts(there->sources),
                testing::UnorderedElementsAre("udpv6:[fd01::1]:7410", "udpv6:[fe80::21]:7410"));
}

TEST_F(TwoHosts, LoopbackIsToldToThisHostOnly) {
    Station here(with_mask(9));
    const OwnLocators own = here.transport->own_locators();
    EXPECT_THAT(texts(own.host_metatraffic_unicast), ElementsAre("udpv4:127.0.0.1:7410", "udpv6:[::1]:7410"));
    EXPECT_THAT(texts(own.host_default_unicast), ElementsAre("udpv4:127.0.0.1:7411", "udpv6:[::1]:7411"));
    const Locator host_group = to_host_locator(multicast_group_v4(), 7400);
    for (const Locator& here_only : {host_group, locator("127.0.0.1", 7410), locator("10.1.0.1", 7412)})
        EXPECT_TRUE(here.transport->stays_on_host(here_only));
    for (const Locator& elsewhere : {locator("239.255.0.1", 7400), locator("10.1.0.2", 7410), Locator{}})
        EXPECT_FALSE(here.transport->stays_on_host(elsewhere));

    const auto there = station_there(with_mask(9));
    here.transport->send(kMessage, host_group);
    EXPECT_EQ(here.receive_only(1), 1u);
    EXPECT_THAT(texts(here.sources), ElementsAre("udpv4:127.0.0.1:7410"));
    EXPECT_TRUE(there->hears_nothing());
    here.transport->send(kMessage, locator("239.255.0.1", 7400));
    here.receive(3);
    EXPECT_THAT(
        texts(here.sources),
        testing::UnorderedElementsAre("udpv4:127.0.0.1:7410", "udpv4:10.1.0.1:7410", "udpv4:10.2.0.1:7410"));

    TransportConfig config = with_mask(1);
    config.v4.ignore_loopback_interface = true;
    EXPECT_THAT(Station(config).transport->own_locators().host_default_unicast, IsEmpty());
    config = with_mask(8);
    config.v6.deny_interfaces = {"wire1"};
    const OwnLocators link_local = Station(config).transport->own_locators();
    EXPECT_THAT(texts(link_local.default_unicast), ElementsAre("udpv6:[fe80::21]:7413"));
    EXPECT_THAT(texts(link_local.host_default_unicast), IsEmpty());
}

TEST_F(TwoHosts, AListThatAllowsNoInterfaceIsAnError) {
    TransportConfig config = with_mask(3);
    config.v4.allow_interfaces = {"wlan77"};
    const Station here(config);
    EXPECT_THAT(here.errors, ElementsAre(HasSubstr("only the loopback interface is used")));
}

TEST_F(TwoHosts, AllowedInterfacesOnly) {
    TransportConfig config = with_mask(1);
    config.v4.allow_interfaces = {"wire2"};
    Station here(config);
    const auto there = station_there(with_mask(1));
    EXPECT_THAT(texts(here.transport->own_locators().metatraffic_unicast),
                ElementsAre("udpv4:10.2.0.1:7410"));
    here.transport->send(kMessage, locator("239.255.0.1", 7400));
    ASSERT_EQ(there->receive_only(1), 1u);
    EXPECT_EQ(to_string(there->sources[0]), "udpv4:10.2.0.1:7410");

    // Multicast that arrives on the other wire is not for us, and nothing is sent there.
    here.receive(1);
    here.sources.clear();
    here.received.clear();
    there->transport->send(kMessage, locator("239.255.0.1", 7400));
    EXPECT_EQ(here.receive_only(1), 1u);
    EXPECT_THAT(texts(here.sources), ElementsAre("udpv4:10.2.0.2:7410"));
    there->receive(99, 50);
    there->received.clear();
    here.transport->send(kMessage, locator("10.1.0.2", 7410));
    EXPECT_THAT(here.warnings, ElementsAre(HasSubstr("udpv4:10.1.0.2:7410")));
    EXPECT_TRUE(there->hears_nothing());
    EXPECT_EQ(here.transport->preference(locator("10.1.0.2", 7410), locator("10.2.0.2", 7410)), 0);
}

TEST_F(TwoHosts, HostTransportNeverLeavesLoopback) {
    Station here(with_mask(2));
    ASSERT_TRUE(here.transport) << here.error;
    const auto there = station_there(with_mask(1));
    Listener sniffer("10.1.0.1", 7410);
    EXPECT_THAT(texts(here.transport->own_locators().metatraffic_unicast),
                ElementsAre("udpv4:127.0.0.1:7410"));
    here.transport->send(kMessage, locator("239.255.0.1", 7400));
    here.transport->send(kMessage, locator("10.1.0.2", 7410));
    EXPECT_TRUE(there->hears_nothing());
    EXPECT_EQ(here.transport->statistics().datagrams_sent, 1u);

    there->transport->send(kMessage, locator("239.255.0.1", 7400));
    there->transport->send(kMessage, locator("10.1.0.1", 7410));
    EXPECT_EQ(sniffer.next_ttl(), 64) << "it did arrive at this host";
    // Its own multicast, over loopback, is all it hears.
    EXPECT_EQ(here.receive_only(1), 1u);
    EXPECT_THAT(texts(here.sources), ElementsAre("udpv4:127.0.0.1:7410"));

    // Peers of this host are reached at loopback, and at their other addresses without leaving the host.
    Station neighbour(with_mask(1));
    ASSERT_EQ(neighbour.transport->participant_index(), 1u);
    here.transport->send(kMessage, locator("127.0.0.1", 7412));
    here.transport->send(kMessage, locator("10.1.0.1", 7412));
    EXPECT_EQ(neighbour.receive(2), 2u);
    EXPECT_THAT(texts(neighbour.sources), ElementsAre("udpv4:127.0.0.1:7410", "udpv4:127.0.0.1:7410"));
    // And the neighbour answers there.
    neighbour.transport->send(kMessage, locator("127.0.0.1", 7410));
    EXPECT_EQ(here.receive(2), 2u);
}

TEST_F(TwoHosts, TtlZeroStaysOnTheHost) {
    TransportConfig config = with_mask(9);
    config.v4.multicast_ttl = 0;
    config.v6.multicast_ttl = 0;
    Station here(config);
    Station neighbour(with_mask(9));
    const auto there = station_there(with_mask(9));
    here.transport->send(kMessage, locator("239.255.0.1", 7400));
    EXPECT_GE(neighbour.receive(1), 1u);
    here.transport->send(kMessage, locator("ff1e::ffff:efff:1", 7400));
    EXPECT_TRUE(there->hears_nothing());
}

TEST_F(TwoHosts, IgnoredLoopbackIsNeitherUsedNorReached) {
    TransportConfig config = with_mask(1);
    config.v4.ignore_loopback_interface = true;
    Station here(config);
    EXPECT_EQ(here.transport->describe(), "wire1 10.1.0.1, wire2 10.2.0.1");
    EXPECT_EQ(here.transport->preference(locator("127.0.0.1", 7412), locator("127.0.0.1", 7412)), 0);
    EXPECT_GT(here.transport->preference(locator("10.1.0.1", 7412), locator("10.1.0.1", 7412)), 0);
}

TEST_F(TwoHosts, PreferencesKnowWhoLivesHere) {
    const Station station(with_mask(9));
    const UdpTransport& transport = *station.transport;
    const Locator loopback = locator("127.0.0.1", 7412);
    const Locator own = locator("10.1.0.1", 7412);
    const Locator near = locator("10.1.0.2", 7412);
    const Locator far = locator("172.16.3.4", 7412);
    // A peer of this host: loopback is best.
    EXPECT_GT(transport.preference(loopback, own), transport.preference(own, own));
    EXPECT_GT(transport.preference(own, loopback), 0);
    // A peer of another host: its loopback address is not ours, nor is an address that it happens to share.
    EXPECT_EQ(transport.preference(loopback, near), 0);
    EXPECT_EQ(transport.preference(own, near), 0);
    EXPECT_GT(transport.preference(near, near), transport.preference(far, near));
    EXPECT_GT(transport.preference(far, near), 0);
    // IPv4 where both would do.
    EXPECT_GT(transport.preference(near, near), transport.preference(locator("fd01::2", 7412), near));
    EXPECT_GT(transport.preference(locator("fd01::2", 7412), near),
              transport.preference(locator("fe80::2", 1), near));
}

TEST_F(TwoHosts, LinkLocalPeersAreReachedWhereTheyWereHeard) {
    Station here(with_mask(8));
    const auto there = station_there(with_mask(8));
    const Locator link_local = locator("fe80::22", 7410);
    // Not heard of yet: tried on every wire. A new link may need a moment to resolve its neighbours.
    for (int attempt = 0; attempt < 30 && there->received.empty(); ++attempt) {
        here.transport->send(kMessage, link_local);
        there->receive(1, 100);
    }
    // From the socket for hosts that were not heard of.
    EXPECT_THAT(texts(there->sources), Contains("udpv6:[fe80::21]:7411"));
    EXPECT_THAT(here.warnings, IsEmpty());

    there->transport->send(kMessage, locator("ff02::ffff:efff:1", 7400));
    here.receive(1);
    here.receive(2, 100);
    ASSERT_THAT(texts(here.sources), Contains(to_string(link_local)));
    const uint64_t before = here.transport->statistics().datagrams_sent;
    here.transport->send(kMessage, link_local);
    EXPECT_EQ(here.transport->statistics().datagrams_sent, before + 1);
}

TEST(InterfaceChanges, NewOnesAreJoinedAndAnnouncedGoneOnesForgotten) {
    Station here(with_mask(1));
    const auto changed = [&here] {
        pollfd waiting{here.transport->change_descriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 10000), 1);
        return here.transport->update_interfaces();
    };
    EXPECT_FALSE(here.transport->update_interfaces());
    test::OtherHost other;
    other.connect("late", "10.3.0.1/24", "late", "10.3.0.2/24");
    EXPECT_TRUE(changed());
    EXPECT_FALSE(here.transport->update_interfaces());
    EXPECT_THAT(texts(here.transport->own_locators().default_unicast), ElementsAre("udpv4:10.3.0.1:7411"));

    std::unique_ptr<Station> there;
    other.run([&] { there = std::make_unique<Station>(with_mask(1)); });
    there->transport->send(kMessage, locator("239.255.0.1", 7400));
    EXPECT_EQ(here.receive(1), 1u) << "the group was joined on the new interface";
    here.transport->send(kMessage, locator("239.255.0.1", 7401));
    there->receive(4, 500); // its own are among them
    EXPECT_THAT(texts(there->sources), Contains("udpv4:10.3.0.1:7410"));

    test::shell("ip addr add 10.3.0.9/24 dev late");
    EXPECT_TRUE(changed());
    EXPECT_THAT(texts(here.transport->own_locators().default_unicast),
                ElementsAre("udpv4:10.3.0.1:7411", "udpv4:10.3.0.9:7411"));
    test::shell("ip link del late");
    EXPECT_TRUE(changed());
    EXPECT_THAT(texts(here.transport->own_locators().default_unicast), ElementsAre("udpv4:127.0.0.1:7411"));
    EXPECT_THAT(here.warnings, IsEmpty());
}

// The system lets a socket join a group on some twenty interfaces.
TEST(InterfaceChanges, InterfacesThatComeAndGoForEverAreJoined) {
    Station here(with_mask(9));
    for (int i = 0; i < 30; ++i) {
        test::shell(
            "ip link add late type veth peer name far; ip addr add 10.3.0.1/24 dev late; "
            "ip addr add fd03::1/64 dev late nodad; ip link set late up");
        EXPECT_TRUE(here.transport->update_interfaces());
        test::shell("ip link del late");
        EXPECT_TRUE(here.transport->update_interfaces());
    }
    EXPECT_THAT(here.errors, IsEmpty());
    EXPECT_THAT(here.warnings, IsEmpty());
}

// The system gives up IPv6 on the interface meanwhile, with all that was joined there.
TEST(InterfaceChanges, GroupsAreJoinedAgainAfterASmallMtu) {
    Station here(with_mask(8));
    test::OtherHost other;
    other.connect("late", "fd03::1/64", "late", "fd03::2/64");
    EXPECT_TRUE(here.transport->update_interfaces());
    test::shell("ip link set late mtu 1000");
    EXPECT_TRUE(here.transport->update_interfaces());
    test::shell("ip link set late mtu 1500; ip addr add fd03::1/64 dev late nodad");
    EXPECT_TRUE(here.transport->update_interfaces());
    std::unique_ptr<Station> there;
    other.run([&] { there = std::make_unique<Station>(with_mask(8)); });
    there->transport->send(kMessage, to_locator(multicast_groups_v6().front(), 7400));
    EXPECT_EQ(here.receive(1, 2000), 1u);
    test::shell("ip link del late");
}

TEST(InterfaceChanges, MoreInterfacesThanCanBeJoinedAreAnError) {
    Station here(with_mask(1));
    std::string all =
        "for i in $(seq 30); do ip link add n$i type veth peer name f$i; ip link set n$i up; "
        "ip addr add 10.3.$i.1/24 dev n$i; done";
    test::shell(all);
    EXPECT_TRUE(here.transport->update_interfaces());
    EXPECT_THAT(here.errors, testing::Not(IsEmpty()));
    for (const std::string& error : here.errors)
        EXPECT_THAT(error, HasSubstr("what comes there by multicast is not seen"));
    test::shell("for i in $(seq 30); do ip link del n$i; done");
}

TEST(InterfaceChanges, AHostWithoutAddressesStartsAndComesToLife) {
    test::OtherHost other;
    other.run([] {
        test::shell("ip addr flush dev lo");
        Station station(with_mask(1));
        ASSERT_TRUE(station.transport) << station.error;
        EXPECT_THAT(station.errors, ElementsAre(HasSubstr("no network interface")));
        EXPECT_EQ(station.transport->describe(), "none");
        EXPECT_THAT(station.transport->own_locators().default_unicast, IsEmpty());
        test::shell("ip addr add 127.0.0.1/8 dev lo");
        EXPECT_TRUE(station.transport->update_interfaces());
        EXPECT_EQ(station.transport->describe(), "lo 127.0.0.1");
        test::shell("ip addr flush dev lo");
        EXPECT_TRUE(station.transport->update_interfaces());
        EXPECT_EQ(station.errors.size(), 1u) << "once a minute";
        test::shell("ip addr add 127.0.0.1/8 dev lo");
        EXPECT_TRUE(station.transport->update_interfaces());
        EXPECT_THAT(texts(station.transport->own_locators().default_unicast),
                    ElementsAre("udpv4:127.0.0.1:7411"));
    });
}

TEST(InterfaceChanges, AFamilyThatIsMissingIsLeftOut) {
    test::OtherHost other;
    other.run([] {
        test::shell("ip addr flush dev lo");
        test::shell("ip -6 addr add ::1/128 dev lo");
        const Station both(with_mask(10)); // IPv4 on loopback, IPv6
        ASSERT_TRUE(both.transport) << both.error;
        EXPECT_THAT(both.warnings, ElementsAre(HasSubstr("left out")));
        EXPECT_THAT(texts(both.transport->own_locators().default_unicast), ElementsAre("udpv6:[::1]:7411"));
        const Station none(with_mask(2));
        EXPECT_FALSE(none.transport);
        EXPECT_THAT(none.error, HasSubstr("127.0.0.1"));
    });
}

} // namespace
} // namespace meridian::rtps::net
