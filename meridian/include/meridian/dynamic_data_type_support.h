#pragma once

// Topics whose type is known only at run time: registers a type code with a participant, so that readers of
// topics of that type deliver DDS_DynamicData.

#include <memory>

#include "meridian/dynamic_data.h"
#include "meridian/type_support.h"
#include "meridian/typed_entities.h"

class DDSDomainParticipant;

/// Reader of dynamic data.
class DDSDynamicDataReader : public DDSTypedDataReader<DDS_DynamicData, DDS_DynamicDataSeq> {
  public:
    using DDSTypedDataReader::DDSTypedDataReader;
    /// The reader as one of dynamic data, or null.
    static DDSDynamicDataReader* narrow(DDSDataReader* reader) {
        return dynamic_cast<DDSDynamicDataReader*>(reader);
    }
};

/// The type support of one type code. It may be deleted once no topic uses what it registered.
class DDSDynamicDataTypeSupport {
  public:
    /// Holds a clone of the type code.
    DDSDynamicDataTypeSupport(const DDS_TypeCode* type, const DDS_DynamicDataTypeProperty_t& properties);
    ~DDSDynamicDataTypeSupport();
    DDSDynamicDataTypeSupport(const DDSDynamicDataTypeSupport&) = delete;
    DDSDynamicDataTypeSupport& operator=(const DDSDynamicDataTypeSupport&) = delete;

    /// False for a null type code, or one that is not of a structure or union.
    DDS_Boolean is_valid() const;

    /// Registers the type under that name. DDS_RETCODE_ERROR when the support is not valid,
    /// DDS_RETCODE_BAD_PARAMETER for null arguments, else what the participant says.
    DDS_ReturnCode_t register_type(DDSDomainParticipant* participant, const char* type_name);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
