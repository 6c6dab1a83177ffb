#pragma once

// A serialized sample and a position in it: how type plugins are handed the bytes of a sample, and how
// callers walk the copy of one. Every read is checked against the end of the buffer (DDS-XTypes 1.3, 7.4;
// DDSI-RTPS 2.5, clause 10).

#include "meridian/base.h"
#include "meridian/guid.h"

constexpr DDS_Octet QUIX_CDR_ENDIAN_BIG = 0;
constexpr DDS_Octet QUIX_CDR_ENDIAN_LITTLE = 1;

/// Who wrote a received sample: serializers differ.
struct QUIXCdrSource {
    DDS_GUID_t writer;
    DDS_Octet vendorId[2];
    DDS_Octet fastCdr; // Fast DDS: the generation of its serializer, 1 or 2; 0: not known
};

/// A plain record. The maker of the stream says who owns `buffer`; the operations below never free or
/// reallocate it. Not thread-safe.
struct QUIXCdrStream {
    char* buffer;          // first byte
    char* alignmentOrigin; // alignment counts from here
    char* relativeBuffer;  // start of the sample that nested streams count from
    DDS_UnsignedLong bufferLength;
    char* currentPosition;
    DDS_Boolean needByteSwap;
    DDS_Octet endian;       // of the bytes
    DDS_Octet nativeEndian; // of this machine
    DDS_UnsignedShort encapsulationKind;
    DDS_UnsignedShort encapsulationOptions;
    DDS_UnsignedLong dirtyBit; // state of nested reading; zero in a fresh stream
    DDS_UnsignedLong nestingLevel;
    /// Of a received sample, during the call that hands out the stream; else null.
    const QUIXCdrSource* source;
    /// Bytes that the owner of the buffer has there, which may be more than the stream is of. For the owner
    /// alone; 0 in a fresh stream.
    DDS_UnsignedLong capacity;
    DDS_Octet vendorId[2]; // of the writer, for those who keep a copy without `source`; zero: not known
    DDS_Octet fastCdr;     // likewise
};

/// A zeroed stream object without a buffer, with the native byte order set; null when memory is short.
QUIXCdrStream* QUIXCdrStream_new();
/// Deletes the object, not its buffer; null is allowed.
void QUIXCdrStream_delete(QUIXCdrStream* stream);
/// Points the stream at `length` bytes, position and origins at their start, and native byte order.
void QUIXCdrStream_set(QUIXCdrStream* stream, char* buffer, DDS_UnsignedLong length);
/// Sets the byte order of the bytes, and with it whether they must be swapped.
void QUIXCdrStream_setEndian(QUIXCdrStream* stream, DDS_Octet endian);

/// Bytes between the position and the end.
DDS_UnsignedLong QUIXCdrStream_remaining(const QUIXCdrStream* stream);
/// Moves the position up to a multiple of `alignment` (1, 2, 4 or 8) from the alignment origin. False, and no
/// move, when that lies beyond the end.
bool QUIXCdrStream_align(QUIXCdrStream* stream, DDS_UnsignedLong alignment);

/// Align to the size, read in the byte order of the stream and advance. False, and the position unchanged,
/// when the bytes do not suffice.
bool QUIXCdrStream_read1(QUIXCdrStream* stream, DDS_Octet* value);
bool QUIXCdrStream_read2(QUIXCdrStream* stream, DDS_UnsignedShort* value);
bool QUIXCdrStream_read4(QUIXCdrStream* stream, DDS_UnsignedLong* value);
/// Copies `count` bytes as they stand.
bool QUIXCdrStream_readBytes(QUIXCdrStream* stream, void* target, DDS_UnsignedLong count);
/// A string with its 4-byte length, terminator included. *value points into the stream and is NUL-terminated
/// there; false when the length exceeds maximumLength (terminator included) or the bytes, or no terminator
/// ends it.
bool QUIXCdrStream_readString(QUIXCdrStream* stream, const char** value, DDS_UnsignedLong maximumLength);
/// The 4-byte length of a wide string: an even number of octets, without terminator (DDS-XTypes 1.3, 7.4.1).
/// *count is the number of 16-bit characters, which follow and are read with QUIXCdrStream_read2. False, and
/// the position unchanged, when there are more than maximumCount or not all of them are there.
bool QUIXCdrStream_readWideStringLength(QUIXCdrStream* stream, DDS_UnsignedLong* count,
                                        DDS_UnsignedLong maximumCount);
