#pragma once

// The members of structures in the orders in which samples and keys hold them.

#include <algorithm>
#include <vector>

#include "types/model/type.h"

namespace meridian::types {

/// Calls visit(member) for each member in the order of the wire, those of the outermost base first, until it
/// returns false.
template <typename Visit>
bool visit_members(const Type& type, Visit visit) {
    if (type.base != nullptr && !visit_members(*type.base, visit))
        return false;
    return std::all_of(type.members.begin(), type.members.end(), visit);
}

/// Whether a structure, or one of its bases, has key members.
bool has_key_members(const Type& type);
/// A member in the order of a key.
struct KeyMember {
    const Member* member;
    size_t place; // in the order of the wire, for members of the same id
};
/// Appends the members of a structure that belong to a key, in order of their ids. A structure inside a key
/// that has no key members of its own belongs to it whole.
void append_key_members(const Type& type, bool outermost, std::vector<KeyMember>& members);
/// The same as a list.
std::vector<KeyMember> key_members(const Type& type, bool outermost);

} // namespace meridian::types
