#pragma once

// Puts the samples of one writer together from their fragments (DDSI-RTPS 2.5, 8.3.8.3 and 8.4.14). Fragments
// come in any order, several times, and of several samples at once.

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/memory_budget.h"
#include "rtps/protocol/growing_buffer.h"
#include "rtps/protocol/sinks.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// Memory comes as fragments come, not as they are announced, and all of it is charged to a share.
class FragmentAssembler {
  public:
    enum class Result {
        stored,    // something new, not complete yet
        complete,  // the sample is whole
        duplicate, // nothing new
        too_large, // beyond max_sample_size
        too_many,  // kMaxSamples are unfinished, all of them before this one
        too_far,   // too far behind what has come of the sample
        no_memory, // the share gives no more
        malformed, // fragment numbers, sizes and payload contradict each other or what came first
    };
    /// At most this many unfinished samples of one writer; beyond it the lowest sequence numbers stay, since
    /// they are delivered first.
    static constexpr size_t kMaxSamples = 64;
    /// A fragment is taken when at least a quarter of what is before its end has come, but for this much:
    /// so one packet cannot take the memory of a large sample.
    static constexpr size_t kHeadStart = size_t{16} << 10;

    /// The share must outlive the assembler. It is charged with what is really taken.
    FragmentAssembler(MemoryShare& share, size_t max_sample_size);
    ~FragmentAssembler();
    FragmentAssembler(const FragmentAssembler&) = delete;
    FragmentAssembler& operator=(const FragmentAssembler&) = delete;

    Result add(const DataFrag& fragment, WireTime timestamp, MonotonicTime now);
    /// After add said complete, until the sample is dropped. Without what its writer is, and the time.
    const Sample& whole(SequenceNumber sequence_number) const { return *find(sequence_number); }
    bool is_whole(SequenceNumber sequence_number) const;
    /// The bytes of a whole sample, which is dropped. The caller gives their capacity back to the share.
    GrowingBuffer take(SequenceNumber sequence_number);

    bool has(SequenceNumber sequence_number) const { return find(sequence_number) != nullptr; }
    bool empty() const { return samples_.empty(); }
    /// Of what is there, which is something.
    SequenceNumber lowest() const { return samples_.front()->sequence_number; }
    /// The missing fragments of an unfinished sample, from the first missing one; false when there is no such
    /// sample.
    bool missing(SequenceNumber sequence_number, FragmentNumberSet& out);
    void drop(SequenceNumber sequence_number);
    /// Those that drop samples say how many of these were unfinished.
    size_t drop_below(SequenceNumber sequence_number);
    /// Drops the unfinished sample with the lowest or highest number; false when there is none.
    bool drop_lowest();
    bool drop_highest_above(SequenceNumber sequence_number);
    /// Drops samples to which nothing was added since before.
    size_t drop_idle(MonotonicTime before);
    void clear();

  private:
    struct Partial : Sample {
        uint32_t sample_size = 0;
        uint16_t fragment_size = 0;
        FragmentNumber total = 0;
        FragmentNumber received = 0;
        FragmentNumber first_missing = 0; // those below have come
        uint64_t received_bytes = 0;
        MonotonicTime touched{0};
        GrowingBuffer bytes;
        std::vector<bool> have; // as far as fragments have come
        size_t charged = 0;
    };
    using Samples = std::vector<std::unique_ptr<Partial>>;
    /// Where it is, or belongs.
    Samples::difference_type place(SequenceNumber sequence_number) const;
    Partial* find(SequenceNumber sequence_number) const;
    std::unique_ptr<Partial> begin(const DataFrag& fragment, WireTime timestamp);
    /// Of the numbers in it; `stored` when they fit each other and the limit.
    Result check(const DataFrag& fragment) const;
    /// For what the submessage brings; `stored` when there is room.
    Result make_room(const DataFrag& fragment, Partial& partial);
    /// False: it brings nothing that was not there.
    static bool copy(const DataFrag& fragment, Partial& partial);
    /// Gives its memory back, or keeps it for the next sample.
    void retire(std::unique_ptr<Partial> partial);
    void erase(Samples::difference_type place);

    MemoryShare& share_;
    size_t max_sample_size_;
    Samples samples_;                // ascending sequence numbers
    std::unique_ptr<Partial> spare_; // kept so that equal samples in a row allocate nothing
};

} // namespace meridian::rtps
