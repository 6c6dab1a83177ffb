#pragma once

// The members of structures in the order in which keys hold them.

#include <vector>

#include "types/model/type.h"

namespace meridian::types {

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
