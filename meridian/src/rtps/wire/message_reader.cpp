// The receiving half of message.h: one function per submessage, each of which checks what 8.3.8 says of its
// validity.

#include <algorithm>

#include "rtps/wire/elements.h"
#include "rtps/wire/message.h"
#include "rtps/wire/parameter_list.h"
#include "rtps/wire/submessage.h"

namespace meridian::rtps {

namespace {

constexpr std::array<uint8_t, 4> kProtocol{'R', 'T', 'P', 'S'};
constexpr uint8_t kMajorVersion = 2;

struct SubmessageHeader {
    uint8_t kind = 0;
    uint8_t flags = 0;

    bool has(uint8_t flag) const { return (flags & flag) != 0; }
    Endianness order() const { return has(kFlagLittleEndian) ? Endianness::little : Endianness::big; }
};

/// Walks one datagram. Every read_* and visit_* returns false when its submessage is malformed.
class Receiver {
  public:
    Receiver(ByteView datagram, MessageVisitor& visitor)
        : datagram_(datagram, Endianness::big), visitor_(visitor) {}

    ReadStatus run();

  private:
    bool read_header();
    bool next();
    bool visit(const SubmessageHeader& header, ByteReader body);

    bool read_header_extension(const SubmessageHeader& header, ByteReader& body);
    bool read_info_timestamp(const SubmessageHeader& header, ByteReader& body);
    bool read_info_source(ByteReader& body);

    bool visit_data(const SubmessageHeader& header, ByteReader& body);
    bool visit_data_frag(const SubmessageHeader& header, ByteReader& body);
    bool visit_heartbeat(const SubmessageHeader& header, ByteReader& body);
    bool visit_acknack(const SubmessageHeader& header, ByteReader& body);
    template <typename Submessage>
    using Operation = void (MessageVisitor::*)(const MessageContext&, const Submessage&);
    template <typename Submessage>
    void hand_over(const Submessage& submessage, Operation<Submessage> operation);
    /// A submessage that is no more than what its layout says, but for flags, which are set already.
    template <typename Submessage>
    bool visit_element(ByteReader& body, Submessage submessage, Operation<Submessage> operation);

    ByteReader datagram_;
    MessageVisitor& visitor_;
    MessageContext context_;
};

// Every submessage that names one sample needs a number from 1 on; SEQUENCENUMBER_UNKNOWN is negative.
bool is_valid(const Heartbeat& heartbeat) {
    return heartbeat.first > 0 && heartbeat.last >= heartbeat.first - 1;
}

bool is_valid(const HeartbeatFrag& heartbeat) {
    return heartbeat.sequence_number > 0 && heartbeat.last_fragment != 0;
}

bool is_valid(const AckNack& acknack) {
    // The standard wants a base from 1 on; a reader that has seen nothing sends 0 in practice (Fast DDS).
    return acknack.missing.base >= 0;
}

bool is_valid(const NackFrag& nack) {
    return nack.sequence_number > 0 && nack.missing.base > 0;
}

bool is_valid(const Gap& gap) {
    return gap.start > 0 && gap.list.base > 0;
}

/// DATA and DATA_FRAG up to their inline QoS. octetsToInlineQos points there from behind itself, fixed counts
/// what this version knows in between; a later minor version may have put more there.
template <typename Sample>
bool read_sample_start(ByteReader& body, Sample& sample, uint16_t fixed) {
    uint16_t extra_flags = 0;
    uint16_t octets = 0;
    return body.read(extra_flags) && body.read(octets) && read_element(body, sample) &&
           sample.sequence_number > 0 && octets >= fixed && body.skip(size_t{octets} - fixed);
}

bool read_inline_qos(ByteReader& body, Endianness order, ByteView& list) {
    ByteReader ahead = body;
    ByteView rest;
    if (!ahead.read_view(ahead.remaining(), rest))
        return false;
    ParameterListReader parameters(rest, order);
    Parameter parameter;
    while (parameters.next(parameter)) {
    }
    return parameters.complete() ? body.read_view(parameters.consumed(), list) : body.fail();
}

ReadStatus Receiver::run() {
    if (!read_header())
        return ReadStatus::not_rtps;
    while (datagram_.remaining() > 0) {
        if (!next())
            return ReadStatus::malformed;
    }
    return ReadStatus::ok;
}

bool Receiver::read_header() {
    std::array<uint8_t, 4> protocol{};
    return datagram_.read_bytes(protocol) && protocol == kProtocol &&
           datagram_.read(context_.version.major) && context_.version.major == kMajorVersion &&
           datagram_.read(context_.version.minor) && read_element(datagram_, context_.vendor) &&
           read_element(datagram_, context_.source);
}

bool Receiver::next() {
    SubmessageHeader header;
    if (!datagram_.read(header.kind) || !datagram_.read(header.flags))
        return false;
    const Endianness order = header.order();
    // Alignment counts from the submessage, so that one behind a submessage of odd length is still read as
    // meant.
    ByteReader length_reader = datagram_.take(2);
    length_reader.set_endianness(order);
    length_reader.set_origin();
    uint16_t octets_to_next = 0;
    if (!length_reader.read(octets_to_next))
        return false;
    size_t size = octets_to_next;
    // Zero means "up to the end", except for the two kinds that may be empty (9.4.5.1.3).
    if (size == 0 && header.kind != kPad && header.kind != kInfoTimestamp)
        size = datagram_.remaining();
    ByteReader body = datagram_.take(size);
    body.set_origin();
    body.set_endianness(order);
    return body.ok() && visit(header, body);
}

template <typename Submessage>
void Receiver::hand_over(const Submessage& submessage, Operation<Submessage> operation) {
    constexpr bool kToWriter = std::is_same_v<Submessage, AckNack> || std::is_same_v<Submessage, NackFrag>;
    if (kToWriter ? visitor_.wants(context_, submessage.writer, submessage.reader)
                  : visitor_.wants(context_, submessage.reader, submessage.writer))
        (visitor_.*operation)(context_, submessage);
}

template <typename Submessage>
bool Receiver::visit_element(ByteReader& body, Submessage submessage, Operation<Submessage> operation) {
    // Group information may follow in a HEARTBEAT and a GAP; nothing here needs it.
    if (!read_element(body, submessage) || !is_valid(submessage))
        return false;
    hand_over(submessage, operation);
    return true;
}

/// INFO_REPLY and INFO_REPLY_IP4 are checked only: acknowledgements go where discovery says.
bool check_info_reply(const SubmessageHeader& header, ByteReader& body) {
    const auto check_list = [&] {
        LocatorList unused;
        return header.kind == kInfoReply ? read_element(body, unused) : body.skip(kLocatorIp4Size);
    };
    return check_list() && (!header.has(kInfoReplyFlagMulticast) || check_list());
}

bool Receiver::visit(const SubmessageHeader& header, ByteReader body) {
    switch (header.kind) {
        case kHeaderExtension:
            return read_header_extension(header, body);
        case kAckNack:
            return visit_acknack(header, body);
        case kHeartbeat:
            return visit_heartbeat(header, body);
        case kGap:
            return visit_element(body, Gap(), &MessageVisitor::on_gap);
        case kInfoTimestamp:
            return read_info_timestamp(header, body);
        case kInfoSource:
            return read_info_source(body);
        case kInfoReplyIp4:
        case kInfoReply:
            return check_info_reply(header, body);
        case kInfoDestination:
            return read_element(body, context_.destination);
        case kNackFrag:
            return visit_element(body, NackFrag(), &MessageVisitor::on_nack_frag);
        case kHeartbeatFrag:
            return visit_element(body, HeartbeatFrag(), &MessageVisitor::on_heartbeat_frag);
        case kData:
            return visit_data(header, body);
        case kDataFrag:
            return visit_data_frag(header, body);
        default:
            // Padding, kinds of a later version or of one vendor: their length is all that is known.
            if (header.kind >= kFirstSecured && header.kind <= kLastSecured)
                visitor_.on_secured(context_, header.kind);
            return true;
    }
}

bool Receiver::read_header_extension(const SubmessageHeader& header, ByteReader& body) {
    if (header.has(kExtensionFlagLength)) {
        uint32_t message_length = 0;
        if (!body.read(message_length))
            return false;
        // The datagram may be longer than the message; a message cannot be longer than its datagram, nor
        // shorter than what was read of it. What stands beyond its end is not part of it.
        const size_t read_so_far = datagram_.position();
        if (message_length < read_so_far || message_length - read_so_far > datagram_.remaining())
            return false;
        datagram_ = datagram_.take(message_length - read_so_far);
    }
    // The rest is skipped, the checksum too: UDP has its own.
    size_t skipped = (header.has(kExtensionFlagTimestamp) ? 8u : 0u) +
                     (header.has(kExtensionFlagUExtension) ? 4u : 0u) +
                     (header.has(kExtensionFlagWExtension) ? 8u : 0u);
    skipped += kExtensionChecksumSizes[header.flags >> kExtensionChecksumShift & 3];
    if (!body.skip(skipped))
        return false;
    if (!header.has(kExtensionFlagParameters))
        return true;
    // None of its parameters is known here, so one that must be understood makes the rest unreadable.
    ByteView rest;
    if (!body.read_view(body.remaining(), rest))
        return false;
    ParameterListReader parameters(rest, header.order());
    Parameter parameter;
    while (parameters.next(parameter)) {
        if (parameter.must_understand())
            return false;
    }
    return parameters.complete();
}

bool Receiver::read_info_timestamp(const SubmessageHeader& header, ByteReader& body) {
    if (header.has(kInfoTimestampFlagInvalid)) {
        context_.timestamp.reset();
        return true;
    }
    WireTime time;
    if (!read_element(body, time))
        return false;
    context_.timestamp = time == kTimeInvalid ? std::nullopt : std::optional<WireTime>(time);
    return true;
}

bool Receiver::read_info_source(ByteReader& body) {
    MessageContext source;
    if (!body.skip(4) || !read_element(body, source.version) || !read_element(body, source.vendor) ||
        !read_element(body, source.source))
        return false;
    // 8.3.8.9.4: what the previous source said of time does not hold for this one.
    source.destination = context_.destination;
    context_ = source;
    return true;
}

bool Receiver::visit_data(const SubmessageHeader& header, ByteReader& body) {
    Data data;
    if (!read_sample_start(body, data, kDataOctetsToInlineQos))
        return false;
    data.endianness = header.order();
    if (header.has(kDataFlagInlineQos) && !read_inline_qos(body, data.endianness, data.inline_qos))
        return false;
    // Serialized data and serialized key exclude each other (9.4.5.4.1).
    if (header.has(kDataFlagPayload) && header.has(kDataFlagKey))
        return false;
    data.payload_is_key = header.has(kDataFlagKey);
    data.has_payload = data.payload_is_key || header.has(kDataFlagPayload);
    if (data.has_payload && !body.read_view(body.remaining(), data.payload))
        return false;
    hand_over(data, &MessageVisitor::on_data);
    return true;
}

bool Receiver::visit_data_frag(const SubmessageHeader& header, ByteReader& body) {
    DataFrag fragment;
    if (!read_sample_start(body, fragment, kDataFragOctetsToInlineQos))
        return false;
    fragment.endianness = header.order();
    if (header.has(kDataFragFlagInlineQos) &&
        !read_inline_qos(body, fragment.endianness, fragment.inline_qos))
        return false;
    fragment.payload_is_key = header.has(kDataFragFlagKey);
    if (fragment.fragment_size == 0 || fragment.sample_size == 0 || fragment.first_fragment == 0 ||
        fragment.fragment_count == 0)
        return false;
    // A fragment size above the sample's is allowed: the one fragment is then the whole sample.
    const uint64_t begin = uint64_t{fragment.first_fragment - 1} * fragment.fragment_size;
    const uint64_t end = begin + uint64_t{fragment.fragment_count} * fragment.fragment_size;
    if (end - fragment.fragment_size >= fragment.sample_size) // the last one starts beyond the sample
        return false;
    // Padding of the submessage may follow the last byte; fewer bytes than announced cannot be put together.
    const auto expected = static_cast<size_t>(std::min<uint64_t>(end, fragment.sample_size) - begin);
    if (!body.read_view(expected, fragment.payload))
        return false;
    hand_over(fragment, &MessageVisitor::on_data_frag);
    return true;
}

bool Receiver::visit_heartbeat(const SubmessageHeader& header, ByteReader& body) {
    Heartbeat heartbeat;
    heartbeat.final = header.has(kHeartbeatFlagFinal);
    heartbeat.liveliness = header.has(kHeartbeatFlagLiveliness);
    return visit_element(body, heartbeat, &MessageVisitor::on_heartbeat);
}

bool Receiver::visit_acknack(const SubmessageHeader& header, ByteReader& body) {
    AckNack acknack;
    acknack.final = header.has(kAckNackFlagFinal);
    return visit_element(body, acknack, &MessageVisitor::on_acknack);
}

} // namespace

ReadStatus read_message(ByteView datagram, MessageVisitor& visitor) {
    return Receiver(datagram, visitor).run();
}

} // namespace meridian::rtps
