#pragma once

// What a DDS_DynamicData consists of.

#include <memory>
#include <string>

#include "types/sample_reader.h"

namespace meridian::types {

/// What all samples of one reader share.
struct DynamicContext {
    DynamicContext(TypeRef type, std::string topic) : reader(std::move(type)), topic_name(std::move(topic)) {}

    SampleReader reader;
    std::string topic_name; // for messages
};

class DynamicSample {
  public:
    /// Copies the payload (encapsulation included). The buffer is kept and reused, so steady traffic of equal
    /// size allocates nothing. Throws nothing but what memory that is short throws.
    void assign(std::shared_ptr<const DynamicContext> context, rtps::ByteView payload) {
        context_ = std::move(context);
        payload_.assign(payload.begin(), payload.end());
        text_.clear();
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
