// The way of a sample through the engine, without sockets: packets are received by a participant that hands
// what it reads to no listener, then by one with a whole reader behind it. The floor is reading the same
// packets only.

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

/// A participant with one reliable reader, matched with the stand-in, and the packets of the next round.
class Engine {
  public:
    Engine(WriterStandIn writer, bool keyed, ReaderSink& sink)
        : writer_(std::move(writer)), participant_(config(), output_, events_) {
        EndpointData reader;
        reader.guid = {participant_.guid().prefix,
                       EntityId{0x200u | (keyed ? kUserReaderWithKey : kUserReaderNoKey)}};
        reader.topic_name = kTopic;
        reader.type_name = kTopic;
        reader.qos.reliability = Reliability::reliable;
        reader.qos.durability = Durability::transient_local;
        participant_.start(now_);
        participant_.add_reader(reader, ReaderConfig{}, sink, now_);
        receive(writer_.announcements());
    }

    void prepare(size_t per_packet, ByteView payload, bool key_hash) {
        packets = writer_.samples(kSamples / per_packet, per_packet, payload, key_hash);
    }
    void receive(const std::vector<ByteBuffer>& datagrams) {
        for (const ByteBuffer& datagram : datagrams)
            receive(datagram);
    }
    void receive(const ByteBuffer& datagram) {
        participant_.receive(datagram, ferret::bench::stand_in_locator(), now_);
    }

    std::vector<ByteBuffer> packets;

  private:
    static ParticipantConfig config() {
        ParticipantConfig config;
        config.prefix.bytes = {9, 9, 9};
        return config;
    }

    const Now now_{std::chrono::seconds(1), {1700000000, 0}};
    WriterStandIn writer_;
    NullOutput output_;
    Events events_;
    Participant participant_;
};

WriterStandIn stand_in(bool keyed) {
    return WriterStandIn(kTopic, kTopic, keyed);
}

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
    DDSDataReader* reader(const char* type_name) {
        DDSTopic* topic = participant_->create_topic((std::string(type_name) + " topic").c_str(), type_name,
                                                     DDS_TopicQos(), nullptr, DDS_STATUS_MASK_NONE);
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

/// Receives packet by packet; takes, and returns the loan, after every few of them, as a listener does that
/// keeps up.
template <typename TypedReader, typename Sequence>
class WholeWay {
  public:
    WholeWay(DDSDataReader* reader, bool keyed)
        : reader_(*dynamic_cast<TypedReader*>(reader)),
          engine_(stand_in(keyed), keyed, behind<TypedReader>(reader)) {}

    Engine& engine() { return engine_; }

    void run(size_t packets_per_take) {
        size_t taken = 0;
        for (size_t i = 0; i < engine_.packets.size(); ++i) {
            engine_.receive(engine_.packets[i]);
            if ((i + 1) % packets_per_take == 0)
                taken += take();
        }
        taken += take();
        if (taken != kSamples)
            give_up("not every sample came");
    }

  private:
    size_t take() {
        Sequence samples;
        DDS_SampleInfoSeq infos;
        if (reader_.take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                         DDS_ANY_INSTANCE_STATE) != DDS_RETCODE_OK)
            return 0;
        const auto count = static_cast<size_t>(infos.length());
        reader_.return_loan(samples, infos);
        return count;
    }

    TypedReader& reader_;
    Engine engine_;
};

class ReadOnly final : public MessageVisitor {};

void compare(DDSDataReader* unkeyed, DDSDataReader* keyed, DDSDataReader* dynamic, size_t per_packet,
             int rounds) {
    const ByteBuffer payload = ferret::bench::small_sample();
    CountingSink sink;
    Engine plain(stand_in(false), false, sink);
    WholeWay<DynamicTypeDataReader, DynamicTypeSeq> opaque(unkeyed, false);
    WholeWay<KeyedDynamicTypeDataReader, KeyedDynamicTypeSeq> opaque_keyed(keyed, true);
    WholeWay<DDSDynamicDataReader, DDS_DynamicDataSeq> dynamic_keyed(dynamic, true);

    ReadOnly visitor;
    ByteBuffer copy(65536);
    const size_t packets_per_take = per_packet > 8 ? 1 : 8;
    const auto prepared = [&](Engine& engine, bool key_hash) {
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
        "receive by a reliable reader", kSamples, [&] { plain.receive(plain.packets); },
        prepared(plain, false));
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
    return 0;
}
