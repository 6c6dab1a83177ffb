#include "dcps/reader/withheld_samples.h"

#include <algorithm>
#include <utility>

namespace meridian::dcps {

void WithheldSamples::begin(const rtps::Guid& writer, rtps::MonotonicTime now) {
    Withheld& withheld = writers_[writer];
    withheld.writer = writer;
    withheld.until = rtps::later(now, kLongest);
    next_ = std::min(next_, withheld.until);
}

WithheldSamples::Added WithheldSamples::add(const Change& change) {
    const auto found = writers_.find(change.writer);
    if (found == writers_.end())
        return Added::no;
    Withheld& withheld = found->second;
    const size_t bytes = sizeof change + change.bytes;
    if (withheld.changes.size() >= kMost || !share_.take(bytes))
        return Added::full;
    withheld.bytes += bytes;
    withheld.changes.push_back(change);
    return Added::yes;
}

bool WithheldSamples::add_end(const rtps::Guid& writer, const End& end) {
    const auto found = writers_.find(writer);
    if (found == writers_.end())
        return false;
    found->second.end = end;
    return true;
}

std::optional<WithheldSamples::Withheld> WithheldSamples::release(const rtps::Guid& writer) {
    const auto found = writers_.find(writer);
    if (found == writers_.end())
        return std::nullopt;
    Withheld withheld = std::move(found->second);
    share_.give_back(withheld.bytes);
    writers_.erase(found);
    if (writers_.empty())
        next_ = rtps::kNever;
    return withheld;
}

std::vector<WithheldSamples::Withheld> WithheldSamples::release_due(rtps::MonotonicTime now) {
    std::vector<Withheld> due;
    next_ = rtps::kNever;
    for (auto writer = writers_.begin(); writer != writers_.end();) {
        if (writer->second.until <= now) {
            share_.give_back(writer->second.bytes);
            due.push_back(std::move(writer->second));
            writer = writers_.erase(writer);
        } else {
            next_ = std::min(next_, writer->second.until);
            ++writer;
        }
    }
    return due;
}

} // namespace meridian::dcps
