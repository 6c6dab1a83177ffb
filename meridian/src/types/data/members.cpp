#include "types/data/members.h"

#include <algorithm>
#include <cstddef>
#include <tuple>

namespace meridian::types {

void append_key_members(const Type& type, bool outermost, std::vector<KeyMember>& members) {
    const bool only_keys = outermost || has_key_members(type);
    const size_t first = members.size();
    visit_members(type, [&](const Member& member) {
        if (member.key || !only_keys)
            members.push_back({&member, members.size()});
        return true;
    });
    // Not stable_sort, which allocates.
    std::sort(members.begin() + static_cast<std::ptrdiff_t>(first), members.end(),
              [](const KeyMember& a, const KeyMember& b) {
                  return std::tie(a.member->id, a.place) < std::tie(b.member->id, b.place);
              });
}

std::vector<KeyMember> key_members(const Type& type, bool outermost) {
    std::vector<KeyMember> members;
    append_key_members(type, outermost, members);
    return members;
}

} // namespace meridian::types
