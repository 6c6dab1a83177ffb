#pragma once

// The values that messages and parameters are made of (OMG DDSI-RTPS 2.5, 9.3 and 9.4.2). Each structure is
// described once, by the order of its members on the wire (kMembers); reading and writing both follow it.
//
// read_element leaves the reader failed, and returns false, when the value is missing or impossible; the
// value is then unspecified.

#include <optional>
#include <tuple>

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"
#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// The members of a structure in the order of the wire; of a submessage those with a fixed place.
template <typename T>
inline constexpr std::nullptr_t kMembers = nullptr; // without a description it cannot be read or written
template <>
inline constexpr auto kMembers<ProtocolVersion> = std::tuple(&ProtocolVersion::major,
                                                             &ProtocolVersion::minor);
template <>
inline constexpr auto kMembers<VendorId> = std::tuple(&VendorId::bytes);
template <>
inline constexpr auto kMembers<GuidPrefix> = std::tuple(&GuidPrefix::bytes);
template <>
inline constexpr auto kMembers<Guid> = std::tuple(&Guid::prefix, &Guid::entity);
template <>
inline constexpr auto kMembers<WireTime> = std::tuple(&WireTime::seconds, &WireTime::fraction);
template <>
inline constexpr auto kMembers<Locator> = std::tuple(&Locator::kind, &Locator::port, &Locator::address);
template <>
inline constexpr auto kMembers<Property> = std::tuple(&Property::name, &Property::value);
template <>
inline constexpr auto kMembers<Data> = std::tuple(&Data::reader, &Data::writer, &Data::sequence_number);
template <>
inline constexpr auto kMembers<DataFrag> = std::tuple(&DataFrag::reader, &DataFrag::writer,
                                                      &DataFrag::sequence_number, &DataFrag::first_fragment,
                                                      &DataFrag::fragment_count, &DataFrag::fragment_size,
                                                      &DataFrag::sample_size);
template <>
inline constexpr auto kMembers<Heartbeat> = std::tuple(&Heartbeat::reader, &Heartbeat::writer,
                                                       &Heartbeat::first, &Heartbeat::last,
                                                       &Heartbeat::count);
template <>
inline constexpr auto kMembers<HeartbeatFrag> = std::tuple(&HeartbeatFrag::reader, &HeartbeatFrag::writer,
                                                           &HeartbeatFrag::sequence_number,
                                                           &HeartbeatFrag::last_fragment,
                                                           &HeartbeatFrag::count);
template <>
inline constexpr auto kMembers<AckNack> = std::tuple(&AckNack::reader, &AckNack::writer, &AckNack::missing,
                                                     &AckNack::count);
template <>
inline constexpr auto kMembers<NackFrag> = std::tuple(&NackFrag::reader, &NackFrag::writer,
                                                      &NackFrag::sequence_number, &NackFrag::missing,
                                                      &NackFrag::count);
template <>
inline constexpr auto kMembers<Gap> = std::tuple(&Gap::reader, &Gap::writer, &Gap::start, &Gap::list);

/// The last enumerator of an enumeration that has no hole; the first one is 0 where it is not named.
template <typename Enum>
inline constexpr Enum kFirst = Enum{0};
template <>
inline constexpr auto kFirst<Reliability> = Reliability::best_effort;
template <typename Enum>
inline constexpr std::nullptr_t kLast = nullptr;
template <>
inline constexpr auto kLast<Durability> = Durability::persistent;
template <>
inline constexpr auto kLast<Reliability> = Reliability::reliable;
template <>
inline constexpr auto kLast<LivelinessKind> = LivelinessKind::manual_by_topic;
template <>
inline constexpr auto kLast<Ownership> = Ownership::exclusive;
template <>
inline constexpr auto kLast<DestinationOrder> = DestinationOrder::by_source;
template <>
inline constexpr auto kLast<PresentationScope> = PresentationScope::group;
template <>
inline constexpr auto kLast<HistoryKind> = HistoryKind::keep_all;

bool read_element(ByteReader& reader, EntityId& id);
bool read_element(ByteReader& reader, SequenceNumber& number);
/// Refused with more than 256 bits, or when the set reaches beyond the highest number. Bits beyond num_bits
/// are cleared.
bool read_element(ByteReader& reader, SequenceNumberSet& set);
bool read_element(ByteReader& reader, FragmentNumberSet& set);

void write_element(ByteWriter& writer, EntityId id);
void write_element(ByteWriter& writer, SequenceNumber number);
void write_element(ByteWriter& writer, const SequenceNumberSet& set);
void write_element(ByteWriter& writer, const FragmentNumberSet& set);

inline bool read_element(ByteReader& reader, bool& value) {
    return reader.read_bool(value);
}
inline bool read_element(ByteReader& reader, std::string& text) {
    return reader.read_string(text);
}
inline bool read_element(ByteReader& reader, ByteBuffer& bytes) {
    return reader.read_octets(bytes);
}
template <size_t Size>
bool read_element(ByteReader& reader, std::array<uint8_t, Size>& bytes) {
    return reader.read_bytes(bytes);
}
template <typename T>
bool read_element(ByteReader& reader, std::optional<T>& value) {
    return read_element(reader, value.emplace());
}
template <typename T>
bool read_element(ByteReader& reader, std::vector<T>& values) {
    // Everything but a number is longer than four bytes; the length itself reserves no memory.
    constexpr size_t kLeast = std::is_arithmetic_v<T> ? sizeof(T) : sizeof(uint32_t);
    uint32_t count = 0;
    if (!reader.read_length(count, kLeast))
        return false;
    values.clear();
    for (uint32_t i = 0; i < count; ++i) {
        if (!read_element(reader, values.emplace_back()))
            return false;
    }
    values.shrink_to_fit(); // it may be kept for long
    return true;
}
template <typename T>
bool read_element(ByteReader& reader, T& value) {
    if constexpr (std::is_enum_v<T>) {
        uint32_t number = 0;
        if (!reader.read(number) || number < static_cast<uint32_t>(kFirst<T>) ||
            number > static_cast<uint32_t>(kLast<T>))
            return reader.fail();
        value = static_cast<T>(number);
        return true;
    } else if constexpr (std::is_arithmetic_v<T>) {
        return reader.read(value);
    } else {
        return std::apply([&](auto... member) { return (read_element(reader, value.*member) && ...); },
                          kMembers<T>);
    }
}

inline void write_element(ByteWriter& writer, bool value) {
    writer.write_bool(value);
}
inline void write_element(ByteWriter& writer, const std::string& text) {
    writer.write_string(text);
}
inline void write_element(ByteWriter& writer, const ByteBuffer& bytes) {
    writer.write_octets(bytes);
}
template <size_t Size>
void write_element(ByteWriter& writer, const std::array<uint8_t, Size>& bytes) {
    writer.write_bytes(bytes);
}
template <typename T>
void write_element(ByteWriter& writer, const std::optional<T>& value) {
    write_element(writer, *value);
}
template <typename T>
void write_element(ByteWriter& writer, const std::vector<T>& values) {
    writer.write(static_cast<uint32_t>(values.size()));
    for (const T& value : values)
        write_element(writer, value);
}
template <typename T>
void write_element(ByteWriter& writer, const T& value) {
    if constexpr (std::is_enum_v<T>) {
        writer.write(static_cast<uint32_t>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        writer.write(value);
    } else {
        std::apply([&](auto... member) { (write_element(writer, value.*member), ...); }, kMembers<T>);
    }
}

} // namespace meridian::rtps
