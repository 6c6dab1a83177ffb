#include "types/lookup/type_lookup_codec.h"

#include "platform/text.h"
#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"
#include "rtps/wire/elements.h"
#include "rtps/wire/encapsulation.h"
#include "rtps/wire/guid_key.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/model/md5.h"

namespace meridian::types {

namespace {

using rtps::ByteReader;
using rtps::ByteWriter;
using rtps::Endianness;

/// Discriminator of the operation, formed of its name.
constexpr uint32_t kGetTypes = 0x018252d3;
/// What Fast DDS 2 has in its place.
constexpr uint32_t kPlainGetTypes = 0xd35282d1;
/// Length code of an EMHEADER that is followed by the length.
constexpr uint32_t kLengthFollows = 4u << 28;

/// Writes a DHEADER (or any other length) that is filled in at the end of its scope.
class Length {
  public:
    explicit Length(ByteWriter& writer) : writer_(writer) {
        writer_.write(uint32_t{0});
        start_ = writer_.position();
    }
    ~Length() { writer_.patch(start_ - 4, static_cast<uint32_t>(writer_.position() - start_)); }
    Length(const Length&) = delete;
    Length& operator=(const Length&) = delete;

  private:
    ByteWriter& writer_;
    size_t start_ = 0;
};

void write_identifiers(ByteWriter& writer, const std::vector<TypeHash>& hashes) {
    writer.write(static_cast<uint32_t>(hashes.size()));
    for (const TypeHash& hash : hashes)
        write(writer, TypeIdentifier::of(hash));
}

bool begin(rtps::ByteView payload, ByteReader& reader, TypeObjectForm& form) {
    rtps::Encapsulation encapsulation;
    rtps::ByteView body;
    if (!rtps::read_encapsulation(payload, encapsulation, body))
        return false;
    reader = ByteReader(body, encapsulation.endianness(), rtps::kXcdr2MaxAlignment);
    switch (encapsulation.encoding()) {
        case rtps::Encoding::pl_cdr: // it holds no parameters, but the same with a header of its own
            form = TypeObjectForm::plain;
            if (!rtps::read_encapsulation(body, encapsulation, body) ||
                encapsulation.encoding() != rtps::Encoding::cdr)
                return false;
            reader = ByteReader(body, encapsulation.endianness(), rtps::kXcdr1MaxAlignment);
            return true;
        case rtps::Encoding::cdr2:
            return true;
        case rtps::Encoding::delimited_cdr2: {
            ByteReader inner;
            if (!enter_delimited(reader, inner))
                return false;
            reader = inner;
            return true;
        }
        default:
            return false;
    }
}

/// Peers disagree on whether the unions of the service are appendable. A DHEADER tells the length of all that
/// follows, which no discriminator equals; up to three bytes may pad the end.
bool skip_delimiter(ByteReader& reader) {
    ByteReader ahead = reader;
    uint32_t length = 0;
    if (!ahead.read(length))
        return false;
    if (length <= ahead.remaining() && ahead.remaining() - length < 4)
        reader = ahead;
    return true;
}

/// The rest of a reply of Fast DDS 2, behind the identity of the request: it has the header of a request.
bool read_plain_reply(ByteReader& reader, TypeLookupReply& reply) {
    rtps::ByteView instance_name;
    uint32_t operation = 0;
    int32_t exception = 0;
    return reader.read_octets(instance_name) && reader.read(operation) && operation == kPlainGetTypes &&
           reader.read(exception) && (exception != 0 || read_plain_pairs(reader, reply.plain_types));
}

bool read_operation(ByteReader& reader) {
    uint32_t operation = 0;
    return skip_delimiter(reader) && reader.read(operation) && operation == kGetTypes;
}

} // namespace

std::string type_lookup_instance_name(const rtps::GuidPrefix& participant) {
    std::string name = "dds.builtin.TOS.";
    for (const uint8_t byte : rtps::key_hash_of({participant, rtps::entity::participant}))
        append_hex(name, byte);
    return name;
}

rtps::ByteBuffer encode(const TypeLookupRequest& request) {
    const bool plain = request.form == TypeObjectForm::plain;
    rtps::ByteBuffer bytes;
    if (plain)
        rtps::write_encapsulation(bytes, rtps::Encoding::pl_cdr, Endianness::little);
    rtps::write_encapsulation(bytes, plain ? rtps::Encoding::cdr : rtps::Encoding::cdr2, Endianness::little);
    ByteWriter writer(bytes, Endianness::little, plain ? rtps::kXcdr1MaxAlignment : rtps::kXcdr2MaxAlignment);
    write_element(writer, request.writer);
    write_element(writer, request.number);
    writer.write_string(type_lookup_instance_name(request.asked));
    if (plain) {
        writer.write(kPlainGetTypes);
        write_identifiers(writer, request.hashes);
        return bytes;
    }

    const Length call(writer);
    writer.write(kGetTypes);
    const Length parameters(writer);
    writer.write(kLengthFollows | hashed_member_id("type_ids"));
    const Length member(writer);
    const Length sequence(writer);
    write_identifiers(writer, request.hashes);
    return bytes;
}

bool decode(rtps::ByteView payload, TypeLookupReply& reply) {
    ByteReader reader;
    TypeObjectForm form = TypeObjectForm::xcdr2;
    if (!begin(payload, reader, form))
        return false;
    reply = {};
    reply.endianness = reader.endianness();
    if (!read_element(reader, reply.request_writer) || !read_element(reader, reply.request_number))
        return false;
    if (form == TypeObjectForm::plain)
        return read_plain_reply(reader, reply);
    int32_t exception = 0;
    if (!reader.read(exception))
        return false;
    if (exception != 0)
        return true;
    int32_t result = -1;
    if (!read_operation(reader) || !skip_delimiter(reader) || !reader.read(result))
        return false;
    if (result != 0)
        return true;
    const uint32_t types_member = hashed_member_id("types");
    ByteReader members;
    if (!enter_delimited(reader, members))
        return false;
    while (members.remaining() >= 4) {
        rtps::Xcdr2Member member;
        if (!next_member(members, member) ||
            (member.id == types_member && !read_pairs(member.body, reply.types)))
            return false;
    }
    return true;
}

} // namespace meridian::types
