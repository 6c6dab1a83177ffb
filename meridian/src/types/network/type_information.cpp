#include "types/network/type_information.h"

#include <utility>

#include "rtps/wire/encapsulation.h"
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

bool decode_members(ByteReader outer, TypeInformation& information) {
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

bool read_plain(ByteReader& reader, TypeIdentifierWithSize& out) {
    return read(reader, out.id) && reader.read(out.serialized_size);
}

bool read_plain(ByteReader& reader, TypeIdentifierWithDependencies& out) {
    uint32_t count = 0;
    if (!read_plain(reader, out.type) || !reader.read(out.dependency_count) || !reader.read_length(count, 8))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        TypeIdentifierWithSize dependency;
        if (!read_plain(reader, dependency))
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
    // Without a header it begins with its length, which may look like a header: so this form comes first.
    const bool good = decode_members(ByteReader(bytes, order, rtps::kXcdr2MaxAlignment), information);
    if (good && information.best() != nullptr)
        return true;
    rtps::Encapsulation encapsulation;
    rtps::ByteView body;
    if (!rtps::read_encapsulation(bytes, encapsulation, body))
        return good;
    TypeInformation other;
    if (encapsulation.encoding() == rtps::Encoding::pl_cdr2) {
        if (!decode_members(ByteReader(body, encapsulation.endianness(), rtps::kXcdr2MaxAlignment), other))
            return good;
    } else {
        other.form = TypeObjectForm::plain;
        ByteReader reader(body, encapsulation.endianness(), rtps::kXcdr1MaxAlignment);
        if (encapsulation.encoding() != rtps::Encoding::cdr || !read_plain(reader, other.minimal) ||
            !read_plain(reader, other.complete))
            return good;
    }
    information = std::move(other);
    return true;
}

} // namespace meridian::types
