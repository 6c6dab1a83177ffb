// What recorded type objects do not show: types in cycles, limits, and objects that contradict themselves.

#include "types/network/type_library.h"

#include <gtest/gtest.h>

#include <functional>

#include "types/model/md5.h"

using namespace meridian;
using namespace meridian::types;
using rtps::ByteBuffer;
using rtps::ByteWriter;

namespace {

/// Writes a DHEADER around what `body` writes.
void delimited(ByteWriter& writer, const std::function<void()>& body) {
    writer.write(uint32_t{0});
    const size_t start = writer.position();
    body();
    writer.patch(start - 4, static_cast<uint32_t>(writer.position() - start));
}

struct MemberSource {
    std::string name;
    TypeIdentifier type;
};

/// A complete structure as its serialized type object, in either byte order.
ByteBuffer structure(const std::string& name, const std::vector<MemberSource>& members,
                     const TypeIdentifier& base = TypeIdentifier(),
                     rtps::Endianness order = rtps::Endianness::little) {
    ByteBuffer bytes;
    ByteWriter writer(bytes, order, rtps::kXcdr2MaxAlignment);
    delimited(writer, [&] {
        writer.write(tk::kComplete);
        writer.write(tk::kStructure);
        writer.write(kTypeIsAppendable);
        delimited(writer, [&] {
            write(writer, base);
            writer.write_bool(false);
            writer.write_bool(false);
            writer.write_string(name);
        });
        delimited(writer, [&] {
            writer.write(static_cast<uint32_t>(members.size()));
            uint32_t id = 0;
            for (const MemberSource& member : members) {
                delimited(writer, [&] {
                    writer.write(id++);
                    writer.write(uint16_t{1});
                    write(writer, member.type);
                    writer.write_string(member.name);
                    writer.write_bool(false);
                    writer.write_bool(false);
                });
            }
        });
    });
    return bytes;
}

TypeHash in_cycle(int32_t index) {
    TypeHash hash;
    hash.kind = tk::kComplete;
    hash.bytes = {9, 9, 9};
    hash.component_length = 2;
    hash.component_index = index;
    return hash;
}

TypeIdentifier sequence_of(const TypeIdentifier& element) {
    TypeIdentifier id;
    id.kind = tk::kPlainSequenceSmall;
    id.equivalence = tk::kComplete;
    id.element = std::make_shared<TypeIdentifier>(element);
    return id;
}

TypeIdentifier primitive(uint8_t kind) {
    TypeIdentifier id;
    id.kind = kind;
    return id;
}

TypeHash numbered(uint8_t number) {
    TypeHash hash;
    hash.kind = tk::kComplete;
    hash.bytes[0] = number;
    return hash;
}

} // namespace

TEST(TypeLibrary, TypesThatReferToEachOther) {
    for (rtps::Endianness order : {rtps::Endianness::little, rtps::Endianness::big}) {
        TypeLibrary library;
        const TypeIdentifier first = TypeIdentifier::of(in_cycle(1));
        const TypeIdentifier second = TypeIdentifier::of(in_cycle(2));
        EXPECT_EQ(first.kind, tk::kStronglyConnected);
        EXPECT_EQ(library.add(first.hash,
                              structure("First", {{"seconds", sequence_of(second)}}, TypeIdentifier(), order),
                              order),
                  TypeLibrary::Added::yes);
        EXPECT_EQ(library.missing(first), std::vector<TypeHash>{second.hash});
        EXPECT_EQ(
            library.add(second.hash,
                        structure("Second", {{"first", sequence_of(first)}, {"n", primitive(tk::kInt8)}},
                                  TypeIdentifier(), order),
                        order),
            TypeLibrary::Added::yes);
        EXPECT_TRUE(library.missing(first).empty());
        std::string error;
        const TypeRef type = library.build(first, error);
        ASSERT_TRUE(type) << error;
        const Type* other = type->members[0].type->content;
        EXPECT_EQ(other->name, "Second");
        EXPECT_EQ(other->members[0].type->content, type.get());
        EXPECT_EQ(other->members[1].type->kind, DDS_TK_INT8);
        EXPECT_TRUE(equal(*type, *library.build(first, error)));
        EXPECT_FALSE(equal(*type, *library.build(second, error)));
    }
}

TEST(TypeLibrary, TheHashOfACycleCoversAllOfIt) {
    // First with zeros where the two refer to each other, since that is what their hash is made of.
    const auto objects = [](const TypeHash& base, rtps::Endianness order) {
        TypeHash first = base;
        TypeHash second = base;
        first.component_index = 1;
        second.component_index = 2;
        return std::vector<ByteBuffer>{
            structure("First", {{"seconds", sequence_of(TypeIdentifier::of(second))}}, {}, order),
            structure("Second", {{"first", sequence_of(TypeIdentifier::of(first))}}, {}, order)};
    };
    TypeHash hash = in_cycle(1);
    hash.bytes = {};
    const auto unnamed = objects(hash, rtps::Endianness::little);
    ByteBuffer all;
    ByteWriter writer(all, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
    delimited(writer, [&] {
        writer.write(uint32_t{2});
        for (const ByteBuffer& object : unnamed) {
            writer.align(4);
            writer.write_bytes(object);
        }
    });
    // Some peers leave the length out.
    for (const size_t start : {size_t{0}, size_t{4}}) {
        const auto digest = md5({all.data() + start, all.size() - start});
        std::copy_n(digest.begin(), hash.bytes.size(), hash.bytes.begin());
        for (rtps::Endianness order : {rtps::Endianness::little, rtps::Endianness::big}) {
            TypeLibrary library;
            const auto named = objects(hash, order);
            for (int32_t index : {1, 2}) {
                hash.component_index = index;
                EXPECT_EQ(library.add_genuine(hash, named[static_cast<size_t>(index) - 1], order),
                          TypeLibrary::Added::yes);
            }
            EXPECT_TRUE(library.forged_cycles(TypeIdentifier::of(hash)).empty());
            library.remove(hash);
            library.add_genuine(hash, structure("Third", {{"first", sequence_of(TypeIdentifier::of(hash))}}),
                                rtps::Endianness::little);
            EXPECT_EQ(library.forged_cycles(TypeIdentifier::of(hash)), std::vector<TypeHash>{hash});
        }
    }
}

TEST(TypeLibrary, TheSameObjectIsKeptOnce) {
    TypeLibrary library;
    const ByteBuffer bytes = structure("S", {{"a", primitive(tk::kByte)}});
    EXPECT_EQ(library.add(numbered(1), bytes), TypeLibrary::Added::yes);
    EXPECT_EQ(library.add(numbered(1), bytes), TypeLibrary::Added::known);
    EXPECT_EQ(library.closure_size(TypeIdentifier::of(numbered(1))), bytes.size());
    TypeHash minimal = numbered(2);
    minimal.kind = tk::kMinimal;
    EXPECT_EQ(library.add(minimal, bytes), TypeLibrary::Added::malformed);
    EXPECT_EQ(library.add(numbered(3), ByteBuffer(TypeLibrary::kMaxObjectSize + 1)),
              TypeLibrary::Added::too_large);
    EXPECT_EQ(library.add(numbered(3), ByteBuffer{1, 2, 3}), TypeLibrary::Added::malformed);
}

TEST(TypeLibrary, StructuresAreNotTheirOwnBases) {
    TypeLibrary library;
    const TypeIdentifier one = TypeIdentifier::of(numbered(1));
    const TypeIdentifier two = TypeIdentifier::of(numbered(2));
    library.add(one.hash, structure("One", {}, two));
    library.add(two.hash, structure("Two", {}, one));
    std::string error;
    EXPECT_FALSE(library.build(one, error));
    EXPECT_NE(error.find("contradicts itself"), std::string::npos) << error;
}

TEST(TypeLibrary, NestingHasALimit) {
    TypeLibrary library;
    for (uint8_t i = 0; i < 250; ++i) {
        library.add(numbered(i),
                    structure("S", {{"m", TypeIdentifier::of(numbered(static_cast<uint8_t>(i + 1)))}}));
    }
    library.add(numbered(250), structure("Last", {}));
    std::string error;
    EXPECT_FALSE(library.build(TypeIdentifier::of(numbered(0)), error));
    EXPECT_EQ(error, "types nest deeper than 128");
    EXPECT_TRUE(library.build(TypeIdentifier::of(numbered(200)), error)) << error;
}

TEST(TypeLibrary, NamesArePrintable) {
    TypeLibrary library;
    library.add(numbered(1),
                structure("\x1b[2J\xff", {{"a\nb\x7f\xc2\x9b\xc2\xa9\u2028\u202e", primitive(tk::kByte)}}));
    std::string error;
    const TypeRef type = library.build(TypeIdentifier::of(numbered(1)), error);
    ASSERT_TRUE(type) << error;
    EXPECT_EQ(type->name, "_[2J\xef\xbf\xbd");
    EXPECT_EQ(type->members[0].name, "a_b__\xc2\xa9__");
}

TEST(TypeLibrary, NamesHaveALimit) {
    const std::string longest(256, 'n');
    TypeLibrary library;
    library.add(numbered(1), structure(longest, {{longest, primitive(tk::kByte)}}));
    library.add(numbered(2), structure(longest + "n", {}));
    library.add(numbered(3), structure("S", {{longest + "n", primitive(tk::kByte)}}));
    std::string error;
    EXPECT_TRUE(library.build(TypeIdentifier::of(numbered(1)), error)) << error;
    EXPECT_FALSE(library.build(TypeIdentifier::of(numbered(2)), error));
    EXPECT_EQ(error, "a name of more than 256 characters");
    error.clear();
    EXPECT_FALSE(library.build(TypeIdentifier::of(numbered(3)), error));
    EXPECT_EQ(error, "a name of more than 256 characters");
}

TEST(TypeEquality, IdsOfUnionMembersCountWhereSamplesHoldThem) {
    const auto make = [](uint32_t first_id, DDS_ExtensibilityKind extensibility) {
        TypeGraph* graph = TypeGraph::create();
        Type* made = graph->add();
        made->kind = DDS_TK_UNION;
        made->name = "U";
        made->extensibility = extensibility;
        made->discriminator = graph->primitive(DDS_TK_LONG);
        Member member;
        member.name = "a";
        member.id = first_id;
        member.labels = {1};
        member.type = graph->primitive(DDS_TK_SHORT);
        made->members.push_back(member);
        return TypeRef::adopt(made);
    };
    for (const auto kind : {DDS_FINAL_EXTENSIBILITY, DDS_EXTENSIBLE_EXTENSIBILITY})
        EXPECT_TRUE(equal(*make(0, kind), *make(1, kind)));
    EXPECT_FALSE(equal(*make(0, DDS_MUTABLE_EXTENSIBILITY), *make(1, DDS_MUTABLE_EXTENSIBILITY)));
    EXPECT_FALSE(equal(*make(0, DDS_FINAL_EXTENSIBILITY), *make(0, DDS_EXTENSIBLE_EXTENSIBILITY)));
}
