#pragma once

// Messages of the type lookup service (OMG DDS-XTypes 1.3, 7.6.3.3): requests for type objects by hash, and
// the replies. Fast DDS 2 has a form of its own: classic CDR behind two encapsulation headers. Pure
// functions.

#include <string>
#include <vector>

#include "rtps/wire/types.h"
#include "types/network/type_identifier.h"
#include "types/network/type_object.h"

namespace meridian::types {

struct TypeLookupRequest {
    /// Identity of the request: the writer that sends it, and its sequence number.
    rtps::Guid writer;
    rtps::SequenceNumber number = 1;
    /// The participant that is asked; it stands in the instance name, and some peers only answer to theirs.
    rtps::GuidPrefix asked;
    std::vector<TypeHash> hashes;
    /// Of the message, and of the type objects that are asked for.
    TypeObjectForm form = TypeObjectForm::xcdr2;
};

struct TypeLookupReply {
    rtps::Guid request_writer;
    rtps::SequenceNumber request_number = 0;
    std::vector<TypeObjectPair> types;        // the objects point into the payload
    std::vector<PlainTypeObject> plain_types; // those of a reply in the plain form
    rtps::Endianness endianness = rtps::Endianness::little;
};

/// "dds.builtin.TOS." and the GUID of the participant in hexadecimal digits.
std::string type_lookup_instance_name(const rtps::GuidPrefix& participant);

/// The payload with its encapsulation header.
rtps::ByteBuffer encode(const TypeLookupRequest& request);
/// False for a payload that is no reply to a request for types. Replies of other operations do not count. One
/// that says that the service could not do what it was asked has no types.
bool decode(rtps::ByteView payload, TypeLookupReply& reply);

} // namespace meridian::types
