#include "meridian/guid.h"

namespace {

DDS_UnsignedLong word_at(const DDS_Octet* bytes) {
    return DDS_UnsignedLong{bytes[0]} << 24 | DDS_UnsignedLong{bytes[1]} << 16 |
           DDS_UnsignedLong{bytes[2]} << 8 | DDS_UnsignedLong{bytes[3]};
}

} // namespace

void DDS_GUID_copy_to_pres_guid(const DDS_GUID_t& guid, PRESGuid* out) {
    if (out == nullptr)
        return;
    out->hostId = word_at(guid.value);
    out->appId = word_at(guid.value + 4);
    out->instanceId = word_at(guid.value + 8);
    out->entityId = word_at(guid.value + 12);
}
