#include "rtps/wire/xcdr2_headers.h"

namespace meridian::rtps {

bool enter_delimited(ByteReader& reader, ByteReader& inner) {
    uint32_t size = 0;
    if (!reader.read(size))
        return false;
    inner = reader.take(size);
    return inner.ok();
}

bool next_member(ByteReader& reader, Xcdr2Member& member) {
    uint32_t header = 0;
    if (!reader.read(header))
        return false;
    member.must_understand = (header >> 31) != 0;
    member.id = header & 0x0fffffff;
    const uint32_t length_code = header >> 28 & 7;
    uint64_t size = uint64_t{1} << (length_code & 3);
    if (length_code >= 4) {
        // Codes above 4 share the number with the value: it is the value's own length, in units of 1, 4 or 8
        // bytes.
        ByteReader probe = reader;
        uint32_t next = 0;
        if (!probe.read(next))
            return reader.fail();
        constexpr uint64_t kUnits[] = {1, 1, 4, 8};
        size = next * kUnits[length_code - 4];
        if (length_code == 4)
            reader = probe;
        else
            size += sizeof next;
    }
    if (size > reader.remaining())
        return reader.fail();
    member.body = reader.take(static_cast<size_t>(size));
    return member.body.ok();
}

} // namespace meridian::rtps
