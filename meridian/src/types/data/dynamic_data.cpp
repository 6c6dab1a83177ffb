#include "meridian/dynamic_data.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/log.h"
#include "types/data/dynamic_sample.h"
#include "types/data/json_printer.h"
#include "types/data/plain_printer.h"

using meridian::types::DynamicSample;

namespace {

using namespace meridian::types;

/// Walks a sample and tells the logger, which tells the name of this function, when it cannot be decoded.
bool decode(const DynamicSample& sample, ValueSink& sink) {
    std::string failure;
    const DynamicContext& context = *sample.context();
    if (context.reader.walk(sample.payload(), &sink, failure, sample.source()))
        return true;
    if (!failure.empty() && context.undecodable.is_first()) // empty: the printer had enough
        MERIDIAN_LOG_ERROR("types", "topic \"%s\": a sample cannot be decoded: %s",
                           context.topic_name.c_str(), failure.c_str());
    return false;
}

class FileSpill final : public TextSpill {
  public:
    explicit FileSpill(FILE* file) : file_(file) {}
    void take(std::string_view text) override {
        failed_ = failed_ || std::fwrite(text.data(), 1, text.size(), file_) != text.size();
    }
    bool failed() const { return failed_; }

  private:
    FILE* const file_;
    bool failed_ = false;
};

/// Counts, for a text that is asked for its length only and would take much memory.
class CountSpill final : public TextSpill {
  public:
    void take(std::string_view text) override { count(text.size()); }
    bool counts() const override { return true; }
    void count(uint64_t length) override { size += length; }
    uint64_t size = 0;
};

/// Fills a buffer.
class BufferSpill final : public TextSpill {
  public:
    BufferSpill(char* buffer, size_t room) : buffer_(buffer), room_(room) {}
    void take(std::string_view text) override {
        const size_t length = std::min(text.size(), room_);
        std::memcpy(buffer_, text.data(), length);
        buffer_ += length;
        room_ -= length;
    }

  private:
    char* buffer_;
    size_t room_;
};

/// Of a shorter text its length is not counted in vain: it is kept.
constexpr size_t kMostKept = size_t{1} << 20;

TextTarget target_of(const DynamicSample& sample, TextSpill& spill) {
    // What stands there already is no part of the text.
    TextTarget target{&spill, text_limit(sample.payload().size) + sample.text().text.size()};
    if (spill.counts())
        target.piece = kMostKept;
    return target;
}

bool print_plain(const DynamicSample& sample, DDS_Long indent, TextSpill& spill) {
    PlainPrinter printer(sample.text(), indent, target_of(sample, spill));
    const bool done = decode(sample, printer) || printer.is_cut();
    printer.close();
    return done;
}

bool print_as(const DynamicSample& sample, const DDS_PrintFormatProperty& property, TextSpill& spill) {
    if (property.kind != DDS_JSON_PRINT_FORMAT)
        return print_plain(sample, 0, spill);
    const JsonStyle style{property.pretty_print, property.enum_as_int};
    return print_json([&sample](ValueSink& sink) { return decode(sample, sink); }, style, sample.text(),
                      target_of(sample, spill));
}

bool is_offered(const DDS_PrintFormatProperty& property) {
    return property.kind == DDS_DEFAULT_PRINT_FORMAT || property.kind == DDS_JSON_PRINT_FORMAT;
}

/// The first octet of a text that is kept tells which format it has; a change of format makes it anew. Its
/// place counts for the terminator.
char tag_of(const DDS_PrintFormatProperty& property) {
    return static_cast<char>('0' + property.kind * 4 + (property.pretty_print ? 2 : 0) +
                             (property.enum_as_int ? 1 : 0));
}

/// Writes a text that is kept under that tag, else what `print` makes.
template <typename Print>
DDS_ReturnCode_t print_to(FILE* file, const DynamicSample& sample, char tag, Print print) {
    if (file == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    if (sample.context() == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    FileSpill spill(file);
    std::string& text = sample.text().text;
    const bool is_kept = !text.empty() && text.front() == tag;
    if (!is_kept)
        text.clear();
    const bool done = is_kept || print(spill);
    spill.take(std::string_view(text).substr(is_kept ? 1 : 0));
    sample.drop_text();
    return done && !spill.failed() ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
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

DDS_Boolean DDS_DynamicData::is_too_large() const {
    return impl_->is_too_large();
}

DDS_ReturnCode_t DDS_DynamicData::print(FILE* file, DDS_Long indent) const {
    return print_to(file, *impl_, '\0', [&](TextSpill& spill) { return print_plain(*impl_, indent, spill); });
}

DDS_ReturnCode_t DDS_DynamicData::print(FILE* file, const DDS_PrintFormatProperty& property) const {
    if (!is_offered(property))
        return DDS_RETCODE_UNSUPPORTED;
    return print_to(file, *impl_, tag_of(property),
                    [&](TextSpill& spill) { return print_as(*impl_, property, spill); });
}

DDS_ReturnCode_t DDS_DynamicData::to_string(char* buffer, DDS_UnsignedLong& size,
                                            const DDS_PrintFormatProperty& property) const {
    if (impl_->context() == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    if (!is_offered(property))
        return DDS_RETCODE_UNSUPPORTED;
    std::string& text = impl_->text().text;
    const char tag = tag_of(property);
    CountSpill counted;
    if (text.empty() || text.front() != tag) {
        text.assign(1, tag);
        if (!print_as(*impl_, property, counted)) {
            impl_->drop_text();
            return DDS_RETCODE_ERROR;
        }
    }
    const uint64_t needed = counted.size + text.size();
    if (needed > UINT32_MAX) {
        impl_->drop_text();
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    const DDS_UnsignedLong room = size;
    size = static_cast<DDS_UnsignedLong>(needed);
    const bool is_whole = counted.size == 0;
    if (!is_whole) // what is left of it is of no use
        text.clear();
    if (buffer == nullptr)
        return DDS_RETCODE_OK;
    if (room < size)
        return DDS_RETCODE_OUT_OF_RESOURCES;
    if (is_whole) {
        std::memcpy(buffer, text.data() + 1, text.size() - 1);
    } else {
        BufferSpill filled(buffer, size);
        print_as(*impl_, property, filled);
        filled.take(text);
    }
    buffer[size - 1] = '\0';
    impl_->drop_text();
    return DDS_RETCODE_OK;
}
