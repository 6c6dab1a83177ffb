// The durations in QoS of OpenDDS are seconds and nanoseconds, unless its participant says otherwise.

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {

namespace {

class DurationsOfVendorsTest : public ParticipantTest {
  protected:
    /// A publication with durations of 0.5 s in nanoseconds, as it is known of a participant with these
    /// flags.
    EndpointQos heard(VendorId vendor, const std::vector<RawParameter>& raw) {
        ParticipantData data = remote(2);
        data.vendor = vendor;
        data.raw = raw;
        start();
        announce(data);
        EndpointData writer = publication(2);
        for (WireDuration* duration : {&writer.qos.deadline, &writer.qos.latency_budget,
                                       &writer.qos.liveliness_lease, &writer.qos.lifespan})
            *duration = {0, 500'000'000};
        send_data(2, entity::publications_writer, 1, encode(writer));
        return *recorder.endpoints.at(writer.guid)->qos;
    }
    static RawParameter flags(uint8_t value) { return {0xb005, {value, 0, 0, 0}}; } // little-endian

    const WireDuration half_a_second{0, 0x80000000};
    const WireDuration as_it_stands{0, 500'000'000};
};

TEST_F(DurationsOfVendorsTest, OpenDdsCountsNanoseconds) {
    const EndpointQos qos = heard(kOpenDds, {});
    EXPECT_EQ(qos.deadline, half_a_second);
    EXPECT_EQ(qos.latency_budget, half_a_second);
    EXPECT_EQ(qos.liveliness_lease, half_a_second);
    EXPECT_EQ(qos.lifespan, half_a_second);
    EXPECT_EQ(qos.max_blocking_time, EndpointQos().max_blocking_time);
}

TEST_F(DurationsOfVendorsTest, OpenDdsDoesSoWithOtherFlags) {
    EXPECT_EQ(heard(kOpenDds, {flags(3)}).lifespan, half_a_second);
}

TEST_F(DurationsOfVendorsTest, OpenDdsSaysWhenItCountsFractions) {
    EXPECT_EQ(heard(kOpenDds, {flags(11)}).lifespan, as_it_stands);
}

TEST_F(DurationsOfVendorsTest, OthersCountFractions) {
    EXPECT_EQ(heard(VendorId{{0x01, 0x10}}, {flags(3)}).lifespan, as_it_stands);
}

TEST_F(DurationsOfVendorsTest, TheInfiniteOneStaysSo) {
    ParticipantData data = remote(2);
    data.vendor = kOpenDds;
    start();
    announce(data);
    const EndpointData writer = publication(2);
    send_data(2, entity::publications_writer, 1, encode(writer));
    EXPECT_EQ(recorder.endpoints.at(writer.guid)->qos->lifespan, kDurationInfinite);
}

} // namespace

} // namespace meridian::rtps::test
