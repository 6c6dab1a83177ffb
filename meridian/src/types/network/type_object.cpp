#include "types/network/type_object.h"

#include <algorithm>
#include <array>
#include <utility>

#include "rtps/wire/encapsulation.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/model/md5.h"
#include "types/model/type.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;

namespace {

bool skip_string(ByteReader& reader) {
    ByteView view;
    return reader.read_octets(view);
}

template <typename Number>
bool skip_number(ByteReader& reader) {
    Number unused{};
    return reader.read(unused);
}

/// How the parts of a type object are put together.
class Form {
  public:
    explicit Form(TypeObjectForm form) : form_(form) {}

    bool is_plain() const { return form_ == TypeObjectForm::plain; }
    template <typename Content>
    bool delimited(ByteReader& outer, Content content) const {
        return read_delimited(form_, outer, content);
    }
    /// The same for what is of no use here. It is read as far as it is understood, for its canonical form.
    template <typename Content>
    bool skip_delimited(ByteReader& outer, Content content) const {
        return delimited(outer, [&](ByteReader& inner) { return content(inner) || !is_plain(); });
    }
    template <typename Element>
    bool skip_sequence(ByteReader& outer, Element element) const {
        return skip_delimited(outer, [&](ByteReader& inner) {
            uint32_t count = 0;
            bool good = inner.read_length(count, 4);
            for (uint32_t i = 0; good && i < count; ++i)
                good = skip_delimited(inner, element);
            return good;
        });
    }
    /// An optional member of a final or appendable structure: a flag, then the value where the flag is set.
    template <typename Skip>
    bool skip_optional(ByteReader& reader, Skip skip) const {
        bool present = is_plain();
        return (is_plain() || reader.read_bool(present)) && (!present || skip(reader));
    }

    bool skip_annotation_value(ByteReader& reader) const;
    /// The two optional lists after a name or element: built-in and custom annotations.
    bool skip_type_annotations(ByteReader& reader) const;
    bool skip_member_annotations(ByteReader& reader) const;

  private:
    bool skip_custom_annotations(ByteReader& reader) const;

    TypeObjectForm form_;
};

bool Form::skip_annotation_value(ByteReader& reader) const {
    uint8_t kind = 0;
    if (!reader.read(kind))
        return false;
    switch (kind) {
        case tk::kNone:
            return is_plain();
        case tk::kBoolean:
        case tk::kByte:
        case tk::kInt8:
        case tk::kUint8:
        case tk::kChar8:
            return reader.skip(1);
        case tk::kInt16:
        case tk::kUint16:
        case tk::kChar16:
            return skip_number<uint16_t>(reader);
        case tk::kInt32:
        case tk::kUint32:
        case tk::kFloat32:
        case tk::kEnum:
            return skip_number<uint32_t>(reader);
        case tk::kInt64:
        case tk::kUint64:
        case tk::kFloat64:
            return skip_number<uint64_t>(reader);
        case tk::kFloat128:
            return reader.align(8) && reader.skip(16);
        case tk::kString8:
        case tk::kString16: // its length counts bytes
            return skip_string(reader);
        default: // extended values are mutable, and none is defined
            return skip_delimited(reader, [](ByteReader&) { return true; });
    }
}

bool Form::skip_custom_annotations(ByteReader& outer) const {
    const auto parameter = [this](ByteReader& reader) {
        std::array<uint8_t, 4> name_hash;
        return reader.read_bytes(name_hash) && skip_annotation_value(reader);
    };
    const auto annotation = [&](ByteReader& reader) {
        TypeIdentifier id;
        return read(reader, id) &&
               skip_optional(reader, [&](ByteReader& list) { return skip_sequence(list, parameter); });
    };
    return skip_optional(outer, [&](ByteReader& list) { return skip_sequence(list, annotation); });
}

bool Form::skip_member_annotations(ByteReader& outer) const {
    const auto value = [this](ByteReader& reader) { return skip_annotation_value(reader); };
    const auto builtin = [&](ByteReader& reader) { // the unit, limits and hashed name
        return skip_optional(reader, skip_string) && skip_optional(reader, value) &&
               skip_optional(reader, value) && skip_optional(reader, skip_string);
    };
    return skip_optional(outer, [&](ByteReader& list) { return skip_delimited(list, builtin); }) &&
           skip_custom_annotations(outer);
}

bool Form::skip_type_annotations(ByteReader& outer) const {
    const auto verbatim = [](ByteReader& reader) { // a text for some place and language
        return skip_string(reader) && skip_string(reader) && skip_string(reader);
    };
    const auto builtin = [&](ByteReader& reader) {
        return skip_optional(reader, [&](ByteReader& text) { return skip_delimited(text, verbatim); });
    };
    return skip_optional(outer, [&](ByteReader& list) { return skip_delimited(list, builtin); }) &&
           skip_custom_annotations(outer);
}

class Decoder {
  public:
    Decoder(TypeObject& object, TypeObjectForm form) : object_(object), form_(form) {}

    bool decode(ByteReader& outer) {
        return form_.delimited(outer, [this](ByteReader& reader) {
            uint8_t equivalence = 0;
            if (!reader.read(equivalence) || !reader.read(object_.kind) ||
                (equivalence != tk::kMinimal && equivalence != tk::kComplete))
                return false;
            object_.complete = equivalence == tk::kComplete;
            skip_disputed_header(reader);
            return reader.read(object_.flags) && read_header(reader) && read_body(reader);
        });
    }

  private:
    bool read_body(ByteReader& reader) {
        switch (object_.kind) {
            case tk::kAlias:
            case tk::kSequence:
            case tk::kArray:
                return read_element(reader, object_.element);
            case tk::kMap:
                return read_element(reader, object_.key) && read_element(reader, object_.element);
            case tk::kUnion:
                return read_element(reader, object_.discriminator, &object_.discriminator_flags) &&
                       read_members(reader);
            default:
                return read_members(reader);
        }
    }

    /// Peers disagree which of these types are appendable (with a DHEADER) and which are final. A DHEADER
    /// here always announces all that is left; the flags and the next DHEADER of the final form never add up
    /// to that.
    void skip_disputed_header(ByteReader& reader) const {
        if (form_.is_plain() ||
            (object_.kind != tk::kBitset && object_.kind != tk::kArray && object_.kind != tk::kBitmask))
            return;
        ByteReader probe = reader;
        uint32_t size = 0;
        if (probe.read(size) && size == probe.remaining())
            reader = probe;
    }

    bool read_type_detail(ByteReader& reader) {
        return form_.skip_type_annotations(reader) && reader.read_string(object_.name);
    }

    bool read_header(ByteReader& outer) {
        return form_.delimited(outer, [this](ByteReader& reader) {
            if (!read_own_header(reader))
                return false;
            if (!object_.complete)
                return true;
            switch (object_.kind) {
                case tk::kAnnotation:
                    return reader.read_string(object_.name);
                case tk::kSequence:
                case tk::kMap:
                    return form_.skip_optional(
                        reader, [this](ByteReader& detail) { return read_type_detail(detail); });
                default:
                    return read_type_detail(reader);
            }
        });
    }

    /// What headers of that kind of type hold before the detail of complete types.
    bool read_own_header(ByteReader& reader) {
        uint32_t count = 0;
        switch (object_.kind) {
            case tk::kAlias:
            case tk::kAnnotation:
            case tk::kUnion:
            case tk::kBitset:
                return true;
            case tk::kStructure:
                return read(reader, object_.base);
            case tk::kSequence:
            case tk::kMap:
                return reader.read(object_.bound);
            case tk::kEnum:
            case tk::kBitmask:
                return reader.read(object_.bit_bound);
            case tk::kArray:
                if (!reader.read_length(count, 4) || count > kMaxDimensions)
                    return false;
                object_.dimensions.resize(count);
                return reader.read_array(object_.dimensions.data(), count);
            default:
                return false;
        }
    }

    bool read_element(ByteReader& outer, TypeIdentifier& id, uint16_t* flags = nullptr) {
        return form_.delimited(outer, [&](ByteReader& reader) {
            uint16_t unused = 0;
            if (!reader.read(flags != nullptr ? *flags : unused) || !read(reader, id))
                return false;
            if (!object_.complete)
                return true;
            const bool skipped = flags != nullptr ? form_.skip_type_annotations(reader)
                                                  : form_.skip_member_annotations(reader);
            return skipped || !form_.is_plain();
        });
    }

    /// A delimited sequence of delimited members. The smallest member of any kind takes 8 bytes, so a length
    /// that cannot be is refused before anything is allocated.
    bool read_members(ByteReader& outer) {
        return form_.delimited(outer, [this](ByteReader& reader) {
            uint32_t count = 0;
            if (!reader.read_length(count, 8) || count > kMaxGraphMembers)
                return false;
            for (uint32_t i = 0; i < count; ++i) {
                TypeObjectMember member;
                const bool good = form_.delimited(reader, [&](ByteReader& body) {
                    return read_member(body, member) && read_name(body, member);
                });
                if (!good)
                    return false;
                object_.members.push_back(std::move(member));
            }
            return true;
        });
    }

    /// What members of that kind of type hold before their names.
    bool read_member(ByteReader& body, TypeObjectMember& member) const {
        uint16_t position = 0;
        uint32_t labels = 0;
        switch (object_.kind) {
            case tk::kAnnotation:
                return body.read(member.flags) && read(body, member.type);
            case tk::kStructure:
                return body.read(member.id) && body.read(member.flags) && read(body, member.type);
            case tk::kUnion:
                if (!body.read(member.id) || !body.read(member.flags) || !read(body, member.type) ||
                    !body.read_length(labels, 4))
                    return false;
                member.labels.resize(labels);
                return body.read_array(member.labels.data(), labels);
            case tk::kEnum:
                return form_.delimited(body, [&member](ByteReader& common) {
                    return common.read(member.value) && common.read(member.flags);
                });
            default: // bit sets and bit masks
                if (!body.read(position) || !body.read(member.flags))
                    return false;
                member.value = position;
                return object_.kind == tk::kBitmask ||
                       (body.read(member.bit_count) && body.read(member.holder));
        }
    }

    bool read_name(ByteReader& body, TypeObjectMember& member) const {
        const bool named =
            object_.complete ? body.read_string(member.name) : body.read_bytes(member.name_hash);
        if (object_.kind == tk::kAnnotation)
            return named && form_.skip_annotation_value(body);
        return named && (!object_.complete || form_.skip_member_annotations(body));
    }

    TypeObject& object_;
    const Form form_;
};

} // namespace

bool read(ByteReader& reader, TypeObject& object, TypeObjectForm form) {
    object = TypeObject();
    return Decoder(object, form).decode(reader) || reader.fail();
}

bool read_type_object_bytes(ByteReader& reader, ByteView& bytes) {
    uint32_t size = 0;
    if (!reader.align(4))
        return false;
    ByteReader probe = reader;
    if (!probe.read(size) || size > probe.remaining())
        return reader.fail();
    return reader.read_view(size_t{size} + 4, bytes);
}

bool read_pairs(ByteReader& outer, std::vector<TypeObjectPair>& pairs) {
    ByteReader reader;
    uint32_t count = 0;
    if (!enter_delimited(outer, reader) || !reader.read_length(count, 8))
        return outer.fail();
    for (uint32_t i = 0; i < count; ++i) {
        TypeObjectPair pair;
        if (!read(reader, pair.id) || !read_type_object_bytes(reader, pair.object))
            return outer.fail();
        pairs.push_back(std::move(pair));
    }
    return true;
}

bool read_plain_pairs(ByteReader& reader, std::vector<PlainTypeObject>& pairs) {
    uint32_t count = 0;
    if (!reader.read_length(count, 8))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        PlainTypeObject pair;
        if (!read(reader, pair.id))
            return false;
        const size_t left = reader.remaining();
        if (!read(reader, pair.object, TypeObjectForm::plain))
            return false;
        pair.size = left - reader.remaining();
        pairs.push_back(std::move(pair));
    }
    return true;
}

bool decode_plain(ByteView payload, TypeObject& object) {
    rtps::Encapsulation encapsulation;
    ByteView body;
    if (!rtps::read_encapsulation(payload, encapsulation, body) ||
        encapsulation.encoding() != rtps::Encoding::cdr)
        return false;
    ByteReader reader(body, encapsulation.endianness(), rtps::kXcdr1MaxAlignment);
    return read(reader, object, TypeObjectForm::plain) && object.complete;
}

rtps::ByteBuffer canonical(ByteView bytes, rtps::Endianness order) {
    rtps::ByteBuffer copy(bytes.begin(), bytes.end());
    ByteReader reader(bytes, order, rtps::kXcdr2MaxAlignment);
    reader.set_canonical_copy(copy.data());
    TypeObject object;
    if (!read(reader, object))
        copy.clear();
    return copy;
}

TypeHash hash_of(ByteView bytes, bool complete) {
    TypeHash hash;
    hash.kind = complete ? tk::kComplete : tk::kMinimal;
    const auto digest = md5(bytes);
    std::copy_n(digest.begin(), hash.bytes.size(), hash.bytes.begin());
    return hash;
}

namespace {

size_t memory_of(const TypeIdentifier& id) {
    const auto pointed = [](const TypeIdentifier* to) {
        return to != nullptr ? sizeof(TypeIdentifier) + memory_of(*to) : 0;
    };
    return sizeof(uint32_t) * id.dimensions.size() + pointed(id.element.get()) + pointed(id.key.get());
}

} // namespace

size_t memory_of(const TypeObject& object) {
    size_t sum = object.name.size() + memory_of(object.base) + memory_of(object.discriminator) +
                 memory_of(object.element) + memory_of(object.key);
    for (const TypeObjectMember& member : object.members)
        sum += sizeof member + member.name.size() + sizeof(int32_t) * member.labels.size() +
               memory_of(member.type);
    return sum;
}

void collect_hashes(const TypeObject& object, std::vector<TypeHash>& hashes) {
    collect_hashes(object.base, hashes);
    collect_hashes(object.discriminator, hashes);
    collect_hashes(object.element, hashes);
    collect_hashes(object.key, hashes);
    if (object.kind == tk::kAnnotation)
        return;
    for (const TypeObjectMember& member : object.members)
        collect_hashes(member.type, hashes);
}

} // namespace meridian::types
