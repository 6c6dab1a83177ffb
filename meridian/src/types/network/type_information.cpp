#include "types/network/type_information.h"

#include <utility>

#include "rtps/wire/encapsulation.h"
#include "rtps/wire/xcdr2_headers.h"

namespace meridian::types {

using rtps::ByteReader;

namespace {

constexpr uint32_t kMinimalId = 0x1001;
constexpr uint32_t kCompleteId = 0x1002;

bool read_sized(ByteReader& outer, TypeObjectForm form, TypeIdentifierWithSize& out) {
    return read_delimited(form, outer, [&](ByteReader& reader) {
        return read(reader, out.id) && reader.read(out.serialized_size);
    });
}

bool read_with_dependencies(ByteReader& outer, TypeObjectForm form, TypeIdentifierWithDependencies& out) {
    const auto read_list = [&](ByteReader& list) {
        uint32_t count = 0;
        bool good = list.read_length(count, 8);
        for (uint32_t i = 0; good && i < count; ++i)
            good = read_sized(list, form, out.dependencies.emplace_back());
        return good;
    };
    return read_delimited(form, outer, [&](ByteReader& reader) {
        return read_sized(reader, form, out.type) && reader.read(out.dependency_count) &&
               read_delimited(form, reader, read_list);
    });
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
            good = read_with_dependencies(member.body, information.form, information.minimal);
        else if (member.id == kCompleteId)
            good = read_with_dependencies(member.body, information.form, information.complete);
        else
            good = !member.must_understand;
        if (!good)
            return false;
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
        if (encapsulation.encoding() != rtps::Encoding::cdr ||
            !read_with_dependencies(reader, other.form, other.minimal) ||
            !read_with_dependencies(reader, other.form, other.complete))
            return good;
    }
    information = std::move(other);
    return true;
}

} // namespace meridian::types
