#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "endpoints_peer.h"
#include "factory_fixture.h"
#include "support/logger_guard.h"

namespace meridian::dcps::test {

constexpr std::chrono::milliseconds kPatience{30000};

/// The answer as soon as it is the expected one, else the last one.
template <typename Ask, typename Answer>
Answer eventually(const Answer& expected, Ask ask) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    Answer answer = ask();
    while (!(answer == expected) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        answer = ask();
    }
    return answer;
}

/// An enabled participant with the test types, and another process with one of its own.
class EndpointsTest : public FactoryTest {
  protected:
    void SetUp() override {
        FactoryTest::SetUp();
        peer_ = std::make_unique<PeerProcess>(PeerProgram(&EndpointsPeer::make)); // while there is one thread
        logging_.emplace(QUIX_LOG_ERROR | QUIX_LOG_WARNING);
        participant_ = create();
        ASSERT_NE(participant_, nullptr);
        ASSERT_TRUE(register_test_types(*participant_));
        ASSERT_EQ(participant_->enable(), DDS_RETCODE_OK);
    }
    void TearDown() override {
        EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
        FactoryTest::TearDown();
        logging_.reset();
        peer_.reset();
        EXPECT_EQ(counters().endpoints, 0);
        EXPECT_EQ(counters().samples, 0);
        EXPECT_EQ(counters().participants, 0);
        EXPECT_EQ(counters().supports, 0);
    }

    std::string ask(const std::string& command) { return peer_->ask(command); }
    ParticipantImpl& participant() { return *participant_; }
    std::string matched_to(const std::string& remote_name, const std::string& count) {
        return eventually(count, [&] { return ask("matched " + remote_name); });
    }
    /// What the remote reader has taken, gathered until it is the expected text.
    std::string remotely_taken(const std::string& name, const std::string& expected) {
        std::string all;
        return eventually(expected, [&] { return all = joined(all, ask("take " + name)); });
    }
    static std::string taken(TestReader& reader, const std::string& expected) {
        std::string all;
        return eventually(expected, [&] { return all = joined(all, take_all(reader)); });
    }
    static std::string joined(const std::string& a, const std::string& b) {
        return a.empty() || b.empty() ? a + b : a + ", " + b;
    }
    PeerProcess& peer() { return *peer_; }

  private:
    std::optional<LoggerGuard> logging_;
    std::unique_ptr<PeerProcess> peer_;
    ParticipantImpl* participant_ = nullptr;
};

} // namespace meridian::dcps::test
