#include "rtps/protocol/participant.h"

#include <algorithm>

#include "rtps/protocol/best_effort_reader.h"
#include "rtps/protocol/early_packets.h"
#include "rtps/protocol/endpoint_discovery.h"
#include "rtps/protocol/key_hash.h"
#include "rtps/protocol/liveliness.h"
#include "rtps/protocol/local_endpoints.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/reliable_reader.h"
#include "rtps/protocol/reliable_writer.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

namespace {

constexpr size_t kSmallestMessage = 576;

/// What all builtin endpoints except those for participants use (DDSI-RTPS 2.5, 8.4.13.3 and 8.5.4.2).
EndpointQos builtin_qos() {
    EndpointQos qos;
    qos.reliability = Reliability::reliable;
    qos.durability = Durability::transient_local;
    return qos;
}

} // namespace

class Participant::Implementation final : public MessageVisitor,
                                          public ReaderObserver,
                                          public ParticipantDiscovery::Listener,
                                          public EndpointDiscovery::Listener {
  public:
    Implementation(ParticipantConfig config, Output& output, Events& events);

    void start(Now now);
    void stop(Now now);
    ReadStatus receive(ByteView datagram, const Locator& source, Now now);
    void on_timer(Now now);
    void set_locators(const OwnLocators& locators, Now now);
    void set_announcement(const std::string& name, const std::vector<Property>& properties,
                          const ByteBuffer& user_data, Now now);
    bool add_endpoint(const EndpointData& data, const ReaderConfig* reader, const WriterConfig* writer,
                      SampleSink* sink, Now now);
    bool update_endpoint(const EndpointData& data, Now now);
    void match_again(const Guid& remote, Now now);
    bool remove_endpoint(EntityId entity, Now now);
    void assert_manual_liveliness(Now now);

    bool is_own(const GuidPrefix& prefix) const {
        return prefix == config_.prefix || (config_.is_own && config_.is_own(prefix));
    }
    /// Ends every call: sends what became due and what was collected.
    void finish(Now now);

    ParticipantConfig config_;
    Output& output_;
    Events& events_;
    MessageBatcher batcher_;
    WarnOnce warnings_;
    ParticipantDiscovery participants_;
    EndpointDiscovery endpoints_;
    Liveliness liveliness_;
    LocalEndpoints locals_;
    Statistics statistics_;
    MonotonicTime deadline_ = kNever;

  private:
    /// A sink that hands samples of a builtin reader to one operation.
    template <typename Function>
    class FunctionSink final : public SampleSink {
      public:
        explicit FunctionSink(Function function) : function_(std::move(function)) {}
        void on_sample(const Sample& sample) override { function_(sample); }

      private:
        Function function_;
    };
    template <typename Function>
    void add_builtin_reader(EntityId id, BuiltinPeer peer, Function on_sample);
    void add_builtin_writer(EntityId id, BuiltinPeer peer);
    ReliableWriter& builtin_writer(EntityId id) { return *locals_.find(id)->writer; }
    ReliableWriter& announcer_of(EntityId id) {
        return builtin_writer(id.is_writer() ? entity::publications_writer : entity::subscriptions_writer);
    }
    void write_participant_message(uint32_t kind);

    // MessageVisitor: the submessages of the datagram being received.
    void on_data(const MessageContext& context, const Data& data) override;
    void on_data_frag(const MessageContext& context, const DataFrag& fragment) override;
    void on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) override;
    void on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) override;
    void on_acknack(const MessageContext& context, const AckNack& acknack) override;
    void on_nack_frag(const MessageContext& context, const NackFrag& nack) override;
    void on_gap(const MessageContext& context, const Gap& gap) override;
    void on_secured(const MessageContext& context, uint8_t kind) override;

    /// False for submessages that are not for us or come from those we do not hear.
    bool accepted(const MessageContext& context);
    /// Calls function for the readers that a submessage is meant for; false when none of them knows the
    /// writer.
    template <typename Function>
    bool for_readers(EntityId reader, const Guid& writer, Function function);
    /// Notes who wrote in the present datagram and may be discovered soon.
    void note_unknown_writer(const Guid& writer);
    /// Takes a datagram whose context is set up.
    ReadStatus take(ByteView datagram, const Locator& source);
    /// Takes what newly discovered writers sent before they were known.
    void replay();
    ReliableWriter* writer_for(EntityId writer);

    // ReaderObserver
    void on_writer_restarted(const Guid& writer) override;
    void on_oversized_sample(const Guid& writer, size_t size) override;

    // ParticipantDiscovery::Listener
    void on_participant_discovered(RemoteParticipant& remote, Now now) override;
    void on_participant_changed(RemoteParticipant& remote, bool content, Now now) override;
    void on_participant_gone(RemoteParticipant& remote, GoneReason reason, Now now) override;

    // EndpointDiscovery::Listener
    bool participant_known(const GuidPrefix& prefix) const override {
        return participants_.find(prefix) != nullptr;
    }
    bool participant_excluded(const GuidPrefix& prefix) const override {
        return is_own(prefix) || participants_.ignored(prefix);
    }
    void on_endpoint_discovered(const RemoteEndpoint& endpoint) override;
    void on_endpoint_changed(const RemoteEndpoint& endpoint) override;
    void on_endpoint_gone(const RemoteEndpoint& endpoint, GoneReason reason, WireTime timestamp) override;

    EarlyPackets early_packets_;
    std::vector<Guid> unknown_writers_;     // of the datagram being received
    std::vector<Guid> newly_known_writers_; // since the last replay
    std::vector<std::unique_ptr<SampleSink>> builtin_sinks_;
    bool running_ = false;
    Now now_;              // of the call in progress
    Locator source_;       // of the datagram being received
    bool checked_ = false; // accepted() was asked for checked_source_ in this datagram
    GuidPrefix checked_source_;
    bool checked_result_ = false;
    std::vector<GuidPrefix> restarted_; // participants whose builtin writers began anew
};

Participant::Implementation::Implementation(ParticipantConfig config, Output& output, Events& events)
    : config_([&config] {
          config.max_message_size = std::max(config.max_message_size, kSmallestMessage);
          return std::move(config);
      }()),
      output_(output),
      events_(events),
      batcher_(config_.prefix, config_.max_message_size, output),
      warnings_(events),
      participants_(config_, output, batcher_, warnings_, *this),
      endpoints_(config_.max_remote_endpoints, warnings_, *this),
      locals_(output, participants_, liveliness_, events) {
    add_builtin_reader(entity::publications_reader, {entity::publications_writer, kPublicationsAnnouncer},
                       [this](const Sample& sample) { endpoints_.on_sample(sample, true); });
    add_builtin_reader(entity::subscriptions_reader, {entity::subscriptions_writer, kSubscriptionsAnnouncer},
                       [this](const Sample& sample) { endpoints_.on_sample(sample, false); });
    add_builtin_reader(entity::participant_message_reader,
                       {entity::participant_message_writer, kParticipantMessageWriter},
                       [this](const Sample& sample) {
                           const auto message = decode_participant_message(sample.payload);
                           if (message && message->participant == sample.writer.prefix)
                               liveliness_.on_participant_asserted(message->participant, message->kind,
                                                                   now_.monotonic, events_);
                       });
    add_builtin_writer(entity::publications_writer, {entity::publications_reader, kPublicationsDetector});
    add_builtin_writer(entity::subscriptions_writer, {entity::subscriptions_reader, kSubscriptionsDetector});
    add_builtin_writer(entity::participant_message_writer,
                       {entity::participant_message_reader, kParticipantMessageReader});
}

template <typename Function>
void Participant::Implementation::add_builtin_reader(EntityId id, BuiltinPeer peer, Function on_sample) {
    builtin_sinks_.push_back(std::make_unique<FunctionSink<Function>>(std::move(on_sample)));
    EndpointData data;
    data.guid = {config_.prefix, id};
    data.qos = builtin_qos();
    ReaderConfig reader;
    reader.builtin_peer = peer;
    add_endpoint(data, &reader, nullptr, builtin_sinks_.back().get(), Now{});
}

void Participant::Implementation::add_builtin_writer(EntityId id, BuiltinPeer peer) {
    EndpointData data;
    data.guid = {config_.prefix, id};
    data.qos = builtin_qos();
    WriterConfig writer;
    writer.builtin_peer = peer;
    add_endpoint(data, nullptr, &writer, nullptr, Now{});
}

void Participant::Implementation::start(Now now) {
    if (running_)
        return;
    running_ = true;
    now_ = now;
    participants_.start(now);
    finish(now);
}

void Participant::Implementation::stop(Now now) {
    if (!running_)
        return;
    now_ = now;
    locals_.for_each([&](LocalEndpoint& local) {
        if (!local.builtin_peer)
            EndpointDiscovery::dispose(announcer_of(local.data.guid.entity), local.data.guid, now);
    });
    participants_.stop(now);
    endpoints_.clear();
    running_ = false;
    batcher_.flush();
    deadline_ = kNever;
}

ReadStatus Participant::Implementation::take(ByteView datagram, const Locator& source) {
    source_ = source;
    checked_ = false;
    return read_message(datagram, *this);
}

ReadStatus Participant::Implementation::receive(ByteView datagram, const Locator& source, Now now) {
    if (!running_)
        return ReadStatus::ok;
    now_ = now;
    ++statistics_.datagrams;
    const ReadStatus status = take(datagram, source);
    switch (status) {
        case ReadStatus::ok:
            break;
        case ReadStatus::not_rtps:
            ++statistics_.not_rtps;
            break;
        case ReadStatus::malformed:
            ++statistics_.malformed;
            break;
    }
    if (!unknown_writers_.empty()) {
        early_packets_.add(unknown_writers_, datagram, source, now.monotonic);
        unknown_writers_.clear();
    }
    replay();
    finish(now);
    return status;
}

void Participant::Implementation::replay() {
    if (early_packets_.empty())
        newly_known_writers_.clear();
    for (const Guid& writer : std::exchange(newly_known_writers_, {})) {
        for (const EarlyPackets::Packet& packet : early_packets_.take(writer, now_.monotonic))
            take(*packet.datagram, packet.source);
        unknown_writers_.clear(); // of others in the same packets, which are kept for them already
    }
}

void Participant::Implementation::finish(Now now) {
    now_ = now;
    while (!restarted_.empty()) {
        const GuidPrefix prefix = restarted_.back();
        restarted_.pop_back();
        participants_.replace(prefix, now);
    }
    const MonotonicTime time = now.monotonic;
    MonotonicTime deadline = std::min(participants_.next_deadline(), liveliness_.next_deadline());
    locals_.for_each([&](LocalEndpoint& local) {
        if (local.reader) {
            if (local.reader->next_deadline() <= time)
                local.reader->on_timer(time);
            deadline = std::min(deadline, local.reader->next_deadline());
        } else {
            if (local.writer->next_deadline() <= time)
                local.writer->on_timer(time);
            deadline = std::min(deadline, local.writer->next_deadline());
        }
    });
    deadline_ = running_ ? deadline : kNever;
    if (running_)
        batcher_.flush();
}

void Participant::Implementation::on_timer(Now now) {
    if (!running_)
        return;
    now_ = now;
    participants_.on_timer(now);
    if (liveliness_.assertion_due(now.monotonic))
        write_participant_message(ParticipantMessage::automatic);
    liveliness_.on_timer(now.monotonic, events_);
    finish(now);
}

void Participant::Implementation::write_participant_message(uint32_t kind) {
    ParticipantMessage message;
    message.participant = config_.prefix;
    message.kind = kind;
    const ByteBuffer payload = encode(message);
    WriteRequest request;
    request.payload = payload;
    request.instance = key_hash_of(Guid{config_.prefix, EntityId{kind}});
    builtin_writer(entity::participant_message_writer).write(request, now_);
}

void Participant::Implementation::assert_manual_liveliness(Now now) {
    now_ = now;
    write_participant_message(ParticipantMessage::manual);
    finish(now);
}

void Participant::Implementation::set_locators(const OwnLocators& locators, Now now) {
    now_ = now;
    config_.locators = locators;
    ParticipantData data = participants_.announced();
    data.metatraffic_unicast = locators.metatraffic_unicast;
    data.metatraffic_multicast = locators.metatraffic_multicast;
    data.default_unicast = locators.default_unicast;
    data.default_multicast = locators.default_multicast;
    participants_.choose_routes_again(now);
    participants_.set_host_locators(locators);
    participants_.set_announced(data, now);
    finish(now);
}

void Participant::Implementation::set_announcement(const std::string& name,
                                                   const std::vector<Property>& properties,
                                                   const ByteBuffer& user_data, Now now) {
    now_ = now;
    ParticipantData data = participants_.announced();
    data.name = name;
    data.properties = properties;
    data.user_data = user_data;
    participants_.set_announced(data, now);
    for (const GuidPrefix& prefix : participants_.prefixes())
        locals_.match_participant(*participants_.find(prefix), now.monotonic);
    endpoints_.for_each_visible(
        [&](const RemoteEndpoint& endpoint) { locals_.match_all(endpoint, now.monotonic); });
    finish(now);
}

bool Participant::Implementation::add_endpoint(const EndpointData& data, const ReaderConfig* reader,
                                               const WriterConfig* writer, SampleSink* sink, Now now) {
    const EntityId id = data.guid.entity;
    if (data.guid.prefix != config_.prefix || (reader != nullptr ? !id.is_reader() : !id.is_writer()) ||
        locals_.find(id) != nullptr)
        return false;
    now_ = now;
    auto endpoint = std::make_unique<LocalEndpoint>();
    endpoint->data = data;
    endpoint->data.participant = config_.prefix;
    endpoint->builtin_peer = reader != nullptr ? reader->builtin_peer : writer->builtin_peer;
    if (writer != nullptr) {
        endpoint->writer = std::make_unique<ReliableWriter>(id, data.qos, *writer, batcher_);
        liveliness_.add_own(id, data.qos.liveliness, to_duration(data.qos.liveliness_lease), now.monotonic);
    } else if (data.qos.reliability == Reliability::reliable) {
        const ReliableReader::Limits limits{config_.max_sample_size, config_.max_reassembly_memory};
        endpoint->reader = std::make_unique<ReliableReader>(id, data.qos.durability == Durability::volatile_,
                                                            *reader, limits, *sink, *this, batcher_);
    } else {
        endpoint->reader = std::make_unique<BestEffortReader>(config_.max_sample_size,
                                                              config_.max_reassembly_memory, *sink, *this);
    }
    LocalEndpoint& local = locals_.add(std::move(endpoint));
    if (local.builtin_peer) {
        for (const GuidPrefix& prefix : participants_.prefixes())
            locals_.match_participant(local, *participants_.find(prefix), now.monotonic);
    } else {
        EndpointDiscovery::announce(announcer_of(id), local.data, now);
        endpoints_.for_each_visible(
            [&](const RemoteEndpoint& remote) { locals_.match(local, remote, now.monotonic); });
    }
    finish(now);
    return true;
}

bool Participant::Implementation::update_endpoint(const EndpointData& data, Now now) {
    LocalEndpoint* local = locals_.find(data.guid.entity);
    if (local == nullptr || local->builtin_peer || data.guid.prefix != config_.prefix)
        return false;
    now_ = now;
    local->data = data;
    local->data.participant = config_.prefix;
    if (local->writer)
        liveliness_.add_own(data.guid.entity, data.qos.liveliness, to_duration(data.qos.liveliness_lease),
                            now.monotonic);
    EndpointDiscovery::announce(announcer_of(data.guid.entity), local->data, now);
    endpoints_.for_each_visible(
        [&](const RemoteEndpoint& remote) { locals_.match(*local, remote, now.monotonic); });
    finish(now);
    return true;
}

void Participant::Implementation::match_again(const Guid& remote, Now now) {
    now_ = now;
    endpoints_.for_each_visible([&](const RemoteEndpoint& endpoint) {
        if (endpoint.data.guid == remote)
            locals_.match_all(endpoint, now.monotonic);
    });
    newly_known_writers_.push_back(remote);
    replay();
    finish(now);
}

bool Participant::Implementation::remove_endpoint(EntityId entity, Now now) {
    LocalEndpoint* local = locals_.find(entity);
    if (local == nullptr)
        return false;
    now_ = now;
    if (!local->builtin_peer)
        EndpointDiscovery::dispose(announcer_of(entity), local->data.guid, now);
    liveliness_.remove_own(entity);
    locals_.remove(entity);
    finish(now);
    return true;
}

bool Participant::Implementation::accepted(const MessageContext& context) {
    if (context.destination != kUnknownPrefix && context.destination != config_.prefix)
        return false;
    if (checked_ && checked_source_ == context.source)
        return checked_result_;
    checked_ = true;
    checked_source_ = context.source;
    checked_result_ = !is_own(context.source) && !participants_.ignored(context.source);
    if (checked_result_)
        participants_.on_traffic(context.source, now_.monotonic);
    return checked_result_;
}

template <typename Function>
bool Participant::Implementation::for_readers(EntityId reader, const Guid& writer, Function function) {
    if (reader != entity::unknown) {
        LocalEndpoint* local = locals_.find(reader);
        return local != nullptr && local->reader && function(*local->reader);
    }
    const std::vector<LocalEndpoint*>* readers = locals_.readers_of(writer);
    if (readers == nullptr)
        return false;
    for (size_t i = 0; i < readers->size(); ++i)
        function(*(*readers)[i]->reader);
    return true;
}

void Participant::Implementation::note_unknown_writer(const Guid& writer) {
    const bool is_strange = !writer.entity.is_builtin() && participants_.find(writer.prefix) != nullptr &&
                            (endpoints_.find(writer) == nullptr || locals_.is_undecided(writer));
    if (is_strange &&
        std::find(unknown_writers_.begin(), unknown_writers_.end(), writer) == unknown_writers_.end())
        unknown_writers_.push_back(writer);
}

void Participant::Implementation::on_data(const MessageContext& context, const Data& data) {
    if (!accepted(context))
        return;
    if (data.writer == entity::participant_writer) {
        participants_.on_data(context, data, source_, now_);
        return;
    }
    const Guid writer{context.source, data.writer};
    if (!for_readers(data.reader, writer,
                     [&](Reader& reader) { return reader.on_data(context, data, now_.monotonic); }))
        note_unknown_writer(writer);
    if (liveliness_.watches_any())
        liveliness_.on_writer_asserted(writer, now_.monotonic, events_);
}

void Participant::Implementation::on_data_frag(const MessageContext& context, const DataFrag& fragment) {
    if (!accepted(context))
        return;
    const Guid writer{context.source, fragment.writer};
    if (!for_readers(fragment.reader, writer,
                     [&](Reader& reader) { return reader.on_data_frag(context, fragment, now_.monotonic); }))
        note_unknown_writer(writer);
    if (liveliness_.watches_any())
        liveliness_.on_writer_asserted(writer, now_.monotonic, events_);
}

void Participant::Implementation::on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) {
    if (!accepted(context))
        return;
    const Guid writer{context.source, heartbeat.writer};
    for_readers(heartbeat.reader, writer, [&](Reader& reader) {
        reader.on_heartbeat(writer, heartbeat, now_.monotonic);
        return true;
    });
    if (heartbeat.liveliness && liveliness_.watches_any())
        liveliness_.on_writer_asserted(writer, now_.monotonic, events_);
}

void Participant::Implementation::on_heartbeat_frag(const MessageContext& context,
                                                    const HeartbeatFrag& heartbeat) {
    if (!accepted(context))
        return;
    const Guid writer{context.source, heartbeat.writer};
    for_readers(heartbeat.reader, writer, [&](Reader& reader) {
        reader.on_heartbeat_frag(writer, heartbeat, now_.monotonic);
        return true;
    });
}

void Participant::Implementation::on_gap(const MessageContext& context, const Gap& gap) {
    if (!accepted(context))
        return;
    const Guid writer{context.source, gap.writer};
    for_readers(gap.reader, writer, [&](Reader& reader) {
        reader.on_gap(writer, gap, now_.monotonic);
        return true;
    });
}

ReliableWriter* Participant::Implementation::writer_for(EntityId writer) {
    LocalEndpoint* local = locals_.find(writer);
    return local != nullptr ? local->writer.get() : nullptr;
}

void Participant::Implementation::on_acknack(const MessageContext& context, const AckNack& acknack) {
    if (!accepted(context))
        return;
    if (ReliableWriter* writer = writer_for(acknack.writer))
        writer->on_acknack(Guid{context.source, acknack.reader}, acknack, now_.monotonic);
}

void Participant::Implementation::on_nack_frag(const MessageContext& context, const NackFrag& nack) {
    if (!accepted(context))
        return;
    if (ReliableWriter* writer = writer_for(nack.writer))
        writer->on_nack_frag(Guid{context.source, nack.reader}, nack, now_.monotonic);
}

void Participant::Implementation::on_secured(const MessageContext& context, uint8_t) {
    if (!accepted(context))
        return;
    ++statistics_.secured_submessages;
    warnings_.warn("secured messages " + to_string(context.source),
                   "participant " + to_string(context.source) + " sends secured messages; they are not read");
}

void Participant::Implementation::on_writer_restarted(const Guid& writer) {
    if (writer.entity.is_builtin())
        restarted_.push_back(writer.prefix);
}

void Participant::Implementation::on_oversized_sample(const Guid& writer, size_t size) {
    warnings_.warn("oversized " + to_string(writer),
                   "a sample of writer " + to_string(writer) + " has " + std::to_string(size) +
                       " bytes, more than the limit of " + std::to_string(config_.max_sample_size) +
                       "; dropped");
}

void Participant::Implementation::on_participant_discovered(RemoteParticipant& remote, Now now) {
    events_.participant_discovered(remote.data);
    locals_.match_participant(remote, now.monotonic);
    endpoints_.participant_discovered(remote.data.guid.prefix);
}

void Participant::Implementation::on_participant_changed(RemoteParticipant& remote, bool content, Now now) {
    if (content)
        events_.participant_changed(remote.data);
    locals_.match_participant(remote, now.monotonic);
    endpoints_.for_each_visible([&](const RemoteEndpoint& endpoint) {
        if (endpoint.data.guid.prefix == remote.data.guid.prefix)
            locals_.match_all(endpoint, now.monotonic);
    });
}

void Participant::Implementation::on_participant_gone(RemoteParticipant& remote, GoneReason reason, Now) {
    const GuidPrefix& prefix = remote.data.guid.prefix;
    endpoints_.participant_gone(prefix, reason);
    locals_.unmatch_participant(prefix);
    events_.participant_gone(remote.data, reason);
}

void Participant::Implementation::on_endpoint_discovered(const RemoteEndpoint& endpoint) {
    events_.endpoint_discovered(endpoint.data, endpoint.timestamp);
    locals_.match_all(endpoint, now_.monotonic);
    if (endpoint.data.is_writer())
        newly_known_writers_.push_back(endpoint.data.guid);
}

void Participant::Implementation::on_endpoint_changed(const RemoteEndpoint& endpoint) {
    events_.endpoint_changed(endpoint.data, endpoint.timestamp);
    locals_.match_all(endpoint, now_.monotonic);
}

void Participant::Implementation::on_endpoint_gone(const RemoteEndpoint& endpoint, GoneReason reason,
                                                   WireTime timestamp) {
    locals_.unmatch_all(endpoint.data.guid);
    events_.endpoint_gone(endpoint.data, reason, timestamp);
}

Participant::Participant(ParticipantConfig config, Output& output, Events& events)
    : implementation_(std::make_unique<Implementation>(std::move(config), output, events)) {}

Participant::~Participant() = default;

const ParticipantConfig& Participant::config() const {
    return implementation_->config_;
}

Guid Participant::guid() const {
    return {implementation_->config_.prefix, entity::participant};
}

const ParticipantData& Participant::announced() const {
    return implementation_->participants_.announced();
}

void Participant::start(Now now) {
    implementation_->start(now);
}

void Participant::stop(Now now) {
    implementation_->stop(now);
}

ReadStatus Participant::receive(ByteView datagram, const Locator& source, Now now) {
    return implementation_->receive(datagram, source, now);
}

MonotonicTime Participant::next_deadline() const {
    return implementation_->deadline_;
}

void Participant::on_timer(Now now) {
    implementation_->on_timer(now);
}

void Participant::ignore_participant(const GuidPrefix& prefix, Now now) {
    implementation_->participants_.ignore(prefix, now);
    implementation_->finish(now);
}

void Participant::set_locators(const OwnLocators& locators, Now now) {
    implementation_->set_locators(locators, now);
}

void Participant::set_announcement(const std::string& name, const std::vector<Property>& properties,
                                   const ByteBuffer& user_data, Now now) {
    implementation_->set_announcement(name, properties, user_data, now);
}

void Participant::add_peer(const Locator& destination, Now now) {
    implementation_->participants_.add_peer(destination, now);
    implementation_->finish(now);
}

bool Participant::add_reader(const EndpointData& data, const ReaderConfig& config, SampleSink& sink,
                             Now now) {
    return implementation_->add_endpoint(data, &config, nullptr, &sink, now);
}

bool Participant::add_writer(const EndpointData& data, const WriterConfig& config, Now now) {
    return implementation_->add_endpoint(data, nullptr, &config, nullptr, now);
}

bool Participant::update_endpoint(const EndpointData& data, Now now) {
    return implementation_->update_endpoint(data, now);
}

void Participant::match_again(const Guid& remote, Now now) {
    implementation_->match_again(remote, now);
}

bool Participant::remove_endpoint(EntityId entity, Now now) {
    return implementation_->remove_endpoint(entity, now);
}

std::optional<SequenceNumber> Participant::write(EntityId writer, const WriteRequest& request, Now now) {
    LocalEndpoint* local = implementation_->locals_.find(writer);
    if (local == nullptr || !local->writer)
        return std::nullopt;
    const auto number = local->writer->write(request, now);
    implementation_->finish(now);
    return number;
}

bool Participant::all_acknowledged(EntityId writer) const {
    const LocalEndpoint* local = implementation_->locals_.find(writer);
    return local == nullptr || !local->writer || local->writer->all_acknowledged();
}

void Participant::assert_liveliness(Now now) {
    implementation_->assert_manual_liveliness(now);
}

void Participant::assert_liveliness(EntityId writer, Now now) {
    LocalEndpoint* local = implementation_->locals_.find(writer);
    if (local == nullptr || !local->writer)
        return;
    local->writer->assert_liveliness();
    implementation_->finish(now);
}

const ParticipantData* Participant::find_participant(const GuidPrefix& prefix) const {
    const RemoteParticipant* remote = implementation_->participants_.find(prefix);
    return remote != nullptr ? &remote->data : nullptr;
}

const EndpointData* Participant::find_endpoint(const Guid& guid) const {
    const RemoteEndpoint* endpoint = implementation_->endpoints_.find(guid);
    return endpoint != nullptr ? &endpoint->data : nullptr;
}

std::vector<GuidPrefix> Participant::participants() const {
    return implementation_->participants_.prefixes();
}

std::vector<Guid> Participant::endpoints() const {
    return implementation_->endpoints_.endpoints();
}

std::vector<Guid> Participant::matched_remotes(EntityId local) const {
    const LocalEndpoint* endpoint = implementation_->locals_.find(local);
    if (endpoint == nullptr)
        return {};
    return {endpoint->matched.begin(), endpoint->matched.end()};
}

const Participant::Statistics& Participant::statistics() const {
    return implementation_->statistics_;
}

} // namespace meridian::rtps
