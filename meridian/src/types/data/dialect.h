#pragma once

// Where serializers of the same version of CDR differ, and which way each writer goes.

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
    };
    Headers headers = Headers::standard;
    /// XCDR1: whether alignment still counts from the start of an optional or mutable member after it ended.
    bool origin_stays = true;
    /// Optional members are sent as if they were not: dynamic types of Fast DDS 3.1.
    bool optional_headers = true;
    /// XCDR1: mutable types are sent as if they were final, by serializers that know no parameter lists: Fast
    /// CDR 1.
    bool lists = true;
    /// Payloads of keys alone are plain whatever the type says, and in order of the member ids: Cyclone DDS.
    bool flat_keys = false;
};

enum class CdrVersion : uint8_t { xcdr1, xcdr2 };

/// The dialects in which a serializer may have written payloads of a type, the most likely first. `key_only`
/// payloads consist of the key members alone.
std::vector<CdrDialect> possible_dialects(const Type& type, CdrVersion version, bool key_only);

/// Who sent a payload; the default when that is not known.
struct SampleSource {
    rtps::Guid writer;
    rtps::VendorId vendor;
    bool is_known() const { return writer != rtps::Guid{}; }
};

/// Which dialect the last sample of each writer was in. A writer that is new is expected to do as the last
/// one of its vendor did. Any thread.
class DialectMemory {
  public:
    /// Of more writers than this, all are forgotten: each costs one sample a few trials.
    static constexpr size_t kMaxWriters = 4096;

    struct Choice {
        uint8_t dialect = 0; // index in the list of possible ones
        bool zeros = true;   // the payload was padded with zeros only
        friend bool operator==(const Choice& a, const Choice& b) {
            return a.dialect == b.dialect && a.zeros == b.zeros;
        }
    };

    /// `list` tells the lists of dialects of one type apart.
    std::optional<Choice> expected(const SampleSource& source, size_t list) const MERIDIAN_EXCLUDES(mutex_);
    void note(const SampleSource& source, size_t list, const Choice& choice) MERIDIAN_EXCLUDES(mutex_);

    static constexpr size_t kLists = 4;

  private:
    using Choices = std::array<std::optional<Choice>, kLists>;

    mutable Mutex mutex_;
    std::unordered_map<rtps::Guid, Choices> writers_ MERIDIAN_GUARDED_BY(mutex_);
    std::map<std::array<uint8_t, 2>, Choices> vendors_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::types
