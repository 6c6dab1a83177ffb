#include "dcps/reader/key_aliases.h"

#include <algorithm>
#include <string>
#include <utility>

namespace meridian::dcps {

void KeyAliases::note(const rtps::Guid& writer, const rtps::KeyHash& sent, const rtps::KeyHash& key) {
    const auto of_writer = writers_.find(writer);
    Alias* alias = nullptr;
    if (of_writer != writers_.end()) {
        const auto known = of_writer->second.find(sent);
        alias = known != of_writer->second.end() ? &known->second : nullptr;
    }
    if (sent == key) {
        // Nothing to keep, unless the hash meant something else before.
        if (alias != nullptr)
            drop(*alias);
        return;
    }
    if (alias != nullptr) {
        by_use_.remove(*alias, &Alias::by_use);
    } else {
        while (count_ >= kMost || !share_.take(kBytes)) {
            if (count_ == 0)
                return;
            drop(*by_use_.first());
        }
        OfWriter& aliases = writers_[writer];
        const auto made = aliases.try_emplace(sent).first;
        alias = &made->second;
        alias->sent = &made->first;
        alias->of_writer = &aliases;
        ++count_;
    }
    alias->key = key;
    by_use_.append(*alias, &Alias::by_use);
}

void KeyAliases::drop(Alias& alias) {
    by_use_.remove(alias, &Alias::by_use);
    alias.of_writer->erase(rtps::KeyHash(*alias.sent));
    share_.give_back(kBytes);
    --count_;
}

void KeyAliases::forget(const rtps::Guid& writer) {
    const auto known = writers_.find(writer);
    if (known == writers_.end())
        return;
    while (!known->second.empty())
        drop(known->second.begin()->second);
    writers_.erase(known);
}

rtps::KeyHash KeyAliases::instance_of(const rtps::Guid& writer, const rtps::KeyHash& sent) const {
    const auto known = writers_.find(writer);
    if (known == writers_.end())
        return sent;
    const auto alias = known->second.find(sent);
    return alias == known->second.end() ? sent : alias->second.key;
}

std::unique_ptr<KeyForms> KeyForms::of(const DDS_TypeCode* type) {
    if (type == nullptr)
        return nullptr;
    std::unique_ptr<KeyForms> forms(new KeyForms(*types::from_type_code(type)));
    // Short keys of a type whose keys are digested: some makers digest them too, some do not.
    const bool alike = forms->hasher_.forms_agree() && !forms->hasher_.is_digest();
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
