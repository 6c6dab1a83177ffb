#include "types/data/json_printer.h"

#include <array>
#include <cmath>
#include <cstring>

#include "platform/text.h"
#include "types/data/nesting.h"
#include "types/data/plain_printer.h"
#include "types/data/scalar_text.h"

namespace meridian::types {

namespace {

constexpr Quoting kQuoting{"\b\f\n\r\t\"\\", "bfnrt\"\\", "\\u00", "0123456789ABCDEF"};

/// Octets with a comma behind them, as they stand in an array.
struct OctetTexts {
    char texts[256][4] = {};
    uint8_t lengths[256] = {};
};

constexpr OctetTexts octet_texts() {
    OctetTexts table;
    for (unsigned i = 0; i < 256; ++i) {
        uint8_t length = 0;
        if (i >= 100)
            table.texts[i][length++] = static_cast<char>('0' + i / 100);
        if (i >= 10)
            table.texts[i][length++] = static_cast<char>('0' + i / 10 % 10);
        table.texts[i][length++] = static_cast<char>('0' + i % 10);
        table.texts[i][length++] = ',';
        table.lengths[i] = length;
    }
    return table;
}

constexpr OctetTexts kOctets = octet_texts();
constexpr size_t kLongestOctet = sizeof kOctets.texts[0];

/// How long so many octets are there, at most a few thousand.
uint64_t length_of(rtps::ByteView octets) {
    uint16_t digits = 0; // narrow, so that many are added at once
    for (const uint8_t octet : octets)
        digits = static_cast<uint16_t>(digits + (octet >= 10 ? 1 : 0) + (octet >= 100 ? 1 : 0));
    return 2 * uint64_t{octets.size} + digits;
}

/// A string of valid UTF-8 in quotes.
void append_string(std::string& out, std::string_view text) {
    out += '"';
    append_escaped(out, text, kQuoting);
    out += '"';
}

class JsonPrinter final : public Printer {
  public:
    JsonPrinter(const JsonStyle& style, PrintBuffers& buffers, const TextTarget& target)
        : Printer(buffers, target), style_(style) {}

    bool scalar(const Type& type, const Scalar& value) override {
        if (in_key_) {
            in_key_ = false;
            value_.clear();
            append_scalar(value_, type, value);
            item();
            key(value_);
            return true;
        }
        if (type.kind == DDS_TK_STRING && plain_length(value.text) == value.text.size()) {
            out_ += '"';
            out_ += value.text;
            out_ += '"';
        } else if (stands_in_quotes(type, value)) {
            value_.clear();
            append_scalar(value_, type, value);
            append_string(out_, value_);
        } else if (type.kind == DDS_TK_ENUM) {
            append_number(out_, value.integer());
        } else {
            append_scalar(out_, type, value);
        }
        return true;
    }

    /// Keys that are no scalars cannot be names of an object's members: such a map is an array of key and
    /// value.
    bool begin(const Type& type, uint64_t count) override {
        const bool is_collection = type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY;
        const bool has_rows = type.kind == DDS_TK_ARRAY && type.dimensions.size() > 1 && count != 0;
        const bool has_names = !is_collection && (type.kind != DDS_TK_MAP || is_scalar(type.key));
        if (!open_.push({has_rows ? &type : nullptr, has_names, type.kind == DDS_TK_MAP, true}))
            return false;
        open(has_names ? '{' : '[');
        return true;
    }
    bool end(const Type&) override {
        close_last();
        return true;
    }

    bool discriminator() override {
        item();
        key("_d");
        return true;
    }
    bool member(const Member& member) override {
        item();
        if (plain_length(member.name) == member.name.size()) {
            out_ += '"';
            out_ += member.name;
            out_ += style_.pretty ? "\": " : "\":";
        } else {
            value_.clear();
            append_utf8(value_, member.name); // peers may announce anything as a name
            key(value_);
        }
        return goes_on() || cut_value();
    }
    /// An array of several dimensions is written as arrays in arrays.
    bool element(uint64_t index) override {
        const Type* array = open_.back().array;
        const size_t starting = array == nullptr ? 0 : rows_starting(*array, index);
        for (size_t i = 0; i < starting && index != 0; ++i)
            close(false);
        item();
        for (size_t i = 0; i < starting; ++i) {
            open('[');
            line();
        }
        return goes_on() || cut_value();
    }
    bool key(uint64_t index) override {
        in_key_ = open_.back().has_names;
        if (in_key_ && goes_on())
            return true;
        if (!in_key_ && index != 0)
            close(true);
        item();
        if (in_key_) {
            key(kCutMark);
            return cut_value();
        }
        open('{');
        line();
        key("key");
        return goes_on() || cut_value();
    }
    bool mapped() override {
        if (!open_.back().has_names) {
            out_ += ',';
            line();
            key("value");
        }
        return true;
    }

    bool takes_primitives(const Type& type, uint64_t) const override {
        const bool is_number = type.kind != DDS_TK_BOOLEAN && type.kind != DDS_TK_CHAR &&
                               type.kind != DDS_TK_WCHAR && type.kind != DDS_TK_LONGDOUBLE;
        return is_number && !style_.pretty && open_.back().array == nullptr;
    }
    bool primitives(const Type& type, rtps::ByteReader& reader, uint64_t count) override;

  private:
    struct Open {
        const Type* array; // of several dimensions
        bool has_names;    // is written as an object
        bool is_map;
        bool empty;
    };

    /// How many nested arrays start with the element of that number.
    static size_t rows_starting(const Type& array, uint64_t index) {
        size_t starting = 0;
        uint64_t stride = 1;
        for (size_t i = array.dimensions.size(); i-- > 1;) {
            stride *= array.dimensions[i];
            if (index % stride != 0)
                break;
            ++starting;
        }
        return starting;
    }

    void line() {
        if (!style_.pretty)
            return;
        out_ += '\n';
        out_.append(levels_ * kIndentWidth, ' ');
    }
    /// What stands before a part of the value that is open.
    void item() {
        if (!open_.back().empty)
            out_ += ',';
        open_.back().empty = false;
        line();
    }
    void key(std::string_view text) {
        append_string(out_, text);
        out_ += style_.pretty ? std::string_view(": ") : std::string_view(":");
    }
    void open(char bracket) {
        out_ += bracket;
        ++levels_;
    }
    void close(bool is_object, bool empty = false) {
        --levels_;
        if (!empty)
            line();
        out_ += is_object ? '}' : ']';
    }
    void close_last() {
        const Open& last = open_.back();
        for (size_t i = 1; last.array != nullptr && i < last.array->dimensions.size(); ++i)
            close(false);
        if (last.is_map && !last.has_names && !last.empty)
            close(true);
        close(last.has_names, last.empty);
        open_.pop();
    }

    bool stands_in_quotes(const Type& type, const Scalar& value) const {
        switch (type.kind) {
            case DDS_TK_FLOAT:
            case DDS_TK_DOUBLE:
                return !std::isfinite(value.real);
            case DDS_TK_LONGDOUBLE:
                // Many parsers refuse numbers beyond the range of double.
                return !std::isfinite(static_cast<double>(to_long_double(value)));
            case DDS_TK_ENUM:
                return !style_.numeric_enumerators && !type.nameless &&
                       find_enumerator(type, value.integer()) != nullptr;
            case DDS_TK_STRING:
            case DDS_TK_WSTRING:
            case DDS_TK_CHAR:
            case DDS_TK_WCHAR:
            case DDS_TK_BITMASK:
                return true;
            default:
                return false;
        }
    }

    /// Instead of the next value. What is cut is JSON all the same.
    bool cut_value() {
        append_string(out_, kCutMark);
        while (!open_.empty())
            close_last();
        return false;
    }

    template <typename Number>
    bool numbers(const Type& type, rtps::ByteReader& reader, uint64_t count);

    const JsonStyle style_;
    NestingStack<Open> open_;
    size_t levels_ = 0;
    bool in_key_ = false;
};

template <typename Number>
bool JsonPrinter::numbers(const Type& type, rtps::ByteReader& reader, uint64_t count) {
    constexpr size_t kChunk = 512;
    constexpr size_t kLongest = 32;
    std::array<Number, kChunk> values;
    while (count != 0) {
        const auto chunk = static_cast<size_t>(std::min<uint64_t>(count, kChunk));
        if (!reader.read_array(values.data(), chunk))
            return false;
        count -= chunk;
        size_t size = out_.size();
        out_.resize(size + chunk * kLongest);
        for (size_t i = 0; i < chunk; ++i) {
            char* const place = out_.data() + size;
            if constexpr (std::is_floating_point_v<Number>) {
                if (!std::isfinite(values[i])) {
                    Scalar scalar;
                    scalar.real = static_cast<double>(values[i]);
                    value_.assign(1, '"');
                    append_scalar(value_, type, scalar);
                    value_ += "\",";
                    std::memcpy(place, value_.data(), value_.size());
                    size += value_.size();
                    continue;
                }
            }
            char* const end = std::to_chars(place, place + kLongest - 1, values[i]).ptr;
            *end = ',';
            size = static_cast<size_t>(end + 1 - out_.data());
        }
        out_.resize(count == 0 ? size - 1 : size);
        if (count != 0 && !goes_on())
            return cut_value();
    }
    return true;
}

bool JsonPrinter::primitives(const Type& type, rtps::ByteReader& reader, uint64_t count) {
    open_.back().empty = false;
    switch (type.kind) {
        case DDS_TK_OCTET:
        case DDS_TK_UINT8:
            break;
        case DDS_TK_INT8:
            return numbers<int8_t>(type, reader, count);
        case DDS_TK_SHORT:
            return numbers<int16_t>(type, reader, count);
        case DDS_TK_USHORT:
            return numbers<uint16_t>(type, reader, count);
        case DDS_TK_LONG:
            return numbers<int32_t>(type, reader, count);
        case DDS_TK_ULONG:
            return numbers<uint32_t>(type, reader, count);
        case DDS_TK_LONGLONG:
            return numbers<int64_t>(type, reader, count);
        case DDS_TK_ULONGLONG:
            return numbers<uint64_t>(type, reader, count);
        case DDS_TK_FLOAT:
            return numbers<float>(type, reader, count);
        default:
            return numbers<double>(type, reader, count);
    }
    const bool is_counted = counts(count);
    while (count != 0) {
        constexpr size_t kChunk = 8192;
        rtps::ByteView view;
        if (!reader.read_view(static_cast<size_t>(std::min<uint64_t>(count, kChunk)), view))
            return false;
        count -= view.size;
        if (is_counted) {
            this->count(length_of(view) - (count == 0 ? 1 : 0));
            continue;
        }
        const size_t size = out_.size();
        out_.resize(size + view.size * kLongestOctet);
        char* place = out_.data() + size;
        for (const uint8_t octet : view) {
            std::memcpy(place, kOctets.texts[octet], kLongestOctet);
            place += kOctets.lengths[octet];
        }
        out_.resize(static_cast<size_t>(place - out_.data()) - (count == 0 ? 1 : 0));
        if (count != 0 && !goes_on())
            return cut_value();
    }
    return true;
}

} // namespace

bool print_json(const JsonWalk& walk, const JsonStyle& style, PrintBuffers& buffers,
                const TextTarget& target) {
    const size_t start = buffers.text.size();
    JsonPrinter printer(style, buffers, target);
    if (walk(printer) || printer.is_cut())
        return true;
    buffers.text.resize(std::min(start, buffers.text.size()));
    return false;
}

} // namespace meridian::types
