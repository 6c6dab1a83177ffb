#include "dcps/entities/runtime_config.h"

#include <gtest/gtest.h>

#include "meridian/property.h"
#include "meridian/string.h"

namespace meridian::dcps {
namespace {

class RuntimeConfigTest : public ::testing::Test {
  protected:
    rtps::net::RuntimeConfig make() {
        const auto config = runtime_config(domain_, qos_, transports_, prefix_, own_, error_);
        EXPECT_TRUE(config.has_value()) << error_;
        return config.value_or(rtps::net::RuntimeConfig());
    }
    void add_property(const char* name, const char* value, bool propagate) {
        ASSERT_EQ(DDS_PropertyQosPolicyHelper_add_property(qos_.property, name, value, propagate),
                  DDS_RETCODE_OK);
    }

    DDS_DomainId_t domain_ = 3;
    DDS_DomainParticipantQos qos_;
    TransportProperties transports_;
    std::shared_ptr<rtps::net::OwnParticipants> own_ = std::make_shared<rtps::net::OwnParticipants>();
    rtps::GuidPrefix prefix_ = own_->choose(0, 0, 0);
    std::string error_;
};

TEST_F(RuntimeConfigTest, TypesMayBeUnlimited) {
    qos_.resource_limits.type_code_max_serialized_length = 100;
    EXPECT_EQ(max_type_size(qos_), 100u);
    qos_.resource_limits.type_code_max_serialized_length = 0;
    EXPECT_EQ(max_type_size(qos_), 0u);
    qos_.resource_limits.type_code_max_serialized_length = DDS_LENGTH_UNLIMITED;
    EXPECT_EQ(max_type_size(qos_), UINT64_MAX);
}

TEST_F(RuntimeConfigTest, PoliciesReachTheLayersBelow) {
    qos_.wire_protocol.participant_id = 7;
    qos_.transport_builtin.mask = DDS_TRANSPORTBUILTIN_UDPv6;
    qos_.discovery_config.participant_liveliness_lease_duration = {6, 500000000};
    qos_.discovery_config.participant_liveliness_assert_period = {2, 0};
    qos_.receiver_pool.buffer_size = 20000;
    DDS_StringSeq_append(qos_.discovery.initial_peers, "127.0.0.1");
    DDS_StringSeq_append(qos_.discovery.initial_peers, "2@::1");
    const rtps::net::RuntimeConfig config = make();
    EXPECT_EQ(config.transport.domain_id, 3u);
    EXPECT_EQ(config.transport.participant_index, 7);
    EXPECT_EQ(config.transport.mask, 8u);
    EXPECT_EQ(config.transport.receive_buffer_size, 20000);
    EXPECT_EQ(config.participant.prefix, prefix_);
    EXPECT_EQ(config.participant.lease, (rtps::WireDuration{6, 0x80000000}));
    EXPECT_EQ(config.participant.announce_period, std::chrono::seconds(2));
    EXPECT_EQ(config.peers, (std::vector<std::string>{"127.0.0.1", "2@::1"}));
    EXPECT_EQ(config.own_participants, own_);
    EXPECT_GE(config.participant.max_sample_size, 64000000U);
}

TEST_F(RuntimeConfigTest, TransportPropertiesReachTheirFamily) {
    transports_.udpv4 = {9000, 1000, 2000, 5};
    transports_.udpv6 = {8000, 3000, 4000, 6};
    const rtps::net::RuntimeConfig config = make();
    EXPECT_EQ(config.transport.v4.message_size_max, 9000);
    EXPECT_EQ(config.transport.v4.send_socket_buffer_size, 1000);
    EXPECT_EQ(config.transport.v4.receive_socket_buffer_size, 2000);
    EXPECT_EQ(config.transport.v4.multicast_ttl, 5);
    EXPECT_EQ(config.transport.v6.message_size_max, 8000);
    EXPECT_EQ(config.transport.v6.multicast_ttl, 6);
}

TEST_F(RuntimeConfigTest, DefaultsOfBothLayersAreTheSame) {
    const rtps::net::RuntimeConfig config = make();
    const rtps::net::TransportConfig defaults;
    EXPECT_EQ(config.transport.mask, defaults.mask);
    EXPECT_EQ(config.transport.participant_index, -1);
    EXPECT_EQ(config.transport.receive_buffer_size, defaults.receive_buffer_size);
    EXPECT_EQ(config.transport.v4.message_size_max, defaults.v4.message_size_max);
    EXPECT_EQ(config.transport.v4.send_socket_buffer_size, defaults.v4.send_socket_buffer_size);
    EXPECT_EQ(config.transport.v4.receive_socket_buffer_size, defaults.v4.receive_socket_buffer_size);
    EXPECT_EQ(config.transport.v4.multicast_ttl, defaults.v4.multicast_ttl);
    EXPECT_TRUE(config.participant.domain_tag.empty());
    EXPECT_TRUE(config.participant.properties.empty());
    EXPECT_TRUE(config.peers.empty());
}

TEST_F(RuntimeConfigTest, ABufferLargerThanAnyDatagramIsAsGoodAsTheLargest) {
    qos_.receiver_pool.buffer_size = 10000000;
    EXPECT_EQ(make().transport.receive_buffer_size, rtps::net::kLargestReceiveBuffer);
    qos_.receiver_pool.buffer_size = 0;
    EXPECT_EQ(make().transport.receive_buffer_size, 0);
}

TEST_F(RuntimeConfigTest, OnlyPropagatedPropertiesAreAnnounced) {
    add_property("seen", "1", true);
    add_property("hidden", "2", false);
    DDS_StringSeq_append(qos_.partition.name, "A");
    DDS_StringSeq_append(qos_.partition.name, "B*");
    qos_.participant_name.name = DDS_String_dup("the name");
    const DDS_Octet octet = 9;
    qos_.user_data.value.append(octet);
    const rtps::net::RuntimeConfig config = make();
    EXPECT_EQ(config.participant.properties,
              (std::vector<rtps::Property>{{"seen", "1"}, {"dds.domain_participant.partition", "A,B*"}}));
    EXPECT_EQ(config.participant.name, "the name");
    EXPECT_EQ(config.participant.user_data, rtps::ByteBuffer{9});
}

TEST_F(RuntimeConfigTest, ThePartitionPolicyWinsOverAPropertyOfItsName) {
    add_property("dds.domain_participant.partition", "X", true);
    EXPECT_TRUE(make().participant.properties.empty());
    DDS_StringSeq_append(qos_.partition.name, "A");
    EXPECT_EQ(make().participant.properties,
              (std::vector<rtps::Property>{{"dds.domain_participant.partition", "A"}}));
}

TEST_F(RuntimeConfigTest, TheDomainTagIsAProperty) {
    add_property("dds.domain_participant.domain_tag", "tag", false);
    EXPECT_EQ(make().participant.domain_tag, "tag");
    EXPECT_TRUE(make().participant.properties.empty());
}

TEST_F(RuntimeConfigTest, PropertiesOfTransportsAreTakenWithBlanksAroundThem) {
    add_property(" dds.transport.UDPv4.builtin.ignore_loopback_interface ", " 1 ", false);
    add_property("dds.transport.UDPv4.builtin.parent.allow_interfaces_list", "eth0,10.*", false);
    const rtps::net::RuntimeConfig config = make();
    EXPECT_TRUE(config.transport.v4.ignore_loopback_interface);
    EXPECT_EQ(config.transport.v4.allow_interfaces, (std::vector<std::string>{"eth0", "10.*"}));
}

} // namespace
} // namespace meridian::dcps
