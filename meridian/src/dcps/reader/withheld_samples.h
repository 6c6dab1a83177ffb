#pragma once

// What writers sent whose announcement the application has not been given yet: it is to know a writer before
// it gets its samples. A plain data structure: not thread-safe; the reader that owns it locks.

#include <chrono>
#include <deque>
#include <optional>
#include <unordered_map>
#include <vector>

#include "dcps/reader/reader_cache.h"

namespace meridian::dcps {

class WithheldSamples {
  public:
    /// After this time the samples come all the same.
    static constexpr rtps::Duration kLongest = std::chrono::seconds(1);
    /// Beyond this many samples of one writer they come all the same.
    static constexpr size_t kMost = 10000;

    /// What is withheld is taken from the share, which must outlive this.
    explicit WithheldSamples(MemoryShare& share) : share_(share) {}
    ~WithheldSamples() { release_due(rtps::kNever); }
    WithheldSamples(const WithheldSamples&) = delete;
    WithheldSamples& operator=(const WithheldSamples&) = delete;

    struct End {
        DDS_Time_t when = DDS_TIME_INVALID;
        rtps::MonotonicTime received{0};
    };
    /// Of one writer, in the order in which it happened.
    struct Withheld {
        rtps::Guid writer;
        std::deque<Change> changes;
        size_t bytes = 0;
        std::optional<End> end; // the writer is gone
        rtps::MonotonicTime until = rtps::kNever;
    };

    bool empty() const { return writers_.empty(); }
    /// Withholds what this writer sends from now on.
    void begin(const rtps::Guid& writer, rtps::MonotonicTime now);
    enum class Added {
        no, // the writer is not withheld
        yes,
        full, // no; the caller is to release the writer, and what is added comes behind
    };
    Added add(const Change& change);
    /// Likewise for the end of the writer; true when it is withheld.
    bool add_end(const rtps::Guid& writer, const End& end);

    /// Ends the withholding. Nothing where the writer is not withheld.
    std::optional<Withheld> release(const rtps::Guid& writer);
    /// The same for all whose time is over.
    std::vector<Withheld> release_due(rtps::MonotonicTime now);
    /// Never later than anything that is due, possibly earlier.
    rtps::MonotonicTime next_deadline() const { return next_; }

  private:
    MemoryShare& share_;
    std::unordered_map<rtps::Guid, Withheld> writers_;
    rtps::MonotonicTime next_ = rtps::kNever;
};

} // namespace meridian::dcps
