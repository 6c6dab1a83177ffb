#include "types/lookup/oversized_types.h"

#include "platform/log.h"

namespace meridian::types {

namespace {

constexpr unsigned kToldTooLarge = 5;
constexpr unsigned kToldTooLargeOfAll = 50;
constexpr rtps::Duration kMinute = std::chrono::minutes(1);

} // namespace

bool OversizedTypes::is_too_large(uint64_t size, const std::string& name, const rtps::GuidPrefix& participant,
                                  rtps::MonotonicTime now) {
    if (size <= limit_)
        return false;
    unsigned& types = types_[participant];
    if (types++ == 0)
        counts_.emplace_back(rtps::later(now, kMinute), participant);
    if (types <= kToldTooLarge && may_tell(now))
        MERIDIAN_LOG_ERROR(
            "discovery",
            "type \"%s\" takes %llu bytes, more than the %llu of type_code_max_serialized_length "
            "(-tcMaxSize): it is not used",
            name.c_str(), static_cast<unsigned long long>(size), static_cast<unsigned long long>(limit_));
    return true;
}

bool OversizedTypes::may_tell(rtps::MonotonicTime now) {
    if (now >= told_until_) {
        told_until_ = rtps::later(now, kMinute);
        told_ = 0;
    }
    if (++told_ == kToldTooLargeOfAll)
        MERIDIAN_LOG_ERROR("discovery",
                           "many participants announce types that are larger than -tcMaxSize allows: "
                           "no more of them are told for a minute");
    return told_ < kToldTooLargeOfAll;
}

void OversizedTypes::tell_too_large(const rtps::GuidPrefix& participant, rtps::MonotonicTime now) {
    const auto types = types_.find(participant);
    if (types == types_.end())
        return;
    if (types->second > kToldTooLarge && may_tell(now))
        MERIDIAN_LOG_ERROR("discovery", "%u more types of participant %s are larger than -tcMaxSize allows",
                           types->second - kToldTooLarge, rtps::to_string(participant).c_str());
    types_.erase(types);
}

rtps::MonotonicTime OversizedTypes::next_deadline() const {
    return counts_.empty() ? rtps::kNever : counts_.front().first;
}

void OversizedTypes::on_timer(rtps::MonotonicTime now) {
    for (; next_deadline() <= now; counts_.pop_front())
        tell_too_large(counts_.front().second, now);
}

} // namespace meridian::types
