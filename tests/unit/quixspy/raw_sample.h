#pragma once

#include <cstdint>
#include <vector>

#include "quixspy/DynamicTypePlugin.h"

namespace test {

using Bytes = std::vector<uint8_t>;

/// An opaque sample, as a reader delivers it.
class RawSample {
  public:
    RawSample() { DynamicType_initialize(&record); }
    ~RawSample() { DynamicType_finalize(&record); }
    RawSample(const RawSample&) = delete;
    RawSample& operator=(const RawSample&) = delete;

    /// Takes a payload that begins with its encapsulation header, in memory of exactly its size, so that an
    /// address sanitizer sees any step beyond it. `vendor` wrote it.
    bool set(Bytes payload, QUIXCdrSource vendor = {}) {
        DynamicType_finalize(&record);
        QUIXCdrStream source{};
        QUIXCdrStream_set(&source, reinterpret_cast<char*>(payload.data()),
                          static_cast<DDS_UnsignedLong>(payload.size()));
        source.source = &vendor;
        return DynamicType_copy_cdr_stream(&record.stream, &source, true);
    }

    DynamicType record{};
};

} // namespace test
