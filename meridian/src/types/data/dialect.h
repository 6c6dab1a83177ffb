#pragma once

// Where serializers of the same version of CDR differ. Each serializer that is known is one row of a table in
// dialect.cpp. To teach the reader another quirk, add it to CdrDialect, to the rows and to where forms that a
// type does not tell apart are left out, and obey it in CdrWalker.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>

#include "platform/mutex.h"
#include "rtps/wire/types.h"
#include "types/model/type.h"

namespace meridian::types {

struct CdrDialect {
    enum class WideText : uint8_t {
        octets, // a wide string's length counts octets, as the standard has it
        units,  // it counts characters of two octets: Fast CDR 2
        quads,  // it counts characters of four octets, and a wide character takes four: Fast CDR 1
        big, // it counts octets, and is big-endian always; a wide character too, and behind an octet that is
             // its length: OpenDDS up to 3.15
    };
    WideText wide_text = WideText::octets;
    /// XCDR2: which collections have a header. Collections of primitives have none, of structures and strings
    /// always.
    enum class Headers : uint8_t {
        standard, // also those of enumerators and bit masks, maps that are not of primitives only, and arrays
                  // of arrays
        flat,     // the same, but arrays of arrays count as one array: Cyclone DDS
        few, // arrays of arrays count as one, enumerators and bit masks as primitives, keys not at all: Fast
             // CDR 2
        dynamic, // as few, but arrays of arrays have headers: dynamic types of Fast DDS 3
    };
    Headers headers = Headers::standard;
    bool has_few_headers() const { return headers == Headers::few || headers == Headers::dynamic; }
    /// XCDR1: the header of an optional or mutable member, of an absent one too, moves the origin of
    /// alignment for all that follows it: Fast CDR 2. Else only for the member.
    bool one_origin = true;
    /// Optional members are sent as if they were not: dynamic types of Fast DDS 3.1.
    bool optional_headers = true;
    /// XCDR1: mutable types are sent as if they were final, by serializers that know no parameter lists: Fast
    /// CDR 1.
    bool lists = true;
    /// A long double is the 80 bits of an x86 processor, and whatever stood in the six octets behind: Fast
    /// CDR.
    bool x86_long_double = false;
    /// Bit sets take at least so many octets: Fast DDS does not announce fields without a name.
    uint8_t bitset_octets = 1;
    /// Payloads of keys alone are plain whatever the type says, and in order of the member ids: Cyclone DDS
    /// 0.10.
    bool flat_keys = false;
    /// Discriminators of less than 32 bits are compared without their sign with labels that have theirs, so a
    /// negative label selects nothing: Cyclone DDS.
    bool unsigned_discriminators = false;
    /// The client and the number of the request stand before the content: services of ROS 2 on Cyclone DDS.
    bool request_header = false;
    static constexpr size_t kRequestHeaderSize = 16;
    /// Alignment counts from the encapsulation header: OpenDDS up to 3.13, unless its DCPSRTISerialization is
    /// set.
    bool origin_at_header = false;
    /// XCDR1: the members of a mutable type end with parameter 1, as lists of discovery do: Dust DDS.
    bool rtps_list_end = false;
    /// XCDR2: as the length in octets, members of mutable types that are sequences of numbers have how many
    /// numbers there are: Dust DDS.
    bool counts_as_lengths = false;

    friend bool operator==(const CdrDialect& a, const CdrDialect& b);
};

enum class CdrVersion : uint8_t { xcdr1, xcdr2 };

/// Who may have made a serializer, as a writer and its participant tell.
enum class Maker : uint8_t { unknown, fast_cdr, fast_cdr_1, fast_cdr_2, cyclone_dds, dust_dds, open_dds_1 };
constexpr size_t kMakers = 7;

struct PossibleDialect {
    CdrDialect dialect;
    bool expected = true;    // the maker is known to write so
    bool judge_gaps = false; // samples may fit others too, but for values where these have gaps
};
/// The dialects in which payloads of a type may be written, the most likely first. `key_only` payloads
/// consist of the key members alone.
std::vector<PossibleDialect> possible_dialects(const Type& type, CdrVersion version, bool key_only,
                                               Maker maker);

/// Who sent a payload; the default when that is not known.
struct SampleSource {
    rtps::Guid writer;
    rtps::VendorId vendor;
    uint8_t fast_cdr = 0; // see rtps::Quirks
    bool is_known() const { return writer != rtps::Guid{}; }
};
Maker maker_of(const SampleSource& source);

/// Which dialect the last sample of each writer was in. A writer that is new is expected to do as the last
/// one of its vendor did. Any thread.
class DialectMemory {
  public:
    /// Of more writers than this, all are forgotten: each costs one sample a few trials.
    static constexpr size_t kMaxWriters = 4096;

    struct Choice {
        uint8_t dialect = 0; // index in the list of its maker's possible ones
        bool clean = true;   // nothing in the payload spoke against it
        friend bool operator==(const Choice& a, const Choice& b) {
            return a.dialect == b.dialect && a.clean == b.clean;
        }
    };

    /// `list` tells the lists of dialects of one type apart, which each maker has four of.
    std::optional<Choice> expected(const SampleSource& source, size_t list) const MERIDIAN_EXCLUDES(mutex_);
    void note(const SampleSource& source, size_t list, const Choice& choice) MERIDIAN_EXCLUDES(mutex_);

    static constexpr size_t kLists = 4 * kMakers;

  private:
    using Choices = std::array<std::optional<Choice>, kLists>;

    mutable Mutex mutex_;
    std::unordered_map<rtps::Guid, Choices> writers_ MERIDIAN_GUARDED_BY(mutex_);
    std::map<std::array<uint8_t, 2>, Choices> vendors_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::types
