// Steady traffic costs the receive thread no allocation.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "rtps/net/runtime.h"
#include "support/allocation_counter.h"

namespace meridian::rtps::net {
namespace {

using namespace std::chrono_literals;

/// Notes how often the thread that delivers had allocated by the first sample after the warm-up, and by the
/// last.
struct CountingSink : ReaderSink {
    static constexpr int kWarmUp = 500;
    static constexpr int kLast = 2500;
    // A batch that is larger than all before, or a timer, may make room once; a sample must not.
    static constexpr uint64_t kStray = 10;

    void on_sample(const Sample&) override {
        const int number = ++samples;
        if (number == kWarmUp)
            before = ::test::thread_allocations();
        if (number == kLast)
            after = ::test::thread_allocations();
    }
    void matched(const RemoteEndpoint&) override { is_matched = true; }

    std::atomic<bool> is_matched{false};
    std::atomic<int> samples{0};
    std::atomic<uint64_t> before{0};
    std::atomic<uint64_t> after{0};
};

struct WriterSink : EndpointSink {
    void matched(const RemoteEndpoint&) override { is_matched = true; }
    std::atomic<bool> is_matched{false};
};

struct Process {
    explicit Process(const std::string& name) {
        RuntimeConfig config;
        config.own_participants = std::make_shared<OwnParticipants>();
        config.participant.prefix = config.own_participants->choose(0, 0, 0);
        config.participant.name = name;
        // What is done from time to time may allocate; here samples count.
        config.participant.initial_announcement_period = std::chrono::milliseconds(1);
        config.participant.announce_period = std::chrono::hours(1);
        config.participant.lease = kDurationInfinite;
        std::string error;
        runtime = Runtime::create(config, events, error);
        EXPECT_TRUE(runtime && runtime->start(error)) << error;
    }
    EndpointData endpoint(uint32_t entity, Reliability reliability) const {
        EndpointData data;
        data.guid = {runtime->prefix(), EntityId{entity}};
        data.topic_name = "T";
        data.type_name = "X";
        data.qos.reliability = reliability;
        return data;
    }

    Events events;
    std::unique_ptr<Runtime> runtime;
};

void steady_traffic_allocates_nothing(Reliability reliability) {
    constexpr EntityId kWriter{0x203};
    constexpr EntityId kReader{0x104};
    Process a("a");
    Process b("b");
    CountingSink sink;
    WriterSink writer_sink;
    a.runtime->with_participant([&](Participant& participant, Now now) {
        participant.add_reader(a.endpoint(kReader.value, reliability), {}, sink, now);
    });
    b.runtime->with_participant([&](Participant& participant, Now now) {
        participant.add_writer(b.endpoint(kWriter.value, reliability), {}, writer_sink, now);
    });
    while (!sink.is_matched || !writer_sink.is_matched)
        std::this_thread::sleep_for(1ms);
    const ByteBuffer payload(100, 1);
    for (int round = 0; sink.samples < CountingSink::kLast; ++round) {
        ASSERT_LT(round, 20 * CountingSink::kLast);
        b.runtime->with_participant([&](Participant& participant, Now now) {
            WriteRequest request;
            request.payload = payload;
            participant.write(kWriter, request, now);
        });
        // One at a time and in bursts, so that batches are of all sizes.
        if (round % 16 < 8)
            std::this_thread::sleep_for(100us);
    }
    a.runtime->stop();
    b.runtime->stop();
    EXPECT_LE(sink.after - sink.before, CountingSink::kStray)
        << "in " << CountingSink::kLast - CountingSink::kWarmUp << " samples";
}

TEST(Allocations, SteadyBestEffortTrafficMakesNone) {
    steady_traffic_allocates_nothing(Reliability::best_effort);
}

TEST(Allocations, SteadyReliableTrafficMakesNone) {
    steady_traffic_allocates_nothing(Reliability::reliable);
}

} // namespace
} // namespace meridian::rtps::net
