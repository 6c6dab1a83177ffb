#include "meridian/cdr_stream.h"

#include <cstring>
#include <new>

#include "rtps/wire/byte_reader.h"

using meridian::rtps::Endianness;
using meridian::rtps::native_endianness;
using meridian::rtps::padding_to;

namespace {

DDS_Octet native_order() {
    return native_endianness() == Endianness::little ? QUIX_CDR_ENDIAN_LITTLE : QUIX_CDR_ENDIAN_BIG;
}

/// The only place that looks at the bytes: the next `count` of them behind the padding of `alignment`, which
/// the position then stands behind. Null, and no move, when they are not there.
const char* advance(QUIXCdrStream& stream, size_t alignment, size_t count) {
    const auto offset = static_cast<size_t>(stream.currentPosition - stream.alignmentOrigin);
    const size_t padding = padding_to(offset, alignment);
    const size_t remaining = QUIXCdrStream_remaining(&stream);
    if (padding > remaining || count > remaining - padding)
        return nullptr;
    char* start = stream.currentPosition + padding;
    stream.currentPosition = start + count;
    return start;
}

template <typename T>
bool read(QUIXCdrStream* stream, T* value) {
    const char* bytes = advance(*stream, sizeof(T), sizeof(T));
    if (bytes == nullptr)
        return false;
    std::memcpy(value, bytes, sizeof(T));
    if (stream->needByteSwap)
        *value = meridian::rtps::detail::swap_bytes(*value);
    return true;
}

} // namespace

QUIXCdrStream* QUIXCdrStream_new() {
    auto* stream = new (std::nothrow) QUIXCdrStream{};
    if (stream != nullptr)
        stream->endian = stream->nativeEndian = native_order();
    return stream;
}

void QUIXCdrStream_delete(QUIXCdrStream* stream) {
    delete stream;
}

void QUIXCdrStream_set(QUIXCdrStream* stream, char* buffer, DDS_UnsignedLong length) {
    *stream = QUIXCdrStream{};
    stream->buffer = stream->alignmentOrigin = stream->relativeBuffer = stream->currentPosition = buffer;
    stream->bufferLength = length;
    stream->endian = stream->nativeEndian = native_order();
}

void QUIXCdrStream_setEndian(QUIXCdrStream* stream, DDS_Octet endian) {
    stream->endian = endian;
    stream->needByteSwap = endian != stream->nativeEndian;
}

DDS_UnsignedLong QUIXCdrStream_remaining(const QUIXCdrStream* stream) {
    const auto passed = static_cast<size_t>(stream->currentPosition - stream->buffer);
    return passed < stream->bufferLength ? stream->bufferLength - static_cast<DDS_UnsignedLong>(passed) : 0;
}

bool QUIXCdrStream_align(QUIXCdrStream* stream, DDS_UnsignedLong alignment) {
    return advance(*stream, alignment, 0) != nullptr;
}

bool QUIXCdrStream_read1(QUIXCdrStream* stream, DDS_Octet* value) {
    return read(stream, value);
}
bool QUIXCdrStream_read2(QUIXCdrStream* stream, DDS_UnsignedShort* value) {
    return read(stream, value);
}
bool QUIXCdrStream_read4(QUIXCdrStream* stream, DDS_UnsignedLong* value) {
    return read(stream, value);
}

bool QUIXCdrStream_readBytes(QUIXCdrStream* stream, void* target, DDS_UnsignedLong count) {
    const char* bytes = advance(*stream, 1, count);
    if (bytes == nullptr)
        return false;
    if (count > 0)
        std::memcpy(target, bytes, count);
    return true;
}

bool QUIXCdrStream_readString(QUIXCdrStream* stream, const char** value, DDS_UnsignedLong maximumLength) {
    char* const start = stream->currentPosition;
    DDS_UnsignedLong length = 0;
    const char* text = nullptr;
    if (QUIXCdrStream_read4(stream, &length) && length > 0 && length <= maximumLength)
        text = advance(*stream, 1, length);
    if (text == nullptr || text[length - 1] != '\0') {
        stream->currentPosition = start;
        return false;
    }
    *value = text;
    return true;
}

bool QUIXCdrStream_readWideStringLength(QUIXCdrStream* stream, DDS_UnsignedLong* count,
                                        DDS_UnsignedLong maximumCount) {
    char* const start = stream->currentPosition;
    DDS_UnsignedLong octets = 0;
    const bool fits = QUIXCdrStream_read4(stream, &octets) && octets % 2 == 0 && octets / 2 <= maximumCount &&
                      octets <= QUIXCdrStream_remaining(stream);
    if (fits)
        *count = octets / 2;
    else
        stream->currentPosition = start;
    return fits;
}
