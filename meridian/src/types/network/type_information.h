#pragma once

// Type information (OMG DDS-XTypes 1.3, 7.6.3.2): what an endpoint announces about its type in parameter
// 0x0075.

#include <vector>

#include "types/network/type_object.h"

namespace meridian::types {

struct TypeIdentifierWithSize {
    TypeIdentifier id;
    uint32_t serialized_size = 0; // of the type object, as the peer says
};

struct TypeIdentifierWithDependencies {
    TypeIdentifierWithSize type; // id of kind none when the peer does not announce this form
    /// May be incomplete: dependency_count is then larger than the list, or -1.
    std::vector<TypeIdentifierWithSize> dependencies;
    int32_t dependency_count = 0;

    bool present() const { return !type.id.is_none(); }
    /// Sizes of the type and the listed dependencies added up.
    uint64_t total_size() const;
};

struct TypeInformation {
    /// How it was serialized, and how the type objects are that its identifiers stand for.
    TypeObjectForm form = TypeObjectForm::xcdr2;
    TypeIdentifierWithDependencies minimal;
    TypeIdentifierWithDependencies complete;

    /// The complete form where it is announced, else the minimal one; null when there is neither.
    const TypeIdentifierWithDependencies* best() const;
};

/// Decodes the parameter's value. False, and `information` unspecified, when it is malformed. Peers
/// serialize it in the byte order of the message, which is almost always little. Fast DDS 2 puts an
/// encapsulation header in front, and it says which form and order follow.
bool decode(rtps::ByteView bytes, rtps::Endianness order, TypeInformation& information);

} // namespace meridian::types
