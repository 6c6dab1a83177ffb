#include "rtps/protocol/participant.h"

#include <algorithm>
#include <utility>

#include "rtps/protocol/best_effort_reader.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/reliable_reader.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

constexpr size_t kSmallestMessage = 576;

ParticipantConfig with_usable_sizes(ParticipantConfig config) {
    config.max_message_size = std::max(config.max_message_size, kSmallestMessage);
    return config;
}

/// What says that this participant or endpoint is gone; key: its GUID as a payload.
WriteRequest disposal_of(const Guid& guid, ByteView key) {
    WriteRequest request;
    request.payload = key;
    request.payload_is_key = true;
    request.instance = request.inline_qos.key_hash = key_hash_of(guid);
    request.inline_qos.status_info = kDisposed | kUnregistered;
    return request;
}

} // namespace

Participant::Participant(ParticipantConfig config, Output& output, Events& events)
    : config_(with_usable_sizes(std::move(config))),
      given_prefix_(config_.prefix),
      events_(events),
      batcher_(config_.prefix, config_.max_message_size, output),
      warnings_(events, config_.told_errors),
      participants_(config_, output, batcher_, warnings_, *this),
      endpoints_(config_, participants_, warnings_, *this),
      liveliness_([this](const Guid& writer, bool alive) { on_liveliness_changed(writer, alive); }),
      locals_(output, participants_, liveliness_, events, warnings_),
      router_(config_.prefix, participants_, endpoints_, locals_, liveliness_, warnings_) {
    add_builtin_reader(entity::publications_reader, {entity::publications_writer, kPublicationsAnnouncer},
                       publications_);
    add_builtin_reader(entity::subscriptions_reader, {entity::subscriptions_writer, kSubscriptionsAnnouncer},
                       subscriptions_);
    add_builtin_reader(entity::participant_message_reader,
                       {entity::participant_message_writer, kParticipantMessageWriter},
                       participant_messages_);
    add_builtin_writer(entity::publications_writer, {entity::publications_reader, kPublicationsDetector});
    add_builtin_writer(entity::subscriptions_writer, {entity::subscriptions_reader, kSubscriptionsDetector});
    add_builtin_writer(entity::participant_message_writer,
                       {entity::participant_message_reader, kParticipantMessageReader});
    if (!config_.servers.empty()) {
        add_builtin_reader(entity::participant_reader, {entity::participant_writer, kParticipantAnnouncer},
                           relays_);
        add_builtin_writer(entity::participant_writer, {entity::participant_reader, kParticipantDetector});
    }
}

EndpointData Participant::builtin_data(EntityId id) const {
    EndpointData data;
    data.guid = {config_.prefix, id};
    data.qos.reliability = Reliability::reliable;
    data.qos.durability = Durability::transient_local;
    return data;
}

void Participant::add_builtin_reader(EntityId id, BuiltinPeer peer, ReaderSink& sink) {
    ReaderConfig reader;
    reader.builtin_peer = peer;
    add_reader(builtin_data(id), reader, sink, Now{});
}

void Participant::add_builtin_writer(EntityId id, BuiltinPeer peer) {
    WriterConfig writer;
    writer.builtin_peer = peer;
    // Every participant reads the two, and one of them has something to tell where anything is to be sent.
    if (id == entity::subscriptions_writer || id == entity::publications_writer) {
        writer.secret_begin = config_.secret_begin;
        writer.may_wait = true; // hundreds of readers are often made at once, and each is told to all
    }
    writer.names_itself = !config_.servers.empty();
    add_writer(builtin_data(id), writer, no_news_, Now{});
}

// -- Life

void Participant::start(Now now) {
    if (running_)
        return;
    running_ = true;
    now_ = now;
    tell_servers(now);
    participants_.start(now);
    finish(now);
}

void Participant::stop(Now now) {
    if (!running_)
        return;
    now_ = now;
    locals_.for_each([&](LocalEndpoint& local) {
        if (!local.builtin_peer)
            dispose(local.data.guid, now);
    });
    say_farewell(now);
    participants_.stop(now);
    endpoints_.clear();
    running_ = false;
    batcher_.flush();
}

ReadStatus Participant::receive(ByteView datagram, const Locator& source, Now now, bool is_first) {
    if (!running_)
        return ReadStatus::ok;
    now_ = now;
    const ReadStatus status = router_.receive(datagram, source, now, is_first);
    finish(now);
    return status;
}

void Participant::end_batch(Now now) {
    in_batch_ = false;
    finish(now);
}

void Participant::finish(Now now) {
    now_ = now;
    while (!restarted_.empty()) {
        const GuidPrefix prefix = restarted_.back();
        restarted_.pop_back();
        participants_.replace(prefix, now);
    }
    if (in_batch_)
        return;
    router_.end_batch(); // before acknowledgements go out: what they are for can be taken then
    if (!running_)
        return;
    timers_.run(now.monotonic);
    batcher_.flush_due(now.monotonic);
}

MonotonicTime Participant::next_deadline() const {
    if (!running_)
        return kNever;
    return std::min({timers_.next_deadline(), batcher_.next_deadline(), participants_.next_deadline(),
                     liveliness_.next_deadline()});
}

void Participant::on_timer(Now now) {
    if (!running_)
        return;
    now_ = now;
    tell_of_pause();
    warnings_.on_timer(now.monotonic);
    participants_.on_timer(now);
    if (liveliness_.assertion_due(now.monotonic))
        write_participant_message(ParticipantMessage::automatic);
    liveliness_.on_timer(now.monotonic);
    finish(now);
}

void Participant::tell_of_pause() {
    const ParticipantAnnouncer& announcer = participants_.announcer();
    // Others count from the last announcement; that this process stood still is only sure from the next one
    // on.
    const Duration late = now_.monotonic - announcer.next_deadline();
    if (config_.is_further || late < std::chrono::seconds(1) ||
        now_.monotonic - announcer.announced_at() <= to_duration(config_.lease))
        return;
    const auto pause = std::chrono::duration_cast<std::chrono::seconds>(late);
    events_.error("this process did not run for more than " + std::to_string(pause.count()) +
                  " s: others took it for gone, and what they wrote meanwhile may not be seen");
}

// -- What is announced of this participant

void Participant::ignore_participant(const GuidPrefix& prefix, Now now) {
    now_ = now;
    participants_.ignore(prefix, now);
    finish(now);
}

void Participant::set_locators(const OwnLocators& locators, Now now) {
    now_ = now;
    participants_.set_locators(locators, now);
    tell_servers(now);
    endpoints_.for_each([&](DiscoveredEndpoint& remote) {
        if (remote.is_told_apart)
            announce_for(remote, now);
    });
    finish(now);
}

void Participant::join_again(const GuidPrefix& prefix, const OwnLocators& locators, Now now) {
    now_ = now;
    say_farewell(now);
    batcher_.flush();
    config_.prefix = prefix;
    batcher_.set_source(prefix);
    locals_.for_each([&](LocalEndpoint& local) { local.data.guid.prefix = prefix; });
    participants_.join_again(locators, now);
    locals_.for_each([&](LocalEndpoint& local) {
        if (local.writer)
            local.writer->begin_anew(local.builtin_peer.has_value(), now.monotonic);
    });
    tell_servers(now);
    locals_.for_each([&](LocalEndpoint& local) {
        if (!local.builtin_peer)
            announce(local.data, now);
    });
    endpoints_.for_each([&](DiscoveredEndpoint& remote) { announce_for(remote, now); });
    finish(now);
}

void Participant::set_announcement(const std::string& name, const std::vector<Property>& properties,
                                   const ByteBuffer& user_data, Now now) {
    now_ = now;
    ParticipantData data = announced();
    data.name = name;
    data.properties = properties;
    data.user_data = user_data;
    participants_.set_announced(data, now);
    tell_servers(now);
    for (const GuidPrefix& prefix : participants_.prefixes())
        locals_.match_participant(*participants_.find(prefix), now.monotonic);
    endpoints_.for_each([&](DiscoveredEndpoint& endpoint) { locals_.match_all(endpoint, now.monotonic); });
    finish(now);
}

// -- Endpoints

bool Participant::can_add(const Guid& guid, bool is_reader) const {
    return guid.prefix == given_prefix_ && (is_reader ? guid.entity.is_reader() : guid.entity.is_writer()) &&
           locals_.find(guid.entity) == nullptr;
}

bool Participant::add_reader(const EndpointData& data, const ReaderConfig& config, ReaderSink& sink,
                             Now now) {
    if (!can_add(data.guid, true))
        return false;
    auto endpoint = std::make_unique<LocalEndpoint>();
    endpoint->data = data;
    endpoint->builtin_peer = config.builtin_peer;
    endpoint->sink = endpoint->reader_sink = &sink;
    ReaderObserver& observer = *this;
    if (data.qos.reliability == Reliability::reliable) {
        ReliableReader::Limits limits;
        limits.max_sample_size = config_.max_sample_size;
        endpoint->reader =
            std::make_unique<ReliableReader>(data.guid.entity, data.qos.durability == Durability::volatile_,
                                             config, limits, sink, observer, batcher_, timers_);
    } else {
        endpoint->reader = std::make_unique<BestEffortReader>(
            config_.max_sample_size, MemoryBudget::of_process(), sink, observer, timers_);
    }
    add(std::move(endpoint), now);
    return true;
}

bool Participant::add_writer(const EndpointData& data, const WriterConfig& config, EndpointSink& sink,
                             Now now) {
    if (!can_add(data.guid, false))
        return false;
    auto endpoint = std::make_unique<LocalEndpoint>();
    endpoint->data = data;
    endpoint->builtin_peer = config.builtin_peer;
    endpoint->sink = &sink;
    endpoint->writer =
        std::make_unique<ReliableWriter>(data.guid.entity, data.qos, config, batcher_, timers_);
    liveliness_.add_own(data.guid.entity, data.qos.liveliness, to_duration(data.qos.liveliness_lease),
                        now.monotonic);
    add(std::move(endpoint), now);
    return true;
}

void Participant::add(std::unique_ptr<LocalEndpoint> endpoint, Now now) {
    now_ = now;
    endpoint->data.guid.prefix = config_.prefix;
    LocalEndpoint& local = locals_.add(std::move(endpoint));
    if (local.builtin_peer) {
        for (const GuidPrefix& prefix : participants_.prefixes())
            locals_.match_participant(local, *participants_.find(prefix), now.monotonic);
    } else {
        announce(local.data, now);
        endpoints_.for_each_of_topic(local.data.topic_name, [&](DiscoveredEndpoint& remote) {
            locals_.match(local, remote, now.monotonic);
            announce_for(remote, now);
        });
    }
    finish(now);
}

bool Participant::update_endpoint(const EndpointData& data, Now now) {
    LocalEndpoint* local = locals_.find(data.guid.entity);
    if (local == nullptr || local->builtin_peer || data.guid.prefix != given_prefix_ ||
        data.topic_name != local->data.topic_name)
        return false;
    now_ = now;
    local->data = data;
    local->data.guid.prefix = config_.prefix;
    if (local->writer)
        liveliness_.add_own(data.guid.entity, data.qos.liveliness, to_duration(data.qos.liveliness_lease),
                            now.monotonic);
    announce(local->data, now);
    endpoints_.for_each_of_topic(data.topic_name, [&](DiscoveredEndpoint& remote) {
        locals_.match(*local, remote, now.monotonic);
        announce_for(remote, now);
    });
    finish(now);
    return true;
}

void Participant::announce(const EndpointData& data, Now now, const Guid* only_for) {
    const ByteBuffer payload = encode(data);
    WriteRequest request;
    request.payload = payload;
    request.instance = key_hash_of(only_for != nullptr ? *only_for : data.guid);
    if (only_for != nullptr)
        request.only_for = only_for->prefix;
    request.expects_answers = !data.is_writer() && data.qos.reliability == Reliability::reliable;
    announcer_of(data.guid.entity).write(request, now);
}

void Participant::announce_for(DiscoveredEndpoint& remote, Now now) {
    const RemoteEndpoint& writer = *remote.record;
    const RemoteParticipant* participant = participants_.find(writer.guid.prefix);
    if (!writer.is_writer || participant == nullptr)
        return;
    const Quirks quirks = quirks_of(*participant->data);
    for (const LocalEndpoint* local : remote.matched) {
        EndpointData data = local->data;
        if (quirks.has(kHasLittleRoom)) { // and is told of nothing else: RemoteReader::told_singly
            data.unicast = announced().default_unicast;
        } else if (quirks.has(kNamesMissDefault) && !data.qos.partitions.empty()) {
            // What it matched before stays so, whatever partitions it is told of afterwards.
            if (writer.qos->partitions.empty())
                data.qos.partitions.clear();
        } else {
            continue;
        }
        announce(data, now, &writer.guid);
        remote.is_told_apart = true;
    }
}

void Participant::dispose(const Guid& endpoint, Now now) {
    const ByteBuffer key = encode_endpoint_key(endpoint);
    announcer_of(endpoint.entity).write(disposal_of(endpoint, key), now);
}

void Participant::settle_type(const Guid& publication, const EndpointTypeRef& type, Now now) {
    now_ = now;
    endpoints_.settle_type(publication, type);
    router_.replay(now);
    finish(now);
}

bool Participant::remove_endpoint(EntityId entity, Now now) {
    LocalEndpoint* local = locals_.find(entity);
    if (local == nullptr)
        return false;
    now_ = now;
    if (!local->builtin_peer) {
        dispose(local->data.guid, now);
        endpoints_.for_each_of_topic(local->data.topic_name,
                                     [&](DiscoveredEndpoint& remote) { locals_.part(*local, remote); });
    }
    liveliness_.remove_own(entity);
    router_.end_batch(); // which knows the endpoint
    locals_.remove(entity);
    finish(now);
    return true;
}

std::optional<SequenceNumber> Participant::write(EntityId writer, const WriteRequest& request, Now now) {
    const LocalEndpoint* local = locals_.find(writer);
    if (local == nullptr || !local->writer)
        return std::nullopt;
    const auto number = local->writer->write(request, now);
    finish(now);
    return number;
}

bool Participant::all_acknowledged(EntityId writer) const {
    const LocalEndpoint* local = locals_.find(writer);
    return local == nullptr || !local->writer || local->writer->all_acknowledged();
}

// -- Liveliness

void Participant::on_participant_message(const Sample& sample) {
    const auto message = decode_participant_message(sample.payload);
    if (message && message->participant == sample.writer.prefix)
        liveliness_.on_participant_asserted(message->participant, message->kind, now_.monotonic);
}

void Participant::write_participant_message(uint32_t kind) {
    ParticipantMessage message;
    message.participant = config_.prefix;
    message.kind = kind;
    const ByteBuffer payload = encode(message);
    WriteRequest request;
    request.payload = payload;
    request.instance = key_hash_of(Guid{config_.prefix, EntityId{kind}});
    builtin_writer(entity::participant_message_writer).write(request, now_);
}

void Participant::assert_liveliness(Now now) {
    now_ = now;
    write_participant_message(ParticipantMessage::manual);
    finish(now);
}

void Participant::assert_liveliness(EntityId writer, Now now) {
    const LocalEndpoint* local = locals_.find(writer);
    if (local == nullptr || !local->writer)
        return;
    local->writer->assert_liveliness();
    finish(now);
}

void Participant::on_liveliness_changed(const Guid& writer, bool alive) {
    const DiscoveredEndpoint* remote = endpoints_.find(writer);
    if (remote == nullptr)
        return;
    for (const LocalEndpoint* local : remote->matched)
        local->reader_sink->liveliness_changed(writer, alive);
}

// -- What readers and discovery report

void Participant::on_writer_restarted(const Guid& writer) {
    if (writer.entity.is_builtin())
        restarted_.push_back(writer.prefix);
}

void Participant::on_oversized_sample(const Guid& writer, size_t size, size_t limit) {
    warnings_.warn("oversized " + to_string(writer),
                   "a sample of writer " + to_string(writer) + " has " + std::to_string(size) +
                       " bytes, more than the limit of " + std::to_string(limit) + "; dropped");
}

void Participant::on_memory_used_up(const Guid& writer) {
    warnings_.error("memory", "the memory for what others send is used up: samples of writer " +
                                  to_string(writer) +
                                  " wait, and are asked for again; this is told once for all writers");
}

void Participant::on_number_too_high(const Guid& writer) {
    warnings_.error_of_others("numbers " + to_string(writer),
                              "writer " + to_string(writer) +
                                  " numbers samples above 2^62, which is not believed: they are not shown");
}

void Participant::tell_servers(Now now) {
    if (config_.servers.empty())
        return;
    ReliableWriter& writer = builtin_writer(entity::participant_writer);
    WriteRequest request;
    request.payload = participants_.announcer().announcement_to_servers();
    request.instance = key_hash_of(guid());
    // The numbers of what is sent to servers without and with this writer must agree.
    while (told_servers_ < participants_.announcer().version())
        told_servers_ = writer.write(request, now).value_or(participants_.announcer().version());
}

void Participant::say_farewell(Now now) {
    participants_.say_farewell(now);
    if (config_.servers.empty())
        return;
    const ByteBuffer key = encode_participant_key(guid());
    told_servers_ = builtin_writer(entity::participant_writer)
                        .write(disposal_of(guid(), key), now)
                        .value_or(told_servers_);
}

void Participant::on_participant_discovered(RemoteParticipant& remote, Now now) {
    events_.participant_discovered(remote.data);
    locals_.match_participant(remote, now.monotonic);
    endpoints_.participant_known(remote.data->guid.prefix);
}

void Participant::on_participant_changed(RemoteParticipant& remote, Now) {
    events_.participant_changed(remote.data);
}

void Participant::on_participant_to_match(RemoteParticipant& remote, Now now) {
    locals_.match_participant(remote, now.monotonic);
    endpoints_.for_each_of_participant(remote.data->guid.prefix, [&](DiscoveredEndpoint& endpoint) {
        locals_.match_all(endpoint, now.monotonic);
    });
}

void Participant::on_participant_gone(RemoteParticipant& remote, GoneReason reason, Now) {
    const GuidPrefix& prefix = remote.data->guid.prefix;
    endpoints_.participant_gone(prefix, reason);
    locals_.unmatch_participant(prefix);
    events_.participant_gone(remote.data, reason);
}

void Participant::on_participant_doubted(RemoteParticipant& remote) {
    for (const LocalEndpoint* local : locals_.builtin()) {
        if (local->writer)
            local->writer->ask({remote.data->guid.prefix, local->builtin_peer->remote});
    }
}

bool Participant::wants(const std::string& topic_name) const {
    return !config_.is_further || MemoryBudget::of_process().is_ample() || locals_.has_topic(topic_name);
}

void Participant::on_endpoint_discovered(DiscoveredEndpoint& endpoint) {
    events_.endpoint_discovered(endpoint.record);
    locals_.match_all(endpoint, now_.monotonic);
    announce_for(endpoint, now_);
    if (endpoint.record->is_writer)
        router_.writer_known(endpoint.record->guid);
}

void Participant::on_endpoint_changed(DiscoveredEndpoint& endpoint) {
    events_.endpoint_changed(endpoint.record);
    locals_.match_all(endpoint, now_.monotonic, LocalEndpoints::Cause::remote_changed);
    announce_for(endpoint, now_);
}

void Participant::on_endpoint_gone(DiscoveredEndpoint& endpoint, GoneReason reason, WireTime timestamp) {
    router_.replay(now_); // what it wrote may still be waiting for its discovery
    locals_.part_all(endpoint);
    if (endpoint.is_told_apart)
        builtin_writer(entity::subscriptions_writer).withdraw(key_hash_of(endpoint.record->guid));
    events_.endpoint_gone(endpoint.record, reason, timestamp);
}

} // namespace meridian::rtps
