#include "types/lookup/type_resolver.h"

#include <algorithm>
#include <utility>

#include "platform/log.h"

namespace meridian::types {

namespace {

rtps::ByteBuffer key_of(const TypeIdentifier& id) {
    rtps::ByteBuffer bytes;
    rtps::ByteWriter writer(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
    write(writer, id);
    return bytes;
}

/// Whether an object is the one that its hash was made of; that of a strongly connected component covers
/// more than the object.
bool is_genuine(const TypeObjectPair& pair, rtps::Endianness endianness) {
    if (pair.id.kind == tk::kStronglyConnected)
        return true;
    const bool complete = pair.id.kind == tk::kComplete;
    // As it came first: peers may know annotations that are not understood here.
    return (endianness == rtps::Endianness::little && hash_of(pair.object, complete) == pair.id.hash) ||
           hash_of(canonical(pair.object, endianness), complete) == pair.id.hash;
}

} // namespace

TypeResolver::Answer TypeResolver::resolve(const rtps::EndpointData& publication, bool answers,
                                           rtps::MonotonicTime now) {
    TypeInformation information;
    if (publication.type_information.empty() ||
        !decode(publication.type_information, publication.raw_endianness, information) ||
        information.best() == nullptr) {
        forget(publication.guid);
        return TypeRef();
    }
    const TypeIdentifierWithDependencies& announced = *information.best();
    const Key key = key_of(announced.type.id);
    const bool can_be_asked = answers && silent_.count({key, publication.participant}) == 0;

    // A wait that is under way goes on, and does not begin anew.
    const auto awaited = pending_.find(key);
    if (awaited != pending_.end() && awaited->second.is_awaited_by(publication.guid)) {
        if (can_be_asked)
            awaited->second.add_answering(publication.participant);
        return std::nullopt;
    }
    forget(publication.guid);

    const auto resolved = resolved_.find(key);
    if (resolved != resolved_.end())
        return resolved->second;
    if (is_too_large(announced.total_size(), publication.type_name, key))
        return TypeRef();

    const auto [at, is_new] = pending_.try_emplace(key);
    Pending& pending = at->second;
    if (is_new) {
        pending.root = announced.type.id;
        pending.name = publication.type_name;
    }
    if (can_be_asked)
        pending.add_answering(publication.participant);
    // Nothing needs to be requested where the identifier is the whole type, or its parts are known from
    // other types.
    if (is_new && advance(key, pending, now)) {
        pending_.erase(at);
        return resolved_[key];
    }
    if (pending.answering.empty()) {
        finish(pending, TypeRef()); // the participants that offer it left meanwhile
        pending_.erase(at);
        return TypeRef();
    }
    pending.waiting.push_back({publication.guid, rtps::later(now, settings_.give_up)});
    return std::nullopt;
}

bool TypeResolver::Pending::is_awaited_by(const rtps::Guid& endpoint) const {
    return std::any_of(waiting.begin(), waiting.end(),
                       [&endpoint](const Waiting& entry) { return entry.endpoint == endpoint; });
}

void TypeResolver::Pending::add_answering(const rtps::GuidPrefix& participant) {
    if (std::find(answering.begin(), answering.end(), participant) == answering.end())
        answering.push_back(participant);
}

bool TypeResolver::is_too_large(uint64_t size, const std::string& name, const Key& key) {
    if (size <= settings_.max_type_size)
        return false;
    MERIDIAN_LOG_ERROR("discovery",
                       "type \"%s\" takes %llu bytes, more than the %llu of type_code_max_serialized_length "
                       "(-tcMaxSize): it is not used",
                       name.c_str(), static_cast<unsigned long long>(size),
                       static_cast<unsigned long long>(settings_.max_type_size));
    resolved_[key] = TypeRef();
    return true;
}

bool TypeResolver::advance(const Key& key, Pending& pending, rtps::MonotonicTime now) {
    if (is_too_large(library_.closure_size(pending.root), pending.name, key)) {
        finish(pending, TypeRef());
        return true;
    }
    if (!library_.missing(pending.root).empty()) {
        ask(pending, now);
        return false;
    }
    std::string error;
    TypeRef type = library_.build(pending.root, error);
    if (!type)
        MERIDIAN_LOG_WARNING("discovery", "type \"%s\" cannot be used: %s", pending.name.c_str(),
                             error.c_str());
    resolved_[key] = type;
    finish(pending, type);
    return true;
}

void TypeResolver::ask(Pending& pending, rtps::MonotonicTime now) {
    if (pending.answering.empty())
        return;
    const std::vector<TypeHash> missing = library_.missing(pending.root);
    pending.asked_for = std::set<TypeHash>(missing.begin(), missing.end());
    unanswered_.insert(missing.begin(), missing.end());
    pending.retry_at = rtps::later(now, settings_.retry);
    const rtps::GuidPrefix& asked = pending.answering[pending.next_asked++ % pending.answering.size()];
    requests_.push_back({asked, missing});
}

void TypeResolver::finish(Pending& pending, const TypeRef& type) {
    for (const Waiting& waiting : pending.waiting)
        outcomes_.push_back({waiting.endpoint, type});
    pending.waiting.clear();
}

void TypeResolver::forget(const rtps::Guid& endpoint) {
    for (auto& [key, pending] : pending_) {
        auto& waiting = pending.waiting;
        waiting.erase(
            std::remove_if(waiting.begin(), waiting.end(),
                           [&endpoint](const Waiting& entry) { return entry.endpoint == endpoint; }),
            waiting.end());
    }
}

void TypeResolver::participant_gone(const rtps::GuidPrefix& participant) {
    for (auto& [key, pending] : pending_) {
        auto& answering = pending.answering;
        answering.erase(std::remove(answering.begin(), answering.end(), participant), answering.end());
    }
    for (auto silent = silent_.begin(); silent != silent_.end();)
        silent = silent->second == participant ? silent_.erase(silent) : std::next(silent);
    if (pending_.empty() && silent_.empty())
        unanswered_.clear();
}

bool TypeResolver::take(const TypeObjectPair& pair, rtps::Endianness endianness) {
    const TypeHash& hash = pair.id.hash;
    if (!pair.id.is_hashed() || unanswered_.count(hash) == 0)
        return false;
    if (!is_genuine(pair, endianness)) {
        MERIDIAN_LOG_WARNING("discovery", "type object %s does not match its hash", to_string(hash).c_str());
        return false;
    }
    if (pair.object.size > settings_.max_type_size) {
        refuse(hash, pair.object.size);
        return false;
    }
    switch (library_.add(hash, pair.object, endianness)) {
        case TypeLibrary::Added::yes:
            unanswered_.erase(hash);
            return true;
        case TypeLibrary::Added::known:
            unanswered_.erase(hash);
            break;
        case TypeLibrary::Added::malformed:
            MERIDIAN_LOG_WARNING("discovery", "type object %s is malformed", to_string(hash).c_str());
            break;
        case TypeLibrary::Added::too_large:
            MERIDIAN_LOG_WARNING("discovery", "type object %s is too large", to_string(hash).c_str());
            break;
    }
    return false;
}

void TypeResolver::refuse(const TypeHash& hash, uint64_t size) {
    unanswered_.erase(hash);
    for (auto at = pending_.begin(); at != pending_.end();) {
        Pending& pending = at->second;
        if (pending.asked_for.count(hash) != 0 &&
            is_too_large(library_.closure_size(pending.root) + size, pending.name, at->first)) {
            finish(pending, TypeRef());
            at = pending_.erase(at);
        } else {
            ++at;
        }
    }
}

void TypeResolver::take(const TypeLookupReply& reply, rtps::MonotonicTime now) {
    bool news = false;
    for (const TypeObjectPair& pair : reply.types)
        news = take(pair, reply.endianness) || news;
    if (!news)
        return;
    for (auto pending = pending_.begin(); pending != pending_.end();) {
        // A type that waits for other objects goes on waiting for the answer that is under way.
        const auto& asked_for = pending->second.asked_for;
        const bool answered = std::any_of(asked_for.begin(), asked_for.end(),
                                          [this](const TypeHash& hash) { return library_.has(hash); });
        pending = answered && advance(pending->first, pending->second, now) ? pending_.erase(pending)
                                                                            : std::next(pending);
    }
}

void TypeResolver::on_timer(rtps::MonotonicTime now) {
    for (auto at = pending_.begin(); at != pending_.end();) {
        Pending& pending = at->second;
        auto& waiting = pending.waiting;
        const auto expired = std::stable_partition(waiting.begin(), waiting.end(),
                                                   [now](const Waiting& entry) { return entry.until > now; });
        for (auto entry = expired; entry != waiting.end(); ++entry) {
            const rtps::GuidPrefix& silent = entry->endpoint.prefix;
            if (std::count(pending.answering.begin(), pending.answering.end(), silent) != 0)
                silent_.insert({at->first, silent});
            outcomes_.push_back({entry->endpoint, TypeRef()});
        }
        if (expired != waiting.end())
            MERIDIAN_LOG_WARNING("discovery",
                                 "type \"%s\": no participant sent its definition; its contents are unknown",
                                 pending.name.c_str());
        waiting.erase(expired, waiting.end());
        if (waiting.empty()) {
            at = pending_.erase(at);
            continue;
        }
        if (pending.retry_at <= now)
            ask(pending, now);
        ++at;
    }
}

rtps::MonotonicTime TypeResolver::next_deadline() const {
    rtps::MonotonicTime next = rtps::kNever;
    for (const auto& [key, pending] : pending_) {
        for (const Waiting& waiting : pending.waiting)
            next = std::min(next, waiting.until);
        if (!pending.waiting.empty() && !pending.answering.empty())
            next = std::min(next, pending.retry_at);
    }
    return next;
}

} // namespace meridian::types
