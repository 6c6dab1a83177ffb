#include "types/lookup/type_lookup_client.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "platform/log.h"

namespace meridian::types {

namespace {

rtps::EndpointData service_endpoint(const rtps::GuidPrefix& prefix, rtps::EntityId entity) {
    rtps::EndpointData data;
    data.guid = {prefix, entity};
    data.participant = prefix;
    data.qos.reliability = rtps::Reliability::reliable;
    data.qos.history = rtps::HistoryKind::keep_all;
    return data;
}

} // namespace

TypeLookupClient::TypeLookupClient(const TypeResolver::Settings& settings, Supplied supplied)
    : resolver_(settings), supplied_(std::move(supplied)) {}

void TypeLookupClient::attach(rtps::net::Runtime& runtime, rtps::Participant& participant, rtps::Now now) {
    runtime_ = &runtime;
    const rtps::GuidPrefix prefix = participant.guid().prefix;
    writer_ = {prefix, rtps::entity::type_lookup_request_writer};

    rtps::WriterConfig writer;
    writer.builtin_peer = {rtps::entity::type_lookup_request_reader, rtps::kTypeLookupRequestReader};
    rtps::ReaderConfig reader;
    reader.builtin_peer = {rtps::entity::type_lookup_reply_writer, rtps::kTypeLookupReplyWriter};
    participant.set_type_settler(*this);
    participant.add_writer(service_endpoint(prefix, rtps::entity::type_lookup_request_writer), writer, *this,
                           now);
    participant.add_reader(service_endpoint(prefix, rtps::entity::type_lookup_reply_reader), reader, *this,
                           now);
}

rtps::EndpointTypeRef TypeLookupClient::shared(TypeRef type, const std::string& type_name) {
    if (!type && supplied_)
        type = supplied_(type_name);
    if (!type)
        return nullptr;
    rtps::EndpointTypeRef& known = shared_[type.get()];
    if (known == nullptr)
        known = std::make_shared<rtps::EndpointType>(type);
    return known;
}

TypeLookupClient::Answer TypeLookupClient::type_of(const rtps::EndpointData& publication,
                                                   const rtps::ParticipantData& participant) {
    const bool answers = (participant.builtin_endpoints & rtps::kTypeLookupRequestReader) != 0;
    const TypeResolver::Answer answer =
        resolver_.resolve(publication, answers && runtime_ != nullptr, rtps::net::now().monotonic);
    pump();
    if (!answer) {
        waiting_[publication.guid] = publication.type_name;
        return {rtps::TypeState::waiting, nullptr};
    }
    waiting_.erase(publication.guid);
    const rtps::EndpointTypeRef type = shared(*answer, publication.type_name);
    return {type != nullptr ? rtps::TypeState::known : rtps::TypeState::none, type};
}

void TypeLookupClient::participant_gone(const rtps::GuidPrefix& participant) {
    resolver_.participant_gone(participant);
}

void TypeLookupClient::on_sample(const rtps::Sample& sample) {
    TypeLookupReply reply;
    if (!sample.has_payload)
        return;
    if (!decode(sample.payload, reply)) {
        MERIDIAN_LOG_LOCAL("discovery",
                           "a reply of the type lookup service of %s could not be decoded (%zu bytes)",
                           rtps::to_string(sample.writer.prefix).c_str(), sample.payload.size);
        return;
    }
    // Replies to other participants hold the same types, so they are used as well.
    resolver_.take(reply, rtps::net::now().monotonic);
    pump();
}

void TypeLookupClient::pump() {
    for (const TypeResolver::Outcome& outcome : resolver_.take_outcomes()) {
        const auto waiting = waiting_.find(outcome.endpoint);
        if (waiting == waiting_.end())
            continue;
        const rtps::EndpointTypeRef type = shared(outcome.type, waiting->second);
        waiting_.erase(waiting);
        // Not at once: this is the middle of an event of the participant.
        runtime_->defer([endpoint = outcome.endpoint, type](rtps::Participant& own, rtps::Now now) {
            own.settle_type(endpoint, type, now);
        });
    }
    std::vector<TypeResolver::Request> requests = resolver_.take_requests();
    if (!requests.empty()) {
        const bool is_first = to_send_.empty();
        std::move(requests.begin(), requests.end(), std::back_inserter(to_send_));
        if (is_first)
            runtime_->defer(
                [this](rtps::Participant& participant, rtps::Now now) { send(participant, now); });
    }
    arm_timer();
}

void TypeLookupClient::send(rtps::Participant& participant, rtps::Now now) {
    for (TypeResolver::Request& request : std::exchange(to_send_, {})) {
        TypeLookupRequest message;
        message.writer = {participant.guid().prefix, writer_.entity};
        message.sequence_number = ++sent_;
        message.asked = request.asked;
        message.hashes = std::move(request.hashes);
        const rtps::ByteBuffer payload = encode(message);
        rtps::WriteRequest write;
        write.payload = payload;
        participant.write(writer_.entity, write, now);
    }
}

void TypeLookupClient::arm_timer() {
    const rtps::MonotonicTime next = resolver_.next_deadline();
    if (next >= armed_)
        return;
    armed_ = next;
    runtime_->run_at(next, [this, next](rtps::Participant&, rtps::Now now) {
        if (armed_ == next)
            armed_ = rtps::kNever;
        resolver_.on_timer(now.monotonic);
        pump();
    });
}

} // namespace meridian::types
