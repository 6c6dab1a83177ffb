#include "types/network/type_object.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "corpus.h"
#include "types/model/md5.h"
#include "types/network/type_information.h"

using namespace meridian;
using namespace meridian::types;

namespace {

const test::CorpusType* find(const std::vector<test::CorpusType>& corpus, const std::string& name) {
    const auto found =
        std::find_if(corpus.begin(), corpus.end(), [&name](const auto& type) { return type.name == name; });
    EXPECT_NE(found, corpus.end()) << name;
    return found == corpus.end() ? nullptr : &*found;
}

const Member& member(const Type& type, const std::string& name) {
    static const Member none;
    for (const Member& candidate : type.members) {
        if (candidate.name == name)
            return candidate;
    }
    ADD_FAILURE() << type.name << " has no member " << name;
    return none;
}

} // namespace

TEST(TypeObject, HashesOfThePeersAreOurs) {
    size_t checked = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        std::vector<TypeObjectPair> pairs;
        ASSERT_TRUE(test::read_objects(type, pairs)) << type.name;
        for (const TypeObjectPair& pair : pairs) {
            EXPECT_EQ(hash_of(pair.object, pair.id.kind == tk::kComplete), pair.id.hash) << type.name;
            ++checked;
        }
    }
    EXPECT_GT(checked, 200u);
}

TEST(TypeObject, RecordedObjectsAreCanonical) {
    size_t padding = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        std::vector<TypeObjectPair> pairs;
        ASSERT_TRUE(test::read_objects(type, pairs)) << type.name;
        for (const TypeObjectPair& pair : pairs) {
            const rtps::ByteBuffer object(pair.object.begin(), pair.object.end());
            EXPECT_EQ(canonical(object, rtps::Endianness::little), object) << type.name;
            // Garbage in all padding at once: the zeros that may be anything without a change of what is
            // read.
            rtps::ByteBuffer garbage = object;
            for (size_t i = 0; i < object.size(); ++i) {
                rtps::ByteBuffer changed = object;
                changed[i] = 0xa5;
                if (object[i] == 0 && canonical(changed, rtps::Endianness::little) == object) {
                    garbage[i] = 0xa5;
                    ++padding;
                }
            }
            const auto again = canonical(garbage, rtps::Endianness::little);
            EXPECT_EQ(hash_of(again, pair.id.kind == tk::kComplete), pair.id.hash) << type.name;
        }
    }
    EXPECT_GT(padding, 1000u);
}

namespace {

/// A structure with one annotated member; in either byte order, with that octet as padding.
rtps::ByteBuffer annotated_structure(rtps::Endianness order, uint8_t filler) {
    rtps::ByteBuffer bytes;
    rtps::ByteWriter writer(bytes, order, rtps::kXcdr2MaxAlignment);
    std::vector<size_t> open;
    const auto pad_to = [&](size_t alignment) {
        while (bytes.size() % alignment != 0)
            bytes.push_back(filler);
    };
    const auto begin = [&] {
        pad_to(4);
        writer.write(uint32_t{0});
        open.push_back(bytes.size());
    };
    const auto end = [&] {
        writer.patch(open.back() - 4, static_cast<uint32_t>(bytes.size() - open.back()));
        open.pop_back();
    };
    const auto text = [&](const char* value) {
        pad_to(4);
        writer.write_string(value);
    };
    const auto number = [&](auto value) {
        pad_to(std::min<size_t>(sizeof value, 4));
        writer.write(value);
    };
    const auto flag = [&](bool value) { writer.write_bool(value); };
    begin();
    number(tk::kComplete);
    number(tk::kStructure);
    number(uint16_t{1});
    begin(); // header
    number(tk::kNone);
    flag(true);
    begin(); // built-in annotations of the type
    flag(true);
    begin();
    text("end");
    text("c++");
    text("some text");
    end();
    end();
    flag(false);
    text("ab");
    end();
    begin(); // members
    number(uint32_t{1});
    begin();
    number(uint32_t{7});
    number(uint16_t{1});
    number(tk::kInt64);
    text("x");
    flag(true);
    begin(); // unit, minimum, maximum, hashed name
    flag(true);
    text("km");
    flag(true);
    number(tk::kInt64);
    number(int64_t{-258});
    flag(true);
    number(tk::kFloat32);
    number(1.5F);
    flag(false);
    end();
    flag(true);
    begin(); // custom annotations
    number(uint32_t{1});
    begin();
    number(tk::kComplete);
    writer.write_bytes(std::array<uint8_t, 14>{1, 2, 3});
    flag(true);
    begin();
    number(uint32_t{1});
    begin();
    writer.write_bytes(std::array<uint8_t, 4>{1, 2, 3, 4});
    number(tk::kInt16);
    number(int16_t{-2});
    end();
    end();
    end();
    end();
    end();
    end();
    end();
    return bytes;
}

} // namespace

TEST(TypeObject, TheCanonicalFormIsLittleEndianWithoutGarbage) {
    const rtps::ByteBuffer wanted = annotated_structure(rtps::Endianness::little, 0);
    EXPECT_EQ(canonical(wanted, rtps::Endianness::little), wanted);
    const rtps::ByteBuffer garbage = annotated_structure(rtps::Endianness::little, 0xc3);
    EXPECT_NE(garbage, wanted);
    EXPECT_EQ(canonical(garbage, rtps::Endianness::little), wanted);
    const rtps::ByteBuffer big = annotated_structure(rtps::Endianness::big, 0xc3);
    EXPECT_EQ(canonical(big, rtps::Endianness::big), wanted);
    for (size_t size = 0; size < big.size(); ++size)
        EXPECT_TRUE(canonical({big.data(), size}, rtps::Endianness::big).empty());
}

TEST(TypeObject, InformationNamesTheTypeAndItsDependencies) {
    for (const test::CorpusType& type : test::read_corpus("cyclone.corpus")) {
        TypeInformation information;
        ASSERT_TRUE(decode(type.information, rtps::Endianness::little, information)) << type.name;
        ASSERT_EQ(information.best(), &information.complete);
        std::vector<TypeObjectPair> pairs;
        ASSERT_TRUE(test::read_objects(type, pairs));
        for (const TypeIdentifierWithDependencies* form : {&information.minimal, &information.complete}) {
            EXPECT_EQ(static_cast<size_t>(form->dependency_count), form->dependencies.size());
            TypeLibrary library;
            // Without objects, the root is missing; with the root, its dependencies are, until all were
            // added.
            EXPECT_EQ(library.missing(form->type.id), std::vector<TypeHash>{form->type.id.hash});
            for (int round = 0; round < 20 && !library.missing(form->type.id).empty(); ++round) {
                std::string error;
                EXPECT_FALSE(library.build(form->type.id, error));
                EXPECT_NE(error.find("missing"), std::string::npos) << error;
                for (const TypeHash& hash : library.missing(form->type.id)) {
                    for (const TypeObjectPair& pair : pairs) {
                        if (pair.id.hash == hash) {
                            EXPECT_EQ(library.add(hash, pair.object), TypeLibrary::Added::yes);
                        }
                    }
                }
            }
            std::string error;
            EXPECT_TRUE(library.build(form->type.id, error)) << type.name << ": " << error;
            EXPECT_EQ(library.closure_size(form->type.id), form->total_size()) << type.name;
        }
    }
}

TEST(TypeObject, CompleteTypesHaveNamesIdsAndFlags) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    const TypeRef changeable = test::build_type(*find(corpus, "corpus::Changeable"));
    ASSERT_TRUE(changeable);
    EXPECT_EQ(changeable->name, "corpus::Changeable");
    EXPECT_EQ(changeable->extensibility, DDS_MUTABLE_EXTENSIBILITY);
    EXPECT_EQ(member(*changeable, "l").id, 77u);
    EXPECT_TRUE(member(*changeable, "must").must_understand);
    EXPECT_EQ(member(*changeable, "raw").type->dimensions, std::vector<uint32_t>{3});
    EXPECT_EQ(member(*changeable, "c").type->kind, DDS_TK_ENUM);
    EXPECT_EQ(member(*changeable, "c").type->members[2].name, "BLUE");
    EXPECT_EQ(member(*changeable, "c").type->members[2].value, 2);

    const TypeRef hashed = test::build_type(*find(corpus, "corpus::Hashed"));
    EXPECT_EQ(member(*hashed, "first").id, hashed_member_id("first"));
    EXPECT_EQ(member(*hashed, "third").id, hashed_member_id("other"));

    const TypeRef masks = test::build_type(*find(corpus, "corpus::Masks"));
    EXPECT_EQ(member(*masks, "m64").type->bit_bound, 64);
    EXPECT_EQ(member(*masks, "m64").type->members[1].value, 63);

    const TypeRef derived = test::build_type(*find(corpus, "corpus::MoreDerived"));
    EXPECT_EQ(derived->kind, DDS_TK_VALUE);
    EXPECT_EQ(derived->base->name, "corpus::Derived");
    EXPECT_EQ(derived->base->base->kind, DDS_TK_STRUCT);

    const TypeRef on_long = test::build_type(*find(corpus, "corpus::OnLong"));
    EXPECT_EQ(on_long->kind, DDS_TK_UNION);
    EXPECT_EQ(on_long->default_index, 2);
    EXPECT_EQ(on_long->members[1].labels, (std::vector<int32_t>{2, 3}));

    const TypeRef aliases = test::build_type(*find(corpus, "corpus::Aliases"));
    const Type* numbers = aliases->members[1].type;
    EXPECT_EQ(numbers->kind, DDS_TK_ALIAS);
    EXPECT_EQ(numbers->name, "corpus::Numbers");
    EXPECT_EQ(resolve_alias(numbers)->kind, DDS_TK_ARRAY);
    EXPECT_EQ(resolve_alias(member(*aliases, "t").type)->bound, 12u);

    const TypeRef optionals = test::build_type(*find(corpus, "corpus::OptionalsFinal"));
    EXPECT_TRUE(member(*optionals, "a").optional);
    EXPECT_FALSE(member(*optionals, "f").optional);
    const TypeRef keyed = test::build_type(*find(corpus, "corpus::KeyTwo"));
    EXPECT_TRUE(member(*keyed, "a").key);
    EXPECT_FALSE(member(*keyed, "c").key);
}

TEST(TypeObject, MembersOfMinimalTypesAreNamedByTheirIds) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    const TypeRef changeable = test::build_type(*find(corpus, "corpus::Changeable"), false);
    ASSERT_TRUE(changeable);
    EXPECT_TRUE(changeable->nameless);
    EXPECT_TRUE(changeable->name.empty());
    EXPECT_EQ(member(*changeable, "77").id, 77u);
    EXPECT_EQ(member(*changeable, "17").type->members[2].name, "2");
}

TEST(TypeObject, EqualTypesAreEqualAndOthersAreNot) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    std::vector<TypeRef> types;
    std::vector<TypeRef> again;
    for (const test::CorpusType& type : corpus) {
        types.push_back(test::build_type(type));
        again.push_back(test::build_type(type));
    }
    for (size_t i = 0; i < types.size(); ++i) {
        for (size_t j = 0; j < again.size(); ++j)
            EXPECT_EQ(equal(*types[i], *again[j]), i == j) << types[i]->name << " " << again[j]->name;
        EXPECT_FALSE(equal(*types[i], *test::build_type(corpus[i], false))) << corpus[i].name;
    }
}

TEST(TypeObject, MinimalTypesHaveTheSamplesOfTheirCompleteOnesAlone) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    std::vector<TypeRef> complete;
    for (const test::CorpusType& type : corpus)
        complete.push_back(test::build_type(type));
    for (size_t i = 0; i < corpus.size(); ++i) {
        const TypeRef minimal = test::build_type(corpus[i], false);
        for (size_t j = 0; j < corpus.size(); ++j) {
            // Some differ in bounds and names of types only.
            const bool same = have_equal_samples(*complete[i], *complete[j]);
            EXPECT_TRUE(same || i != j);
            EXPECT_EQ(have_equal_samples(*minimal, *complete[j]), same) << corpus[i].name << corpus[j].name;
        }
    }
}

TEST(TypeObject, EveryTruncationAndBitFlipIsTakenOrRefused) {
    size_t refused = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        std::vector<TypeObjectPair> pairs;
        ASSERT_TRUE(test::read_objects(type, pairs));
        for (const TypeObjectPair& pair : pairs) {
            TypeObject object;
            for (size_t size = 0; size < pair.object.size; ++size) {
                rtps::ByteBuffer cut(pair.object.begin(), pair.object.begin() + size);
                rtps::ByteReader reader(cut, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
                EXPECT_FALSE(read(reader, object)) << type.name << " cut to " << size;
            }
            rtps::ByteBuffer flipped(pair.object.begin(), pair.object.end());
            for (size_t bit = 0; bit < flipped.size() * 8; ++bit) {
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
                TypeLibrary library;
                if (library.add(pair.id.hash, flipped) == TypeLibrary::Added::yes) {
                    std::string error;
                    const bool built =
                        static_cast<bool>(library.build(TypeIdentifier::of(pair.id.hash), error));
                    EXPECT_EQ(built, error.empty());
                } else {
                    ++refused;
                }
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
            }
        }
    }
    EXPECT_GT(refused, 1000u);
}

TEST(TypeIdentifier, EveryKindRoundTrips) {
    const auto pointer = [](uint8_t kind) {
        auto id = std::make_shared<TypeIdentifier>();
        id->kind = kind;
        return id;
    };
    std::vector<TypeIdentifier> ids;
    TypeIdentifier id;
    id.kind = tk::kUint8;
    ids.push_back(id);
    id.kind = tk::kString8Small;
    id.bound = 200;
    ids.push_back(id);
    id.kind = tk::kString16Large;
    id.bound = 70000;
    ids.push_back(id);
    id.kind = tk::kPlainSequenceSmall;
    id.equivalence = 0xf3; // both
    id.element_flags = 1;
    id.bound = 9;
    id.element = pointer(tk::kInt32);
    ids.push_back(id);
    id.kind = tk::kPlainMapLarge;
    id.bound = 300;
    id.key_flags = 2;
    id.key = pointer(tk::kString8Small);
    ids.push_back(id);
    id.kind = tk::kPlainMapSmall;
    id.bound = 30;
    ids.push_back(id);
    id = TypeIdentifier();
    id.kind = tk::kPlainArraySmall;
    id.equivalence = 0xf3; // both
    id.dimensions = {2, 3};
    id.element = pointer(tk::kChar16);
    ids.push_back(id);
    id.kind = tk::kPlainArrayLarge;
    id.dimensions = {2000, 3, 4};
    ids.push_back(id);
    TypeHash hash;
    hash.kind = tk::kComplete;
    hash.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    ids.push_back(TypeIdentifier::of(hash));
    hash.component_length = 3;
    hash.component_index = 2;
    ids.push_back(TypeIdentifier::of(hash));
    for (rtps::Endianness order : {rtps::Endianness::little, rtps::Endianness::big}) {
        rtps::ByteBuffer bytes;
        rtps::ByteWriter writer(bytes, order, rtps::kXcdr2MaxAlignment);
        for (const TypeIdentifier& written : ids)
            write(writer, written);
        rtps::ByteReader reader(bytes, order, rtps::kXcdr2MaxAlignment);
        rtps::ByteBuffer again;
        rtps::ByteWriter rewriter(again, order, rtps::kXcdr2MaxAlignment);
        for (const TypeIdentifier& written : ids) {
            TypeIdentifier back;
            ASSERT_TRUE(read(reader, back)) << int{written.kind};
            write(rewriter, back);
        }
        EXPECT_EQ(again, bytes);
        EXPECT_EQ(reader.remaining(), 0u);
    }
}

TEST(TypeIdentifier, NestingHasALimit) {
    const auto readable = [](unsigned depth) {
        auto id = std::make_shared<TypeIdentifier>();
        id->kind = tk::kInt32;
        for (unsigned i = 0; i < depth; ++i) {
            auto outer = std::make_shared<TypeIdentifier>();
            outer->kind = tk::kPlainSequenceSmall;
            outer->element = id;
            id = outer;
        }
        rtps::ByteBuffer bytes;
        rtps::ByteWriter writer(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
        write(writer, *id);
        rtps::ByteReader reader(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
        TypeIdentifier back;
        return read(reader, back);
    };
    EXPECT_TRUE(readable(TypeIdentifier::kMaxDepth));
    EXPECT_FALSE(readable(TypeIdentifier::kMaxDepth + 1));
}

TEST(TypeIdentifier, UnknownKindsAreRefused) {
    for (int kind : {0x0e, 0x0f, 0x12, 0x20, 0x30, 0x51, 0x74, 0x82, 0xb1, 0xf3, 0xff}) {
        const rtps::ByteBuffer bytes(64, static_cast<uint8_t>(kind));
        rtps::ByteReader reader(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
        TypeIdentifier id;
        EXPECT_FALSE(read(reader, id)) << kind;
    }
}
