#include "rtps/protocol/message_router.h"

#include <algorithm>
#include <utility>

namespace meridian::rtps {

MessageRouter::MessageRouter(const GuidPrefix& own_prefix, ParticipantDiscovery& participants,
                             EndpointDiscovery& endpoints, const LocalEndpoints& locals,
                             Liveliness& liveliness, WarnOnce& warnings)
    : own_prefix_(own_prefix),
      participants_(participants),
      endpoints_(endpoints),
      locals_(locals),
      liveliness_(liveliness),
      warnings_(warnings) {}

ReadStatus MessageRouter::take(ByteView datagram, const Locator& source, size_t uncounted, bool is_replayed) {
    // A replay may happen in the middle of a datagram.
    const Datagram interrupted = std::exchange(datagram_, {});
    datagram_.source = source;
    datagram_.uncounted = uncounted;
    datagram_.is_replayed = is_replayed;
    const ReadStatus status = read_message(datagram, *this);
    datagram_ = interrupted;
    return status;
}

ReadStatus MessageRouter::receive(ByteView datagram, const Locator& source, Now now, bool is_first) {
    now_ = now;
    const ReadStatus status = take(datagram, source, is_first ? datagram.size : 0, false);
    if (!unknown_writers_.empty()) {
        early_packets_.add(unknown_writers_, datagram, source, now.monotonic);
        unknown_writers_.clear();
    }
    replay(now);
    return status;
}

void MessageRouter::replay(Now now) {
    now_ = now;
    if (early_packets_.empty())
        newly_known_writers_.clear();
    for (const Guid& writer : std::exchange(newly_known_writers_, {})) {
        for (const EarlyPackets::Packet& packet : early_packets_.take(writer, now_.monotonic))
            take(*packet.datagram, packet.source, 0, true);
    }
}

void MessageRouter::end_batch() {
    for (Reader* reader : touched_)
        reader->end_batch();
    touched_.clear();
}

bool MessageRouter::may_be_for(const GuidPrefix& destination, EntityId local, const Guid& remote) const {
    if (destination != kUnknownPrefix)
        return destination == own_prefix_;
    if (local.is_builtin() || (local == entity::unknown && remote.entity.is_builtin()))
        return true;
    if (local != entity::unknown)
        return locals_.find(local) != nullptr;
    const DiscoveredEndpoint* endpoint = endpoints_.find(remote);
    return endpoint == nullptr || endpoint->record == nullptr || !endpoint->matched.empty();
}

bool MessageRouter::wants(const MessageContext& context, EntityId, EntityId sender) {
    using Hearing = ParticipantDiscovery::Hearing;
    if (context.destination != kUnknownPrefix && context.destination != own_prefix_)
        return false;
    if (datagram_.is_replayed && sender.is_builtin())
        return false;
    if (!datagram_.is_checked || datagram_.checked != context.source) {
        datagram_.is_checked = true;
        datagram_.checked = context.source;
        datagram_.hearing =
            participants_.hear(context.source, sender, datagram_.source, context.destination == own_prefix_,
                               std::exchange(datagram_.uncounted, 0), now_);
    }
    if (sender == entity::participant_writer)
        return datagram_.hearing != Hearing::nothing;
    const bool tells_of_endpoints = sender.is_builtin() && sender.is_writer();
    return hears_everything() && (!tells_of_endpoints || participants_.may_tell_of_endpoints(
                                                             context.source, datagram_.source, now_));
}

template <typename Function>
bool MessageRouter::hand_to(Reader& reader, Function& function) {
    if (reader.begin_batch())
        touched_.push_back(&reader);
    return function(reader);
}

template <typename Function>
bool MessageRouter::for_readers(EntityId reader, const Guid& writer, Function function) {
    if (reader != entity::unknown) {
        LocalEndpoint* local = locals_.find(reader);
        return local != nullptr && local->reader && hand_to(*local->reader, function);
    }
    bool known = false;
    if (writer.entity.is_builtin()) {
        for (LocalEndpoint* local : locals_.builtin())
            known = (local->reader && hand_to(*local->reader, function)) || known;
        return known;
    }
    const DiscoveredEndpoint* remote = endpoints_.find(writer);
    if (remote == nullptr)
        return false;
    if (remote->only_reader != nullptr)
        return hand_to(*remote->only_reader, function);
    for (LocalEndpoint* local : remote->matched)
        known = hand_to(*local->reader, function) || known;
    return known;
}

void MessageRouter::note_unknown_writer(const Guid& writer) {
    // What is replayed is kept for its other writers already.
    if (datagram_.is_replayed || unknown_writers_.size() == kMostUnknownWriters ||
        writer.entity.is_builtin() || participants_.find(writer.prefix) == nullptr)
        return;
    const DiscoveredEndpoint* remote = endpoints_.find(writer);
    const bool may_be_matched_soon = remote == nullptr || remote->record == nullptr;
    if (may_be_matched_soon &&
        std::find(unknown_writers_.begin(), unknown_writers_.end(), writer) == unknown_writers_.end())
        unknown_writers_.push_back(writer);
}

void MessageRouter::assert_liveliness(const Guid& writer) {
    if (liveliness_.watches_any())
        liveliness_.on_writer_asserted(writer, now_.monotonic);
}

template <typename Sample>
void MessageRouter::take_sample(const MessageContext& context, const Sample& sample,
                                bool (Reader::*operation)(const MessageContext&, const Sample&,
                                                          MonotonicTime)) {
    const Guid writer{context.source, sample.writer};
    const bool known = for_readers(sample.reader, writer, [&](Reader& reader) {
        return (reader.*operation)(context, sample, now_.monotonic);
    });
    if (!known)
        note_unknown_writer(writer);
    assert_liveliness(writer);
}

bool MessageRouter::from_server(const MessageContext& context) const {
    const RemoteParticipant* remote = participants_.find(context.source);
    return remote != nullptr && remote->is_server;
}

void MessageRouter::on_data(const MessageContext& context, const Data& data) {
    if (data.writer == entity::participant_writer) {
        participants_.on_data(context, data, datagram_.source, now_);
        // What a server tells of others comes in order, and from a socket that is known to be its own.
        if (!from_server(context) || !hears_everything())
            return;
    }
    take_sample(context, data, &Reader::on_data);
}

void MessageRouter::on_data_frag(const MessageContext& context, const DataFrag& fragment) {
    take_sample(context, fragment, &Reader::on_data_frag);
}

template <typename Submessage>
void MessageRouter::tell_readers(const MessageContext& context, const Submessage& submessage,
                                 void (Reader::*operation)(const Guid&, const Submessage&, MonotonicTime)) {
    if (!hears_everything())
        return;
    const Guid writer{context.source, submessage.writer};
    for_readers(submessage.reader, writer, [&](Reader& reader) {
        (reader.*operation)(writer, submessage, now_.monotonic);
        return true;
    });
}

void MessageRouter::on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) {
    tell_readers(context, heartbeat, &Reader::on_heartbeat);
    const Guid writer{context.source, heartbeat.writer};
    // Without it a reader that is matched later could not deliver what is kept for it. A writer that is not
    // known at all tells a reader of ours in this way from where on it counts for it.
    if (!writer.entity.is_builtin()) {
        const DiscoveredEndpoint* remote = endpoints_.find(writer);
        if (remote != nullptr ? remote->record == nullptr : locals_.find(heartbeat.reader) != nullptr)
            note_unknown_writer(writer);
    }
    if (heartbeat.liveliness)
        assert_liveliness(writer);
}

void MessageRouter::on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) {
    tell_readers(context, heartbeat, &Reader::on_heartbeat_frag);
}

void MessageRouter::on_gap(const MessageContext& context, const Gap& gap) {
    tell_readers(context, gap, &Reader::on_gap);
}

template <typename Submessage>
void MessageRouter::tell_writer(const MessageContext& context, const Submessage& submessage,
                                void (ReliableWriter::*operation)(const Guid&, const Submessage&,
                                                                  MonotonicTime)) {
    const LocalEndpoint* local = locals_.find(submessage.writer);
    // What is asked for in another's name would go to that one, many times the bytes of the question.
    if (local != nullptr && local->writer &&
        (!submessage.reader.is_builtin() ||
         participants_.may_tell_of_endpoints(context.source, datagram_.source, now_)))
        ((*local->writer).*operation)(Guid{context.source, submessage.reader}, submessage, now_.monotonic);
}

void MessageRouter::on_acknack(const MessageContext& context, const AckNack& acknack) {
    const LocalEndpoint* local = locals_.find(acknack.writer);
    if (local != nullptr && local->writer) {
        if (const std::optional<bool> is_right =
                local->writer->knows_what_was_told({context.source, acknack.reader}, acknack))
            participants_.on_answer(context.source, datagram_.source, *is_right);
    }
    tell_writer(context, acknack, &ReliableWriter::on_acknack);
}

void MessageRouter::on_nack_frag(const MessageContext& context, const NackFrag& nack) {
    tell_writer(context, nack, &ReliableWriter::on_nack_frag);
}

void MessageRouter::on_secured(const MessageContext& context, uint8_t) {
    if (!wants(context, entity::unknown, entity::participant))
        return;
    ++secured_submessages_;
    warnings_.warn("secured messages " + to_string(context.source),
                   "participant " + to_string(context.source) + " sends secured messages; they are not read");
}

} // namespace meridian::rtps
