#pragma once

// Submessage kinds and flags (OMG DDSI-RTPS 2.5, 9.4.5.1 and the clause of each submessage).

#include <cstddef>
#include <cstdint>

namespace meridian::rtps {

constexpr size_t kSubmessageHeaderSize = 4;

enum SubmessageKind : uint8_t {
    kHeaderExtension = 0x00,
    kPad = 0x01,
    kAckNack = 0x06,
    kHeartbeat = 0x07,
    kGap = 0x08,
    kInfoTimestamp = 0x09,
    kInfoSource = 0x0c,
    kInfoReplyIp4 = 0x0d,
    kInfoDestination = 0x0e,
    kInfoReply = 0x0f,
    kNackFrag = 0x12,
    kHeartbeatFrag = 0x13,
    kData = 0x15,
    kDataFrag = 0x16,
    kFirstSecured = 0x30, // DDS Security owns 0x30 to 0x3f
    kLastSecured = 0x3f,
};

constexpr uint8_t kFlagLittleEndian = 0x01; // of every submessage

constexpr uint8_t kDataFlagInlineQos = 0x02;
constexpr uint8_t kDataFlagPayload = 0x04;
constexpr uint8_t kDataFlagKey = 0x08;
constexpr uint8_t kDataFragFlagInlineQos = 0x02;
constexpr uint8_t kDataFragFlagKey = 0x04;
constexpr uint8_t kAckNackFlagFinal = 0x02;
constexpr uint8_t kHeartbeatFlagFinal = 0x02;
constexpr uint8_t kHeartbeatFlagLiveliness = 0x04;
constexpr uint8_t kInfoReplyFlagMulticast = 0x02;
constexpr size_t kLocatorIp4Size = 8;
constexpr uint8_t kInfoTimestampFlagInvalid = 0x02;

constexpr uint8_t kExtensionFlagLength = 0x02;
constexpr uint8_t kExtensionFlagTimestamp = 0x04;  // 8 octets
constexpr uint8_t kExtensionFlagUExtension = 0x08; // 4 octets
constexpr uint8_t kExtensionFlagWExtension = 0x10; // 8 octets
// Two bits choose the checksum: none, CRC-32, CRC-64 or MD5.
constexpr unsigned kExtensionChecksumShift = 5;
constexpr size_t kExtensionChecksumSizes[] = {0, 4, 8, 16};
constexpr uint8_t kExtensionFlagParameters = 0x80;

// From after octetsToInlineQos to the inline QoS.
constexpr uint16_t kDataOctetsToInlineQos = 16;
constexpr uint16_t kDataFragOctetsToInlineQos = 28;

} // namespace meridian::rtps
