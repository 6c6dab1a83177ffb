#pragma once

// What a DDS_DynamicData consists of.

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "meridian/dynamic_data.h"
#include "types/data/sample_reader.h"

namespace meridian::types {

/// What all samples of one reader share.
struct DynamicContext {
    DynamicContext(TypeRef type, std::string topic,
                   const DDS_DynamicDataTypeProperty_t& property = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT)
        : reader(std::move(type)), topic_name(std::move(topic)), serialization(property.serialization) {}

    SampleReader reader;
    std::string topic_name; // for messages
    DDS_DynamicDataTypeSerializationProperty_t serialization;
};

class DynamicSample {
  public:
    /// Copies the payload (encapsulation included). The buffer is kept and reused, so steady traffic of equal
    /// size allocates nothing. False, and the sample empty, when it is larger than the type's properties
    /// allow.
    bool assign(std::shared_ptr<const DynamicContext> context, rtps::ByteView payload) {
        clear();
        const auto& limits = context->serialization;
        if (payload.size > limits.max_size_serialized)
            return false;
        const size_t least = std::max<size_t>(limits.min_size_serialized, payload.size);
        if (limits.trim_to_size && payload_.capacity() / 4 > least)
            payload_.shrink_to_fit(); // it is empty
        payload_.reserve(least);
        payload_.assign(payload.begin(), payload.end());
        context_ = std::move(context);
        return true;
    }
    void clear() {
        context_.reset();
        payload_.clear();
        text_.clear();
    }

    const DynamicContext* context() const { return context_.get(); }
    rtps::ByteView payload() const { return payload_; }

    /// Room for the text that to_string makes when it is asked for the length, so that it need not be made
    /// twice.
    std::string& text() const { return text_; }

  private:
    std::shared_ptr<const DynamicContext> context_;
    rtps::ByteBuffer payload_;
    mutable std::string text_;
};

} // namespace meridian::types
