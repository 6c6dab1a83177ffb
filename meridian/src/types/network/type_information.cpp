#include "types/network/type_information.h"

#include <utility>

#include "rtps/wire/xcdr2_headers.h"

namespace meridian::types {

using rtps::ByteReader;

namespace {

constexpr uint32_t kMinimalId = 0x1001;
constexpr uint32_t kCompleteId = 0x1002;

bool read_with_size(ByteReader& outer, TypeIdentifierWithSize& out) {
    ByteReader reader;
    return enter_delimited(outer, reader) && read(reader, out.id) && reader.read(out.serialized_size);
}

bool read_with_dependencies(ByteReader& outer, TypeIdentifierWithDependencies& out) {
    ByteReader reader;
    if (!enter_delimited(outer, reader) || !read_with_size(reader, out.type) ||
        !reader.read(out.dependency_count))
        return false;
    ByteReader list;
    uint32_t count = 0;
    if (!enter_delimited(reader, list) || !list.read_length(count, 8))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        TypeIdentifierWithSize dependency;
        if (!read_with_size(list, dependency))
            return false;
        out.dependencies.push_back(std::move(dependency));
    }
    return true;
}

} // namespace

uint64_t TypeIdentifierWithDependencies::total_size() const {
    uint64_t total = type.serialized_size;
    for (const TypeIdentifierWithSize& dependency : dependencies)
        total += dependency.serialized_size;
    return total;
}

const TypeIdentifierWithDependencies* TypeInformation::best() const {
    if (complete.present())
        return &complete;
    return minimal.present() ? &minimal : nullptr;
}

bool decode(rtps::ByteView bytes, rtps::Endianness order, TypeInformation& information) {
    information = TypeInformation();
    ByteReader outer(bytes, order, rtps::kXcdr2MaxAlignment);
    ByteReader reader;
    if (!enter_delimited(outer, reader))
        return false;
    while (reader.remaining() >= 4) {
        rtps::Xcdr2Member member;
        if (!next_member(reader, member))
            return false;
        bool good = true;
        if (member.id == kMinimalId)
            good = read_with_dependencies(member.body, information.minimal);
        else if (member.id == kCompleteId)
            good = read_with_dependencies(member.body, information.complete);
        else
            good = !member.must_understand;
        if (!good)
            return false;
    }
    return true;
}

} // namespace meridian::types
