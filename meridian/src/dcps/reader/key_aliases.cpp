#include "dcps/reader/key_aliases.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

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

std::unique_ptr<KeyForms> KeyForms::of(const DDS_TypeCode* type) {
    if (type == nullptr)
        return nullptr;
    std::unique_ptr<KeyForms> forms(new KeyForms(*types::from_type_code(type)));
    // Short keys of a type whose keys are digested: some makers digest them too, some do not.
    const bool alike =
        forms->hasher_.forms_agree() && !forms->hasher_.is_digest(types::KeyHasher::Form::xcdr1);
    return forms->hasher_.is_keyed() && !alike ? std::move(forms) : nullptr;
}

void KeyForms::note(const types::SampleSource& source, rtps::ByteView payload, bool key_only,
                    const rtps::KeyHash& key, KeyAliases& aliases) {
    std::string failure;
    hashes_.clear();
    if (!hasher_.compute_all(payload, key_only, hashes_, failure, source) ||
        std::find(hashes_.begin(), hashes_.end(), key) == hashes_.end())
        return;
    for (const rtps::KeyHash& hash : hashes_) {
        if (hash != key)
            aliases.note(source.writer, hash, key);
    }
}

} // namespace meridian::dcps
