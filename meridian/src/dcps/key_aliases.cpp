#include "dcps/key_aliases.h"

#include <cstring>

namespace meridian::dcps {

size_t KeyAliases::Hasher::operator()(const rtps::KeyHash& key) const noexcept {
    // What differs is mostly a digest, so that any part of it spreads.
    size_t part = 0;
    std::memcpy(&part, key.data(), sizeof part);
    return part;
}

void KeyAliases::note(const rtps::Guid& writer, const rtps::KeyHash& sent, const rtps::KeyHash& key) {
    const auto known = writers_.find(writer);
    if (sent == key) {
        // Nothing to keep, unless the hash meant something else before.
        if (known != writers_.end())
            known->second.erase(sent);
        return;
    }
    auto& aliases = known != writers_.end() ? known->second : writers_[writer];
    if (aliases.size() >= kMaxPerWriter && aliases.count(sent) == 0)
        aliases.clear();
    aliases[sent] = key;
}

rtps::KeyHash KeyAliases::instance_of(const rtps::Guid& writer, const rtps::KeyHash& sent) const {
    const auto known = writers_.find(writer);
    if (known == writers_.end())
        return sent;
    const auto alias = known->second.find(sent);
    return alias == known->second.end() ? sent : alias->second;
}

} // namespace meridian::dcps
