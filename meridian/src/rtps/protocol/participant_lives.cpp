#include "rtps/protocol/participant_lives.h"

#include <algorithm>

#include "rtps/protocol/participant_announcer.h"

namespace meridian::rtps {

namespace {

// What Fast DDS announces of the process a participant is in. The second one only where the application chose
// the prefix: the one that it would have had otherwise, which has numbers of the process in it.
constexpr const char* kProcessProperties[] = {"fastdds.physical_data.process", "PID_PERSISTENCE_GUID"};

const ByteBuffer* incarnation(const ParticipantData& data) {
    return data.vendor == kOwnVendorId ? find_raw(data.raw, kIncarnationParameter) : nullptr;
}

template <typename Same>
bool shares(const LocatorList& a, const LocatorList& b, Same same) {
    return std::any_of(a.begin(), a.end(), [&](const Locator& x) {
        return std::any_of(b.begin(), b.end(), [&](const Locator& y) { return same(x, y); });
    });
}

} // namespace

bool another_life(const ParticipantData& a, const ParticipantData& b) {
    const ByteBuffer* first = incarnation(a);
    const ByteBuffer* second = incarnation(b);
    if (first != nullptr && second != nullptr)
        return *first != *second;
    for (const char* name : kProcessProperties) {
        const std::string* before = find_property(a.properties, name);
        const std::string* after = find_property(b.properties, name);
        if (before != nullptr && after != nullptr && *before != *after)
            return true;
    }
    if (!(a.vendor == b.vendor))
        return true;
    return !a.metatraffic_unicast.empty() && !b.metatraffic_unicast.empty() &&
           !shares(a.metatraffic_unicast, b.metatraffic_unicast,
                   [](const Locator& x, const Locator& y) { return x.port == y.port; });
}

bool shares_an_address(const ParticipantData& a, const ParticipantData& b) {
    return shares(a.metatraffic_unicast, b.metatraffic_unicast, [](const Locator& x, const Locator& y) {
        return x.kind == y.kind && x.address == y.address;
    });
}

bool same_content(const ParticipantData& a, const ParticipantData& b) {
    ParticipantData left = a;
    ParticipantData right = b;
    left.manual_liveliness_count = right.manual_liveliness_count = 0;
    return encode(left) == encode(right);
}

} // namespace meridian::rtps
