#include "rtps/protocol/makers.h"

#include <algorithm>

#include "rtps/wire/byte_reader.h"

namespace meridian::rtps {

namespace {

const ByteBuffer* raw_parameter(const ParticipantData& data, uint16_t id) {
    const auto at = std::find_if(data.raw.begin(), data.raw.end(),
                                 [id](const RawParameter& parameter) { return parameter.id == id; });
    return at != data.raw.end() ? &at->value : nullptr;
}

// -- Releases

bool any_release(const ParticipantData&) {
    return true;
}

bool fast_dds_from_3(const ParticipantData& data) {
    const ByteBuffer* version = raw_parameter(data, 0x8000);
    return version != nullptr && !version->empty() && version->front() >= 3;
}

/// These announce a network configuration.
bool fast_dds_from_2_12(const ParticipantData& data) {
    return raw_parameter(data, 0x8007) != nullptr;
}

/// Newer ones announce flags.
bool open_dds_to_3_13(const ParticipantData& data) {
    return raw_parameter(data, 0xb005) == nullptr;
}

/// Newer ones say in their flags that they count fractions, as the standard has it.
bool open_dds_without_fractions(const ParticipantData& data) {
    constexpr uint32_t kFractions = 8;
    const ByteBuffer* parameter = raw_parameter(data, 0xb005);
    uint32_t flags = 0;
    return parameter == nullptr || !ByteReader(*parameter, data.raw_endianness).read(flags) ||
           (flags & kFractions) == 0;
}

// -- The table; the first row that fits counts

struct Row {
    VendorId maker;
    bool (*releases)(const ParticipantData&);
    Quirks quirks;
};

constexpr uint8_t kOfFastDds = kHearsOwnAddressesOnly | kPreemptedByZero;

constexpr Row kRows[] = {
    {kFastDds, fast_dds_from_3, {kOfFastDds, 2}},
    {kFastDds, fast_dds_from_2_12, {kOfFastDds, 0}}, // can be built with either serializer
    {kFastDds, any_release, {kOfFastDds, 1}},
    {kOpenDds, open_dds_to_3_13, {kCountsNanoseconds | kKnowsNoEmptyRange, 1}}, // seen of 3.13
    {kOpenDds, open_dds_without_fractions, {kCountsNanoseconds}},
    {kDustDds, any_release, {kSendsFragmentsBehind | kNamesMissDefault}}, // seen of 0.16
};

} // namespace

Quirks quirks_of(const ParticipantData& data) {
    for (const Row& row : kRows) {
        if (row.maker == data.vendor && row.releases(data))
            return row.quirks;
    }
    return {};
}

} // namespace meridian::rtps
