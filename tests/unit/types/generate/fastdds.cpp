// Writes what Fast DDS 3 makes of types that Cyclone DDS cannot express (wide strings, maps, bit sets, 8-bit
// integers) and of XCDR1's parameter lists: for each type its identifier and type objects, and a sample in
// XCDR1 and XCDR2 with the JSON that Fast DDS itself prints for it. Works without a domain: nothing is sent.
// See regenerate-fastdds.sh.
#include <cstdio>
#include <iostream>
#include <sstream>

#include <fastcdr/Cdr.h>
#include <fastcdr/FastBuffer.h>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicData.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicDataFactory.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicPubSubType.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicTypeBuilder.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicTypeBuilderFactory.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicTypeMember.hpp>
#include <fastdds/dds/xtypes/dynamic_types/MemberDescriptor.hpp>
#include <fastdds/dds/xtypes/dynamic_types/TypeDescriptor.hpp>
#include <fastdds/dds/xtypes/type_representation/ITypeObjectRegistry.hpp>
#include <fastdds/dds/xtypes/type_representation/TypeObject.hpp>
#include <fastdds/dds/xtypes/type_representation/detail/dds_xtypes_typeobjectPubSubTypes.hpp>
#include <fastdds/dds/xtypes/utils.hpp>

using namespace eprosima::fastdds::dds;
using eprosima::fastdds::rtps::InstanceHandle_t;
using eprosima::fastdds::rtps::SerializedPayload_t;

// Dynamic types of Fast DDS 3.1 send optional members as if they were not optional; generated code, which
// these two follow, does not.
struct GeneratedPoint {
    int32_t x;
    double y;
};
namespace eprosima::fastcdr {
template <>
void serialize(Cdr& cdr, const GeneratedPoint& value) {
    Cdr::state state(cdr);
    cdr.begin_serialize_type(state, cdr.get_cdr_version() == CdrVersion::XCDRv2
                                        ? EncodingAlgorithmFlag::PLAIN_CDR2
                                        : EncodingAlgorithmFlag::PLAIN_CDR);
    cdr << eprosima::fastcdr::MemberId(0) << value.x << eprosima::fastcdr::MemberId(1) << value.y;
    cdr.end_serialize_type(state);
}
} // namespace eprosima::fastcdr

namespace {

using TypeRef = DynamicType::_ref_type;
using DataRef = DynamicData::_ref_type;

DynamicTypeBuilderFactory::_ref_type factory() {
    return DynamicTypeBuilderFactory::get_instance();
}
TypeRef primitive(TypeKind kind) {
    return factory()->get_primitive_type(kind);
}
constexpr uint32_t kNone = static_cast<uint32_t>(LENGTH_UNLIMITED);
TypeRef text(uint32_t bound = kNone) {
    return factory()->create_string_type(bound)->build();
}
TypeRef wide(uint32_t bound = kNone) {
    return factory()->create_wstring_type(bound)->build();
}
TypeRef sequence(TypeRef content, uint32_t bound = kNone) {
    return factory()->create_sequence_type(content, bound)->build();
}
TypeRef array(TypeRef content, BoundSeq bounds) {
    return factory()->create_array_type(content, bounds)->build();
}
TypeRef map(TypeRef key, TypeRef content, uint32_t bound = kNone) {
    return factory()->create_map_type(key, content, bound)->build();
}

struct M {
    const char* name;
    TypeRef type;
    const char* flags = ""; // k key, o optional, m must understand, d default label
    MemberId id = MEMBER_ID_INVALID;
    std::vector<int32_t> labels = {};
};

TypeRef aggregate(TypeKind kind, const char* name, ExtensibilityKind extensibility,
                  const std::vector<M>& members, TypeRef other = nullptr) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    descriptor->kind(kind);
    descriptor->name(std::string("fast::") + name);
    descriptor->extensibility_kind(extensibility);
    if (kind == TK_UNION)
        descriptor->discriminator_type(other);
    else if (other)
        descriptor->base_type(other);
    auto builder = factory()->create_type(descriptor);
    for (const M& m : members) {
        auto member = traits<MemberDescriptor>::make_shared();
        const std::string flags = m.flags;
        member->name(m.name);
        member->type(m.type);
        if (m.id != MEMBER_ID_INVALID)
            member->id(m.id);
        member->is_key(flags.find('k') != std::string::npos);
        member->is_optional(flags.find('o') != std::string::npos);
        member->is_must_understand(flags.find('m') != std::string::npos);
        member->is_default_label(flags.find('d') != std::string::npos);
        if (kind == TK_UNION)
            member->label(m.labels);
        if (builder->add_member(member) != RETCODE_OK) {
            std::cerr << "cannot add " << name << "." << m.name << "\n";
            exit(1);
        }
    }
    TypeRef type = builder->build();
    if (!type) {
        std::cerr << "cannot build " << name << "\n";
        exit(1);
    }
    return type;
}
TypeRef structure(const char* name, ExtensibilityKind extensibility, const std::vector<M>& members,
                  TypeRef base = nullptr) {
    return aggregate(TK_STRUCTURE, name, extensibility, members, base);
}
TypeRef alias(const char* name, TypeRef of) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    descriptor->kind(TK_ALIAS);
    descriptor->name(std::string("fast::") + name);
    descriptor->base_type(of);
    return factory()->create_type(descriptor)->build();
}
TypeRef enumeration(const char* name, TypeKind holder,
                    const std::vector<std::pair<const char*, int>>& literals) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    descriptor->kind(TK_ENUM);
    descriptor->name(std::string("fast::") + name);
    auto builder = factory()->create_type(descriptor);
    for (const auto& [literal, value] : literals) {
        auto member = traits<MemberDescriptor>::make_shared();
        member->name(literal);
        member->type(primitive(holder));
        member->default_value(std::to_string(value));
        builder->add_member(member);
    }
    return builder->build();
}
TypeRef bitmask(const char* name, uint32_t bits, const std::vector<std::pair<const char*, MemberId>>& flags) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    descriptor->kind(TK_BITMASK);
    descriptor->name(std::string("fast::") + name);
    descriptor->element_type(primitive(TK_BOOLEAN));
    descriptor->bound({bits});
    auto builder = factory()->create_type(descriptor);
    for (const auto& [flag, position] : flags) {
        auto member = traits<MemberDescriptor>::make_shared();
        member->name(flag);
        member->type(primitive(TK_BOOLEAN));
        member->id(position);
        builder->add_member(member);
    }
    return builder->build();
}
TypeRef bitset(const char* name, const std::vector<uint32_t>& widths, const std::vector<M>& fields) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    descriptor->kind(TK_BITSET);
    descriptor->name(std::string("fast::") + name);
    descriptor->bound(widths);
    auto builder = factory()->create_type(descriptor);
    for (const M& m : fields) {
        auto member = traits<MemberDescriptor>::make_shared();
        member->name(m.name);
        member->type(m.type);
        member->id(m.id); // position of its first bit
        builder->add_member(member);
    }
    return builder->build();
}

TypeDescriptor::_ref_type describe(TypeRef type) {
    auto descriptor = traits<TypeDescriptor>::make_shared();
    type->get_descriptor(descriptor);
    return descriptor;
}
TypeRef plain(TypeRef type) {
    while (type->get_kind() == TK_ALIAS)
        type = describe(type)->base_type();
    return type;
}

int counter = 0;
bool leave_out = false; // optional members, every second time

void fill(DataRef data, TypeRef type);

/// Gives the part `id` of `data` a value that no other part has.
void set(DataRef data, MemberId id, TypeRef type) {
    type = plain(type);
    const int n = ++counter;
    switch (type->get_kind()) {
        case TK_BOOLEAN:
            data->set_boolean_value(id, n % 2 == 1);
            break;
        case TK_BYTE:
            data->set_byte_value(id, static_cast<uint8_t>(200 + n));
            break;
        case TK_INT8:
            data->set_int8_value(id, static_cast<int8_t>(-n));
            break;
        case TK_UINT8:
            data->set_uint8_value(id, static_cast<uint8_t>(n));
            break;
        case TK_INT16:
            data->set_int16_value(id, static_cast<int16_t>(-300 - n));
            break;
        case TK_UINT16:
            data->set_uint16_value(id, static_cast<uint16_t>(60000 + n));
            break;
        case TK_INT32:
            data->set_int32_value(id, -100000 - n);
            break;
        case TK_UINT32:
            data->set_uint32_value(id, 4000000000u + static_cast<uint32_t>(n));
            break;
        case TK_INT64:
            data->set_int64_value(id, -5000000000 - n);
            break;
        case TK_UINT64:
            data->set_uint64_value(id, 9000000000u + static_cast<uint64_t>(n));
            break;
        case TK_FLOAT32:
            data->set_float32_value(id, 0.5f + static_cast<float>(n));
            break;
        case TK_FLOAT64:
            data->set_float64_value(id, 0.25 + n);
            break;
        case TK_FLOAT128:
            data->set_float128_value(id, 0.125L + n);
            break;
        case TK_CHAR8:
            data->set_char8_value(id, static_cast<char>('a' + n % 26));
            break;
        case TK_CHAR16:
            data->set_char16_value(id, static_cast<wchar_t>(0x20ac + n));
            break;
        case TK_STRING8:
            data->set_string_value(id, "text" + std::to_string(n));
            break;
        case TK_STRING16:
            data->set_wstring_value(id, L"w\u20ac" + std::to_wstring(n));
            break;
        case TK_ENUM: {
            // The first literal, by the kind that holds it.
            DynamicTypeMember::_ref_type member;
            type->get_member_by_index(member, 1);
            auto descriptor = traits<MemberDescriptor>::make_shared();
            member->get_descriptor(descriptor);
            const int value = std::stoi(descriptor->default_value());
            switch (descriptor->type()->get_kind()) {
                case TK_INT8:
                    data->set_int8_value(id, static_cast<int8_t>(value));
                    break;
                case TK_INT16:
                    data->set_int16_value(id, static_cast<int16_t>(value));
                    break;
                case TK_UINT8:
                    data->set_uint8_value(id, static_cast<uint8_t>(value));
                    break;
                case TK_UINT16:
                    data->set_uint16_value(id, static_cast<uint16_t>(value));
                    break;
                default:
                    data->set_int32_value(id, value);
                    break;
            }
            break;
        }
        case TK_BITMASK: {
            const uint32_t bits = describe(type)->bound()[0];
            if (bits <= 8)
                data->set_uint8_value(id, 0x09);
            else if (bits <= 16)
                data->set_uint16_value(id, 0x8001);
            else if (bits <= 32)
                data->set_uint32_value(id, 0x80000001u);
            else
                data->set_uint64_value(id, 0x8000000000000001u);
            break;
        }
        default: {
            if (DataRef part = data->loan_value(id)) {
                fill(part, type);
                data->return_loaned_value(part);
                break;
            }
            DataRef inner = DynamicDataFactory::get_instance()->create_data(type);
            fill(inner, type);
            if (data->set_complex_value(id, inner) != RETCODE_OK) {
                std::cerr << "cannot set part " << id << "\n";
                exit(1);
            }
            break;
        }
    }
}

void fill(DataRef data, TypeRef type) {
    type = plain(type);
    const auto descriptor = describe(type);
    switch (type->get_kind()) {
        case TK_STRUCTURE: {
            if (descriptor->base_type()) {
                // The members of the base are members of the derived type too.
            }
            DynamicTypeMembersById members;
            type->get_all_members(members);
            for (const auto& [id, member] : members) {
                auto described = traits<MemberDescriptor>::make_shared();
                member->get_descriptor(described);
                if (described->is_optional() && (leave_out = !leave_out))
                    continue;
                set(data, id, described->type());
            }
            break;
        }
        case TK_UNION: {
            DynamicTypeMember::_ref_type member;
            static unsigned branch = 0;
            type->get_member_by_index(
                member, 1 + branch++ % (type->get_member_count() - 1)); // 0 is the discriminator
            auto described = traits<MemberDescriptor>::make_shared();
            member->get_descriptor(described);
            set(data, member->get_id(), described->type());
            break;
        }
        case TK_BITSET: {
            DynamicTypeMembersById members;
            type->get_all_members(members);
            for (const auto& [id, member] : members) {
                auto described = traits<MemberDescriptor>::make_shared();
                member->get_descriptor(described);
                switch (described->type()->get_kind()) {
                    case TK_BOOLEAN:
                        data->set_boolean_value(id, true);
                        break;
                    case TK_UINT8:
                        data->set_uint8_value(id, 5);
                        break;
                    case TK_INT16:
                        data->set_int16_value(id, 300);
                        break;
                    case TK_UINT16:
                        data->set_uint16_value(id, 300);
                        break;
                    default:
                        data->set_uint32_value(id, 70000);
                        break;
                }
            }
            break;
        }
        case TK_SEQUENCE:
            for (MemberId i = 0; i < 3; ++i)
                set(data, i, descriptor->element_type());
            break;
        case TK_ARRAY: {
            MemberId count = 1;
            for (uint32_t bound : descriptor->bound())
                count *= bound;
            for (MemberId i = 0; i < count; ++i)
                set(data, i, descriptor->element_type());
            break;
        }
        case TK_MAP: {
            const bool words = plain(descriptor->key_element_type())->get_kind() == TK_STRING8;
            for (const char* key : {"1", "22"})
                set(data, data->get_member_id_by_name(words ? std::string("key") + key : key),
                    descriptor->element_type());
            break;
        }
        default:
            std::cerr << "cannot fill\n";
            exit(1);
    }
}

void put_hex(const char* label, const void* bytes, size_t size) {
    std::printf("%s ", label);
    for (size_t i = 0; i < size; ++i)
        std::printf("%02x", static_cast<const unsigned char*>(bytes)[i]);
    std::printf("\n");
}

/// A serialized value of one of the types of the type object model, without its encapsulation.
template <typename PubSub, typename Value>
void put_described(const std::string& label, const Value& value) {
    PubSub support;
    Value copy = value;
    SerializedPayload_t payload(support.calculate_serialized_size(&copy, XCDR2_DATA_REPRESENTATION));
    if (!support.serialize(&copy, payload, XCDR2_DATA_REPRESENTATION)) {
        std::cerr << "cannot serialize " << label << "\n";
        exit(1);
    }
    put_hex(label.c_str(), payload.data + 4, payload.length - 4);
}

void put_objects(TypeRef type) {
    auto& registry = DomainParticipantFactory::get_instance()->type_object_registry();
    xtypes::TypeIdentifierPair ids;
    if (registry.register_typeobject_w_dynamic_type(type, ids) != RETCODE_OK) {
        std::cerr << "cannot register " << type->get_name().to_string() << "\n";
        exit(1);
    }
    xtypes::TypeInformation information;
    if (registry.get_type_information(ids, information, true) != RETCODE_OK)
        return;
    put_described<xtypes::TypeInformationPubSubType>("information", information);
    const auto put = [&registry](const xtypes::TypeIdentfierWithSize& entry) {
        xtypes::TypeObject object;
        if (registry.get_type_object(entry.type_id(), object) != RETCODE_OK)
            return;
        xtypes::TypeIdentifierTypeObjectPair pair;
        pair.type_identifier(entry.type_id());
        pair.type_object(object);
        put_described<xtypes::TypeIdentifierTypeObjectPairPubSubType>("pair", pair);
    };
    for (const auto* form : {&information.minimal(), &information.complete()}) {
        put(form->typeid_with_size());
        for (const auto& dependency : form->dependent_typeids())
            put(dependency);
    }
}

void put_type(TypeRef type) {
    std::printf("type %s\n", type->get_name().to_string().c_str());
    put_objects(type);
    for (int round = 0; round < 2; ++round) {
        DataRef data = DynamicDataFactory::get_instance()->create_data(type);
        counter = 10 * round;
        leave_out = round == 1;
        fill(data, type);
        std::ostringstream json;
        if (json_serialize(data, DynamicDataJsonFormat::EPROSIMA, json) != RETCODE_OK)
            std::cerr << type->get_name().to_string() << " has no JSON\n";
        std::printf("value\n");
        put_hex("peer", json.str().data(), json.str().size());
        DynamicPubSubType support(type);
        for (DataRepresentationId_t representation : {XCDR_DATA_REPRESENTATION, XCDR2_DATA_REPRESENTATION}) {
            SerializedPayload_t payload(support.calculate_serialized_size(&data, representation));
            if (!support.serialize(&data, payload, representation)) {
                std::cerr << "cannot serialize " << type->get_name().to_string() << "\n";
                exit(1);
            }
            while (payload.length % 4 != 0 && payload.length < payload.max_size)
                payload.data[payload.length++] = 0;
            put_hex(representation == XCDR_DATA_REPRESENTATION ? "sample xcdr1-le" : "sample xcdr2-le",
                    payload.data, payload.length);
            InstanceHandle_t handle;
            if (representation == XCDR2_DATA_REPRESENTATION && support.is_compute_key_provided &&
                support.compute_key(&data, handle, false))
                put_hex("keyhash", &handle.value[0], 16);
        }
    }
}

void put_generated_optionals(bool odd) {
    using namespace eprosima::fastcdr;
    optional<int32_t> a;
    optional<double> b;
    optional<std::string> d;
    optional<GeneratedPoint> e;
    if (odd) {
        a = 5;
        e = GeneratedPoint{6, 7.5};
    } else {
        b = 2.5;
        d = std::string("here");
    }
    const std::string json =
        odd ? R"({"a":5,"c":0.5,"e":{"x":6,"y":7.5},"f":-9})" : R"({"b":2.5,"c":0.5,"d":"here","f":-9})";
    std::printf("value\n");
    put_hex("peer", json.data(), json.size());
    for (CdrVersion version : {CdrVersion::XCDRv1, CdrVersion::XCDRv2}) {
        const bool second = version == CdrVersion::XCDRv2;
        FastBuffer buffer;
        Cdr cdr(buffer, Cdr::LITTLE_ENDIANNESS, version);
        cdr.set_encoding_flag(second ? EncodingAlgorithmFlag::PLAIN_CDR2 : EncodingAlgorithmFlag::PLAIN_CDR);
        cdr.serialize_encapsulation();
        Cdr::state state(cdr);
        cdr.begin_serialize_type(
            state, second ? EncodingAlgorithmFlag::PLAIN_CDR2 : EncodingAlgorithmFlag::PLAIN_CDR);
        cdr << eprosima::fastcdr::MemberId(0) << a << eprosima::fastcdr::MemberId(1) << b
            << eprosima::fastcdr::MemberId(2) << 0.5 << eprosima::fastcdr::MemberId(3) << d
            << eprosima::fastcdr::MemberId(4) << e << eprosima::fastcdr::MemberId(5) << int64_t{-9};
        cdr.end_serialize_type(state);
        put_hex(second ? "sample xcdr2-le" : "sample xcdr1-le", buffer.getBuffer(),
                cdr.get_serialized_data_length());
    }
}

} // namespace

int main() {
    const auto kFinal = ExtensibilityKind::FINAL;
    const auto kAppendable = ExtensibilityKind::APPENDABLE;
    const auto kMutable = ExtensibilityKind::MUTABLE;
    std::printf("# Written by generate/fastdds.cpp on Fast DDS; see generate/regenerate-fastdds.sh\n");
    const TypeRef color = enumeration("Color", TK_INT32, {{"RED", 0}, {"GREEN", 1}, {"BLUE", 7}});
    const TypeRef tiny = enumeration("Tiny", TK_INT8, {{"T0", 0}, {"T1", 1}});
    const TypeRef middle = enumeration("Middle", TK_INT16, {{"M0", 0}, {"M1", 300}});
    const TypeRef mask8 = bitmask("Mask8", 8, {{"A", 0}, {"D", 3}});
    const TypeRef mask16 = bitmask("Mask16", 16, {{"B0", 0}, {"B15", 15}});
    const TypeRef mask32 = bitmask("Mask32", 32, {{"C0", 0}, {"C31", 31}});
    const TypeRef mask64 = bitmask("Mask64", 64, {{"E0", 0}, {"E63", 63}});
    const TypeRef point =
        structure("Point", kFinal, {{"x", primitive(TK_INT32)}, {"y", primitive(TK_FLOAT64)}});
    const TypeRef extended = structure("Extended", kAppendable, {{"a", primitive(TK_INT32)}, {"b", text()}});
    const TypeRef changeable = structure("Changeable", kMutable,
                                         {{"a", primitive(TK_INT16), "", 5},
                                          {"b", primitive(TK_FLOAT64), "", 0x3f10},
                                          {"c", text(), "m", 7},
                                          {"d", primitive(TK_BYTE), "", 9}});
    put_type(structure("Primitives", kFinal,
                       {{"b", primitive(TK_BOOLEAN)},
                        {"o", primitive(TK_BYTE)},
                        {"i8", primitive(TK_INT8)},
                        {"u8", primitive(TK_UINT8)},
                        {"i16", primitive(TK_INT16)},
                        {"u16", primitive(TK_UINT16)},
                        {"i32", primitive(TK_INT32)},
                        {"u32", primitive(TK_UINT32)},
                        {"i64", primitive(TK_INT64)},
                        {"u64", primitive(TK_UINT64)},
                        {"f", primitive(TK_FLOAT32)},
                        {"d", primitive(TK_FLOAT64)},
                        {"c", primitive(TK_CHAR8)},
                        {"w", primitive(TK_CHAR16)},
                        {"i8b", primitive(TK_INT8)}}));
    put_type(structure("LongDouble", kFinal,
                       {{"a", primitive(TK_BYTE)},
                        {"l", primitive(TK_FLOAT128)},
                        {"b", primitive(TK_BYTE)},
                        {"ls", sequence(primitive(TK_FLOAT128))}}));
    put_type(structure("WideText", kFinal,
                       {{"a", wide()},
                        {"b", wide(20)},
                        {"c", primitive(TK_INT32)},
                        {"d", sequence(wide())},
                        {"e", primitive(TK_CHAR16)},
                        {"f", array(wide(), {2})}}));
    put_type(structure("Maps", kFinal,
                       {{"a", map(primitive(TK_INT32), primitive(TK_FLOAT64))},
                        {"b", map(text(), primitive(TK_INT16))},
                        {"c", map(primitive(TK_INT16), text(), 5)},
                        {"d", map(text(), point)},
                        {"e", map(primitive(TK_INT64), sequence(primitive(TK_INT32)))},
                        {"tail", primitive(TK_INT32)}}));
    put_type(structure("Enums", kFinal,
                       {{"c", color},
                        {"t", tiny},
                        {"m", middle},
                        {"cs", sequence(color)},
                        {"ca", array(color, {2, 2})},
                        {"ts", sequence(tiny)},
                        {"tail", primitive(TK_INT32)}}));
    put_type(structure("Masks", kFinal,
                       {{"a", mask8},
                        {"b", mask16},
                        {"c", mask32},
                        {"d", mask64},
                        {"e", sequence(mask8)},
                        {"f", array(mask16, {3})},
                        {"tail", primitive(TK_INT32)}}));
    const TypeRef bits = bitset("Bits", {1, 3, 10, 20},
                                {{"flag", primitive(TK_BOOLEAN), "", 0},
                                 {"three", primitive(TK_UINT8), "", 1},
                                 {"ten", primitive(TK_UINT16), "", 4},
                                 {"twenty", primitive(TK_UINT32), "", 20}});
    put_type(
        structure("Bitsets", kFinal, {{"a", bits}, {"b", sequence(bits)}, {"tail", primitive(TK_BYTE)}}));
    put_type(point);
    put_type(structure("Collections", kFinal,
                       {{"a", sequence(point)},
                        {"b", array(point, {2})},
                        {"c", array(primitive(TK_INT16), {2, 3})},
                        {"d", sequence(array(primitive(TK_INT32), {2}))},
                        {"e", array(sequence(text()), {2})},
                        {"f", sequence(sequence(primitive(TK_INT64)))},
                        {"g", sequence(primitive(TK_BOOLEAN))},
                        {"h", array(array(primitive(TK_BYTE), {3}), {2})}}));
    put_type(extended);
    put_type(changeable);
    put_type(structure("HoldsAll", kFinal,
                       {{"e", extended},
                        {"c", changeable},
                        {"es", sequence(extended)},
                        {"cs", sequence(changeable)},
                        {"tail", primitive(TK_FLOAT64)}}));
    put_type(structure("MutableHolds", kMutable,
                       {{"e", extended, "", 1},
                        {"c", changeable, "", 2},
                        {"p", point, "", 3},
                        {"cs", sequence(changeable), "", 4},
                        {"l", sequence(primitive(TK_INT64)), "", 5},
                        {"w", wide(), "", 6}}));
    put_type(structure("OptionalFinal", kFinal,
                       {{"a", primitive(TK_INT32), "o"},
                        {"b", primitive(TK_FLOAT64), "o"},
                        {"c", primitive(TK_FLOAT64)},
                        {"d", text(), "o"},
                        {"e", point, "o"},
                        {"f", primitive(TK_INT64)}}));
    put_generated_optionals(true);
    put_generated_optionals(false);
    put_type(structure("OptionalAppendable", kAppendable,
                       {{"a", primitive(TK_BYTE)},
                        {"b", primitive(TK_INT16), "o"},
                        {"c", sequence(primitive(TK_INT32)), "o"},
                        {"d", primitive(TK_INT64)}}));
    put_type(structure(
        "OptionalMutable", kMutable,
        {{"a", primitive(TK_INT32), "o", 1}, {"b", text(), "o", 2}, {"c", primitive(TK_FLOAT64), "", 3}}));
    put_type(structure("Derived", kAppendable, {{"z", primitive(TK_INT16)}}, extended));
    put_type(structure("Aliased", kFinal,
                       {{"n", alias("Number", primitive(TK_INT32))},
                        {"t", alias("Short", text(9))},
                        {"r", alias("Row", array(primitive(TK_INT32), {3}))}}));
    const TypeRef choice = aggregate(
        TK_UNION, "Choice", kFinal,
        {{"l", primitive(TK_INT32), "", 1, {1, 2}}, {"s", text(), "", 2, {3}}, {"p", point, "d", 3}},
        primitive(TK_INT32));
    const TypeRef appendable_choice =
        aggregate(TK_UNION, "AppendableChoice", kAppendable,
                  {{"l", primitive(TK_INT64), "", 1, {0}}, {"s", text(), "", 2, {7}}}, color);
    const TypeRef mutable_choice =
        aggregate(TK_UNION, "MutableChoice", kMutable,
                  {{"l", primitive(TK_INT64), "", 1, {1}}, {"s", wide(), "", 2, {5}}}, primitive(TK_INT16));
    put_type(structure("Unions", kFinal,
                       {{"a", choice},
                        {"b", choice},
                        {"c", choice},
                        {"d", sequence(choice)},
                        {"tail", primitive(TK_BYTE)}}));
    put_type(structure("AppendableUnions", kFinal,
                       {{"a", appendable_choice}, {"b", appendable_choice}, {"tail", primitive(TK_INT64)}}));
    put_type(structure("MutableUnions", kFinal,
                       {{"a", mutable_choice}, {"b", mutable_choice}, {"tail", primitive(TK_INT64)}}));
    put_type(structure("KeyTwo", kFinal,
                       {{"a", primitive(TK_INT32), "k"}, {"b", primitive(TK_FLOAT64), "k"}, {"c", text()}}));
    put_type(structure("KeyText", kAppendable, {{"a", text(), "k"}, {"c", primitive(TK_INT32)}}));
    put_type(structure("KeyBounded", kAppendable, {{"a", text(8), "k"}, {"c", primitive(TK_INT32)}}));
    put_type(structure(
        "KeyMutable", kMutable,
        {{"a", primitive(TK_INT32), "k", 20}, {"b", primitive(TK_INT16), "k", 3}, {"c", text(), "", 4}}));
    const TypeRef key_inner =
        structure("KeyInner", kFinal, {{"k", primitive(TK_INT32), "k"}, {"n", primitive(TK_INT32)}});
    put_type(structure(
        "KeyNested", kFinal,
        {{"pad", primitive(TK_BYTE)}, {"inner", key_inner, "k"}, {"more", primitive(TK_BYTE), "k"}}));
    return 0;
}
