#pragma once

// Puts the samples of one writer together from their fragments (DDSI-RTPS 2.5, 8.3.8.3 and 8.4.14). Fragments
// come in any order, several times, and of several samples at once.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "rtps/protocol/times.h"
#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// Memory that all assemblers and out-of-order buffers of one reader share.
struct AssemblyBudget {
    size_t limit = 0;
    size_t used = 0;
    bool take(size_t bytes) {
        if (bytes > limit || used > limit - bytes)
            return false;
        used += bytes;
        return true;
    }
    void give_back(size_t bytes) { used -= bytes; }
};

class FragmentAssembler {
  public:
    enum class Result {
        stored,    // something new, not complete yet
        complete,  // the sample is whole: take it
        duplicate, // nothing new
        too_large, // beyond max_sample_size
        no_memory, // the budget is used up
        malformed, // fragment numbers, sizes and payload contradict each other
    };
    struct Assembled {
        SequenceNumber sequence_number = 0;
        ByteBuffer payload;
        bool payload_is_key = false;
        InlineQos inline_qos;
        WireTime timestamp = kTimeInvalid;
    };
    /// At most this many unfinished samples of one writer; beyond it the lowest sequence numbers stay, since
    /// they are delivered first.
    static constexpr size_t kMaxSamples = 64;

    /// budget must outlive the assembler.
    FragmentAssembler(AssemblyBudget& budget, size_t max_sample_size);
    ~FragmentAssembler();
    FragmentAssembler(const FragmentAssembler&) = delete;
    FragmentAssembler& operator=(const FragmentAssembler&) = delete;

    Result add(const DataFrag& fragment, WireTime timestamp, MonotonicTime now);
    /// The whole sample after add said complete; its buffer comes back with recycle to be used again.
    Assembled take(SequenceNumber sequence_number);
    void recycle(ByteBuffer&& buffer);

    bool has(SequenceNumber sequence_number) const;
    bool empty() const { return samples_.empty(); }
    /// The missing fragments of an unfinished sample, from the first missing one; false when there is no such
    /// sample.
    bool missing(SequenceNumber sequence_number, FragmentNumberSet& out) const;
    void drop(SequenceNumber sequence_number);
    void drop_below(SequenceNumber sequence_number);
    /// Drops the unfinished sample with the lowest or highest number; false when there is none.
    bool drop_lowest();
    bool drop_highest_above(SequenceNumber sequence_number);
    /// Drops samples to which nothing was added since before.
    void drop_idle(MonotonicTime before);
    void clear();

  private:
    struct Partial : Assembled {
        uint32_t sample_size = 0;
        uint16_t fragment_size = 0;
        FragmentNumber total = 0;
        FragmentNumber received = 0;
        MonotonicTime touched{0};
        std::vector<bool> have;
    };
    using Place = std::vector<Partial>::iterator;
    Place lower_bound(SequenceNumber sequence_number);
    Place find(SequenceNumber sequence_number);
    /// Gives its memory back. Returns the next one.
    Place erase(Place at);

    AssemblyBudget& budget_;
    size_t max_sample_size_;
    std::vector<Partial> samples_; // ascending sequence numbers
    ByteBuffer spare_bytes_;       // kept so that equal samples in a row allocate nothing
    std::vector<bool> spare_have_;
};

} // namespace meridian::rtps
