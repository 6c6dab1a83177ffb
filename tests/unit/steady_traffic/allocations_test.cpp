// Steady traffic takes no memory: once as many samples have passed as are under way at a time, neither the
// thread that receives nor the one that delivers allocates.

#include <atomic>
#include <chrono>
#include <thread>

#include "dcps/factory_fixture.h"
#include "dcps/reader/user_reader.h"
#include "dcps/test_type.h"
#include "platform/clock.h"
#include "support/allocation_counter.h"

namespace meridian::dcps::test {
namespace {

constexpr int kInstances = 8;
constexpr int kWarmUp = 500; // samples
constexpr int kCounted = 1000;

/// Takes what is there, as the tool does, and notes what the delivery thread has allocated by then.
class Taker final : public DDSDataReaderListener {
  public:
    ~Taker() override { detach(); }
    void on_data_available(DDSDataReader* reader) override {
        if (pauses)
            return;
        auto& typed = *static_cast<TestReader*>(reader);
        TestSequence samples;
        DDS_SampleInfoSeq infos;
        while (typed.take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                          DDS_ANY_INSTANCE_STATE) == DDS_RETCODE_OK) {
            const auto count = static_cast<uint64_t>(infos.length());
            typed.return_loan(samples, infos);
            taken += count;
            allocated = ::test::thread_allocations();
        }
    }
    std::atomic<bool> pauses{false};
    std::atomic<uint64_t> taken{0};
    std::atomic<uint64_t> allocated{0}; // by the thread that calls the listener, up to the last take
};

class SteadyTraffic : public FactoryTest {
  protected:
    void open(const char* type, const DDS_DataReaderQos& qos) {
        participant_ = create();
        ASSERT_NE(participant_, nullptr);
        ASSERT_EQ(participant_->enable(), DDS_RETCODE_OK);
        ASSERT_TRUE(register_test_types(*participant_));
        DDSTopic* topic = participant_->create_topic("T", type, {}, nullptr, DDS_STATUS_MASK_NONE);
        DDSSubscriber* subscriber = participant_->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
        auto* reader = dynamic_cast<TestReader*>(
            subscriber->create_datareader(topic, qos, &taker_, DDS_STATUS_MASK_ALL));
        ASSERT_NE(reader, nullptr);
        reader_ = dynamic_cast<UserReader*>(reader->untyped());
    }
    void TearDown() override {
        EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
        FactoryTest::TearDown();
    }

    /// Hands the reader one sample as the receive thread does, and lets the listener take it. The key hash,
    /// where one is sent, is not the one that the type yields.
    void receive(uint32_t id, bool key_hash) {
        const uint8_t payload[] = {0, 1, 0, 0, static_cast<uint8_t>(id), 0, 0, 0, 2, 0, 0, 0, 'x', 0};
        rtps::Sample sample;
        sample.writer.entity = rtps::EntityId{0x102};
        sample.sequence_number = static_cast<rtps::SequenceNumber>(++sent_);
        sample.received = monotonic_now();
        sample.has_payload = true;
        sample.payload = {payload, sizeof payload};
        if (key_hash)
            sample.inline_qos.key_hash = rtps::KeyHash{1, 2, 3, static_cast<uint8_t>(id)};
        reader_->on_sample(sample);
        if (sent_ % batch_ == 0)
            reader_->on_batch_end();
    }
    bool all_taken() const {
        for (int i = 0; i < 20000 && taker_.taken < sent_; ++i)
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        return taker_.taken == sent_;
    }
    /// Sends so many samples, `burst` of them at a time, and waits for each burst to be taken.
    void run(int samples, int burst, bool key_hash) {
        for (int i = 0; i < samples; ++i) {
            receive(static_cast<uint32_t>(i % kInstances), key_hash);
            if (i % burst == burst - 1) {
                ASSERT_TRUE(all_taken());
            }
        }
        ASSERT_TRUE(all_taken());
    }
    void expect_no_allocations(int burst, bool key_hash) {
        // As many as can be under way, whatever the pace of the other thread is.
        taker_.pauses = true;
        for (int i = 0; i < burst; ++i)
            receive(static_cast<uint32_t>(i % kInstances), key_hash);
        reader_->on_batch_end();
        taker_.pauses = false;
        for (uint64_t i = 0; i < batch_; ++i) // for which the taker is called
            receive(0, key_hash);
        ASSERT_TRUE(all_taken());
        run(kWarmUp, burst, key_hash);
        const uint64_t received_before = ::test::thread_allocations();
        const uint64_t delivered_before = taker_.allocated;
        run(kCounted, burst, key_hash);
        EXPECT_EQ(::test::thread_allocations() - received_before, 0u) << "on the thread that receives";
        EXPECT_EQ(taker_.allocated - delivered_before, 0u) << "on the thread that delivers";
    }
    static DDS_DataReaderQos keeping(DDS_Long depth) {
        DDS_DataReaderQos qos;
        qos.history.depth = depth;
        return qos;
    }

    Taker taker_;
    ParticipantImpl* participant_ = nullptr;
    UserReader* reader_ = nullptr;
    uint64_t sent_ = 0;
    uint64_t batch_ = 1;
};

TEST_F(SteadyTraffic, OneSampleAtATime) {
    open("Keyed", keeping(8192));
    expect_no_allocations(1, false);
}

TEST_F(SteadyTraffic, ManySamplesAtATime) {
    open("Keyed", keeping(8192));
    expect_no_allocations(100, false);
}

TEST_F(SteadyTraffic, ManySamplesOfOneBatch) {
    open("Keyed", keeping(8192));
    batch_ = 20;
    expect_no_allocations(100, false);
}

TEST_F(SteadyTraffic, WithoutKey) {
    open("Keyless", keeping(8192));
    expect_no_allocations(10, false);
}

TEST_F(SteadyTraffic, WithKeyHashesOfAnotherForm) {
    open("Keyed", keeping(8192));
    expect_no_allocations(10, true);
}

TEST_F(SteadyTraffic, WithDeadline) {
    DDS_DataReaderQos qos = keeping(8192);
    qos.deadline.period = {1000, 0};
    open("Keyed", qos);
    expect_no_allocations(10, false);
}

TEST_F(SteadyTraffic, WithDeadlinesThatAreMissed) {
    DDS_DataReaderQos qos = keeping(8192);
    qos.deadline.period = {0, 1000000};
    open("Keyed", qos);
    expect_no_allocations(1, false);
}

TEST_F(SteadyTraffic, ThatOverwritesWhatNothingHasTaken) {
    open("Keyed", keeping(2));
    run(kInstances, 1, false);
    taker_.pauses = true;
    for (int i = 0; i < kWarmUp; ++i)
        receive(static_cast<uint32_t>(i % kInstances), false);
    const uint64_t before = ::test::thread_allocations();
    for (int i = 0; i < kCounted; ++i)
        receive(static_cast<uint32_t>(i % kInstances), false);
    EXPECT_EQ(::test::thread_allocations() - before, 0u);
}

} // namespace
} // namespace meridian::dcps::test
