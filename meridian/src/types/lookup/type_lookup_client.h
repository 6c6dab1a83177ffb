#pragma once

// The type resolver at work in a participant: its requests go out, the replies come in, and its timer runs on
// the runtime's thread.

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "rtps/net/runtime.h"
#include "types/lookup/endpoint_type.h"
#include "types/lookup/shared_type_resolver.h"

namespace meridian::types {

/// Everything but the constructor and detach runs under the lock of the runtime.
class TypeLookupClient final : public rtps::TypeSettler,
                               private rtps::ReaderSink,
                               private SharedTypeResolver::Client {
  public:
    /// Builtin endpoints that a participant with a client announces.
    static constexpr uint32_t kBuiltinEndpoints =
        rtps::kTypeLookupRequestWriter | rtps::kTypeLookupReplyReader;

    /// A type from the type documents for a type name, for publications that announce none; may be empty.
    using Supplied = std::function<TypeRef(const std::string& type_name)>;

    TypeLookupClient(std::shared_ptr<SharedTypeResolver> resolver, Supplied supplied);
    ~TypeLookupClient() override { detach(); }
    TypeLookupClient(const TypeLookupClient&) = delete;
    TypeLookupClient& operator=(const TypeLookupClient&) = delete;

    /// Adds the request writer and the reply reader, and settles the types of publications from then on. Call
    /// once, before the runtime starts. The client must outlive the runtime.
    void attach(rtps::net::Runtime& runtime, rtps::Participant& participant, rtps::Now now);
    /// From here on nothing is looked up. To be called before the runtime ends, without its lock.
    void detach();

    Answer type_of(const rtps::RemoteEndpoint& publication,
                   const rtps::ParticipantData& participant) override;
    void participant_gone(const rtps::GuidPrefix& participant) override;

  private:
    void on_sample(const rtps::Sample& sample) override;
    void send(TypeResolver::Request request) override;
    void settle(const TypeResolver::Outcome& outcome) override;
    void wake_at(rtps::MonotonicTime time) override;
    /// The type that was found, or else the one that was supplied for the name, or else why there is none.
    /// One that was found without names gives way to one that was supplied for the same samples.
    rtps::EndpointTypeRef shared(TypeResolver::Result found, const std::string& type_name);

    const std::shared_ptr<SharedTypeResolver> resolver_;
    const Supplied supplied_;
    std::atomic<SharedTypeResolver::Asker> asker_{0}; // 0: not attached
    rtps::net::Runtime* runtime_ = nullptr;
    rtps::Guid writer_;
    std::map<const Type*, std::weak_ptr<const rtps::EndpointType>> shared_;
    std::map<rtps::Guid, std::string> waiting_; // type names of publications without an answer yet
};

} // namespace meridian::types
