#include "rtps/wire/parameter_ids.h"

#include <algorithm>
#include <iterator>

namespace meridian::rtps::pid {

namespace {

#define MERIDIAN_PARAMETER_ROW(name, id, flags) {id, flags, #name},
constexpr Info kTable[] = {MERIDIAN_PARAMETERS(MERIDIAN_PARAMETER_ROW)};
#undef MERIDIAN_PARAMETER_ROW

constexpr bool ids_ascend() {
    for (size_t i = 1; i < std::size(kTable); ++i) {
        if (kTable[i - 1].id >= kTable[i].id)
            return false;
    }
    return true;
}
static_assert(ids_ascend(), "find searches by halves");

} // namespace

const Info* find(uint16_t id) {
    const Info* row = std::lower_bound(std::begin(kTable), std::end(kTable), id,
                                       [](const Info& info, uint16_t wanted) { return info.id < wanted; });
    return row != std::end(kTable) && row->id == id ? row : nullptr;
}

} // namespace meridian::rtps::pid
