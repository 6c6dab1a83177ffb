#pragma once

// A participant whose heap is watched, and a remote one that exists as datagrams only.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "meridian/domain_participant.h"
#include "meridian/domain_participant_factory.h"
#include "steady_traffic/remote_peer.h"
#include "support/allocation_counter.h"

namespace meridian::test {

using namespace std::chrono_literals;

/// True as soon as the condition is, false when it was not within a minute.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(200us);
    }
    return true;
}

/// An enabled participant that announces itself once: what it does of its own accord is not counted.
class HeapTest : public ::testing::Test {
  protected:
    void SetUp() override {
        DDS_DomainParticipantQos qos;
        qos.discovery_config.participant_liveliness_assert_period = {1000, 0};
        qos.discovery_config.participant_liveliness_lease_duration = {3000, 0};
        DDS_StringSeq_append(qos.partition.name, "*");
        participant_ = factory()->create_participant(0, qos, nullptr, DDS_STATUS_MASK_NONE);
        ASSERT_NE(participant_, nullptr);
        ASSERT_EQ(participant_->enable(), DDS_RETCODE_OK);
        // Until its announcements at the start are over, which come every 100 ms.
        ASSERT_TRUE(eventually([] {
            const uint64_t before = ::test::allocations();
            std::this_thread::sleep_for(300ms);
            return ::test::allocations() == before;
        }));
    }
    void TearDown() override {
        EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
        EXPECT_EQ(factory()->delete_participant(participant_), DDS_RETCODE_OK);
        EXPECT_EQ(DDSDomainParticipantFactory::finalize_instance(), DDS_RETCODE_OK);
    }
    static DDSDomainParticipantFactory* factory() { return DDSDomainParticipantFactory::get_instance(); }

    DDSDomainParticipant* participant_ = nullptr;
    RemotePeer peer_;
};

} // namespace meridian::test
