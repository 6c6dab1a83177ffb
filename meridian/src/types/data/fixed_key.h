#pragma once

// The short way to most keys: where all members up to the last of the key are primitive values, the key
// stands at the same place in every sample, whatever the dialect, and nothing has to be walked.

#include <vector>

#include "rtps/wire/types.h"
#include "types/model/type.h"

namespace meridian::types {

class FixedKey {
  public:
    /// Keys of integers and characters that fit in a key hash as they stand. Of other types it knows nothing.
    explicit FixedKey(const Type& type);

    /// Writes the key of a serialized sample as key hashes have it, in the XCDR1 or XCDR2 form. False where
    /// it has to be walked to, also because the payload may not be what the type says.
    bool read(rtps::ByteView payload, bool xcdr2_form, rtps::KeyHash& key) const;

  private:
    struct InForm {
        size_t xcdr1;
        size_t xcdr2;
    };
    struct Value {
        size_t size;
        InForm in_sample; // offsets, of plain samples
        InForm in_key;
    };
    std::vector<Value> values_; // of the key, in the order of the sample; empty: it has to be walked to
};

} // namespace meridian::types
