#pragma once

// Policies of the public API as endpoints announce them, and back. Which member is announced as what is part
// of the descriptions in qos/policies.h.

#include "discovery/conversions.h"
#include "qos/policies.h"

namespace meridian::discovery {

// One value, to the wire and back.

template <typename From, typename To>
void convert(const From& from, To& to) {
    to = static_cast<To>(from);
}
inline void convert(const DDS_ReliabilityQosPolicyKind& from, rtps::Reliability& to) {
    to = from == DDS_RELIABLE_RELIABILITY_QOS ? rtps::Reliability::reliable : rtps::Reliability::best_effort;
}
inline void convert(const rtps::Reliability& from, DDS_ReliabilityQosPolicyKind& to) {
    to = from == rtps::Reliability::reliable ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
}
inline void convert(const DDS_Duration_t& from, rtps::WireDuration& to) {
    to = to_wire(from);
}
inline void convert(const rtps::WireDuration& from, DDS_Duration_t& to) {
    to = discovery::to_duration(from);
}
inline void convert(const DDS_StringSeq& from, std::vector<std::string>& to) {
    to = to_strings(from);
}
inline void convert(const std::vector<std::string>& from, DDS_StringSeq& to) {
    to = to_string_seq(from);
}
inline void convert(const DDS_OctetSeq& from, rtps::ByteBuffer& to) {
    to = to_bytes(from);
}
inline void convert(const rtps::ByteBuffer& from, DDS_OctetSeq& to) {
    to = to_octet_seq(from);
}
inline void convert(const DDS_DataRepresentationIdSeq& from, std::vector<int16_t>& to) {
    to.clear();
    for (DDS_Long i = 0; i < from.length(); ++i)
        to.push_back(from[i]);
}
inline void convert(const std::vector<int16_t>& from, DDS_DataRepresentationIdSeq& to) {
    to.length(0);
    for (const int16_t id : from)
        to.append(id);
}

/// Sets what is announced of a record (a policy, or several of them).
template <typename Record>
void announce(const Record& record, rtps::EndpointQos& announced) {
    qos::for_each_field<Record>([&](const auto& field) {
        using Field = std::decay_t<decltype(field)>;
        if constexpr (Field::announced)
            convert(record.*field.member, announced.*field.wire);
        else if constexpr (qos::IsRecord<typename Field::Value>::value)
            announce(record.*field.member, announced);
    });
}

/// Sets the members of a record that are announced.
template <typename Record>
void read_announced(const rtps::EndpointQos& announced, Record& record) {
    qos::for_each_field<Record>([&](const auto& field) {
        using Field = std::decay_t<decltype(field)>;
        if constexpr (Field::announced)
            convert(announced.*field.wire, record.*field.member);
        else if constexpr (qos::IsRecord<typename Field::Value>::value)
            read_announced(announced, record.*field.member);
    });
}

} // namespace meridian::discovery
