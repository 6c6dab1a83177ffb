#pragma once

// What stands between a registered type and its typed readers and writers. A participant adopts one object
// per type name, uses it to make and drop typed entities, and deletes it with the registration.

#include "meridian/base.h"

class DDSDataReader;
class DDSDataWriter;
class DDSUntypedDataReader;
class DDSUntypedDataWriter;

/// How deep initialisation goes.
struct DDS_TypeAllocationParams_t {
    DDS_Boolean allocate_pointers = true;
    DDS_Boolean allocate_optional_members = false;
    DDS_Boolean allocate_memory = true;
};
struct DDS_TypeDeallocationParams_t {
    DDS_Boolean delete_pointers = true;
    DDS_Boolean delete_optional_members = true;
};
constexpr DDS_TypeAllocationParams_t DDS_TYPE_ALLOCATION_PARAMS_DEFAULT{};
constexpr DDS_TypeDeallocationParams_t DDS_TYPE_DEALLOCATION_PARAMS_DEFAULT{};

class DDSTypeSupport {
  public:
    virtual ~DDSTypeSupport() = default;

    /// A typed entity around an untyped one, which stays the caller's and outlives it. Null when memory is
    /// short.
    virtual DDSDataReader* create_datareaderI(DDSUntypedDataReader* untyped) = 0;
    virtual DDS_ReturnCode_t destroy_datareaderI(DDSDataReader* reader) = 0;
    virtual DDSDataWriter* create_datawriterI(DDSUntypedDataWriter* untyped) = 0;
    virtual DDS_ReturnCode_t destroy_datawriterI(DDSDataWriter* writer) = 0;
};
