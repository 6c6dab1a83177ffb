#pragma once

// RTPS messages: header, submessages and their order within a datagram (OMG DDSI-RTPS 2.5, 8.3, 9.4 and 9.6).
//
// Reading: read_message walks one datagram, keeps the receiver state that INFO submessages change (8.3.4),
// and calls one operation of the visitor per entity submessage. Every view in a submessage points into the
// datagram and is valid only during that call. A malformed submessage ends the walk (8.3.4.1); what was
// visited before stands.
//
// Writing: MessageWriter appends submessages in native byte order (DATA and DATA_FRAG: in that of their
// inline QoS) into a buffer of its own.
//
// No state is shared; separate objects may be used on separate threads.

#include <optional>

#include "rtps/wire/types.h"

namespace meridian::rtps {

constexpr size_t kHeaderSize = 20;

/// Receiver state that applies to the submessage being visited (8.3.4).
struct MessageContext {
    ProtocolVersion version;
    VendorId vendor;
    GuidPrefix source;
    GuidPrefix destination;            // all zero: every participant
    std::optional<WireTime> timestamp; // of the INFO_TS in force
};

struct Data {
    EntityId reader;
    EntityId writer;
    SequenceNumber sequence_number = 0;
    Endianness endianness = native_endianness(); // of the inline QoS
    ByteView inline_qos;                         // parameter list with its sentinel, may be empty
    bool has_payload = false;
    bool payload_is_key = false;
    // Serialized data with its encapsulation header; up to three bytes of padding may follow.
    ByteView payload;
};

struct DataFrag {
    EntityId reader;
    EntityId writer;
    SequenceNumber sequence_number = 0;
    Endianness endianness = native_endianness();
    ByteView inline_qos;
    bool payload_is_key = false;
    FragmentNumber first_fragment = 1;
    uint16_t fragment_count = 1;
    uint16_t fragment_size = 0; // not 0
    uint32_t sample_size = 0;   // not 0
    ByteView payload;           // the fragments, one after the other, the last one possibly shorter
};

struct Heartbeat {
    EntityId reader;
    EntityId writer;
    SequenceNumber first = 1;
    SequenceNumber last = 0; // >= first - 1
    Count count = 0;
    bool final = false;
    bool liveliness = false;
};

struct HeartbeatFrag {
    EntityId reader;
    EntityId writer;
    SequenceNumber sequence_number = 0;
    FragmentNumber last_fragment = 0;
    Count count = 0;
};

struct AckNack {
    EntityId reader;
    EntityId writer;
    SequenceNumberSet missing; // everything below the base is acknowledged; a base of 0 is read as such
    Count count = 0;
    bool final = false;
};

struct NackFrag {
    EntityId reader;
    EntityId writer;
    SequenceNumber sequence_number = 0;
    FragmentNumberSet missing;
    Count count = 0;
};

/// Both numbers come from the peer and may lie any distance apart: do not walk the range number by number.
struct Gap {
    EntityId reader;
    EntityId writer;
    SequenceNumber start = 1; // start .. list.base - 1 are irrelevant,
    SequenceNumberSet list;   // and so are the members of list
};

class MessageVisitor {
  public:
    virtual ~MessageVisitor() = default;
    /// Asked before each of the next seven: to is the endpoint that the submessage names (entity::unknown
    /// where it names none), from the one that it comes from. False passes over it.
    virtual bool wants(const MessageContext&, EntityId /*to*/, EntityId /*from*/) { return true; }
    virtual void on_data(const MessageContext&, const Data&) {}
    virtual void on_data_frag(const MessageContext&, const DataFrag&) {}
    virtual void on_heartbeat(const MessageContext&, const Heartbeat&) {}
    virtual void on_heartbeat_frag(const MessageContext&, const HeartbeatFrag&) {}
    virtual void on_acknack(const MessageContext&, const AckNack&) {}
    virtual void on_nack_frag(const MessageContext&, const NackFrag&) {}
    virtual void on_gap(const MessageContext&, const Gap&) {}
    /// A secured submessage (kinds 0x30 to 0x3f) was met and skipped; the id is its kind.
    virtual void on_secured(const MessageContext&, uint8_t /*kind*/) {}
};

enum class ReadStatus {
    ok,
    not_rtps,  // no RTPS header, or a major version other than 2
    malformed, // a submessage was refused; those before it were visited
};

/// Visits the submessages of one datagram in order.
ReadStatus read_message(ByteView datagram, MessageVisitor& visitor);

/// Builds one message. The header is written by the constructor; each add_* appends a submessage, padded
/// to a multiple of four, and returns true, or returns false and appends nothing when the message would
/// exceed max_size.
class MessageWriter {
  public:
    MessageWriter(const GuidPrefix& source, size_t max_size, VendorId maker = kOwnVendorId);

    bool add_info_destination(const GuidPrefix& destination);
    bool add_info_timestamp(WireTime timestamp);
    bool add_info_timestamp_invalid();
    bool add_data(const Data& data);
    bool add_data_frag(const DataFrag& fragment);
    bool add_heartbeat(const Heartbeat& heartbeat);
    bool add_acknack(const AckNack& acknack);
    bool add_nack_frag(const NackFrag& nack);
    bool add_gap(const Gap& gap);

    /// True when nothing but the header was written.
    bool empty() const { return bytes_.size() == kHeaderSize; }
    size_t size() const { return bytes_.size(); }
    ByteView view() const { return bytes_; }
    /// Takes back what was added since the message had this size.
    void cut(size_t size) { bytes_.resize(size); }
    /// Starts the next message with the same header, keeping the memory.
    void clear();

  private:
    ByteBuffer bytes_;
    size_t max_size_;
};

} // namespace meridian::rtps
