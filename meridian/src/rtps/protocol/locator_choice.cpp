#include "rtps/protocol/locator_choice.h"

#include <algorithm>

namespace meridian::rtps {

bool is_multicast(const Locator& locator) {
    if (locator.kind == kLocatorUdpV4)
        return (locator.address[12] & 0xf0) == 0xe0;
    return locator.kind == kLocatorUdpV6 && locator.address[0] == 0xff;
}

bool announces_udp(const LocatorList& locators) {
    return std::any_of(locators.begin(), locators.end(), [](const Locator& locator) {
        return locator.kind == kLocatorUdpV4 || locator.kind == kLocatorUdpV6;
    });
}

LocatorList choose_locators(const LocatorList& announced, const Locator& announced_from, const Output& output,
                            const LocatorList& current) {
    const Locator* best = nullptr;
    int best_preference = 0;
    int best_tie = 0;
    for (const Locator& locator : announced) {
        if ((locator.kind != kLocatorUdpV4 && locator.kind != kLocatorUdpV6) || locator.port == 0 ||
            locator.port > 0xffff || is_multicast(locator))
            continue;
        const int preference = output.preference(locator, announced_from);
        if (preference <= 0)
            continue;
        int tie = 0;
        if (std::find(current.begin(), current.end(), locator) != current.end())
            tie = 2;
        else if (locator.kind == announced_from.kind && locator.address == announced_from.address)
            tie = 1;
        if (best == nullptr || preference > best_preference ||
            (preference == best_preference && tie > best_tie)) {
            best = &locator;
            best_preference = preference;
            best_tie = tie;
        }
    }
    return best != nullptr ? LocatorList{*best} : LocatorList{};
}

} // namespace meridian::rtps
