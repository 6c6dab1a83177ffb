#pragma once

// Finds the types of remote publications: which type objects to ask whom for, how long to wait, and what was
// found. A pure state machine: announcements, replies and times go in, requests and outcomes come out. Not
// thread-safe.
//
// A type is asked for once, however many publications have it. Whoever announces it may be asked in turn.

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rtps/protocol/times.h"
#include "rtps/wire/discovery_data.h"
#include "types/lookup/type_lookup_codec.h"
#include "types/network/type_information.h"
#include "types/network/type_library.h"

namespace meridian::types {

class TypeResolver {
  public:
    struct Settings {
        /// Summed size of the type objects of a type above which it is not used; the logger says so once per
        /// type.
        uint64_t max_type_size = 4096;
        rtps::Duration give_up = std::chrono::seconds(2); // for each publication
        rtps::Duration retry = std::chrono::milliseconds(200);
    };
    struct Request {
        rtps::GuidPrefix asked;
        std::vector<TypeHash> hashes;
    };
    struct Outcome {
        rtps::Guid endpoint;
        TypeRef type; // empty: none is to be had
    };
    /// Nothing: the publication waits, and an Outcome will come. Else the type, empty where there is none.
    using Answer = std::optional<TypeRef>;

    explicit TypeResolver(const Settings& settings) : settings_(settings) {}

    /// A publication was announced (or announced anew). `answers`: its participant offers the type lookup
    /// service. Announcing it anew with the same type does not prolong the wait.
    Answer resolve(const rtps::EndpointData& publication, bool answers, rtps::MonotonicTime now);
    /// It is not asked any more. Its publications that wait go on waiting for what others say.
    void participant_gone(const rtps::GuidPrefix& participant);
    /// Takes the type objects that were asked for, no matter who answers whom. Objects that are not what
    /// their hashes say, or alone exceed the limit of a type, are refused.
    void take(const TypeLookupReply& reply, rtps::MonotonicTime now);
    void on_timer(rtps::MonotonicTime now);

    rtps::MonotonicTime next_deadline() const;
    /// What is to be sent now, and what became of publications that waited; each is handed out once.
    std::vector<Request> take_requests() { return std::exchange(requests_, {}); }
    std::vector<Outcome> take_outcomes() { return std::exchange(outcomes_, {}); }

  private:
    /// A type identifier as the bytes that it is announced with.
    using Key = rtps::ByteBuffer;
    struct Waiting {
        rtps::Guid endpoint;
        rtps::MonotonicTime until;
    };
    struct Pending {
        TypeIdentifier root;
        std::string name; // of the type, for messages
        std::vector<Waiting> waiting;
        std::vector<rtps::GuidPrefix> answering; // participants that can be asked
        size_t next_asked = 0;
        std::set<TypeHash> asked_for; // in the request that is under way
        rtps::MonotonicTime retry_at{0};

        bool is_awaited_by(const rtps::Guid& endpoint) const;
        void add_answering(const rtps::GuidPrefix& participant);
    };

    /// No outcome comes any more of what it waited for.
    void forget(const rtps::Guid& endpoint);
    void ask(Pending& pending, rtps::MonotonicTime now);
    /// True when the pending type is done, one way or the other.
    bool advance(const Key& key, Pending& pending, rtps::MonotonicTime now);
    void finish(Pending& pending, const TypeRef& type);
    /// True when the object is new.
    bool take(const TypeObjectPair& pair, rtps::Endianness endianness);
    /// Gives up the types that wait for an object that is too large.
    void refuse(const TypeHash& hash, uint64_t size);
    bool is_too_large(uint64_t size, const std::string& name, const Key& key);

    const Settings settings_;
    TypeLibrary library_;
    std::map<Key, TypeRef> resolved_; // empty: cannot be used
    std::map<Key, Pending> pending_;
    std::set<std::pair<Key, rtps::GuidPrefix>> silent_; // were asked for the type and did not answer in time
    std::set<TypeHash> unanswered_; // was asked for; the answer may also come after all gave up
    std::vector<Request> requests_;
    std::vector<Outcome> outcomes_;
};

} // namespace meridian::types
