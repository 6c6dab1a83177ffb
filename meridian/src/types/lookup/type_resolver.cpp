#include "types/lookup/type_resolver.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/log.h"

namespace meridian::types {

namespace {

/// Requests that are remembered for late answers.
constexpr size_t kRemembered = 1024;
/// So often a type is asked for anew because a cycle in it was not what its hash says.
constexpr unsigned kMostForged = 5;
/// What an entry of the tables here takes beside its key, name and type; rather more than less.
constexpr size_t kEntrySize = 512;

rtps::ByteBuffer key_of(const TypeIdentifier& id) {
    rtps::ByteBuffer bytes;
    rtps::ByteWriter writer(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
    write(writer, id);
    return bytes;
}

} // namespace

TypeResolver::Peer::Peer() : share(std::make_shared<MemoryShare>(MemoryBudget::of_process())) {}

TypeResolver::Charge TypeResolver::charge(const Peer& peer, size_t bytes) {
    if (!peer.share->take(bytes))
        return nullptr;
    return {peer.share.get(), [share = peer.share, bytes](void*) { share->give_back(bytes); }};
}

// -- Publications

std::optional<TypeResolver::Announced> TypeResolver::announced_by(const rtps::RemoteEndpoint& publication) {
    Announced announced;
    TypeInformation information;
    const TypeIdentifierWithDependencies* named = nullptr;
    if (decode(*publication.type_information, publication.raw_endianness, information))
        named = information.best();
    announced.is_plain = named == nullptr || information.form == TypeObjectForm::plain;
    announced.is_whole = announced.is_plain && !publication.type_object.empty();
    if (announced.is_whole) {
        // Types whose members are alike may have one hash: the bytes tell them apart.
        announced.root = TypeIdentifier::of(hash_of(publication.type_object, true));
        announced.size = publication.type_object.size();
        announced.key = key_of(announced.root);
        if (information.complete.type.id.is_hashed())
            announced.root = information.complete.type.id;
    } else if (named != nullptr) {
        announced.root = named->type.id;
        announced.size = named->total_size();
        announced.key = key_of(announced.root);
    } else {
        return std::nullopt;
    }
    if (announced.is_plain) {
        const auto& prefix = publication.guid.prefix.bytes;
        announced.key.insert(announced.key.end(), prefix.begin(), prefix.end());
    }
    return announced;
}

TypeResolver::Answer TypeResolver::resolve(const rtps::RemoteEndpoint& publication, bool answers,
                                           rtps::MonotonicTime now, Asker asker) {
    const Waiter waiter{publication.guid, asker};
    std::optional<Announced> announced = announced_by(publication);
    if (!announced) {
        forget(waiter);
        return Result{
            {}, publication.type_information->empty() ? DDS_TYPE_CODE_NOT_ANNOUNCED : DDS_TYPE_CODE_UNUSABLE};
    }
    const Key& key = announced->key;
    const rtps::GuidPrefix& participant = publication.guid.prefix;
    Peer& peer = peers_[participant];
    peer.askers.insert(asker);
    const bool can_be_asked = answers && peer.silent.count(key) == 0;

    // A wait that is under way goes on, and does not begin anew.
    const auto wait = waits_.find(waiter);
    if (wait != waits_.end() && lookups_.at(wait->second.lookup).key == key) {
        if (can_be_asked) {
            Lookup& lookup = lookups_.at(wait->second.lookup);
            add_source(lookup, participant);
            ask(lookup);
            send(now);
        }
        return std::nullopt;
    }
    forget(waiter);

    const auto resolved = resolved_.find(key);
    if (resolved != resolved_.end())
        return resolved->second.result;
    if (is_too_large(announced->size, publication.type_name, participant, now))
        return keep(key, participant, {{}, DDS_TYPE_CODE_TOO_LARGE});
    if (announced->is_whole && by_key_.count(key) == 0 && !take_whole(publication, *announced, now))
        return keep(key, participant, {{}, DDS_TYPE_CODE_UNUSABLE});
    return look_up(publication.type_name, *announced, can_be_asked, waiter, now);
}

TypeResolver::Answer TypeResolver::look_up(const std::string& type_name, const Announced& announced,
                                           bool can_be_asked, const Waiter& waiter, rtps::MonotonicTime now) {
    const rtps::GuidPrefix& participant = waiter.first.prefix;
    const Peer& peer = peers_.at(participant);
    const bool is_new = by_key_.count(announced.key) == 0;
    Lookup& lookup = is_new ? begin(type_name, announced, participant) : lookups_.at(by_key_[announced.key]);
    const LookupId id = lookup.id;
    if (can_be_asked && lookup.charge != nullptr)
        add_source(lookup, participant);
    lookup.waiting.insert(waiter);
    // What is missing of types of the plain form may stand in the next announcements.
    const bool may_come = announced.is_plain && lookup.sources.empty();
    waits_[waiter] = {id, rtps::later(now, may_come ? settings_.retry : settings_.give_up)};
    give_ups_.emplace(waits_[waiter].until, waiter);
    // Nothing needs to be requested where the identifier is the whole type, or its parts are known from
    // other types.
    if (is_new)
        advance(id, now);
    else
        ask(lookup); // all who could be asked may have left
    send(now);
    if (lookups_.count(id) != 0 && lookups_.at(id).sources.empty() && !may_come) {
        // No participant offers it, or they left meanwhile.
        const auto silent = peer.silent.find(announced.key);
        finish(id, {{}, silent != peer.silent.end() ? silent->second.result.why : DDS_TYPE_CODE_NOT_TOLD});
    }
    if (waits_.count(waiter) != 0)
        return std::nullopt;
    const auto own = std::find_if(outcomes_.rbegin(), outcomes_.rend(), [&waiter](const Outcome& outcome) {
        return Waiter(outcome.endpoint, outcome.asker) == waiter;
    });
    Result result = *own;
    outcomes_.erase(std::next(own).base());
    return result;
}

TypeResolver::Lookup& TypeResolver::begin(const std::string& type_name, const Announced& announced,
                                          const rtps::GuidPrefix& announcer) {
    const Peer& peer = peers_.at(announcer);
    const LookupId id = ++last_lookup_;
    Lookup& lookup = lookups_[id];
    static_cast<Announced&>(lookup) = announced;
    lookup.id = id;
    lookup.plain = announced.is_plain ? peer.plain : nullptr;
    lookup.name = type_name;
    lookup.announcer = announcer;
    lookup.charge = charge(peer, kEntrySize + 2 * lookup.key.size() + lookup.name.size());
    by_key_[lookup.key] = id;
    return lookup;
}

bool TypeResolver::take_whole(const rtps::RemoteEndpoint& publication, Announced& announced,
                              rtps::MonotonicTime now) {
    Peer& peer = peers_.at(publication.guid.prefix);
    if (peer.plain->library.has(announced.root.hash))
        announced.root = TypeIdentifier::of(hash_of(publication.type_object, true));
    if (peer.plain->library.has(announced.root.hash))
        return true;
    TypeObject object;
    const char* problem = nullptr;
    if (!decode_plain(publication.type_object, object))
        problem = "it is malformed";
    else if (!add_plain(peer, announced.root.hash, std::move(object), publication.type_object.size(), now))
        problem = "no memory is left for it";
    if (problem != nullptr)
        MERIDIAN_LOG_WARNING("discovery", "type \"%s\" as it was announced cannot be used: %s",
                             publication.type_name.c_str(), problem);
    return problem == nullptr;
}

bool TypeResolver::add_plain(Peer& peer, const TypeHash& hash, TypeObject object, size_t size,
                             rtps::MonotonicTime now) {
    const std::shared_ptr<PlainTypes> plain = peer.plain;
    Charge charged = charge(peer, kEntrySize + memory_of(object));
    if (charged == nullptr || plain->library.add(hash, std::move(object), size) != TypeLibrary::Added::yes)
        return false;
    plain->charges.push_back(std::move(charged));
    std::vector<LookupId> awaiting;
    for (auto at = plain->awaited.lower_bound({hash, 0}); at != plain->awaited.end() && at->first == hash;
         ++at)
        awaiting.push_back(at->second);
    for (const LookupId id : awaiting)
        advance(id, now);
    return true;
}

void TypeResolver::await(Lookup& lookup, std::optional<TypeHash> missing) {
    if (lookup.awaits)
        lookup.plain->awaited.erase({*lookup.awaits, lookup.id});
    if (missing)
        lookup.plain->awaited.insert({*missing, lookup.id});
    lookup.awaits = missing;
}

void TypeResolver::add_source(Lookup& lookup, const rtps::GuidPrefix& participant) {
    if (std::find(lookup.sources.begin(), lookup.sources.end(), participant) != lookup.sources.end())
        return;
    lookup.sources.push_back(participant);
    peers_[participant].lookups.insert(lookup.id);
}

void TypeResolver::forget(const Waiter& waiter) {
    const auto wait = waits_.find(waiter);
    if (wait == waits_.end())
        return;
    const LookupId id = wait->second.lookup;
    give_ups_.erase({wait->second.until, waiter});
    waits_.erase(wait);
    Lookup& lookup = lookups_.at(id);
    lookup.waiting.erase(waiter);
    if (lookup.waiting.empty())
        drop(id);
}

TypeResolver::Result TypeResolver::keep(const Key& key, const rtps::GuidPrefix& participant, Result result) {
    const auto peer = peers_.find(participant);
    if (peer == peers_.end())
        return result;
    const size_t size = result.type ? result.type->graph->memory() : 0;
    Charge charged = charge(peer->second, kEntrySize + 2 * key.size() + size);
    if (charged == nullptr)
        return {{}, result.type ? DDS_TYPE_CODE_UNUSABLE : result.why};
    peer->second.resolved.push_back(key);
    resolved_[key] = {result, std::move(charged)};
    return result;
}

bool TypeResolver::is_too_large(uint64_t size, const std::string& name, const rtps::GuidPrefix& participant,
                                rtps::MonotonicTime now) {
    // Of those that are gone no count is begun.
    return peers_.count(participant) != 0 ? oversized_.is_too_large(size, name, participant, now)
                                          : size > oversized_.limit();
}

// -- Requests

void TypeResolver::ask(Lookup& lookup) {
    if (lookup.queued || lookup.request != 0 || lookup.sources.empty())
        return;
    lookup.queued = true;
    pacer_.enqueue(lookup.source(), lookup.id);
}

void TypeResolver::send(rtps::MonotonicTime now) {
    while (const auto request = pacer_.next(now)) {
        Lookup& lookup = lookups_.at(request->lookup);
        std::vector<TypeHash> missing = library_of(lookup.plain).missing(lookup.root);
        if (lookup.plain != nullptr && !missing.empty())
            missing.resize(1); // Fast DDS 2 sends no answer that is longer than 5,000 octets
        lookup.queued = false;
        lookup.request = request->number;
        lookup.asked.insert(request->asked);
        sent_[request->number] = {
            request->asked, request->lookup, lookup.plain, {missing.begin(), missing.end()}};
        if (missing.empty()) { // what others told was enough
            pacer_.answered(request->number);
            lookup.request = 0;
            advance(request->lookup, now);
        } else {
            const Asker asker = *peers_.at(request->asked).askers.begin();
            const auto form = lookup.plain != nullptr ? TypeObjectForm::plain : TypeObjectForm::xcdr2;
            requests_.push_back({{{}, request->number, request->asked, std::move(missing), form}, asker});
        }
    }
    while (sent_.size() > kRemembered)
        sent_.erase(sent_.begin());
}

TypeResolver::Lookup* TypeResolver::end(const RequestPacer::Request& request) {
    const auto lookup = lookups_.find(request.lookup);
    if (lookup == lookups_.end() || lookup->second.request != request.number)
        return nullptr;
    lookup->second.request = 0;
    return &lookup->second;
}

void TypeResolver::take(const TypeLookupReply& reply, const rtps::GuidPrefix& from, rtps::MonotonicTime now) {
    const auto at = sent_.find(reply.request_number);
    if (at == sent_.end() || at->second.asked != from)
        return;
    const Sent* const sent = &at->second;
    if (sent->plain == nullptr) {
        for (const TypeObjectPair& pair : reply.types)
            take(pair, reply.endianness, *sent, now);
    } else {
        for (const PlainTypeObject& pair : reply.plain_types)
            take(pair, *sent, now);
    }
    const TypeLibrary& library = library_of(sent->plain);
    const auto is_here = [&library](const TypeHash& hash) { return library.has(hash); };
    if (std::all_of(sent->hashes.begin(), sent->hashes.end(), is_here)) {
        pacer_.answered(reply.request_number);
        if (end({reply.request_number, from, sent->lookup}) != nullptr)
            advance(sent->lookup, now);
    }
    send(now);
}

void TypeResolver::take(const TypeObjectPair& pair, rtps::Endianness endianness, const Sent& sent,
                        rtps::MonotonicTime now) {
    const TypeHash& hash = pair.id.hash;
    const auto peer = peers_.find(sent.asked);
    if (!pair.id.is_hashed() || sent.hashes.count(hash) == 0 || library_.has(hash) || peer == peers_.end())
        return;
    if (ends_too_large(sent, pair.object.size, now))
        return;
    const auto lookup = lookups_.find(sent.lookup);
    const char* problem = nullptr;
    switch (library_.add_genuine(hash, pair.object, endianness)) {
        case TypeLibrary::Added::yes:
        case TypeLibrary::Added::known:
            break;
        case TypeLibrary::Added::malformed:
            problem = "is malformed";
            break;
        case TypeLibrary::Added::too_large:
            problem = "is too large";
            break;
        case TypeLibrary::Added::not_genuine:
            problem = "does not match its hash";
            if (lookup != lookups_.end())
                lookup->second.was_refused = true;
            break;
    }
    Charge charged = charge(peer->second, kEntrySize + library_.memory_of(hash));
    if (problem == nullptr && charged == nullptr)
        problem = "finds no memory any more";
    if (problem != nullptr) {
        library_.remove(hash);
        MERIDIAN_LOG_WARNING("discovery", "type object %s of participant %s %s", to_string(hash).c_str(),
                             rtps::to_string(sent.asked).c_str(), problem);
        return;
    }
    peer->second.objects[hash] = std::move(charged);
}

void TypeResolver::take(const PlainTypeObject& pair, const Sent& sent, rtps::MonotonicTime now) {
    const TypeHash& hash = pair.id.hash;
    const auto peer = peers_.find(sent.asked);
    if (!pair.id.is_hashed() || sent.hashes.count(hash) == 0 || sent.plain->library.has(hash) ||
        peer == peers_.end() || peer->second.plain != sent.plain || ends_too_large(sent, pair.size, now))
        return;
    if (!add_plain(peer->second, hash, pair.object, pair.size, now))
        MERIDIAN_LOG_WARNING("discovery", "type object %s of participant %s cannot be used",
                             to_string(hash).c_str(), rtps::to_string(sent.asked).c_str());
}

bool TypeResolver::ends_too_large(const Sent& sent, size_t size, rtps::MonotonicTime now) {
    const auto lookup = lookups_.find(sent.lookup);
    if (lookup == lookups_.end() ||
        !is_too_large(library_of(sent.plain).closure_size(lookup->second.root) + size, lookup->second.name,
                      sent.asked, now))
        return false;
    finish(sent.lookup, keep(Key(lookup->second.key), sent.asked, {{}, DDS_TYPE_CODE_TOO_LARGE}));
    return true;
}

void TypeResolver::advance(LookupId id, rtps::MonotonicTime now) {
    Lookup& lookup = lookups_.at(id);
    const TypeLibrary& library = library_of(lookup.plain);
    if (is_too_large(library.closure_size(lookup.root), lookup.name, lookup.announcer, now)) {
        finish(id, keep(Key(lookup.key), lookup.announcer, {{}, DDS_TYPE_CODE_TOO_LARGE}));
        return;
    }
    if (lookup.plain == nullptr && library.missing(lookup.root).empty())
        refuse_forged_cycles(lookup);
    if (lookup.forged > kMostForged) {
        finish(id, {{}, DDS_TYPE_CODE_NOT_GENUINE});
        return;
    }
    const std::vector<TypeHash> missing = library.missing(lookup.root);
    if (!missing.empty()) {
        if (lookup.plain != nullptr)
            await(lookup, missing.front());
        ask(lookup);
        return;
    }
    std::string error;
    Result result{library.build(lookup.root, error), DDS_TYPE_CODE_UNUSABLE};
    if (!result)
        MERIDIAN_LOG_WARNING("discovery", "type \"%s\" cannot be used: %s", lookup.name.c_str(),
                             error.c_str());
    finish(id, keep(Key(lookup.key), lookup.announcer, result));
}

void TypeResolver::refuse_forged_cycles(Lookup& lookup) {
    const std::vector<TypeHash> forged = library_.forged_cycles(lookup.root);
    if (forged.empty())
        return;
    // Which of them is the false one cannot be told, nor who sent it.
    for (const TypeHash& hash : forged) {
        library_.remove(hash);
        for (auto& [participant, peer] : peers_)
            peer.objects.erase(hash);
    }
    MERIDIAN_LOG_WARNING("discovery", "type object %s and those of its cycle do not match their hash",
                         to_string(forged.front()).c_str());
    lookup.was_refused = true;
    ++lookup.forged;
    ++lookup.turn;
}

// -- Ends

void TypeResolver::finish(LookupId id, const Result& result) {
    for (const Waiter& waiter : lookups_.at(id).waiting) {
        const auto wait = waits_.find(waiter);
        give_ups_.erase({wait->second.until, waiter});
        waits_.erase(wait);
        outcomes_.push_back({result, waiter.first, waiter.second});
    }
    drop(id);
}

void TypeResolver::give_up(const Waiter& waiter) {
    const LookupId id = waits_.at(waiter).lookup;
    Lookup& lookup = lookups_.at(id);
    const NoType why = lookup.was_refused ? DDS_TYPE_CODE_NOT_GENUINE
                       : lookup.is_whole  ? DDS_TYPE_CODE_UNUSABLE
                                          : DDS_TYPE_CODE_NOT_TOLD;
    const auto peer = peers_.find(waiter.first.prefix);
    if (peer != peers_.end() && lookup.asked.count(waiter.first.prefix) != 0) {
        Charge charged = charge(peer->second, kEntrySize + lookup.key.size());
        if (charged != nullptr)
            peer->second.silent[lookup.key] = {{{}, why}, std::move(charged)};
    }
    if (!std::exchange(lookup.gave_up, true))
        MERIDIAN_LOG_WARNING("discovery",
                             "type \"%s\": no participant sent its definition; its contents are unknown",
                             lookup.name.c_str());
    outcomes_.push_back({{{}, why}, waiter.first, waiter.second});
    forget(waiter);
}

void TypeResolver::drop(LookupId id) {
    const auto at = lookups_.find(id);
    const Lookup& lookup = at->second;
    for (const rtps::GuidPrefix& source : lookup.sources) {
        if (lookup.queued)
            pacer_.withdraw(source, id);
        peers_.at(source).lookups.erase(id);
    }
    await(at->second, std::nullopt);
    by_key_.erase(lookup.key);
    lookups_.erase(at);
}

void TypeResolver::participant_gone(const rtps::GuidPrefix& participant, rtps::MonotonicTime now,
                                    Asker asker) {
    const auto at = peers_.find(participant);
    if (at == peers_.end())
        return;
    Peer& peer = at->second;
    peer.askers.erase(asker);
    if (!peer.askers.empty())
        return;
    oversized_.tell_too_large(participant, now);
    // No other participant can complete these.
    while (!peer.plain->awaited.empty())
        finish(peer.plain->awaited.begin()->second, {{}, DDS_TYPE_CODE_NOT_TOLD});
    for (const RequestPacer::Request& request : pacer_.forget(participant))
        end(request);
    for (const LookupId id : peer.lookups) {
        Lookup& lookup = lookups_.at(id);
        lookup.queued = lookup.queued && lookup.source() != participant;
        if (lookup.queued)
            pacer_.withdraw(lookup.source(), id); // whose turn it is, changes
        lookup.queued = false;
        lookup.sources.erase(std::find(lookup.sources.begin(), lookup.sources.end(), participant));
        if (lookup.announcer == participant && !lookup.sources.empty())
            lookup.announcer = lookup.sources.front();
        ask(lookup);
    }
    for (const auto& [hash, charged] : peer.objects)
        library_.remove(hash);
    for (const Key& key : peer.resolved)
        resolved_.erase(key);
    peers_.erase(at);
    send(now);
}

void TypeResolver::asker_gone(Asker asker, rtps::MonotonicTime now) {
    std::vector<Waiter> waiters;
    for (const auto& [waiter, wait] : waits_) {
        if (waiter.second == asker)
            waiters.push_back(waiter);
    }
    for (const Waiter& waiter : waiters)
        forget(waiter);
    std::vector<rtps::GuidPrefix> participants;
    for (const auto& [participant, peer] : peers_) {
        if (peer.askers.count(asker) != 0)
            participants.push_back(participant);
    }
    for (const rtps::GuidPrefix& participant : participants)
        participant_gone(participant, now, asker);
}

void TypeResolver::on_timer(rtps::MonotonicTime now) {
    while (!give_ups_.empty() && give_ups_.begin()->first <= now)
        give_up(Waiter(give_ups_.begin()->second));
    while (const auto overdue = pacer_.overdue(now)) {
        if (Lookup* const lookup = end(*overdue)) {
            ++lookup->turn; // the next one is asked
            advance(overdue->lookup, now);
        }
    }
    oversized_.on_timer(now);
    send(now);
}

rtps::MonotonicTime TypeResolver::next_deadline() const {
    rtps::MonotonicTime next = std::min(pacer_.next_time(), oversized_.next_deadline());
    if (!give_ups_.empty())
        next = std::min(next, give_ups_.begin()->first);
    return next;
}

} // namespace meridian::types
