#include "types/data/dynamic_sample.h"

namespace meridian::types {

namespace {

/// Room for a larger text is not kept for the next one.
constexpr size_t kMaxKeptText = size_t{1} << 20;

} // namespace

bool DynamicSample::assign(std::shared_ptr<const DynamicContext> context, rtps::ByteView payload,
                           const SampleSource& source) {
    clear();
    const auto& limits = context->serialization;
    if (payload.size > limits.max_size_serialized)
        return false;
    if (limits.trim_to_size && payload_.capacity() > limits.min_size_serialized &&
        payload_.capacity() / 4 > payload.size)
        payload_.shrink_to_fit(); // it is empty
    payload_.assign(payload.begin(), payload.end());
    context_ = std::move(context);
    source_ = source;
    return true;
}

void DynamicSample::clear() {
    drop_text();
    context_.reset();
    payload_.clear();
}

PrintBuffers& DynamicSample::text() const {
    if (text_ == nullptr)
        text_ = context_->print_buffers.take();
    return *text_;
}

void DynamicSample::drop_text() const {
    if (text_ == nullptr)
        return;
    for (std::string* room : {&text_->text, &text_->value}) {
        room->clear();
        if (room->capacity() > kMaxKeptText)
            room->shrink_to_fit();
    }
    context_->print_buffers.give_back(std::move(text_));
}

} // namespace meridian::types
