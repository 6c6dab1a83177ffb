#pragma once

#include <algorithm>

#include "meridian/cdr_stream.h"
#include "rtps/protocol/sinks.h"
#include "rtps/wire/guid_key.h"

namespace meridian::dcps {

inline DDS_GUID_t to_guid_t(const rtps::Guid& guid) {
    DDS_GUID_t out{};
    const rtps::KeyHash key = rtps::key_hash_of(guid);
    std::copy(key.begin(), key.end(), out.value);
    return out;
}

/// A received payload with its encapsulation header, in the byte order that the header names, as plugins are
/// handed it. The stream is only read: plugins get the bytes of the packet itself.
class PayloadStream {
  public:
    explicit PayloadStream(const rtps::Sample& sample)
        : source_{
              to_guid_t(sample.writer), {sample.vendor.bytes[0], sample.vendor.bytes[1]}, sample.fast_cdr} {
        auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(sample.payload.data));
        QUIXCdrStream_set(&stream_, bytes, static_cast<DDS_UnsignedLong>(sample.payload.size));
        stream_.source = &source_;
        DDS_Octet kind[2] = {};
        if (!QUIXCdrStream_readBytes(&stream_, kind, 2))
            return;
        stream_.currentPosition = stream_.buffer;
        // In all encapsulations the lowest bit of the kind is the byte order (DDSI-RTPS 2.5, clause 10.5).
        QUIXCdrStream_setEndian(&stream_, (kind[1] & 1) != 0 ? QUIX_CDR_ENDIAN_LITTLE : QUIX_CDR_ENDIAN_BIG);
    }
    PayloadStream(const PayloadStream&) = delete;
    PayloadStream& operator=(const PayloadStream&) = delete;

    QUIXCdrStream* get() { return &stream_; }

  private:
    QUIXCdrSource source_;
    QUIXCdrStream stream_;
};

} // namespace meridian::dcps
