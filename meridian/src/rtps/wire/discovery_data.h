#pragma once

// What participants and endpoints announce of themselves, and its parameter-list form (OMG
// DDSI-RTPS 2.5, 9.6.3; DDS-XTypes 1.3, 7.6.3.2). A parameter that is absent leaves the member at the default
// the standard gives it. Decoding copies everything it keeps; encoding writes native byte order and leaves
// out what has its default value unless peers are known to need it.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rtps/wire/types.h"

namespace meridian::rtps {

enum class Durability : uint32_t { volatile_ = 0, transient_local = 1, transient = 2, persistent = 3 };
enum class Reliability : uint32_t { best_effort = 1, reliable = 2 }; // the values on the wire
enum class LivelinessKind : uint32_t { automatic = 0, manual_by_participant = 1, manual_by_topic = 2 };
enum class Ownership : uint32_t { shared = 0, exclusive = 1 };
enum class DestinationOrder : uint32_t { by_reception = 0, by_source = 1 };
enum class PresentationScope : uint32_t { instance = 0, topic = 1, group = 2 };
enum class HistoryKind : uint32_t { keep_last = 0, keep_all = 1 };
enum DataRepresentation : int16_t { kXcdr1 = 0, kXmlRepresentation = 1, kXcdr2 = 2 };

enum BuiltinEndpoint : uint32_t {
    kParticipantAnnouncer = 1u << 0,
    kParticipantDetector = 1u << 1,
    kPublicationsAnnouncer = 1u << 2,
    kPublicationsDetector = 1u << 3,
    kSubscriptionsAnnouncer = 1u << 4,
    kSubscriptionsDetector = 1u << 5,
    kParticipantMessageWriter = 1u << 10,
    kParticipantMessageReader = 1u << 11,
    kTypeLookupRequestWriter = 1u << 12,
    kTypeLookupRequestReader = 1u << 13,
    kTypeLookupReplyWriter = 1u << 14,
    kTypeLookupReplyReader = 1u << 15,
};

struct Property {
    std::string name;
    std::string value;
    friend bool operator==(const Property& a, const Property& b) {
        return a.name == b.name && a.value == b.value;
    }
};

/// The value of the first one of that name; null where there is none.
const std::string* find_property(const std::vector<Property>& properties, std::string_view name);

/// A parameter that this library does not interpret (vendor specific or newer), as it stood.
struct RawParameter {
    uint16_t id = 0;
    ByteBuffer value;
    friend bool operator==(const RawParameter& a, const RawParameter& b) {
        return a.id == b.id && a.value == b.value;
    }
};

/// The value of the first one with that id; null where there is none.
const ByteBuffer* find_raw(const std::vector<RawParameter>& parameters, uint16_t id);

struct ParticipantData {
    ProtocolVersion version;
    VendorId vendor;
    Guid guid;                      // entity id is entity::participant
    uint32_t builtin_endpoints = 0; // BuiltinEndpoint bits
    std::optional<uint32_t> domain_id;
    std::string domain_tag;
    WireDuration lease{100, 0};
    LocatorList metatraffic_unicast;
    LocatorList metatraffic_multicast;
    LocatorList default_unicast;
    LocatorList default_multicast;
    Count manual_liveliness_count = 0;
    std::string name; // PID_ENTITY_NAME
    ByteBuffer user_data;
    std::vector<Property> properties;
    bool secured = false; // announces an identity or permissions token
    Endianness raw_endianness = native_endianness();
    std::vector<RawParameter> raw;
};

/// QoS of one endpoint with its publisher or subscriber, as announced. Defaults are those of the standard.
struct EndpointQos {
    Durability durability = Durability::volatile_;
    WireDuration deadline = kDurationInfinite;
    WireDuration latency_budget{0, 0};
    LivelinessKind liveliness = LivelinessKind::automatic;
    WireDuration liveliness_lease = kDurationInfinite;
    Reliability reliability = Reliability::best_effort; // a decoded writer without the parameter: reliable
    WireDuration max_blocking_time{0, 429496730};
    Ownership ownership = Ownership::shared;
    int32_t ownership_strength = 0; // writers
    DestinationOrder destination_order = DestinationOrder::by_reception;
    PresentationScope presentation = PresentationScope::instance;
    bool coherent_access = false;
    bool ordered_access = false;
    std::vector<std::string> partitions;       // empty: the default partition
    WireDuration lifespan = kDurationInfinite; // writers
    WireDuration time_based_filter{0, 0};      // readers
    HistoryKind history = HistoryKind::keep_last;
    int32_t history_depth = 1;
    std::vector<int16_t> representations; // empty means { kXcdr1 }
    ByteBuffer user_data;
    ByteBuffer topic_data;
    ByteBuffer group_data;
};

/// Makes durations whose fractions are nanoseconds what they should be.
void convert_nanoseconds(EndpointQos& qos);

/// What an endpoint announces of itself alone; the rest is often the same for all of a participant.
struct EndpointIdentity {
    Guid guid;
    std::string topic_name;
    std::string type_name;
    std::string name; // PID_ENTITY_NAME
    std::vector<Property> properties;
    ByteBuffer type_object;                          // an older inline type object (PID 0x0072), undecoded
    Endianness raw_endianness = native_endianness(); // of what is undecoded
};

/// A remote (or own) writer or reader as it stands in DCPSPublication or DCPSSubscription.
struct EndpointData : EndpointIdentity {
    EndpointQos qos;
    LocatorList unicast;
    ByteBuffer type_information; // PID_TYPE_INFORMATION, undecoded XCDR2 body; empty when not announced
    std::vector<RawParameter> raw;

    std::optional<bool> announced_as_writer; // decoded ones: where the kind of the entity does not say it
    bool is_writer() const { return announced_as_writer.value_or(guid.entity.is_writer()); }
};

/// Serialized payloads: encapsulation header, parameters, sentinel. What cannot stand in a list is left out:
/// a parameter of more than 65,532 bytes, and what was kept undecoded (type information, type object, raw
/// parameters) when raw_endianness is not the byte order of this machine.
ByteBuffer encode(const ParticipantData& data);
ByteBuffer encode(const EndpointData& data);
/// The payload of a dispose: only the key.
ByteBuffer encode_participant_key(const Guid& guid);
ByteBuffer encode_endpoint_key(const Guid& guid);

/// Decode a payload with its encapsulation header. On failure nullopt, and error says what and where: another
/// encapsulation than PL_CDR, a malformed list, an unknown must-understand parameter, or a value that is
/// missing, truncated or out of range although the record would mislead without it (key, names, domain, and
/// the policies that decide a match). Any other parameter that is truncated or out of range leaves its member
/// at the default and is found in raw, so that its sender stays visible.
std::optional<ParticipantData> decode_participant(ByteView payload, std::string& error);
/// is_writer decides defaults and which parameters count.
std::optional<EndpointData> decode_endpoint(ByteView payload, bool is_writer, std::string& error);
/// The key of a dispose, from a key payload.
std::optional<Guid> decode_key(ByteView payload);

/// ParticipantMessageData (8.4.13): assertion of liveliness.
struct ParticipantMessage {
    enum Kind : uint32_t { automatic = 1, manual = 2 };
    GuidPrefix participant;
    uint32_t kind = automatic; // other kinds are passed through
};
ByteBuffer encode(const ParticipantMessage& message);
std::optional<ParticipantMessage> decode_participant_message(ByteView payload);

/// What a sample does to its instance; a set of bits on the wire (9.6.4.9).
enum StatusInfo : uint32_t {
    kDisposed = 1u << 0,     // the instance is gone
    kUnregistered = 1u << 1, // the writer will not write the instance any more
};

/// What the inline QoS of a DATA says of its sample (9.6.4).
struct InlineQos {
    std::optional<KeyHash> key_hash;
    uint32_t status_info = 0;            // StatusInfo bits
    std::optional<Guid> original_writer; // PID_ORIGINAL_WRITER_INFO
    SequenceNumber original_sequence_number = kSequenceNumberUnknown;
    std::optional<Guid> related_writer; // PID_RELATED_SAMPLE_IDENTITY, 0x0083 or 0x800f
    SequenceNumber related_sequence_number = kSequenceNumberUnknown;
    uint32_t sample_flags = 0; // no standard parameter carries them: neither read nor written, yet
    bool refused = false;      // an unknown must-understand parameter: drop the sample
};
/// False when the list is malformed; out then holds what was read before.
bool decode_inline_qos(ByteView parameters, Endianness endianness, InlineQos& out);
ByteBuffer encode(const InlineQos& qos); // with its sentinel

} // namespace meridian::rtps
