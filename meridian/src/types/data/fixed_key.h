#pragma once

// The keys that most keyed topics have: numbers that stand behind nothing but numbers, at the same place in
// every sample. Finding them takes no walk through the sample, which a reader would otherwise make for each
// one.

#include <cstddef>
#include <optional>
#include <vector>

#include "rtps/wire/byte_writer.h"
#include "types/model/type.h"

namespace meridian::types {

class FixedKey {
  public:
    /// Nothing when the structure has other keys, or none.
    static std::optional<FixedKey> of(const Type& type);

    /// Writes the key members of a sample (encapsulation included) in order of their ids. False, with some of
    /// them written, when it is cut short or not in a plain encoding: only a walk finds out then.
    bool write(rtps::ByteView payload, rtps::ByteWriter& writer) const;

  private:
    struct Field {
        uint32_t id;
        size_t size;
        size_t offset_xcdr1; // from the first byte behind the encapsulation
        size_t offset_xcdr2;
    };

    std::vector<Field> fields_; // in order of their ids
};

} // namespace meridian::types
