// Dynamic types of Fast DDS, in the form that all of its releases can be put into.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "fast_release.h"

#if FASTDDS_VERSION_MAJOR >= 3
#include <fastdds/dds/xtypes/dynamic_types/DynamicDataFactory.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicPubSubType.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicTypeBuilder.hpp>
#include <fastdds/dds/xtypes/dynamic_types/DynamicTypeBuilderFactory.hpp>
#include <fastdds/dds/xtypes/dynamic_types/MemberDescriptor.hpp>
#include <fastdds/dds/xtypes/dynamic_types/TypeDescriptor.hpp>
#else
#include <fastrtps/types/DynamicDataFactory.h>
#include <fastrtps/types/DynamicPubSubType.h>
#include <fastrtps/types/DynamicTypeBuilder.h>
#include <fastrtps/types/DynamicTypeBuilderFactory.h>
#include <fastrtps/types/DynamicTypeBuilderPtr.h>
#include <fastrtps/types/DynamicTypePtr.h>
#endif

namespace peers::fast {

#if FASTDDS_VERSION_MAJOR >= 3

using Type = dds::traits<dds::DynamicType>::ref_type;
using Data = dds::traits<dds::DynamicData>::ref_type; // a whole sample
using Part = Data;                                    // a sample or something inside of one

inline auto type_factory() {
    return dds::DynamicTypeBuilderFactory::get_instance();
}

inline Type type_of(bool) {
    return type_factory()->get_primitive_type(dds::TK_BOOLEAN);
}
inline Type type_of(uint8_t) {
    return type_factory()->get_primitive_type(dds::TK_BYTE);
}
inline Type type_of(char) {
    return type_factory()->get_primitive_type(dds::TK_CHAR8);
}
inline Type type_of(int16_t) {
    return type_factory()->get_primitive_type(dds::TK_INT16);
}
inline Type type_of(int32_t) {
    return type_factory()->get_primitive_type(dds::TK_INT32);
}
inline Type type_of(uint32_t) {
    return type_factory()->get_primitive_type(dds::TK_UINT32);
}
inline Type type_of(int64_t) {
    return type_factory()->get_primitive_type(dds::TK_INT64);
}
inline Type type_of(float) {
    return type_factory()->get_primitive_type(dds::TK_FLOAT32);
}
inline Type type_of(double) {
    return type_factory()->get_primitive_type(dds::TK_FLOAT64);
}
inline Type type_of(const std::string&) {
    return type_factory()->create_string_type(static_cast<uint32_t>(dds::LENGTH_UNLIMITED))->build();
}
inline Type type_of(const std::wstring&) {
    return type_factory()->create_wstring_type(static_cast<uint32_t>(dds::LENGTH_UNLIMITED))->build();
}
inline Type array_of(const Type& element, uint32_t length) {
    return type_factory()->create_array_type(element, {length})->build();
}
inline Type sequence_of(const Type& element) {
    return type_factory()
        ->create_sequence_type(element, static_cast<uint32_t>(dds::LENGTH_UNLIMITED))
        ->build();
}
// A structure with these members, whose ids are 0, 1, ...
inline Type struct_of(const std::string& name, bool is_mutable,
                      const std::vector<std::pair<std::string, Type>>& members) {
    auto descriptor = dds::traits<dds::TypeDescriptor>::make_shared();
    descriptor->kind(dds::TK_STRUCTURE);
    descriptor->name(name);
    descriptor->extensibility_kind(is_mutable ? dds::ExtensibilityKind::MUTABLE
                                              : dds::ExtensibilityKind::FINAL);
    auto builder = type_factory()->create_type(descriptor);
    for (const auto& [member_name, type] : members) {
        auto member = dds::traits<dds::MemberDescriptor>::make_shared();
        member->name(member_name);
        member->type(type);
        builder->add_member(member);
    }
    return builder->build();
}

using DynamicSupport = dds::DynamicPubSubType;

inline Data new_data(const Type& type) {
    return dds::DynamicDataFactory::get_instance()->create_data(type);
}
inline Part whole(const Data& data) {
    return data;
}
inline void* to_write(Data& data) {
    return &data;
}
// An element of a sequence comes into being when it is put or loaned.
inline void append(const Part&) {}

inline Result put(const Part& part, uint32_t id, bool value) {
    return part->set_boolean_value(id, value);
}
inline Result put(const Part& part, uint32_t id, uint8_t value) {
    return part->set_byte_value(id, value);
}
inline Result put(const Part& part, uint32_t id, char value) {
    return part->set_char8_value(id, value);
}
inline Result put(const Part& part, uint32_t id, int16_t value) {
    return part->set_int16_value(id, value);
}
inline Result put(const Part& part, uint32_t id, int32_t value) {
    return part->set_int32_value(id, value);
}
inline Result put(const Part& part, uint32_t id, uint32_t value) {
    return part->set_uint32_value(id, value);
}
inline Result put(const Part& part, uint32_t id, int64_t value) {
    return part->set_int64_value(id, value);
}
inline Result put(const Part& part, uint32_t id, float value) {
    return part->set_float32_value(id, value);
}
inline Result put(const Part& part, uint32_t id, double value) {
    return part->set_float64_value(id, value);
}
inline Result put(const Part& part, uint32_t id, const std::string& value) {
    return part->set_string_value(id, value);
}
inline Result put(const Part& part, uint32_t id, const std::wstring& value) {
    return part->set_wstring_value(id, value);
}

#else

namespace types = eprosima::fastrtps::types;
using Type = types::DynamicType_ptr;
using Data = types::DynamicData_ptr;
using Part = types::DynamicData*;

inline types::DynamicTypeBuilderFactory* type_factory() {
    return types::DynamicTypeBuilderFactory::get_instance();
}

inline Type type_of(bool) {
    return type_factory()->create_bool_type();
}
inline Type type_of(uint8_t) {
    return type_factory()->create_byte_type();
}
inline Type type_of(char) {
    return type_factory()->create_char8_type();
}
inline Type type_of(int16_t) {
    return type_factory()->create_int16_type();
}
inline Type type_of(int32_t) {
    return type_factory()->create_int32_type();
}
inline Type type_of(uint32_t) {
    return type_factory()->create_uint32_type();
}
inline Type type_of(int64_t) {
    return type_factory()->create_int64_type();
}
inline Type type_of(float) {
    return type_factory()->create_float32_type();
}
inline Type type_of(double) {
    return type_factory()->create_float64_type();
}
inline Type type_of(const std::string&) {
    return type_factory()->create_string_type();
}
inline Type type_of(const std::wstring&) {
    return type_factory()->create_wstring_type();
}
inline Type built(types::DynamicTypeBuilder* builder) {
    const Type type = builder->build();
    type_factory()->delete_builder(builder);
    return type;
}
inline Type array_of(const Type& element, uint32_t length) {
    return built(type_factory()->create_array_builder(element, {length}));
}
inline Type sequence_of(const Type& element) {
    return built(type_factory()->create_sequence_builder(element));
}
// These releases write no mutable structures.
inline Type struct_of(const std::string& name, bool,
                      const std::vector<std::pair<std::string, Type>>& members) {
    types::DynamicTypeBuilder* builder = type_factory()->create_struct_builder();
    builder->set_name(name);
    types::MemberId id = 0;
    for (const auto& [member_name, type] : members) {
        builder->add_member(id++, member_name, type);
    }
    return built(builder);
}

using DynamicSupport = types::DynamicPubSubType;

inline Data new_data(const Type& type) {
    return Data(types::DynamicDataFactory::get_instance()->create_data(type));
}
inline Part whole(const Data& data) {
    return data.get();
}
inline void* to_write(Data& data) {
    return data.get();
}
inline void append(Part sequence) {
    types::MemberId id;
    sequence->insert_sequence_data(id);
}

inline Result put(Part part, uint32_t id, bool value) {
    return part->set_bool_value(value, id);
}
inline Result put(Part part, uint32_t id, uint8_t value) {
    return part->set_byte_value(value, id);
}
inline Result put(Part part, uint32_t id, char value) {
    return part->set_char8_value(value, id);
}
inline Result put(Part part, uint32_t id, int16_t value) {
    return part->set_int16_value(value, id);
}
inline Result put(Part part, uint32_t id, int32_t value) {
    return part->set_int32_value(value, id);
}
inline Result put(Part part, uint32_t id, uint32_t value) {
    return part->set_uint32_value(value, id);
}
inline Result put(Part part, uint32_t id, int64_t value) {
    return part->set_int64_value(value, id);
}
inline Result put(Part part, uint32_t id, float value) {
    return part->set_float32_value(value, id);
}
inline Result put(Part part, uint32_t id, double value) {
    return part->set_float64_value(value, id);
}
inline Result put(Part part, uint32_t id, const std::string& value) {
    return part->set_string_value(value, id);
}
inline Result put(Part part, uint32_t id, const std::wstring& value) {
    return part->set_wstring_value(value, id);
}

#endif

// Something inside of a part, for as long as the object lives.
class Loan {
  public:
    Loan(const Part& owner, uint32_t id) : owner_(owner), part_(owner->loan_value(id)) {}
    ~Loan() {
        if (part_) {
            owner_->return_loaned_value(part_);
        }
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    const Part& part() const { return part_; }

  private:
    Part owner_;
    Part part_;
};

} // namespace peers::fast
