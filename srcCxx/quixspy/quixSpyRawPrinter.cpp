#include "quixspy/quixSpyRawPrinter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <type_traits>

#include "agent/QuixAgentOutput.h"
#include "quixspy/quixSpyText.h"

namespace {

/// Text beyond this length is put when there is an output to put it to.
constexpr size_t kSpillLength = 64 * 1024;

constexpr DDS_UnsignedShort kCdrBe = 0;
constexpr DDS_UnsignedShort kCdrLe = 1;
constexpr DDS_UnsignedShort kCdr2Be = 6;
constexpr DDS_UnsignedShort kCdr2Le = 7;

bool is_xcdr2(const QUIXCdrStream& stream) {
    return stream.encapsulationKind == kCdr2Be || stream.encapsulationKind == kCdr2Le;
}

/// Whether values follow each other without headers, as far as the encapsulation decides that.
bool is_plain(const QUIXCdrStream& stream) {
    return stream.encapsulationKind == kCdrBe || stream.encapsulationKind == kCdrLe || is_xcdr2(stream);
}

/// The answer of a type code to a query, empty when the query fails.
template <typename Query, typename... Arguments>
auto ask(const DDS_TypeCode& code, Query query, Arguments... arguments) {
    DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
    std::optional answer = (code.*query)(arguments..., exception);
    if (exception != DDS_NO_EXCEPTION_CODE)
        answer.reset();
    return answer;
}

/// The same for queries whose answer is another type code: null when the query fails.
template <typename Query, typename... Arguments>
const DDS_TypeCode* ask_type(const DDS_TypeCode& code, Query query, Arguments... arguments) {
    return ask(code, query, arguments...).value_or(nullptr);
}

/// The type code behind all aliases, at most as many as values may nest; null when a query fails.
const DDS_TypeCode* behind_aliases(const DDS_TypeCode* code) {
    for (unsigned depth = 0; code != nullptr && depth <= QUIXSPY_RAW_PRINTER_MAX_DEPTH; ++depth) {
        const auto kind = ask(*code, &DDS_TypeCode::kind);
        if (kind != DDS_TK_ALIAS)
            return kind ? code : nullptr;
        code = ask_type(*code, &DDS_TypeCode::content_type);
    }
    return nullptr;
}

/// What the length of a wide string counts, and what a wide character takes.
enum class WideText : uint8_t {
    octets, // as the standard has it
    units,  // characters of two octets: Fast CDR 2
    quads,  // characters of four octets, also for one alone: Fast CDR 1
    unknown,
};

/// A payload is padded to a multiple of four octets.
constexpr DDS_UnsignedLong kMaxPadding = 3;

/// Kinds whose collections have no header of their own in XCDR2.
bool is_primitive(DDS_TCKind kind) {
    constexpr DDS_TCKind kPrimitives[] = {DDS_TK_SHORT, DDS_TK_LONG,     DDS_TK_USHORT,    DDS_TK_ULONG,
                                          DDS_TK_FLOAT, DDS_TK_DOUBLE,   DDS_TK_BOOLEAN,   DDS_TK_CHAR,
                                          DDS_TK_OCTET, DDS_TK_LONGLONG, DDS_TK_ULONGLONG, DDS_TK_LONGDOUBLE,
                                          DDS_TK_WCHAR};
    return std::find(std::begin(kPrimitives), std::end(kPrimitives), kind) != std::end(kPrimitives);
}

// Reading
// ------------------------------------------------------------------------------------------------------------

bool read(QUIXCdrStream& stream, uint8_t& value) {
    return QUIXCdrStream_read1(&stream, &value);
}
bool read(QUIXCdrStream& stream, uint16_t& value) {
    return QUIXCdrStream_read2(&stream, &value);
}
bool read(QUIXCdrStream& stream, uint32_t& value) {
    return QUIXCdrStream_read4(&stream, &value);
}

template <size_t kSize>
using Octets = std::array<uint8_t, kSize>;

/// One octet, or a value of 8 or 16 bytes in host byte order.
template <size_t kSize>
bool read(QUIXCdrStream& stream, Octets<kSize>& octets) {
    if ((kSize > 1 && !QUIXCdrStream_align(&stream, is_xcdr2(stream) ? 4 : 8)) ||
        !QUIXCdrStream_readBytes(&stream, octets.data(), kSize))
        return false;
    if (stream.needByteSwap)
        std::reverse(octets.begin(), octets.end());
    return true;
}

template <typename Number>
bool read_as(QUIXCdrStream& stream, int32_t& value) {
    std::make_unsigned_t<Number> bits = 0;
    if (!read(stream, bits))
        return false;
    value = static_cast<int32_t>(static_cast<Number>(bits));
    return true;
}

/// An enumerator. Those of narrow enumerations take fewer bytes than the classic four.
bool read_enumerator(QUIXCdrStream& stream, const DDS_TypeCode& code, int32_t& value) {
    const auto bits = ask(code, &DDS_TypeCode::bit_bound);
    return bits && *bits > 16 && read_as<int32_t>(stream, value);
}

bool read_discriminator(QUIXCdrStream& stream, const DDS_TypeCode& code, int32_t& value) {
    switch (ask(code, &DDS_TypeCode::kind).value_or(DDS_TK_NULL)) {
        case DDS_TK_SHORT:
            return read_as<int16_t>(stream, value);
        case DDS_TK_USHORT:
            return read_as<uint16_t>(stream, value);
        case DDS_TK_LONG:
        case DDS_TK_ULONG:
            return read_as<uint32_t>(stream, value);
        case DDS_TK_ENUM:
            return read_enumerator(stream, code, value);
        case DDS_TK_CHAR:
            return read_as<int8_t>(stream, value);
        case DDS_TK_BOOLEAN:
        case DDS_TK_OCTET:
            return read_as<uint8_t>(stream, value);
        default:
            return false;
    }
}

// Writing
// ------------------------------------------------------------------------------------------------------------

void put_indent(std::string& text, int32_t level) {
    if (level > 0)
        text.append(3 * static_cast<size_t>(level), ' ');
}

/// `bits` as they are read hold a number of type Number.
template <typename Number, typename Bits>
void put_number(std::string& text, Bits bits) {
    QUIXSpy_appendDecimal(text, static_cast<Number>(bits));
}

/// `bits` hold a number of type Number.
template <typename Number, typename Bits>
void put_real(std::string& text, Bits bits) {
    Number number = 0;
    static_assert(sizeof number == sizeof bits);
    std::memcpy(&number, &bits, sizeof number);
    char digits[512]; // the largest double has 309 digits in front of the point
    const int length = std::snprintf(digits, sizeof digits, "%f", static_cast<double>(number));
    text.append(digits, static_cast<size_t>(length));
}

void put_boolean(std::string& text, uint8_t octet) {
    text += octet == 0 ? "false" : "true";
}

void put_character(std::string& text, uint8_t octet) {
    const char character = static_cast<char>(octet);
    text += '\'';
    QUIXSpy_appendText(text, {&character, 1});
    text += '\'';
}

template <size_t kSize>
void put_octets(std::string& text, Octets<kSize> octets) {
    text += '<';
    for (const uint8_t octet : octets)
        QUIXSpy_appendHex(text, octet, 2);
    text += '>';
}

void put_label(std::string& text, const char* name) {
    QUIXSpy_appendText(text, name);
    text += ": ";
}

/// One walk over one sample.
class Walk {
  public:
    Walk(std::string& text, QuixAgentOutput* output, QUIXCdrStream& stream, WideText wide_text,
         bool is_trial = false)
        : text_(text),
          output_(output),
          stream_(stream),
          wide_text_(wide_text),
          is_trial_(is_trial),
          budget_(QUIXSPY_RAW_PRINTER_VALUES_PER_BYTE * QUIXCdrStream_remaining(&stream) +
                  QUIXSPY_RAW_PRINTER_VALUES_PER_SAMPLE) {}

    /// Whether something was read that the form of wide text mostly has not.
    bool is_doubtful() const { return is_doubtful_; }

    /// Whether the value is the sample, or a part of it that may have a header of its own.
    enum class Place : uint8_t { outermost, nested };

    bool print(const DDS_TypeCode* code, int32_t indent, Place place) {
        if (code == nullptr || budget_ == 0 || depth_ >= QUIXSPY_RAW_PRINTER_MAX_DEPTH)
            return false;
        --budget_;
        ++depth_;
        const bool done = print_value(*code, indent, place);
        --depth_;
        return done;
    }

    bool print_primitive(const DDS_TypeCode* alias) {
        const DDS_TypeCode* const code = behind_aliases(alias);
        if (code == nullptr)
            return false;
        switch (*ask(*code, &DDS_TypeCode::kind)) {
            case DDS_TK_SHORT:
                return print_as<uint16_t>(put_number<int16_t, uint16_t>);
            case DDS_TK_LONG:
                return print_as<uint32_t>(put_number<int32_t, uint32_t>);
            case DDS_TK_USHORT:
                return print_as<uint16_t>(put_number<uint16_t, uint16_t>);
            case DDS_TK_ULONG:
                return print_as<uint32_t>(put_number<uint32_t, uint32_t>);
            case DDS_TK_FLOAT:
                return print_as<uint32_t>(put_real<float, uint32_t>);
            case DDS_TK_DOUBLE:
                return print_as<Octets<8>>(put_real<double, Octets<8>>);
            case DDS_TK_BOOLEAN:
                return print_as<uint8_t>(put_boolean);
            case DDS_TK_CHAR:
                return print_as<uint8_t>(put_character);
            case DDS_TK_OCTET:
                return print_as<Octets<1>>(put_octets<1>);
            case DDS_TK_ENUM:
                return print_enumerator(*code);
            case DDS_TK_STRING:
                return print_string(*code);
            case DDS_TK_LONGLONG:
            case DDS_TK_ULONGLONG:
                return print_as<Octets<8>>(put_octets<8>);
            case DDS_TK_LONGDOUBLE:
                return print_as<Octets<16>>(put_octets<16>);
            case DDS_TK_WCHAR:
                return print_wide_character();
            case DDS_TK_WSTRING:
                return print_wide_string(*code);
            default:
                return false;
        }
    }

  private:
    void end_line() {
        text_ += '\n';
        if (is_trial_)
            text_.clear();
        if (output_ != nullptr && text_.size() > kSpillLength) {
            output_->put(text_);
            text_.clear();
        }
    }

    /// Of a structure or union, by its extensibility: for the outermost one the encapsulation decides.
    bool may_have_header(const DDS_TypeCode& code, Place place) const {
        if (place == Place::outermost)
            return false;
        const auto extensibility = ask(code, &DDS_TypeCode::extensibility_kind);
        return !extensibility || *extensibility == DDS_MUTABLE_EXTENSIBILITY ||
               (is_xcdr2(stream_) && *extensibility != DDS_FINAL_EXTENSIBILITY);
    }

    /// The type of the elements; null when it cannot be told or the collection starts with a header.
    const DDS_TypeCode* content_without_header(const DDS_TypeCode& collection) const {
        const DDS_TypeCode* const content = ask_type(collection, &DDS_TypeCode::content_type);
        if (content == nullptr || !is_xcdr2(stream_))
            return content;
        const DDS_TypeCode* const element = behind_aliases(content);
        return element != nullptr && is_primitive(*ask(*element, &DDS_TypeCode::kind)) ? content : nullptr;
    }

    bool print_value(const DDS_TypeCode& code, int32_t indent, Place place) {
        const auto kind = ask(code, &DDS_TypeCode::kind);
        if (!kind)
            return false;
        switch (*kind) {
            case DDS_TK_STRUCT:
            case DDS_TK_VALUE:
                return print_structure(code, *kind, indent, place);
            case DDS_TK_UNION:
                return print_union(code, indent, place);
            case DDS_TK_SEQUENCE:
                return print_sequence(code, indent);
            case DDS_TK_ARRAY:
                return print_array(code, indent);
            case DDS_TK_ALIAS:
                return print(ask_type(code, &DDS_TypeCode::content_type), indent, place);
            default:
                return print_primitive(&code);
        }
    }

    // -- Values with parts

    bool print_structure(const DDS_TypeCode& code, DDS_TCKind kind, int32_t indent, Place place) {
        if (may_have_header(code, place))
            return false;
        if (kind == DDS_TK_VALUE) {
            const auto base = ask(code, &DDS_TypeCode::concrete_base_type);
            // Members of the base are members of this structure: they have no header of their own.
            if (!base || (*base != nullptr && !print(*base, indent, Place::outermost)))
                return false;
        }
        end_line();
        const auto count = ask(code, &DDS_TypeCode::member_count);
        if (!count)
            return false;
        for (uint32_t i = 0; i < *count; ++i) {
            if (i > 0)
                end_line();
            if (!print_member(code, i, indent))
                return false;
        }
        return true;
    }

    bool print_member(const DDS_TypeCode& code, uint32_t index, int32_t indent) {
        const auto bits = ask(code, &DDS_TypeCode::member_bitfield_bits, index);
        const auto optional = ask(code, &DDS_TypeCode::is_member_optional, index);
        if (!bits || *bits < DDS_TYPECODE_NOT_BITFIELD || optional.value_or(true))
            return false;
        return print_labelled(code, ask(code, &DDS_TypeCode::member_name, index).value_or(nullptr), index,
                              indent, 1);
    }

    /// The value of a member under a name, what is in it `deeper` than the name.
    bool print_labelled(const DDS_TypeCode& code, const char* name, uint32_t index, int32_t indent,
                        int32_t deeper) {
        if (name == nullptr)
            return false;
        put_indent(text_, indent);
        put_label(text_, name);
        return print(ask_type(code, &DDS_TypeCode::member_type, index), indent + deeper, Place::nested);
    }

    bool print_union(const DDS_TypeCode& code, int32_t indent, Place place) {
        if (may_have_header(code, place))
            return false;
        end_line();
        put_indent(text_, indent);
        put_label(text_, "_d");
        const DDS_TypeCode* const discriminator = ask_type(code, &DDS_TypeCode::discriminator_type);
        const DDS_TypeCode* const discriminator_kind = behind_aliases(discriminator);
        QUIXCdrStream ahead = stream_;
        int32_t value = 0;
        if (discriminator_kind == nullptr || !read_discriminator(ahead, *discriminator_kind, value) ||
            !print_primitive(discriminator))
            return false;
        end_line();

        const auto default_index = ask(code, &DDS_TypeCode::default_index);
        const auto count = ask(code, &DDS_TypeCode::member_count);
        if (!default_index || !count)
            return false;
        for (uint32_t i = 0; i < *count; ++i) {
            if (static_cast<int64_t>(i) == *default_index)
                continue;
            const auto labels = ask(code, &DDS_TypeCode::member_label_count, i);
            if (!labels)
                return false;
            for (uint32_t k = 0; k < *labels; ++k) {
                const auto label = ask(code, &DDS_TypeCode::member_label, i, k);
                if (!label)
                    return false;
                if (*label == value)
                    return print_labelled(code, ask(code, &DDS_TypeCode::member_name, i).value_or(nullptr), i,
                                          indent, 2);
            }
        }
        // Without a default member no member has this index, and the query of its type fails.
        return print_labelled(code, "default", static_cast<uint32_t>(*default_index), indent, 2);
    }

    bool print_sequence(const DDS_TypeCode& code, int32_t indent) {
        const DDS_TypeCode* const content = content_without_header(code);
        uint32_t count = 0;
        if (content == nullptr || !read(stream_, count))
            return false;
        for (uint32_t k = 0; k < count; ++k) {
            end_line(); // in front of the first, and between two
            put_indent(text_, indent);
            text_ += '[';
            QUIXSpy_appendDecimal(text_, k);
            text_ += "]: ";
            if (!print(content, indent + 1, Place::nested))
                return false;
        }
        return true;
    }

    bool print_array(const DDS_TypeCode& code, int32_t indent) {
        end_line();
        const auto dimension_count = ask(code, &DDS_TypeCode::array_dimension_count);
        const DDS_TypeCode* const content = content_without_header(code);
        if (content == nullptr || !dimension_count || *dimension_count > QUIXSPY_RAW_PRINTER_MAX_DIMENSIONS)
            return false;
        uint32_t dimensions[QUIXSPY_RAW_PRINTER_MAX_DIMENSIONS] = {};
        for (uint32_t i = 0; i < *dimension_count; ++i) {
            const auto dimension = ask(code, &DDS_TypeCode::array_dimension, i);
            if (!dimension)
                return false;
            dimensions[i] = *dimension;
        }
        uint32_t* const end = dimensions + *dimension_count;
        if (std::find(dimensions, end, 0u) != end)
            return true;

        uint32_t index[QUIXSPY_RAW_PRINTER_MAX_DIMENSIONS] = {};
        while (true) {
            put_indent(text_, indent);
            for (uint32_t i = 0; i < *dimension_count; ++i) {
                text_ += '[';
                QUIXSpy_appendDecimal(text_, index[i]);
                text_ += ']';
            }
            text_ += ": ";
            if (!print(content, indent + 1, Place::nested))
                return false;
            // The last dimension runs fastest; when the first overflows, that was the last element.
            uint32_t turning = *dimension_count;
            while (turning > 0 && ++index[turning - 1] == dimensions[turning - 1])
                index[--turning] = 0;
            if (turning == 0)
                return true;
            end_line();
        }
    }

    // -- Values without parts

    template <typename Wire, typename Put>
    bool print_as(Put put) {
        Wire value{};
        if (!read(stream_, value))
            return false;
        put(text_, value);
        return true;
    }

    bool print_enumerator(const DDS_TypeCode& code) {
        int32_t value = 0;
        const auto count = ask(code, &DDS_TypeCode::member_count);
        if (!count || !read_enumerator(stream_, code, value))
            return false;
        for (uint32_t i = 0; i < *count; ++i) {
            const auto ordinal = ask(code, &DDS_TypeCode::member_ordinal, i);
            if (!ordinal)
                return false;
            if (*ordinal != value)
                continue;
            const char* const name = ask(code, &DDS_TypeCode::member_name, i).value_or(nullptr);
            if (name == nullptr)
                return false;
            QUIXSpy_appendText(text_, name);
            break;
        }
        return true;
    }

    bool print_string(const DDS_TypeCode& code) {
        const auto bound = ask(code, &DDS_TypeCode::length);
        const char* characters = nullptr;
        if (!bound || !QUIXCdrStream_readString(&stream_, &characters, *bound + 1))
            return false;
        text_ += '"';
        QUIXSpy_appendText(text_, characters);
        text_ += '"';
        return true;
    }

    bool read_wide(uint32_t& character) {
        if (wide_text_ == WideText::quads)
            return read(stream_, character) && character <= 0x10ffff;
        uint16_t unit = 0;
        const bool done = wide_text_ != WideText::unknown && read(stream_, unit);
        character = unit;
        return done;
    }

    bool print_wide_character() {
        uint32_t character = 0;
        if (!read_wide(character))
            return false;
        text_ += '<';
        QUIXSpy_appendHex(text_, character, 8);
        text_ += '>';
        return true;
    }

    bool read_wide_length(const DDS_TypeCode& code, uint32_t& count) {
        const auto bound = ask(code, &DDS_TypeCode::length);
        if (!bound)
            return false;
        if (wide_text_ == WideText::octets)
            return QUIXCdrStream_readWideStringLength(&stream_, &count, *bound + 1);
        return read(stream_, count) && count <= *bound + 1 && count <= QUIXCdrStream_remaining(&stream_) / 2;
    }

    bool print_wide_string(const DDS_TypeCode& code) {
        uint32_t count = 0;
        if (wide_text_ == WideText::unknown || !read_wide_length(code, count))
            return false;
        text_ += '<';
        bool ended = false; // some serializers send a terminator
        for (; count > 0; --count) {
            uint32_t character = 0;
            if (!read_wide(character))
                return false;
            ended = ended || character == 0;
            if (!ended)
                QUIXSpy_appendHex(text_, character, 8);
        }
        is_doubtful_ = is_doubtful_ || ended;
        text_ += '>';
        return true;
    }

    std::string& text_;
    QuixAgentOutput* output_;
    QUIXCdrStream& stream_;
    const WideText wide_text_;
    const bool is_trial_;
    bool is_doubtful_ = false;
    uint64_t budget_;
    unsigned depth_ = 0;
};

/// How a sample has wide text.
WideText wide_text_of(const QUIXCdrStream& stream, const DDS_TypeCode* code) {
    constexpr DDS_Octet kFastDds[] = {0x01, 0x0f};
    if (!std::equal(std::begin(kFastDds), std::end(kFastDds), stream.vendorId))
        return WideText::octets;
    if (is_xcdr2(stream))
        return WideText::units; // Fast CDR 1 does not know that version
    WideText doubtful = WideText::unknown;
    for (const WideText form : {WideText::units, WideText::quads}) {
        if (stream.fastCdr == (form == WideText::units ? 1 : 2))
            continue; // the other generation has it
        std::string text;
        QUIXCdrStream ahead = stream;
        Walk trial(text, nullptr, ahead, form, true);
        if (!trial.print(code, 0, Walk::Place::outermost) || QUIXCdrStream_remaining(&ahead) > kMaxPadding)
            continue;
        if (!trial.is_doubtful())
            return form;
        if (doubtful == WideText::unknown)
            doubtful = form;
    }
    return doubtful;
}

} // namespace

void QuixSpyRawPrinter::print_indent(int32_t level) {
    put_indent(text_, level);
}

bool QuixSpyRawPrinter::print_sample(const DynamicType& sample, const DDS_TypeCode* typeCode,
                                     int32_t indent) {
    return sample.stream != nullptr && is_plain(*sample.stream) &&
           Walk(text_, output_, *sample.stream, wide_text_of(*sample.stream, typeCode))
               .print(typeCode, indent, Walk::Place::outermost);
}

bool QuixSpyRawPrinter::print_primitive_sample(const DynamicType& sample, const DDS_TypeCode* typeCode) {
    return sample.stream != nullptr && is_plain(*sample.stream) &&
           Walk(text_, output_, *sample.stream, wide_text_of(*sample.stream, typeCode))
               .print_primitive(typeCode);
}

bool QuixSpyRawPrinter::get_discriminator_value(const DynamicType& sample, const DDS_TypeCode* typeCode,
                                                int32_t& value) {
    const DDS_TypeCode* const code = behind_aliases(typeCode);
    if (sample.stream == nullptr || code == nullptr || !is_plain(*sample.stream))
        return false;
    QUIXCdrStream ahead = *sample.stream;
    return read_discriminator(ahead, *code, value);
}
