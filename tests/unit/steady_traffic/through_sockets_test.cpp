// Steady traffic through real sockets takes nothing from the heap, neither on the thread that receives nor on
// the one that delivers.

#include <unistd.h>

#include <atomic>

#include "meridian/dynamic_data_type_support.h"
#include "meridian/subscriber.h"
#include "steady_traffic/heap_fixture.h"
#include "types/model/type.h"

namespace meridian::test {
namespace {

/// struct Small { @key uint32 id; uint32 value[8]; }, or without the key.
types::TypeRef make_type(bool keyed) {
    types::TypeGraph* graph = types::TypeGraph::create();
    types::Type* type = graph->add();
    types::Type* array = graph->add();
    array->kind = DDS_TK_ARRAY;
    array->dimensions = {8};
    array->content = graph->primitive(DDS_TK_ULONG);
    type->kind = DDS_TK_STRUCT;
    type->name = "Small";
    types::Member id;
    id.name = "id";
    id.type = graph->primitive(DDS_TK_ULONG);
    id.key = keyed;
    types::Member value;
    value.name = "value";
    value.id = 1;
    value.type = array;
    type->members = {id, value};
    return types::TypeRef::adopt(type);
}

/// Takes what is there and gives it back at once, as the tool does.
class Taker final : public DDSDataReaderListener {
  public:
    ~Taker() override { detach(); }
    void on_data_available(DDSDataReader* reader) override {
        thread = gettid();
        DDS_DynamicDataSeq samples;
        DDS_SampleInfoSeq infos;
        auto* typed = static_cast<DDSDynamicDataReader*>(reader);
        if (typed->take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                        DDS_ANY_INSTANCE_STATE) != DDS_RETCODE_OK)
            return;
        const DDS_Long count = infos.length();
        typed->return_loan(samples, infos);
        taken += count;
    }
    void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus& status) override {
        matches = status.current_count;
    }

    std::atomic<long> taken{0};
    std::atomic<long> matches{0};
    std::atomic<long> thread{0};
};

class TrafficThroughSockets : public HeapTest {
  protected:
    static constexpr long kAtOnce = 5;
    // Timers of the protocol may allocate now and then; a sample must not.
    static constexpr uint64_t kStray = 10;

    void run(bool keyed, bool with_hash) {
        const types::TypeRef type = make_type(keyed);
        DDSDynamicDataTypeSupport support(type.get(), DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT);
        ASSERT_EQ(support.register_type(participant_, "Small"), DDS_RETCODE_OK);
        DDSTopic* topic = participant_->create_topic("T", "Small", {}, nullptr, DDS_STATUS_MASK_NONE);
        DDSSubscriber* subscriber = participant_->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
        DDS_DataReaderQos qos;
        qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
        qos.history.depth = 8192;
        Taker taker;
        DDSDataReader* reader = subscriber->create_datareader(topic, qos, &taker, DDS_STATUS_MASK_ALL);
        ASSERT_NE(reader, nullptr);
        reader->enable();

        const rtps::EntityId writer = RemotePeer::writer_entity(1, keyed);
        peer_.announce();
        peer_.announce_writer(writer, "T", "Small");
        ASSERT_TRUE(eventually([&] { return taker.matches == 1; }));
        peer_.heartbeat(writer, 1, 0);
        rtps::InlineQos inline_qos;
        inline_qos.key_hash = rtps::KeyHash{0, 0, 0, 1};
        const rtps::ByteBuffer hash = with_hash ? encode(inline_qos) : rtps::ByteBuffer();
        long sent = 0;
        const auto write = [&](long count) {
            for (long i = 0; i < count; i += kAtOnce) {
                for (long k = 0; k < kAtOnce; ++k) {
                    rtps::ByteBuffer payload{0, 1, 0, 0, 1, 0, 0, 0}; // XCDR1, and the key
                    payload.resize(payload.size() + 32);
                    peer_.write(writer, ++sent, payload, hash);
                }
                if (i % 100 == 0)
                    peer_.heartbeat(writer, 1, sent);
                ASSERT_TRUE(eventually([&] { return taker.taken == sent; })) << taker.taken << " of " << sent;
            }
        };
        write(2000);
        constexpr long kCounted = 5000;
        ::test::start_counting();
        write(kCounted);
        uint64_t writes_counted = 0;
        for (const ::test::ThreadAllocations& thread : ::test::stop_counting()) {
            if (thread.thread == getpid()) {
                writes_counted = thread.count; // the thread that writes
                continue;
            }
            const std::string name = thread.thread == taker.thread ? "delivery" : "receive";
            EXPECT_LE(thread.count, kStray)
                << static_cast<double>(thread.count) / kCounted << " allocations per sample on the " << name
                << " thread (\"" << thread.name << "\"); the first one:\n"
                << thread.first;
        }
        EXPECT_GE(writes_counted, uint64_t{kCounted}) << "nothing is counted";
        EXPECT_EQ(subscriber->delete_datareader(reader), DDS_RETCODE_OK);
    }
};

TEST_F(TrafficThroughSockets, AllocatesNothingWithoutKeys) {
    run(false, false);
}
TEST_F(TrafficThroughSockets, AllocatesNothingWithKeysInTheData) {
    run(true, false);
}
TEST_F(TrafficThroughSockets, AllocatesNothingWithKeyHashes) {
    run(true, true);
}

} // namespace
} // namespace meridian::test
