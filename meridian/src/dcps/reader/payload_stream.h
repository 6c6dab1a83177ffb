#pragma once

#include "meridian/cdr_stream.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

/// Points the stream at a payload with its encapsulation header, in the byte order that the header names. The
/// stream is only read: plugins get the bytes of the packet itself.
inline void bind_stream(rtps::ByteView payload, QUIXCdrStream& stream) {
    auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(payload.data));
    QUIXCdrStream_set(&stream, bytes, static_cast<DDS_UnsignedLong>(payload.size));
    DDS_Octet kind[2] = {};
    if (!QUIXCdrStream_readBytes(&stream, kind, 2))
        return;
    stream.currentPosition = stream.buffer;
    // In all encapsulations the lowest bit of the kind is the byte order (DDSI-RTPS 2.5, clause 10.5).
    QUIXCdrStream_setEndian(&stream, (kind[1] & 1) != 0 ? QUIX_CDR_ENDIAN_LITTLE : QUIX_CDR_ENDIAN_BIG);
}

} // namespace meridian::dcps
