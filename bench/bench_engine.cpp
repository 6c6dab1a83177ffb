// The way of a sample through the engine, without sockets: packets are received by a participant that hands
// what it reads to no listener, then by one with a whole reader behind it. The floor is reading the same
// packets only. Then the whole way again with many topics, whose samples come in turn; there the floor is the
// way with few.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "common/private_network.h"
#include "dcps/reader/user_reader.h"
#include "measure.h"
#include "meridian/domain_participant_factory.h"
#include "meridian/dynamic_data_type_support.h"
#include "quixspy/generated/DynamicTypeSupport.h"
#include "rtps/protocol/participant.h"
#include "types/documents/type_documents.h"
#include "writer_stand_in.h"
#include "xml/documents.h"

using namespace meridian;
using namespace meridian::rtps;
using ferret::bench::Comparison;
using ferret::bench::WriterStandIn;

namespace {

constexpr size_t kSamples = 20000;
constexpr const char* kTopic = "Bench";

[[noreturn]] void give_up(const char* what) {
    std::fprintf(stderr, "bench_engine: %s\n", what);
    std::exit(1);
}

class NullOutput final : public Output {
  public:
    void send(ByteView, const Locator&) override {}
    int preference(const Locator&, const Locator&) const override { return 1; }
};

class CountingSink final : public ReaderSink {
  public:
    void on_sample(const Sample&) override { ++count; }
    uint64_t count = 0;
};

/// A participant with reliable readers, each matched with a stand-in of its own.
class Engine {
  public:
    Engine() : participant_(config(), output_, events_) { participant_.start(now_); }

    /// The first one has the number 1.
    void add_reader(const WriterStandIn& writer, const std::string& topic, uint32_t number, bool keyed,
                    ReaderSink& sink) {
        EndpointData reader;
        reader.guid = {participant_.guid().prefix,
                       EntityId{(number << 8) | (keyed ? kUserReaderWithKey : kUserReaderNoKey)}};
        reader.topic_name = reader.type_name = topic;
        reader.qos.reliability = Reliability::reliable;
        reader.qos.durability = Durability::transient_local;
        participant_.add_reader(reader, ReaderConfig{}, sink, now_);
        receive(writer.announcements());
    }
    void receive(const std::vector<ByteBuffer>& datagrams) {
        for (const ByteBuffer& datagram : datagrams)
            receive(datagram);
    }
    void receive(const ByteBuffer& datagram) {
        participant_.receive(datagram, ferret::bench::stand_in_locator(), now_);
    }

  private:
    static ParticipantConfig config() {
        ParticipantConfig config;
        config.prefix.bytes = {9, 9, 9};
        return config;
    }

    const Now now_{std::chrono::seconds(1), {1700000000, 0}};
    NullOutput output_;
    Events events_;
    Participant participant_;
};

WriterStandIn stand_in(bool keyed) {
    return WriterStandIn(kTopic, kTopic, keyed);
}

/// An engine with one reader, and the packets of the next round.
class OneTopic {
  public:
    OneTopic(bool keyed, ReaderSink& sink) : writer_(stand_in(keyed)) {
        engine_.add_reader(writer_, kTopic, 1, keyed, sink);
    }

    void prepare(size_t per_packet, ByteView payload, bool key_hash) {
        packets = writer_.samples(kSamples / per_packet, per_packet, payload, key_hash);
    }
    void receive(const ByteBuffer& packet) { engine_.receive(packet); }
    void receive() { engine_.receive(packets); }

    std::vector<ByteBuffer> packets;

  private:
    WriterStandIn writer_;
    Engine engine_;
};

/// What stands behind a typed reader.
template <typename TypedReader>
dcps::UserReader& behind(DDSDataReader* reader) {
    auto* typed = dynamic_cast<TypedReader*>(reader);
    auto* user_reader = typed != nullptr ? dynamic_cast<dcps::UserReader*>(typed->untyped()) : nullptr;
    if (user_reader == nullptr)
        give_up("no reader of the expected type");
    return *user_reader;
}

/// A participant of the public interface with one reader. Its own sockets stay idle: the samples come from an
/// engine of the benchmark.
class Domain {
  public:
    Domain() {
        participant_ = DDSDomainParticipantFactory::get_instance()->create_participant(
            0, DDS_DomainParticipantQos(), nullptr, DDS_STATUS_MASK_NONE);
        if (participant_ == nullptr || participant_->enable() != DDS_RETCODE_OK)
            give_up("no participant");
    }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    ~Domain() {
        participant_->delete_contained_entities();
        DDSDomainParticipantFactory::get_instance()->delete_participant(participant_);
        DDSDomainParticipantFactory::finalize_instance();
    }

    DDSDomainParticipant* participant() { return participant_; }

    /// A reader of a new topic, with the history that the spy uses.
    DDSDataReader* reader(const char* type_name) { return reader(type_name, type_name); }
    DDSDataReader* reader(const char* type_name, const std::string& name) {
        DDSTopic* topic = participant_->create_topic(name.c_str(), type_name, DDS_TopicQos(), nullptr,
                                                     DDS_STATUS_MASK_NONE);
        DDSSubscriber* subscriber =
            participant_->create_subscriber(DDS_SubscriberQos(), nullptr, DDS_STATUS_MASK_NONE);
        DDS_DataReaderQos qos;
        qos.history.depth = 8192;
        DDSDataReader* reader = subscriber->create_datareader(topic, qos, nullptr, DDS_STATUS_MASK_NONE);
        if (reader == nullptr || reader->enable() != DDS_RETCODE_OK)
            give_up("no reader");
        return reader;
    }

  private:
    DDSDomainParticipant* participant_;
};

/// Takes what there is and returns the loan.
template <typename Sequence, typename TypedReader>
size_t take(TypedReader& reader) {
    Sequence samples;
    DDS_SampleInfoSeq infos;
    if (reader.take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                    DDS_ANY_INSTANCE_STATE) != DDS_RETCODE_OK)
        return 0;
    const auto count = static_cast<size_t>(infos.length());
    reader.return_loan(samples, infos);
    return count;
}

/// Receives packet by packet; takes, and returns the loan, after every few of them, as a listener does that
/// keeps up.
template <typename TypedReader, typename Sequence>
class WholeWay {
  public:
    WholeWay(DDSDataReader* reader, bool keyed)
        : reader_(*dynamic_cast<TypedReader*>(reader)), engine_(keyed, behind<TypedReader>(reader)) {}

    OneTopic& engine() { return engine_; }

    void run(size_t packets_per_take) {
        size_t taken = 0;
        for (size_t i = 0; i < engine_.packets.size(); ++i) {
            engine_.receive(engine_.packets[i]);
            if ((i + 1) % packets_per_take == 0)
                taken += take<Sequence>(reader_);
        }
        taken += take<Sequence>(reader_);
        if (taken != kSamples)
            give_up("not every sample came");
    }

  private:
    TypedReader& reader_;
    OneTopic engine_;
};

/// Topics without key whose samples come in turn. They are taken some packets later, as the spy does it.
class ManyTopics {
  public:
    ManyTopics(Domain& domain, uint32_t topics) {
        for (uint32_t number = 1; number <= topics; ++number) {
            const std::string name = std::to_string(topics) + " topics: " + std::to_string(number);
            DDSDataReader* const reader = domain.reader("Opaque", name);
            writers_.emplace_back(name, name, false, number);
            engine_.add_reader(writers_.back(), name, number, false, behind<DynamicTypeDataReader>(reader));
            readers_.push_back(dynamic_cast<DynamicTypeDataReader*>(reader));
        }
    }

    void prepare(ByteView payload) {
        packets_.clear();
        for (size_t i = 0; i < kSamples; ++i)
            packets_.push_back(std::move(writers_[i % writers_.size()].samples(1, 1, payload, false)[0]));
    }
    void run() {
        constexpr size_t kBehind = 8;
        size_t taken = 0;
        for (size_t i = 0; i < kSamples + kBehind; ++i) {
            if (i < kSamples)
                engine_.receive(packets_[i]);
            if (i >= kBehind)
                taken += take<DynamicTypeSeq>(*readers_[(i - kBehind) % readers_.size()]);
        }
        if (taken != kSamples)
            give_up("not every sample of the topics came");
    }

  private:
    std::vector<WriterStandIn> writers_;
    std::vector<DynamicTypeDataReader*> readers_;
    std::vector<ByteBuffer> packets_;
    Engine engine_;
};

void compare_topics(Domain& domain, int rounds) {
    const ByteBuffer payload = ferret::bench::small_sample();
    Comparison table("One sample of 32 bytes, topics in turn");
    std::vector<std::unique_ptr<ManyTopics>> all;
    for (const uint32_t topics : {10u, 1000u}) {
        all.push_back(std::make_unique<ManyTopics>(domain, topics));
        ManyTopics& many = *all.back();
        table.add(
            std::to_string(topics) + " topics", kSamples, [&many] { many.run(); },
            [&many, &payload] { many.prepare(payload); });
    }
    table.run(rounds);
}

class ReadOnly final : public MessageVisitor {};

void compare(DDSDataReader* unkeyed, DDSDataReader* keyed, DDSDataReader* dynamic, size_t per_packet,
             int rounds) {
    const ByteBuffer payload = ferret::bench::small_sample();
    CountingSink sink;
    OneTopic plain(false, sink);
    WholeWay<DynamicTypeDataReader, DynamicTypeSeq> opaque(unkeyed, false);
    WholeWay<KeyedDynamicTypeDataReader, KeyedDynamicTypeSeq> opaque_keyed(keyed, true);
    WholeWay<DDSDynamicDataReader, DDS_DynamicDataSeq> dynamic_keyed(dynamic, true);

    ReadOnly visitor;
    ByteBuffer copy(65536);
    const size_t packets_per_take = per_packet > 8 ? 1 : 8;
    const auto prepared = [&](OneTopic& engine, bool key_hash) {
        return [&engine, &payload, per_packet, key_hash] { engine.prepare(per_packet, payload, key_hash); };
    };

    Comparison table("One sample of 32 bytes, " + std::to_string(per_packet) + " per packet");
    const std::vector<ByteBuffer> packets =
        stand_in(false).samples(kSamples / per_packet, per_packet, payload, false);
    table.add("read the message", kSamples, [&] {
        for (const ByteBuffer& packet : packets)
            read_message(packet, visitor);
    });
    table.add("copy the packet", kSamples, [&] {
        for (const ByteBuffer& packet : packets) {
            std::memcpy(copy.data(), packet.data(), packet.size());
            ferret::bench::keep(copy.data());
        }
    });
    table.add(
        "receive by a reliable reader", kSamples, [&] { plain.receive(); }, prepared(plain, false));
    table.add(
        "the whole way, opaque without key", kSamples, [&] { opaque.run(packets_per_take); },
        prepared(opaque.engine(), false));
    table.add(
        "the whole way, opaque with key hash", kSamples, [&] { opaque_keyed.run(packets_per_take); },
        prepared(opaque_keyed.engine(), true));
    table.add(
        "the whole way, known type, key from the data", kSamples,
        [&] { dynamic_keyed.run(packets_per_take); }, prepared(dynamic_keyed.engine(), false));
    table.run(rounds);
    if (sink.count == 0)
        give_up("the reader did not match its writer");
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = ferret::bench::rounds_of(argc, argv);
    std::string error;
    if (!test::enter_private_network(error))
        give_up(error.c_str());

    xml::Documents documents;
    types::TypesByName types;
    if (!documents.add_text(
            "bench",
            "<types><struct name=\"Small\"><member name=\"seq\" type=\"uint32\"/>"
            "<member name=\"keyval\" type=\"uint32\" key=\"true\"/>"
            "<member name=\"baggage\" type=\"byte\" arrayDimensions=\"24\"/></struct></types>",
            error) ||
        !types::make_types(documents, types, error))
        give_up(error.c_str());

    Domain domain;
    DDSDynamicDataTypeSupport support(types["Small"].get(), DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT);
    if (DynamicTypeTypeSupport::register_type(domain.participant(), "Opaque") != DDS_RETCODE_OK ||
        KeyedDynamicTypeTypeSupport::register_type(domain.participant(), "KeyedOpaque") != DDS_RETCODE_OK ||
        support.register_type(domain.participant(), "Small") != DDS_RETCODE_OK)
        give_up("a type cannot be registered");
    DDSDataReader* const unkeyed = domain.reader("Opaque");
    DDSDataReader* const keyed = domain.reader("KeyedOpaque");
    DDSDataReader* const dynamic = domain.reader("Small");
    compare(unkeyed, keyed, dynamic, 1, rounds);
    compare(unkeyed, keyed, dynamic, 25, rounds);
    compare_topics(domain, rounds);
    return 0;
}
