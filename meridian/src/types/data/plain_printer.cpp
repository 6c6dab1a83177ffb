#include "types/data/plain_printer.h"

#include "platform/text.h"
#include "types/data/scalar_text.h"

namespace meridian::types {

namespace {

void append_escaped(std::string& out, std::string_view text, char quote) {
    out += quote;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const size_t control = control_at(text, i);
        if (c == quote || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else if (control != 0) {
            i += control - 1;
            out += "\\x";
            append_hex(out, static_cast<uint8_t>(text[i]));
        } else {
            out += c;
        }
    }
    out += quote;
}

} // namespace

void PlainPrinter::start_line() {
    if (lead_ == Lead::label)
        out_ += '\n';
    lead_ = Lead::none;
    out_.append(static_cast<size_t>(level_) * kIndentWidth, ' ');
}

void PlainPrinter::put_value(const Type& type, const Scalar& value) {
    switch (type.kind) {
        case DDS_TK_STRING:
        case DDS_TK_WSTRING:
        case DDS_TK_CHAR:
        case DDS_TK_WCHAR: {
            const bool character = type.kind == DDS_TK_CHAR || type.kind == DDS_TK_WCHAR;
            value_.clear();
            append_scalar(value_, type, value);
            append_escaped(out_, value_, character ? '\'' : '"');
            break;
        }
        default:
            append_scalar(out_, type, value);
            break;
    }
}

bool PlainPrinter::scalar(const Type& type, const Scalar& value) {
    if (lead_ == Lead::key) {
        put_value(type, value);
        out_ += "]:";
        lead_ = Lead::label;
        return true;
    }
    if (lead_ == Lead::label)
        out_ += ' ';
    put_value(type, value);
    out_ += '\n';
    lead_ = Lead::none;
    return true;
}

bool PlainPrinter::begin(const Type& type, uint64_t) {
    const bool has_rows = type.kind == DDS_TK_ARRAY && type.dimensions.size() > 1;
    if (!open_.push({has_rows ? &type : nullptr, type.kind == DDS_TK_MAP && is_scalar(type.key)}))
        return false;
    // The outermost value has no label and its parts are not indented further.
    if (open_.size() > 1)
        ++level_;
    return true;
}

bool PlainPrinter::end(const Type& type) {
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
    start_line();
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

bool PlainPrinter::element(uint64_t index) {
    start_line();
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
    lead_ = Lead::label;
    return true;
}

bool PlainPrinter::key(uint64_t) {
    if (!open_.back().scalar_keys)
        return label("key");
    start_line();
    out_ += '[';
    lead_ = Lead::key;
    return true;
}

bool PlainPrinter::mapped() {
    return open_.back().scalar_keys || label("value");
}

void PlainPrinter::close() {
    if (lead_ != Lead::none)
        out_ += '\n';
    lead_ = Lead::none;
}

} // namespace meridian::types
