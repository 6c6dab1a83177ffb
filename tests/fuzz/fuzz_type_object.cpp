// Type objects, identifiers and type information as peers send them.

#include <cstdlib>

#include "types/network/type_information.h"
#include "types/network/type_library.h"

using namespace meridian;
using namespace meridian::types;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const auto order = (data[0] & 1) != 0 ? rtps::Endianness::big : rtps::Endianness::little;
    const rtps::ByteView bytes(data + 1, size - 1);
    TypeInformation information;
    if (decode(bytes, order, information) && information.best() != nullptr)
        to_string(information.best()->type.id.hash);
    TypeLibrary library;
    rtps::ByteReader reader(bytes, order, rtps::kXcdr2MaxAlignment);
    std::vector<TypeObjectPair> pairs;
    read_pairs(reader, pairs);
    for (const TypeObjectPair& pair : pairs) {
        if (pair.id.is_hashed())
            library.add_genuine(pair.id.hash, pair.object, order);
    }
    canonical(bytes, order);
    TypeLibrary whole;
    TypeHash any;
    any.kind = tk::kComplete;
    std::string reason;
    TypeObject plain;
    if (decode_plain(bytes, plain) && whole.add(any, plain, bytes.size) == TypeLibrary::Added::yes)
        whole.build(TypeIdentifier::of(any), reason);
    TypeHash hash;
    for (uint8_t kind : {tk::kMinimal, tk::kComplete}) {
        hash.kind = kind;
        library.add(hash, bytes, order);
        const TypeIdentifier root = TypeIdentifier::of(hash);
        library.forged_cycles(root);
        std::string error;
        const TypeRef type = library.build(root, error);
        if (static_cast<bool>(type) != error.empty() || (type && !equal(*type, *library.build(root, error))))
            std::abort();
    }
    return 0;
}
