#pragma once

// The type resolver at work in a participant: its requests go out, the replies come in, and its timer runs on
// the runtime's thread.

#include <functional>

#include "rtps/net/runtime.h"
#include "types/lookup/publication_types.h"
#include "types/lookup/type_resolver.h"

namespace meridian::types {

/// Everything but the constructor runs under the lock of the runtime, which the client must outlive.
class TypeLookupClient final : public PublicationTypes, private rtps::ReaderSink {
  public:
    /// Builtin endpoints that a participant with a client announces.
    static constexpr uint32_t kBuiltinEndpoints =
        rtps::kTypeLookupRequestWriter | rtps::kTypeLookupReplyReader;

    /// Told what became of a publication that had to wait; an empty type: none is to be had.
    using Resolved = std::function<void(const rtps::Guid& publication, const TypeRef& type)>;
    /// A type that the user supplied for a type name, for publications that announce none; may be empty.
    using Supplied = std::function<TypeRef(const std::string& type_name)>;

    TypeLookupClient(const TypeResolver::Settings& settings, Resolved resolved, Supplied supplied);

    /// Adds the request writer and the reply reader. Call once, before the runtime starts.
    void attach(rtps::net::Runtime& runtime, rtps::Participant& participant, rtps::Now now);

    std::optional<TypeRef> type_of(const rtps::EndpointData& publication, bool answers) override;
    void participant_gone(const rtps::GuidPrefix& participant) override;

  private:
    void on_sample(const rtps::Sample& sample) override;
    /// Passes on what the resolver has to say.
    void pump();
    void send(rtps::Participant& participant, rtps::Now now);
    void arm_timer();

    TypeResolver resolver_;
    const Resolved resolved_;
    const Supplied supplied_;
    rtps::net::Runtime* runtime_ = nullptr;
    rtps::Guid writer_;
    rtps::SequenceNumber sent_ = 0;
    std::vector<TypeResolver::Request> to_send_;
    std::map<rtps::Guid, std::string> waiting_; // type names of publications without an answer yet
    rtps::MonotonicTime armed_ = rtps::kNever;
};

} // namespace meridian::types
