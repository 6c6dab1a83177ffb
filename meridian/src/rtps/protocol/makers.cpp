#include "rtps/protocol/makers.h"

#include "rtps/wire/byte_reader.h"

namespace meridian::rtps {

namespace {

// -- Releases

bool fast_dds_from_3(const ParticipantData& data) {
    const ByteBuffer* version = find_raw(data.raw, 0x8000);
    return version != nullptr && !version->empty() && version->front() >= 3;
}

/// These announce a network configuration.
bool fast_dds_from_2_12(const ParticipantData& data) {
    return find_raw(data.raw, 0x8007) != nullptr;
}

/// Newer ones announce flags.
bool open_dds_to_3_13(const ParticipantData& data) {
    return find_raw(data.raw, 0xb005) == nullptr;
}

/// Newer ones say in their flags that they count fractions, as the standard has it.
bool open_dds_without_fractions(const ParticipantData& data) {
    constexpr uint32_t kFractions = 8;
    const ByteBuffer* parameter = find_raw(data.raw, 0xb005);
    uint32_t flags = 0;
    return parameter == nullptr || !ByteReader(*parameter, data.raw_endianness).read(flags) ||
           (flags & kFractions) == 0;
}

// -- The table; the first row that fits counts

struct Row {
    VendorId maker;
    bool (*releases)(const ParticipantData&); // null: all
    Quirks quirks;
};

constexpr uint16_t kOfFastDds = kHearsOwnAddressesOnly | kPreemptedByZero;

constexpr Row kRows[] = {
    {kOpenSplice, nullptr, {kServiceSpeaksForNode | kMarksDataAsKeys}}, // seen of 6.9
    {kFastDds, fast_dds_from_3, {kOfFastDds, 2}},
    {kFastDds, fast_dds_from_2_12, {kOfFastDds, 0}}, // can be built with either serializer
    {kFastDds, nullptr, {kOfFastDds, 1}},
    {kOpenDds, open_dds_to_3_13, {kCountsNanoseconds | kKnowsNoEmptyRange, 1}}, // seen of 3.13
    {kOpenDds, open_dds_without_fractions, {kCountsNanoseconds}},
    {kEmbeddedRtps, nullptr, {kRefusesNewParameters | kHasLittleRoom}},
    {kDustDds, nullptr, {kSendsFragmentsBehind | kNamesMissDefault}}, // seen of 0.16
};

} // namespace

Quirks quirks_of(const ParticipantData& data) {
    for (const Row& row : kRows) {
        if (row.maker == data.vendor && (row.releases == nullptr || row.releases(data)))
            return row.quirks;
    }
    return {};
}

} // namespace meridian::rtps
