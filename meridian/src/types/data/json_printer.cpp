#include "types/data/json_printer.h"

#include <rapidjson/allocators.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstddef>

#include "platform/text.h"
#include "types/data/plain_printer.h"
#include "types/data/scalar_text.h"

namespace meridian::types {

namespace {

/// The stream that RapidJSON writes to: a string.
struct StringStream {
    using Ch = char;
    explicit StringStream(std::string& target) : out(target) {}
    /// Escapes what terminals obey and the writers leave as it is: U+007F to U+009F. Such characters stand in
    /// strings only.
    void Put(char c) {
        const auto octet = static_cast<uint8_t>(c);
        if (in_pair && octet <= 0x9f) {
            escape(octet);
            in_pair = false;
            return;
        }
        if (in_pair)
            out += '\xc2';
        in_pair = octet == 0xc2;
        if (octet == 0x7f)
            escape(octet);
        else if (!in_pair)
            out += c;
    }
    void Flush() {}

    void escape(uint8_t octet) {
        out += "\\u00";
        append_hex(out, octet);
    }

    std::string& out;
    bool in_pair = false; // behind the first octet of U+0080 to U+00BF, which is still to be written
};

template <typename Writer>
class JsonPrinter final : public ValueSink {
  public:
    JsonPrinter(Writer& writer, const JsonStyle& style, std::string& value)
        : writer_(writer), style_(style), text_(value) {}

    bool scalar(const Type& type, const Scalar& value) override {
        if (in_key_) {
            in_key_ = false;
            text_.clear();
            append_scalar(text_, type, value);
            return writer_.Key(text_.data(), size(), false);
        }
        switch (type.kind) {
            case DDS_TK_BOOLEAN:
                return writer_.Bool(value.bits != 0);
            case DDS_TK_FLOAT:
            case DDS_TK_DOUBLE:
                return real(type, value, std::isfinite(value.real));
            case DDS_TK_LONGDOUBLE:
                // Many parsers refuse numbers beyond the range of double.
                return real(type, value, std::isfinite(static_cast<double>(to_long_double(value))));
            case DDS_TK_CHAR:
            case DDS_TK_WCHAR:
            case DDS_TK_STRING:
            case DDS_TK_WSTRING:
            case DDS_TK_BITMASK:
                return text(type, value);
            case DDS_TK_ENUM: {
                const bool named = !style_.numeric_enumerators && !type.nameless &&
                                   find_enumerator(type, value.integer()) != nullptr;
                return named ? text(type, value) : writer_.Int64(value.integer());
            }
            default:
                return is_signed(type.kind) ? writer_.Int64(value.integer()) : writer_.Uint64(value.bits);
        }
    }

    /// Keys that are no scalars cannot be names of an object's members: such a map is an array of key and
    /// value.
    bool begin(const Type& type, uint64_t count) override {
        const bool is_collection = type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY;
        const bool has_rows = type.kind == DDS_TK_ARRAY && type.dimensions.size() > 1 && count != 0;
        const bool has_names = !is_collection && (type.kind != DDS_TK_MAP || is_scalar(type.key));
        return open_.push({has_rows ? &type : nullptr, has_names, count}) &&
               (has_names ? writer_.StartObject() : writer_.StartArray());
    }
    bool end(const Type& type) override {
        const Open open = open_.back();
        open_.pop();
        for (size_t i = 1; open.array != nullptr && i < open.array->dimensions.size(); ++i)
            writer_.EndArray();
        if (open.has_names)
            return writer_.EndObject();
        const bool ends_entry = type.kind == DDS_TK_MAP && open.count != 0;
        return (!ends_entry || writer_.EndObject()) && writer_.EndArray();
    }

    bool discriminator() override { return writer_.Key("_d", 2, false); }
    bool member(const Member& member) override {
        text_.clear();
        append_utf8(text_, member.name); // peers may announce anything as a name
        return writer_.Key(text_.data(), size(), false);
    }
    /// An array of several dimensions is written as arrays in arrays.
    bool element(uint64_t index) override {
        const Type* array = open_.back().array;
        if (array == nullptr)
            return true;
        const size_t starting = rows_starting(*array, index);
        for (size_t i = 0; i < starting && index != 0; ++i)
            writer_.EndArray();
        for (size_t i = 0; i < starting; ++i)
            writer_.StartArray();
        return true;
    }
    bool key(uint64_t index) override {
        if (!open_.back().has_names)
            return (index == 0 || writer_.EndObject()) && writer_.StartObject() &&
                   writer_.Key("key", 3, false);
        in_key_ = true;
        return true;
    }
    bool mapped() override { return open_.back().has_names || writer_.Key("value", 5, false); }

  private:
    rapidjson::SizeType size() const { return static_cast<rapidjson::SizeType>(text_.size()); }

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

    struct Open {
        const Type* array; // of several dimensions
        bool has_names;    // is written as an object
        uint64_t count;
    };

    bool text(const Type& type, const Scalar& value) {
        text_.clear();
        append_scalar(text_, type, value);
        return writer_.String(text_.data(), size(), false);
    }
    bool real(const Type& type, const Scalar& value, bool finite) {
        if (!finite)
            return text(type, value);
        text_.clear();
        append_scalar(text_, type, value);
        return writer_.RawValue(text_.data(), text_.size(), rapidjson::kNumberType);
    }

    Writer& writer_;
    JsonStyle style_;
    std::string& text_;
    NestingStack<Open> open_;
    bool in_key_ = false;
};

/// The writers' own stack: 16 octets for each of up to 2 * kMaxValueDepth levels, before they allocate.
class WriterStack {
  public:
    using Allocator = rapidjson::MemoryPoolAllocator<>;
    Allocator& allocator() { return allocator_; }

  private:
    alignas(std::max_align_t) char memory_[8192];
    Allocator allocator_{memory_, sizeof memory_};
};

template <template <typename, typename, typename, typename, unsigned> class WriterOf>
using StringWriter = WriterOf<StringStream, rapidjson::UTF8<>, rapidjson::UTF8<>, WriterStack::Allocator,
                              rapidjson::kWriteDefaultFlags>;

template <typename Writer>
bool print_with(Writer& writer, const JsonWalk& walk, const JsonStyle& style, std::string& value) {
    JsonPrinter<Writer> printer(writer, style, value);
    return walk(printer);
}

} // namespace

bool print_json(const JsonWalk& walk, const JsonStyle& style, PrintBuffers& buffers) {
    const size_t start = buffers.text.size();
    StringStream stream(buffers.text);
    WriterStack stack;
    bool done = false;
    if (style.pretty) {
        StringWriter<rapidjson::PrettyWriter> writer(stream, &stack.allocator());
        writer.SetIndent(' ', kIndentWidth);
        done = print_with(writer, walk, style, buffers.value);
    } else {
        StringWriter<rapidjson::Writer> writer(stream, &stack.allocator());
        done = print_with(writer, walk, style, buffers.value);
    }
    if (!done)
        buffers.text.resize(start);
    return done;
}

} // namespace meridian::types
