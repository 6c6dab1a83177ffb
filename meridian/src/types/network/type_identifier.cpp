#include "types/network/type_identifier.h"

#include <tuple>

#include "platform/text.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/model/type.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteWriter;

bool operator<(const TypeHash& a, const TypeHash& b) {
    return std::tie(a.kind, a.bytes, a.component_length, a.component_index) <
           std::tie(b.kind, b.bytes, b.component_length, b.component_index);
}

TypeIdentifier TypeIdentifier::of(const TypeHash& hash) {
    TypeIdentifier id;
    id.kind = hash.component_length == 0 ? hash.kind : tk::kStronglyConnected;
    id.hash = hash;
    return id;
}

namespace {

bool is_large(uint8_t kind) {
    return (kind & 1) != 0;
}

bool read_nested(ByteReader& reader, TypeIdentifier& id, unsigned depth);

bool read_pointer(ByteReader& reader, std::shared_ptr<const TypeIdentifier>& out, unsigned depth) {
    auto id = std::make_shared<TypeIdentifier>();
    if (!read_nested(reader, *id, depth + 1))
        return false;
    out = std::move(id);
    return true;
}

bool read_bound(ByteReader& reader, bool large, uint32_t& bound) {
    if (large)
        return reader.read(bound);
    uint8_t small = 0;
    if (!reader.read(small))
        return false;
    bound = small;
    return true;
}

bool read_dimensions(ByteReader& reader, bool large, std::vector<uint32_t>& dimensions) {
    uint32_t count = 0;
    if (!reader.read_length(count, large ? 4 : 1) || count > kMaxDimensions)
        return reader.fail();
    dimensions.resize(count);
    for (uint32_t& dimension : dimensions) {
        if (!read_bound(reader, large, dimension))
            return false;
    }
    return true;
}

bool read_collection(ByteReader& reader, TypeIdentifier& id, unsigned depth) {
    if (!reader.read(id.equivalence) || !reader.read(id.element_flags))
        return false;
    const bool large = is_large(id.kind);
    const bool array = id.kind == tk::kPlainArraySmall || id.kind == tk::kPlainArrayLarge;
    const bool sized =
        array ? read_dimensions(reader, large, id.dimensions) : read_bound(reader, large, id.bound);
    if (!sized || !read_pointer(reader, id.element, depth))
        return false;
    if (id.kind != tk::kPlainMapSmall && id.kind != tk::kPlainMapLarge)
        return true;
    return reader.read(id.key_flags) && read_pointer(reader, id.key, depth);
}

bool read_component(ByteReader& outer, TypeHash& hash) {
    ByteReader reader;
    return enter_delimited(outer, reader) && reader.read(hash.kind) &&
           (hash.kind == tk::kMinimal || hash.kind == tk::kComplete) && reader.read_bytes(hash.bytes) &&
           reader.read(hash.component_length) && reader.read(hash.component_index) &&
           hash.component_length > 0;
}

bool read_nested(ByteReader& reader, TypeIdentifier& id, unsigned depth) {
    if (depth > TypeIdentifier::kMaxDepth || !reader.read(id.kind))
        return reader.fail();
    if (id.kind <= tk::kUint8 || id.kind == tk::kChar8 || id.kind == tk::kChar16)
        return true;
    switch (id.kind) {
        case tk::kString8Small:
        case tk::kString8Large:
        case tk::kString16Small:
        case tk::kString16Large:
            return read_bound(reader, is_large(id.kind), id.bound);
        case tk::kPlainSequenceSmall:
        case tk::kPlainSequenceLarge:
        case tk::kPlainArraySmall:
        case tk::kPlainArrayLarge:
        case tk::kPlainMapSmall:
        case tk::kPlainMapLarge:
            return read_collection(reader, id, depth);
        case tk::kStronglyConnected:
            return read_component(reader, id.hash) || reader.fail();
        case tk::kMinimal:
        case tk::kComplete:
            id.hash.kind = id.kind;
            return reader.read_bytes(id.hash.bytes);
        default:
            return reader.fail();
    }
}

void write_bound(ByteWriter& writer, bool large, uint32_t bound) {
    if (large)
        writer.write(bound);
    else
        writer.write(static_cast<uint8_t>(bound));
}

} // namespace

bool read(ByteReader& reader, TypeIdentifier& id) {
    id = TypeIdentifier();
    return read_nested(reader, id, 0);
}

void write(ByteWriter& writer, const TypeIdentifier& id) {
    writer.write(id.kind);
    const bool large = is_large(id.kind);
    if (id.kind >= tk::kString8Small && id.kind <= tk::kString16Large) {
        write_bound(writer, large, id.bound);
    } else if (id.element != nullptr) {
        writer.write(id.equivalence);
        writer.write(id.element_flags);
        if (id.dimensions.empty()) {
            write_bound(writer, large, id.bound);
        } else {
            writer.write(static_cast<uint32_t>(id.dimensions.size()));
            for (uint32_t dimension : id.dimensions)
                write_bound(writer, large, dimension);
        }
        write(writer, *id.element);
        if (id.key != nullptr) {
            writer.write(id.key_flags);
            write(writer, *id.key);
        }
    } else if (id.kind == tk::kStronglyConnected) {
        writer.write(uint32_t{24}); // the kind, the hash, a byte of padding, and two numbers
        writer.write(id.hash.kind);
        writer.write_bytes(id.hash.bytes);
        writer.write(id.hash.component_length);
        writer.write(id.hash.component_index);
    } else if (id.is_hashed()) {
        writer.write_bytes(id.hash.bytes);
    }
}

void collect_hashes(const TypeIdentifier& id, std::vector<TypeHash>& hashes) {
    if (id.is_hashed())
        hashes.push_back(id.hash);
    if (id.element != nullptr)
        collect_hashes(*id.element, hashes);
    if (id.key != nullptr)
        collect_hashes(*id.key, hashes);
}

std::string to_string(const TypeHash& hash) {
    std::string text = hash.kind == tk::kMinimal ? "minimal " : "complete ";
    for (const uint8_t byte : hash.bytes)
        append_hex(text, byte);
    if (hash.component_length != 0)
        text += " #" + std::to_string(hash.component_index) + "/" + std::to_string(hash.component_length);
    return text;
}

} // namespace meridian::types
