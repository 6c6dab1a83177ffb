#pragma once

// What a DDS_DynamicData consists of.

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "meridian/dynamic_data.h"
#include "types/data/print_buffers.h"
#include "types/data/sample_reader.h"
#include "types/data/spares.h"

namespace meridian::types {

/// Counts samples of which the first one alone is told when it comes. Any thread.
class Tally {
  public:
    bool is_first() const { return count_.fetch_add(1, std::memory_order_relaxed) == 0; }
    uint64_t count() const { return count_.load(std::memory_order_relaxed); }

  private:
    mutable std::atomic<uint64_t> count_{0};
};

/// What all samples of one reader share. At its end it tells how many could not be shown.
struct DynamicContext {
    DynamicContext(TypeRef type, std::string topic,
                   const DDS_DynamicDataTypeProperty_t& property = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT)
        : reader(std::move(type)), topic_name(std::move(topic)), serialization(property.serialization) {}
    ~DynamicContext();
    DynamicContext(const DynamicContext&) = delete;
    DynamicContext& operator=(const DynamicContext&) = delete;

    SampleReader reader;
    std::string topic_name; // for messages
    DDS_DynamicDataTypeSerializationProperty_t serialization;
    Tally undecodable;
    Tally too_large;

  private:
    void tell_total(const Tally& tally, const char* what) const;
};

class DynamicSample {
  public:
    DynamicSample() = default;
    /// Deep, but without a text that was kept.
    DynamicSample(const DynamicSample& other)
        : context_(other.context_),
          payload_(other.payload_),
          source_(other.source_),
          is_too_large_(other.is_too_large_) {}
    DynamicSample& operator=(const DynamicSample&) = delete;
    ~DynamicSample() { drop_text(); }

    /// Copies the payload (encapsulation included). The buffer is kept and reused, so steady traffic of equal
    /// size allocates nothing. False, and the sample empty, when it is larger than the type's properties
    /// allow.
    bool assign(const std::shared_ptr<const DynamicContext>& context, rtps::ByteView payload,
                const SampleSource& source = {});

    /// Bytes of this object and of what it holds, with what the allocator adds.
    size_t memory() const { return sizeof *this + payload_.capacity() + 4 * sizeof(void*); }

    const DynamicContext* context() const { return context_.get(); }
    rtps::ByteView payload() const { return payload_; }
    const SampleSource& source() const { return source_; }
    /// Whether the last payload was larger than the type's properties allow.
    bool is_too_large() const { return is_too_large_; }

    /// Room for a text, empty at first and kept until drop_text: what to_string makes when it is asked for
    /// the length need not be made twice. The sample must hold something.
    PrintBuffers& text() const;
    void drop_text() const;

  private:
    std::shared_ptr<const DynamicContext> context_;
    rtps::ByteBuffer payload_;
    SampleSource source_;
    bool is_too_large_ = false;
    mutable std::unique_ptr<PrintBuffers> text_; // of the context's
};

} // namespace meridian::types
