#include "types/lookup/type_lookup_client.h"

#include <iterator>
#include <utility>

#include "platform/log.h"

namespace meridian::types {

namespace {

/// For repetitions that readers ask for.
constexpr int32_t kKeptRequests = 64;

rtps::EndpointData service_endpoint(const rtps::GuidPrefix& prefix, rtps::EntityId entity) {
    rtps::EndpointData data;
    data.guid = {prefix, entity};
    data.qos.reliability = rtps::Reliability::reliable;
    data.qos.history = rtps::HistoryKind::keep_all;
    return data;
}

} // namespace

TypeLookupClient::TypeLookupClient(std::shared_ptr<SharedTypeResolver> resolver, Supplied supplied)
    : resolver_(std::move(resolver)), supplied_(std::move(supplied)) {}

void TypeLookupClient::attach(rtps::net::Runtime& runtime, rtps::Participant& participant, rtps::Now now) {
    runtime_ = &runtime;
    const rtps::GuidPrefix prefix = participant.guid().prefix;
    writer_ = {prefix, rtps::entity::type_lookup_request_writer};

    rtps::WriterConfig writer;
    writer.builtin_peer = {rtps::entity::type_lookup_request_reader, rtps::kTypeLookupRequestReader};
    rtps::EndpointData requests = service_endpoint(prefix, rtps::entity::type_lookup_request_writer);
    // Requests are repeated anyway: those to participants that do not acknowledge make room for others.
    requests.qos.history = rtps::HistoryKind::keep_last;
    requests.qos.history_depth = kKeptRequests;
    rtps::ReaderConfig reader;
    reader.builtin_peer = {rtps::entity::type_lookup_reply_writer, rtps::kTypeLookupReplyWriter};
    participant.set_type_settler(*this);
    participant.add_writer(requests, writer, *this, now);
    participant.add_reader(service_endpoint(prefix, rtps::entity::type_lookup_reply_reader), reader, *this,
                           now);
    asker_ = resolver_->add(*this);
}

void TypeLookupClient::detach() {
    const SharedTypeResolver::Asker asker = asker_.exchange(0);
    if (asker != 0)
        resolver_->remove(asker, rtps::net::now().monotonic);
}

rtps::EndpointTypeRef TypeLookupClient::shared(TypeResolver::Result found, const std::string& type_name) {
    if ((!found || found.type->nameless) && supplied_) {
        const TypeRef supplied = supplied_(type_name);
        if (supplied && (!found || have_equal_samples(*found.type, *supplied)))
            found.type = supplied;
    }
    if (!found)
        return rtps::EndpointType::none(found.why);
    std::weak_ptr<const rtps::EndpointType>& known = shared_[found.type.get()];
    rtps::EndpointTypeRef result = known.lock();
    if (result == nullptr)
        known = result = std::make_shared<rtps::EndpointType>(found.type);
    return result;
}

TypeLookupClient::Answer TypeLookupClient::type_of(const rtps::RemoteEndpoint& publication,
                                                   const rtps::ParticipantData& participant) {
    const bool answers = (participant.builtin_endpoints & rtps::kTypeLookupRequestReader) != 0;
    const SharedTypeResolver::Asker asker = asker_;
    if (asker == 0)
        return {rtps::TypeState::none, nullptr};
    TypeResolver::Answer answer;
    resolver_->with_resolver([&](TypeResolver& resolver) {
        answer = resolver.resolve(publication, answers, rtps::net::now().monotonic, asker);
    });
    if (!answer) {
        waiting_[publication.guid] = publication.type_name;
        return {rtps::TypeState::waiting, nullptr};
    }
    waiting_.erase(publication.guid);
    return {rtps::TypeState::known, shared(*answer, publication.type_name)};
}

void TypeLookupClient::participant_gone(const rtps::GuidPrefix& participant) {
    for (auto type = shared_.begin(); type != shared_.end();)
        type = type->second.expired() ? shared_.erase(type) : std::next(type);
    const SharedTypeResolver::Asker asker = asker_;
    if (asker != 0)
        resolver_->with_resolver([&](TypeResolver& resolver) {
            resolver.participant_gone(participant, rtps::net::now().monotonic, asker);
        });
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
    // Some peers name themselves as the writer of the request. Replies to others that come here too do not
    // hold what was asked for.
    resolver_->with_resolver([&](TypeResolver& resolver) {
        resolver.take(reply, sample.writer.prefix, rtps::net::now().monotonic);
    });
}

// Not at once: these may come in the middle of an event of this participant or of another.

void TypeLookupClient::settle(const TypeResolver::Outcome& outcome) {
    runtime_->defer([this, outcome](rtps::Participant& own, rtps::Now now) {
        const auto waiting = waiting_.find(outcome.endpoint);
        if (waiting == waiting_.end())
            return;
        const rtps::EndpointTypeRef type = shared(outcome, waiting->second);
        waiting_.erase(waiting);
        own.settle_type(outcome.endpoint, type, now);
    });
}

void TypeLookupClient::send(TypeResolver::Request request) {
    runtime_->defer(
        [this, request = std::move(request)](rtps::Participant& participant, rtps::Now now) mutable {
            request.writer = {participant.guid().prefix, writer_.entity};
            const rtps::ByteBuffer payload = encode(request);
            rtps::WriteRequest write;
            write.payload = payload;
            write.only_for = request.asked;
            participant.write(writer_.entity, write, now);
        });
}

void TypeLookupClient::wake_at(rtps::MonotonicTime time) {
    runtime_->run_at(time, [this](rtps::Participant&, rtps::Now now) { resolver_->on_timer(now.monotonic); });
}

} // namespace meridian::types
