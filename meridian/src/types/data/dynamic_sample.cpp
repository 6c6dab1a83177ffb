#include "types/data/dynamic_sample.h"

#include "platform/log.h"

namespace meridian::types {

namespace {

/// Room for a larger text is not kept for the next one.
constexpr size_t kMaxKeptText = size_t{1} << 20;

/// Of all types together: few texts are made at once, and thousands of types may be there.
const Spares<PrintBuffers>& print_buffers() {
    static const Spares<PrintBuffers> spares;
    return spares;
}

} // namespace

DynamicContext::~DynamicContext() {
    tell_total(undecodable, "could not be decoded");
    tell_total(too_large, "exceeded the largest serialized size");
}

void DynamicContext::tell_total(const Tally& tally, const char* what) const {
    if (tally.count() > 1)
        MERIDIAN_LOG_ERROR("types", "topic \"%s\": %llu samples %s", topic_name.c_str(),
                           static_cast<unsigned long long>(tally.count()), what);
}

bool DynamicSample::assign(const std::shared_ptr<const DynamicContext>& context, rtps::ByteView payload,
                           const SampleSource& source) {
    drop_text();
    payload_.clear();
    const auto& limits = context->serialization;
    is_too_large_ = payload.size > limits.max_size_serialized;
    if (is_too_large_) {
        context_.reset();
        return false;
    }
    if (limits.trim_to_size && payload_.capacity() > limits.min_size_serialized &&
        payload_.capacity() / 4 > payload.size)
        payload_.shrink_to_fit(); // it is empty
    payload_.assign(payload.begin(), payload.end());
    if (context_ != context) // nearly never: counting a reference costs as much as the copy
        context_ = context;
    source_ = source;
    return true;
}

PrintBuffers& DynamicSample::text() const {
    if (text_ == nullptr)
        text_ = print_buffers().take();
    return *text_;
}

void DynamicSample::drop_text() const {
    if (text_ == nullptr)
        return;
    for (std::string* room : {&text_->text, &text_->value, &text_->characters}) {
        room->clear();
        if (room->capacity() > kMaxKeptText)
            room->shrink_to_fit();
    }
    print_buffers().give_back(std::move(text_));
}

} // namespace meridian::types
