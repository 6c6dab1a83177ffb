#include "types/data/json_printer.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include <cmath>

#include "types/data/plain_printer.h"
#include "types/model/text.h"

namespace meridian::types {

namespace {

/// What the writers write to: the caller's string.
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
        static constexpr char kDigits[] = "0123456789abcdef";
        out += "\\u00";
        out += kDigits[octet >> 4];
        out += kDigits[octet & 15];
    }

    std::string& out;
    bool in_pair = false; // behind the first octet of U+0080 to U+00BF, which is still to be written
};

template <typename Writer>
class JsonPrinter final : public ValueSink {
  public:
    JsonPrinter(Writer& writer, const JsonStyle& style) : writer_(writer), style_(style) {}

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
                return real(type, value, std::isfinite(value.real));
            case DDS_TK_DOUBLE:
                return real(type, value, std::isfinite(value.real));
            case DDS_TK_LONGDOUBLE:
                // Many parsers refuse numbers beyond the range of double.
                return real(type, value, std::isfinite(static_cast<double>(to_long_double(value.octets))));
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
            case DDS_TK_USHORT:
            case DDS_TK_ULONG:
            case DDS_TK_ULONGLONG:
            case DDS_TK_OCTET:
            case DDS_TK_UINT8:
                return writer_.Uint64(value.bits);
            default:
                return writer_.Int64(value.integer());
        }
    }

    bool begin_aggregate(const Type&) override { return writer_.StartObject(); }
    bool discriminator() override { return writer_.Key("_d", 2, false); }
    bool member(const Member& member) override {
        text_.clear();
        append_utf8(text_, member.name); // peers may announce anything as a name
        return writer_.Key(text_.data(), size(), false);
    }
    bool end_aggregate(const Type&) override { return writer_.EndObject(); }

    bool begin_collection(const Type& type, uint64_t count) override {
        const bool nested = type.kind == DDS_TK_ARRAY && type.dimensions.size() > 1 && count != 0;
        arrays_.push_back(nested ? &type : nullptr);
        return writer_.StartArray();
    }
    /// An array of several dimensions is written as arrays in arrays.
    bool element(uint64_t index) override {
        const Type* array = arrays_.back();
        if (array == nullptr)
            return true;
        const size_t starting = rows_starting(*array, index);
        for (size_t i = 0; i < starting && index != 0; ++i)
            writer_.EndArray();
        for (size_t i = 0; i < starting; ++i)
            writer_.StartArray();
        return true;
    }
    bool end_collection(const Type&) override {
        if (const Type* array = arrays_.back()) {
            for (size_t i = 1; i < array->dimensions.size(); ++i)
                writer_.EndArray();
        }
        arrays_.pop_back();
        return writer_.EndArray();
    }

    /// Keys that are no scalars cannot be names of an object's members: such a map is an array of key and
    /// value.
    bool begin_map(const Type& type, uint64_t count) override {
        maps_.push_back(is_scalar(type.key));
        entries_.push_back(count);
        return maps_.back() ? writer_.StartObject() : writer_.StartArray();
    }
    bool key(uint64_t index) override {
        if (!maps_.back())
            return (index == 0 || writer_.EndObject()) && writer_.StartObject() &&
                   writer_.Key("key", 3, false);
        in_key_ = true;
        return true;
    }
    bool mapped() override { return maps_.back() || writer_.Key("value", 5, false); }
    bool end_map(const Type&) override {
        const bool object = maps_.back();
        const bool entry_open = !object && entries_.back() != 0;
        maps_.pop_back();
        entries_.pop_back();
        if (object)
            return writer_.EndObject();
        return (!entry_open || writer_.EndObject()) && writer_.EndArray();
    }

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
    std::string text_;
    std::vector<const Type*> arrays_;
    std::vector<bool> maps_;        // whether the open maps are objects
    std::vector<uint64_t> entries_; // and how many entries they have
    bool in_key_ = false;
};

} // namespace

bool print_json(const JsonWalk& walk, const JsonStyle& style, std::string& out) {
    const size_t start = out.size();
    StringStream stream(out);
    bool done = false;
    if (style.pretty) {
        rapidjson::PrettyWriter<StringStream> writer(stream);
        writer.SetIndent(' ', kIndentWidth);
        JsonPrinter<rapidjson::PrettyWriter<StringStream>> printer(writer, style);
        done = walk(printer);
    } else {
        rapidjson::Writer<StringStream> writer(stream);
        JsonPrinter<rapidjson::Writer<StringStream>> printer(writer, style);
        done = walk(printer);
    }
    if (!done)
        out.resize(start);
    return done;
}

} // namespace meridian::types
