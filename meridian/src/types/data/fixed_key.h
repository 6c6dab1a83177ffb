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

    /// Writes the key of a serialized sample as key hashes of the XCDR1 form have it. False where it has to
    /// be walked to, also because the payload may not be what the type says.
    bool read(rtps::ByteView payload, rtps::KeyHash& key) const;

  private:
    struct Value {
        size_t size;
        // Offsets: in plain samples of both versions, and in the key.
        size_t in_xcdr1;
        size_t in_xcdr2;
        size_t in_key;
    };
    std::vector<Value> values_; // of the key, in the order of the sample; empty: it has to be walked to
};

} // namespace meridian::types
