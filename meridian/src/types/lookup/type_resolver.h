#pragma once

// Finds the types of remote publications for the participants of this process: which type objects to request
// from which participant, how long to wait, and what was found. A pure state machine: announcements, replies
// and times go in, requests and outcomes come out. Not thread-safe.
//
// A type is asked for once, however many publications have it and however many participants of this process
// hear of it: first from the participant that announced it first, then from the others that announce it, one
// by one. How many requests go out, see request_pacer.h. What is kept is charged to the participant that made
// it necessary (memory_budget.h), and ends with it.
//
// Type objects of the plain form, which Fast DDS 2 announces whole or tells when it is asked, cannot be
// checked against their hashes. They count for the participant only that told them, whatever topic it told
// them with.

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/memory_budget.h"
#include "rtps/protocol/remote_endpoint.h"
#include "rtps/protocol/times.h"
#include "types/lookup/endpoint_type.h"
#include "types/lookup/oversized_types.h"
#include "types/lookup/request_pacer.h"
#include "types/lookup/type_lookup_codec.h"
#include "types/network/type_information.h"
#include "types/network/type_library.h"

namespace meridian::types {

class TypeResolver {
  public:
    /// A participant of this process.
    using Asker = uint32_t;
    struct Settings {
        /// Summed size of the type objects of a type above which it is not used; see oversized_types.h.
        uint64_t max_type_size = 4096;
        rtps::Duration give_up = std::chrono::seconds(2); // for each publication
        rtps::Duration retry = std::chrono::milliseconds(200);
    };
    /// Its writer is for the asker to say.
    struct Request : TypeLookupRequest {
        Asker asker = 0;
    };
    struct Result {
        TypeRef type; // empty: see why
        NoType why = DDS_TYPE_CODE_NOT_ANNOUNCED;
        explicit operator bool() const { return static_cast<bool>(type); }
    };
    struct Outcome : Result {
        rtps::Guid endpoint;
        Asker asker = 0;
    };
    /// Nothing: the publication waits, and an Outcome will come.
    using Answer = std::optional<Result>;

    explicit TypeResolver(const Settings& settings)
        : settings_(settings), oversized_(settings.max_type_size), pacer_(settings.retry) {}

    /// A publication was announced (or announced anew) to `asker`. `answers`: its participant offers the type
    /// lookup service. Announcing it anew with the same type does not prolong the wait.
    Answer resolve(const rtps::RemoteEndpoint& publication, bool answers, rtps::MonotonicTime now,
                   Asker asker = 0);
    /// It is asked no longer, when all askers said so, and what it told is forgotten. Its waiting
    /// publications may still be resolved by other participants.
    void participant_gone(const rtps::GuidPrefix& participant, rtps::MonotonicTime now, Asker asker = 0);
    /// The participant of this process is gone, with all that it knew of. It has no outcomes any more.
    void asker_gone(Asker asker, rtps::MonotonicTime now);
    /// Takes the type objects that were requested from that participant by the request that the reply names.
    /// Objects that are not what their hashes say, or alone exceed the limit of a type, are refused.
    void take(const TypeLookupReply& reply, const rtps::GuidPrefix& from, rtps::MonotonicTime now);
    void on_timer(rtps::MonotonicTime now);

    rtps::MonotonicTime next_deadline() const;
    /// What is to be sent now, and what became of publications that waited; each is handed out once.
    std::vector<Request> take_requests() { return std::exchange(requests_, {}); }
    std::vector<Outcome> take_outcomes() { return std::exchange(outcomes_, {}); }

  private:
    /// A type identifier as the bytes that it is announced with; in the plain form with the participant.
    using Key = rtps::ByteBuffer;
    using Waiter = std::pair<rtps::Guid, Asker>;
    using LookupId = RequestPacer::Lookup;
    /// Memory that was taken from the share of a participant, which gets it back when the last owner goes.
    using Charge = std::shared_ptr<void>;

    /// What a participant told in the plain form.
    struct PlainTypes {
        TypeLibrary library;
        std::vector<Charge> charges;
        /// Lookups by what they miss first: it may come with an announcement.
        std::set<std::pair<TypeHash, LookupId>> awaited;
    };
    /// What a publication announces of its type.
    struct Announced {
        Key key;
        TypeIdentifier root;
        uint64_t size = 0;
        bool is_plain = false;
        bool is_whole = false; // nothing may have to be looked up
    };
    /// A type that is being looked up.
    struct Lookup : Announced {
        LookupId id = 0;
        std::shared_ptr<PlainTypes> plain; // null: not of that form
        std::optional<TypeHash> awaits;    // its entry among those that are awaited
        std::string name;                  // of the type, for messages
        rtps::GuidPrefix announcer;        // who pays
        std::set<Waiter> waiting;
        std::vector<rtps::GuidPrefix> sources; // participants that can be asked
        std::set<rtps::GuidPrefix> asked;
        size_t turn = 0; // of the sources
        bool queued = false;
        int64_t request = 0; // that is under way; 0: none
        bool was_refused = false;
        unsigned forged = 0; // so often a cycle of types did not match its hash
        bool gave_up = false;
        Charge charge;

        const rtps::GuidPrefix& source() const { return sources[turn % sources.size()]; }
    };
    struct Wait {
        LookupId lookup = 0;
        rtps::MonotonicTime until{0};
    };
    /// A request that was sent. It is remembered for a while after its time, since late answers are welcome.
    struct Sent {
        rtps::GuidPrefix asked;
        LookupId lookup = 0;
        std::shared_ptr<PlainTypes> plain; // of the lookup
        std::set<TypeHash> hashes;
    };
    struct Resolved {
        Result result;
        Charge charge;
    };
    struct Peer {
        Peer();
        std::set<Asker> askers; // that know of it
        std::set<LookupId> lookups;
        std::map<Key, Resolved> silent; // types that it was asked for and did not tell in time
        std::vector<Key> resolved;      // by what it told
        std::map<TypeHash, Charge> objects;
        std::shared_ptr<PlainTypes> plain = std::make_shared<PlainTypes>();
        std::shared_ptr<MemoryShare> share;
    };

    static std::optional<Announced> announced_by(const rtps::RemoteEndpoint& publication);
    /// Has a publication wait for its type, or tells at once what became of it.
    Answer look_up(const std::string& type_name, const Announced& announced, bool can_be_asked,
                   const Waiter& waiter, rtps::MonotonicTime now);
    Lookup& begin(const std::string& type_name, const Announced& announced,
                  const rtps::GuidPrefix& announcer);
    /// Keeps the type object that a publication announces, and names it as the root. False: it is malformed.
    bool take_whole(const rtps::RemoteEndpoint& publication, Announced& announced, rtps::MonotonicTime now);
    /// False: there is no memory for it.
    bool add_plain(Peer& peer, const TypeHash& hash, TypeObject object, size_t size, rtps::MonotonicTime now);
    void await(Lookup& lookup, std::optional<TypeHash> missing);
    TypeLibrary& library_of(const std::shared_ptr<PlainTypes>& plain) {
        return plain != nullptr ? plain->library : library_;
    }
    static Charge charge(const Peer& peer, size_t bytes);
    void add_source(Lookup& lookup, const rtps::GuidPrefix& participant);
    /// No outcome comes any more of what it waited for.
    void forget(const Waiter& waiter);
    void ask(Lookup& lookup);
    /// Makes requests as long as they may go out.
    void send(rtps::MonotonicTime now);
    /// The lookup whose request ended, and has none now; null where it is gone.
    Lookup* end(const RequestPacer::Request& request);
    /// The lookup may be done afterwards, one way or the other, and gone.
    void advance(LookupId id, rtps::MonotonicTime now);
    void refuse_forged_cycles(Lookup& lookup);
    void finish(LookupId id, const Result& result);
    void give_up(const Waiter& waiter);
    void drop(LookupId id);
    void take(const TypeObjectPair& pair, rtps::Endianness endianness, const Sent& sent,
              rtps::MonotonicTime now);
    void take(const PlainTypeObject& pair, const Sent& sent, rtps::MonotonicTime now);
    /// Whether an object of that size makes a type of a lookup too large, which has ended then.
    bool ends_too_large(const Sent& sent, size_t size, rtps::MonotonicTime now);
    /// Keeps what became of a type, if there is memory for it.
    Result keep(const Key& key, const rtps::GuidPrefix& participant, Result result);
    bool is_too_large(uint64_t size, const std::string& name, const rtps::GuidPrefix& participant,
                      rtps::MonotonicTime now);

    const Settings settings_;
    OversizedTypes oversized_;
    RequestPacer pacer_;
    TypeLibrary library_;
    std::map<Key, Resolved> resolved_;
    std::map<LookupId, Lookup> lookups_;
    std::map<Key, LookupId> by_key_;
    std::map<Waiter, Wait> waits_;
    std::set<std::pair<rtps::MonotonicTime, Waiter>> give_ups_;
    std::map<rtps::GuidPrefix, Peer> peers_;
    std::map<int64_t, Sent> sent_; // the last ones, by number
    LookupId last_lookup_ = 0;
    std::vector<Request> requests_;
    std::vector<Outcome> outcomes_;
};

} // namespace meridian::types
