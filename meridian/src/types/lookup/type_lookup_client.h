#pragma once

// The type resolver at work in a participant: its requests go out, the replies come in, and its timer runs on
// the runtime's thread.

#include <functional>

#include "rtps/net/runtime.h"
#include "types/lookup/endpoint_type.h"
#include "types/lookup/type_resolver.h"

namespace meridian::types {

/// Everything but the constructor runs under the lock of the runtime, which the client must outlive.
class TypeLookupClient final : public rtps::TypeSettler, private rtps::ReaderSink {
  public:
    /// Builtin endpoints that a participant with a client announces.
    static constexpr uint32_t kBuiltinEndpoints =
        rtps::kTypeLookupRequestWriter | rtps::kTypeLookupReplyReader;

    /// A type from the type documents for a type name, for publications that announce none; may be empty.
    using Supplied = std::function<TypeRef(const std::string& type_name)>;

    TypeLookupClient(const TypeResolver::Settings& settings, Supplied supplied);

    /// Adds the request writer and the reply reader, and settles the types of publications from then on. Call
    /// once, before the runtime starts.
    void attach(rtps::net::Runtime& runtime, rtps::Participant& participant, rtps::Now now);

    Answer type_of(const rtps::EndpointData& publication, const rtps::ParticipantData& participant) override;
    void participant_gone(const rtps::GuidPrefix& participant) override;

  private:
    void on_sample(const rtps::Sample& sample) override;
    /// The type that was found, or else the one that was supplied for the name; null: none.
    rtps::EndpointTypeRef shared(TypeRef type, const std::string& type_name);
    /// Sends the requests and tells the outcomes of the resolver.
    void pump();
    void send(rtps::Participant& participant, rtps::Now now);
    void arm_timer();

    TypeResolver resolver_;
    const Supplied supplied_;
    rtps::net::Runtime* runtime_ = nullptr;
    rtps::Guid writer_;
    rtps::SequenceNumber sent_ = 0;
    std::vector<TypeResolver::Request> to_send_;
    std::map<const Type*, rtps::EndpointTypeRef> shared_;
    std::map<rtps::Guid, std::string> waiting_; // type names of publications without an answer yet
    rtps::MonotonicTime armed_ = rtps::kNever;
};

} // namespace meridian::types
