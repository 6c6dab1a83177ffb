#include "types/data/plain_printer.h"

#include "platform/text.h"
#include "types/data/scalar_text.h"

namespace meridian::types {

namespace {

/// Longer collections of primitives have more than one element to a line.
constexpr uint64_t kMostLines = 16;
constexpr uint64_t kRow = 16;
/// Characters of an array are put in pieces of this length.
constexpr size_t kPiece = 4096;

constexpr char kDigits[] = "0123456789abcdef";

constexpr Quoting kCharacter{"'\\\n\t\r", "'\\ntr", "\\x", kDigits};
constexpr Quoting kText{"\"\\\n\t\r", "\"\\ntr", "\\x", kDigits};

} // namespace

void PlainPrinter::start_line() {
    if (lead_ == Lead::label)
        out_ += '\n';
    lead_ = Lead::none;
    out_.append(static_cast<size_t>(level_) * kIndentWidth, ' ');
}

bool PlainPrinter::goes_on_or_cuts() {
    if (goes_on())
        return true;
    start_line();
    out_ += kCutMark;
    out_ += '\n';
    return false;
}

void PlainPrinter::put_value(const Type& type, const Scalar& value) {
    switch (type.kind) {
        case DDS_TK_STRING:
        case DDS_TK_WSTRING:
        case DDS_TK_CHAR:
        case DDS_TK_WCHAR: {
            const bool character = type.kind == DDS_TK_CHAR || type.kind == DDS_TK_WCHAR;
            const char quote = character ? '\'' : '"';
            value_.clear();
            append_scalar(value_, type, value);
            out_ += quote;
            append_escaped(out_, value_, character ? kCharacter : kText);
            out_ += quote;
            break;
        }
        default:
            append_scalar(out_, type, value);
            break;
    }
}

bool PlainPrinter::scalar(const Type& type, const Scalar& value) {
    const Layout layout = open_.empty() ? Layout::lines : open_.back().layout;
    if (layout == Layout::text) {
        put_character(type, value);
        return goes_on();
    }
    if (lead_ == Lead::key) {
        put_value(type, value);
        out_ += "]:";
        lead_ = Lead::label;
        return true;
    }
    if (lead_ == Lead::label || layout == Layout::rows)
        out_ += ' ';
    put_value(type, value);
    lead_ = Lead::none;
    if (layout == Layout::rows && !ends_row(open_.back().index))
        return true;
    out_ += '\n';
    if (layout == Layout::rows)
        open_.back().in_row = false;
    return true;
}

bool PlainPrinter::ends_row(uint64_t index) const {
    const Type* array = open_.back().array;
    const uint64_t place = array == nullptr ? index : index % array->dimensions.back();
    return place % kRow == kRow - 1 || (array != nullptr && place == array->dimensions.back() - 1);
}

void PlainPrinter::put_character(const Type& type, const Scalar& value) {
    if (value.bits == 0) {
        ++nuls_; // those at the end are no text
        return;
    }
    if (type.kind == DDS_TK_CHAR) {
        characters_.append(nuls_, '\0');
        characters_ += static_cast<char>(value.bits);
    } else {
        wide_characters_.append(nuls_, u'\0');
        append_utf16_of(wide_characters_, static_cast<char32_t>(value.bits));
    }
    nuls_ = 0;
    // A character of several octets or units is not torn.
    if (value.bits < 0x80 && characters_.size() + wide_characters_.size() >= kPiece)
        put_characters();
}

void PlainPrinter::put_characters() {
    // Characters may be octets of anything, and are shown as such where they are no text.
    for (std::string_view rest = characters_; !rest.empty();) {
        const size_t text = valid_length(rest);
        append_escaped(out_, rest.substr(0, text), kText);
        rest.remove_prefix(text);
        if (rest.empty())
            break;
        out_ += "\\x";
        append_hex(out_, static_cast<uint8_t>(rest.front()));
        rest.remove_prefix(1);
    }
    value_.clear();
    append_utf16(value_, wide_characters_);
    characters_.clear();
    wide_characters_.clear();
    append_escaped(out_, value_, kText);
}

bool PlainPrinter::begin(const Type& type, uint64_t count) {
    const bool has_rows = type.kind == DDS_TK_ARRAY && type.dimensions.size() > 1;
    const bool is_map = type.kind == DDS_TK_MAP;
    const Type* content = type.content != nullptr && !is_map ? resolve_alias(type.content) : nullptr;
    Layout layout = Layout::lines;
    if (content != nullptr && primitive_size(content->kind) != 0 && count > kMostLines)
        layout = content->kind == DDS_TK_CHAR || content->kind == DDS_TK_WCHAR ? Layout::text : Layout::rows;
    if (!open_.push({has_rows ? &type : nullptr, is_map && is_scalar(type.key), layout, false, 0}))
        return false;
    // The outermost value has no label and its parts are not indented further.
    if (open_.size() > 1)
        ++level_;
    if (layout == Layout::text) {
        out_ += lead_ == Lead::label ? " \"" : "\"";
        lead_ = Lead::none;
        nuls_ = 0;
        characters_.clear();
        wide_characters_.clear();
    }
    return true;
}

/// Ends the line that rows or a text left open.
void PlainPrinter::end_layout() {
    const Level& level = open_.back();
    if (level.layout == Layout::text) {
        put_characters();
        out_ += "\"\n";
    } else if (level.in_row) {
        out_ += '\n';
    }
}

bool PlainPrinter::end(const Type& type) {
    end_layout();
    open_.pop();
    if (!open_.empty())
        --level_;
    if (lead_ == Lead::label) {
        out_ += type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY ? " []\n" : " {}\n";
        lead_ = Lead::none;
    }
    return true;
}

bool PlainPrinter::label(std::string_view text) {
    if (!goes_on_or_cuts())
        return false;
    start_line();
    if (plain_length(text) == text.size())
        out_ += text;
    else
        append_utf8(out_, text);
    out_ += ':';
    lead_ = Lead::label;
    return true;
}

bool PlainPrinter::discriminator() {
    return label("_d");
}

bool PlainPrinter::member(const Member& member) {
    return label(member.name);
}

void PlainPrinter::put_index(uint64_t index) {
    const Type* array = open_.back().array;
    if (array == nullptr) {
        out_ += '[';
        append_number(out_, index);
        out_ += ']';
    } else {
        uint64_t stride = 1;
        for (uint32_t dimension : array->dimensions)
            stride *= dimension;
        for (uint32_t dimension : array->dimensions) {
            stride /= dimension; // not 0: there is an element
            out_ += '[';
            append_number(out_, index / stride % dimension);
            out_ += ']';
        }
    }
    out_ += ':';
}

bool PlainPrinter::element(uint64_t index) {
    Level& level = open_.back();
    level.index = index;
    if (level.in_row || level.layout == Layout::text)
        return true;
    if (!goes_on_or_cuts())
        return false;
    start_line();
    put_index(index);
    level.in_row = level.layout == Layout::rows;
    if (!level.in_row)
        lead_ = Lead::label;
    return true;
}

bool PlainPrinter::takes_primitives(const Type& type, uint64_t) const {
    return open_.back().layout == Layout::rows && (type.kind == DDS_TK_OCTET || type.kind == DDS_TK_UINT8);
}

bool PlainPrinter::primitives(const Type&, rtps::ByteReader& reader, uint64_t count) {
    const size_t digits = count > 0x10000 ? 8 : 4;
    for (uint64_t offset = 0; offset < count; offset += kRow) {
        rtps::ByteView row;
        if (!reader.read_view(static_cast<size_t>(std::min(kRow, count - offset)), row) || !goes_on_or_cuts())
            return false;
        start_line();
        char line[8 + 1 + 3 * kRow + 1];
        char* place = line;
        for (size_t shift = digits; shift-- > 0;)
            *place++ = kDigits[offset >> (4 * shift) & 15];
        *place++ = ':';
        for (const uint8_t octet : row) {
            *place++ = ' ';
            *place++ = kDigits[octet >> 4];
            *place++ = kDigits[octet & 15];
        }
        *place++ = '\n';
        out_.append(line, place);
    }
    return true;
}

bool PlainPrinter::key(uint64_t) {
    if (!open_.back().scalar_keys)
        return label("key");
    if (!goes_on_or_cuts())
        return false;
    start_line();
    out_ += '[';
    lead_ = Lead::key;
    return true;
}

bool PlainPrinter::mapped() {
    return open_.back().scalar_keys || label("value");
}

void PlainPrinter::close() {
    if (!open_.empty())
        end_layout();
    if (lead_ != Lead::none)
        out_ += '\n';
    lead_ = Lead::none;
}

} // namespace meridian::types
