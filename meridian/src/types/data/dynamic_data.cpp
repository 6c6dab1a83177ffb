#include "meridian/dynamic_data.h"

#include <cstring>
#include <utility>

#include "platform/log.h"
#include "types/data/dynamic_sample.h"
#include "types/data/json_printer.h"
#include "types/data/plain_printer.h"

using meridian::types::DynamicSample;

namespace {

using namespace meridian::types;

/// Walks a sample and tells the logger when it cannot be decoded.
class SampleWalk final : public JsonWalk {
  public:
    explicit SampleWalk(const DynamicSample& sample) : sample_(sample) {}

    bool operator()(ValueSink& sink) const override { return decode(sink); }

  private:
    bool decode(ValueSink& sink) const { // the logger tells its name
        std::string failure;
        if (sample_.context()->reader.walk(sample_.payload(), &sink, failure, sample_.source()))
            return true;
        MERIDIAN_LOG_ERROR("types", "topic \"%s\": a sample cannot be decoded: %s",
                           sample_.context()->topic_name.c_str(), failure.c_str());
        return false;
    }

    const DynamicSample& sample_;
};

bool print_plain(const DynamicSample& sample, DDS_Long indent, PrintBuffers& buffers) {
    PlainPrinter printer(buffers, indent);
    const bool done = SampleWalk(sample)(printer);
    printer.close();
    return done;
}

} // namespace

DDS_DynamicData::DDS_DynamicData() : impl_(std::make_unique<DynamicSample>()) {}
DDS_DynamicData::DDS_DynamicData(const DDS_DynamicData& other)
    : impl_(std::make_unique<DynamicSample>(*other.impl_)) {}
DDS_DynamicData& DDS_DynamicData::operator=(DDS_DynamicData other) noexcept {
    impl_ = std::move(other.impl_);
    return *this;
}
DDS_DynamicData::~DDS_DynamicData() = default;

DDS_ReturnCode_t DDS_DynamicData::print(FILE* file, DDS_Long indent) const {
    if (file == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    if (impl_->context() == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    std::string& text = impl_->text().text;
    text.clear();
    const bool decoded = print_plain(*impl_, indent, impl_->text());
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    impl_->drop_text();
    return decoded && written ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

DDS_ReturnCode_t DDS_DynamicData::to_string(char* buffer, DDS_UnsignedLong& size,
                                            const DDS_PrintFormatProperty& property) const {
    if (impl_->context() == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    if (property.kind != DDS_DEFAULT_PRINT_FORMAT && property.kind != DDS_JSON_PRINT_FORMAT)
        return DDS_RETCODE_UNSUPPORTED;
    std::string& text = impl_->text().text;
    // The first octet tells which format the text that is kept has; a change of format makes it anew.
    const char tag = static_cast<char>('0' + property.kind * 4 + (property.pretty_print ? 2 : 0) +
                                       (property.enum_as_int ? 1 : 0));
    if (text.empty() || text.front() != tag) {
        text.assign(1, tag);
        JsonStyle style;
        style.pretty = property.pretty_print;
        style.numeric_enumerators = property.enum_as_int;
        const bool decoded = property.kind == DDS_JSON_PRINT_FORMAT
                                 ? print_json(SampleWalk(*impl_), style, impl_->text())
                                 : print_plain(*impl_, 0, impl_->text());
        if (!decoded) {
            impl_->drop_text();
            return DDS_RETCODE_ERROR;
        }
    }
    const DDS_UnsignedLong room = size;
    if (text.size() > UINT32_MAX)
        return DDS_RETCODE_OUT_OF_RESOURCES;
    size = static_cast<DDS_UnsignedLong>(text.size()); // the tag stands for the terminator
    if (buffer == nullptr)
        return DDS_RETCODE_OK;
    if (room < size)
        return DDS_RETCODE_OUT_OF_RESOURCES;
    std::memcpy(buffer, text.data() + 1, text.size() - 1);
    buffer[text.size() - 1] = '\0';
    impl_->drop_text();
    return DDS_RETCODE_OK;
}
