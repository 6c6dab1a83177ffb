#pragma once

// Samples of types that are known only at run time: serialized bytes and their type code, decoded on
// demand. The texts are described in docs/contents.md.

#include <cstdio>
#include <memory>

#include "meridian/base.h"
#include "meridian/sequence.h"
#include "meridian/type_code.h"

enum DDS_PrintFormatKind : DDS_Long {
    DDS_DEFAULT_PRINT_FORMAT = 0, // indented lines, as print() writes them
    DDS_XML_PRINT_FORMAT = 1,     // not offered
    DDS_JSON_PRINT_FORMAT = 2,
};

struct DDS_PrintFormatProperty {
    DDS_PrintFormatKind kind;
    /// JSON on several lines instead of one.
    DDS_Boolean pretty_print;
    /// JSON with enumerators as numbers.
    DDS_Boolean enum_as_int;
};
constexpr DDS_PrintFormatProperty DDS_PRINT_FORMAT_PROPERTY_DEFAULT{DDS_DEFAULT_PRINT_FORMAT, true, false};

/// How samples are kept.
struct DDS_DynamicDataTypeSerializationProperty_t {
    /// A longer serialized sample is kept without its contents; all bits set: no limit.
    DDS_UnsignedLong max_size_serialized;
    /// Room that is never given back once a sample has taken it. A sample that waits takes no more than it
    /// needs, so none has it from the start.
    DDS_UnsignedLong min_size_serialized;
    /// Whether more room than that, which a large sample took, is given back when later ones need less than a
    /// quarter of it.
    DDS_Boolean trim_to_size;
};
struct DDS_DynamicDataTypeProperty_t {
    DDS_DynamicDataTypeSerializationProperty_t serialization;
};
constexpr DDS_DynamicDataTypeProperty_t DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT{{0xffffffffu, 0, false}};

namespace meridian::types {
class DynamicSample;
}

/// One sample. Copies are deep. A sample belongs to one thread at a time.
class DDS_DynamicData {
  public:
    DDS_DynamicData();
    DDS_DynamicData(const DDS_DynamicData& other);
    DDS_DynamicData& operator=(DDS_DynamicData other) noexcept;
    ~DDS_DynamicData();

    /// Whether it holds no contents because more was received than the type's properties allow.
    DDS_Boolean is_too_large() const;

    /// Writes the contents as lines, each ended, indented by three blanks per level of `indent`. What stands
    /// before a value that cannot be decoded is written before DDS_RETCODE_ERROR is returned; the logger
    /// tells the topic, the member and the reason of a topic's first one. DDS_RETCODE_PRECONDITION_NOT_MET
    /// for a sample that holds nothing, DDS_RETCODE_BAD_PARAMETER for a null file, DDS_RETCODE_ERROR also
    /// when the file takes no more.
    DDS_ReturnCode_t print(FILE* file, DDS_Long indent) const;

    /// Writes what to_string makes, without a terminator and without memory for all of it. Fails as both do;
    /// a value that cannot be decoded may leave the beginning of the text in the file.
    DDS_ReturnCode_t print(FILE* file, const DDS_PrintFormatProperty& property) const;

    /// The contents as text. `size` counts the terminator: with a null `buffer` it is set to what is needed;
    /// else it tells the room in `buffer` and is set to what was needed, with DDS_RETCODE_OUT_OF_RESOURCES
    /// (and nothing written) when the room does not suffice. A value that cannot be decoded gives
    /// DDS_RETCODE_ERROR and no text, and the logger tells of the topic's first one. DDS_RETCODE_UNSUPPORTED
    /// for a format that is not offered.
    DDS_ReturnCode_t to_string(char* buffer, DDS_UnsignedLong& size,
                               const DDS_PrintFormatProperty& property) const;

    /// The middleware's own side of the sample.
    meridian::types::DynamicSample& impl() { return *impl_; }
    const meridian::types::DynamicSample& impl() const { return *impl_; }

  private:
    std::unique_ptr<meridian::types::DynamicSample> impl_; // null only after a move
};

using DDS_DynamicDataSeq = DDS_Sequence<DDS_DynamicData>;
