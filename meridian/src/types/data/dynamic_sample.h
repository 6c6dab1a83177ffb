#pragma once

// What a DDS_DynamicData consists of.

#include <memory>
#include <string>
#include <utility>

#include "meridian/dynamic_data.h"
#include "types/data/print_buffers.h"
#include "types/data/sample_reader.h"
#include "types/data/spares.h"

namespace meridian::types {

/// What all samples of one reader share.
struct DynamicContext {
    DynamicContext(TypeRef type, std::string topic,
                   const DDS_DynamicDataTypeProperty_t& property = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT)
        : reader(std::move(type)), topic_name(std::move(topic)), serialization(property.serialization) {}

    SampleReader reader;
    std::string topic_name; // for messages
    DDS_DynamicDataTypeSerializationProperty_t serialization;
    Spares<PrintBuffers> print_buffers;
};

class DynamicSample {
  public:
    DynamicSample() = default;
    /// Deep, but without a text that was kept.
    DynamicSample(const DynamicSample& other)
        : context_(other.context_), payload_(other.payload_), source_(other.source_) {}
    DynamicSample& operator=(const DynamicSample&) = delete;
    ~DynamicSample() { drop_text(); }

    /// Copies the payload (encapsulation included). The buffer is kept and reused, so steady traffic of equal
    /// size allocates nothing. False, and the sample empty, when it is larger than the type's properties
    /// allow.
    bool assign(std::shared_ptr<const DynamicContext> context, rtps::ByteView payload,
                const SampleSource& source = {});
    void clear();

    /// Bytes of this object and of what it holds, with what the allocator adds.
    size_t memory() const { return sizeof *this + payload_.capacity() + 4 * sizeof(void*); }

    const DynamicContext* context() const { return context_.get(); }
    rtps::ByteView payload() const { return payload_; }
    const SampleSource& source() const { return source_; }

    /// Room for a text, empty at first and kept until drop_text: what to_string makes when it is asked for
    /// the length need not be made twice. The sample must hold something.
    PrintBuffers& text() const;
    void drop_text() const;

  private:
    std::shared_ptr<const DynamicContext> context_;
    rtps::ByteBuffer payload_;
    SampleSource source_;
    mutable std::unique_ptr<PrintBuffers> text_; // of the context's
};

} // namespace meridian::types
