#pragma once

// An Output that keeps what was sent, and tells it as one line per submessage:
// "DATA 3", "HEARTBEAT 1..5", "ACKNACK 4 {4 6}", "GAP 2..3 {5}", "NACK_FRAG 7 {2 3}", "HEARTBEAT_FRAG 7 2",
// "DATA_FRAG 7 2 (1000 bytes)". " final", " liveliness" and " key" follow where set.

#include <string>
#include <vector>

#include "rtps/protocol/output.h"
#include "rtps/wire/message.h"

namespace meridian::rtps::test {

inline Locator udpv4(uint8_t last, uint32_t port = 7410) {
    Locator locator;
    locator.kind = kLocatorUdpV4;
    locator.port = port;
    locator.address[12] = 10;
    locator.address[15] = last;
    return locator;
}

inline Heartbeat heartbeat_of(EntityId writer, SequenceNumber first, SequenceNumber last, Count count) {
    Heartbeat heartbeat;
    heartbeat.writer = writer;
    heartbeat.first = first;
    heartbeat.last = last;
    heartbeat.count = count;
    return heartbeat;
}
inline Data data_of(EntityId writer, SequenceNumber number, ByteView payload) {
    Data data;
    data.writer = writer;
    data.sequence_number = number;
    data.has_payload = true;
    data.payload = payload;
    return data;
}
/// One fragment.
inline DataFrag fragment_of(EntityId writer, SequenceNumber number, FragmentNumber fragment,
                            uint32_t sample_size, ByteView payload) {
    DataFrag frag;
    frag.writer = writer;
    frag.sequence_number = number;
    frag.first_fragment = fragment;
    frag.fragment_count = 1;
    frag.fragment_size = static_cast<uint16_t>(payload.size);
    frag.sample_size = sample_size;
    frag.payload = payload;
    return frag;
}

inline GuidPrefix prefix(uint8_t last) {
    GuidPrefix result;
    result.bytes[0] = 1;
    result.bytes[11] = last;
    return result;
}

class SubmessagePrinter final : public MessageVisitor {
  public:
    std::vector<std::string> lines;
    std::vector<GuidPrefix> destinations;

    void on_data(const MessageContext& context, const Data& data) override {
        add(context, "DATA " + std::to_string(data.sequence_number) + (data.payload_is_key ? " key" : ""));
    }
    void on_data_frag(const MessageContext& context, const DataFrag& data) override {
        add(context,
            "DATA_FRAG " + std::to_string(data.sequence_number) + " " + std::to_string(data.first_fragment));
    }
    void on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) override {
        add(context, "HEARTBEAT " + std::to_string(heartbeat.first) + ".." + std::to_string(heartbeat.last) +
                         (heartbeat.final ? " final" : "") + (heartbeat.liveliness ? " liveliness" : ""));
        counts.push_back(heartbeat.count);
    }
    void on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) override {
        add(context, "HEARTBEAT_FRAG " + std::to_string(heartbeat.sequence_number) + " " +
                         std::to_string(heartbeat.last_fragment));
    }
    void on_acknack(const MessageContext& context, const AckNack& acknack) override {
        add(context, "ACKNACK " + std::to_string(acknack.missing.base) + " " + members(acknack.missing) +
                         (acknack.final ? " final" : ""));
        counts.push_back(acknack.count);
        acknack_bits = acknack.missing.num_bits;
    }
    void on_nack_frag(const MessageContext& context, const NackFrag& nack) override {
        add(context, "NACK_FRAG " + std::to_string(nack.sequence_number) + " " + members(nack.missing));
    }
    void on_gap(const MessageContext& context, const Gap& gap) override {
        add(context, "GAP " + std::to_string(gap.start) + ".." + std::to_string(gap.list.base - 1) + " " +
                         members(gap.list));
    }
    std::vector<Count> counts; // of heartbeats and acknowledgements
    uint32_t acknack_bits = 0; // of the last one, set or not

  private:
    void add(const MessageContext& context, const std::string& line) {
        lines.push_back(line);
        destinations.push_back(context.destination);
    }
    template <typename Number>
    static std::string members(const NumberSet<Number>& set) {
        std::string text = "{";
        for (uint32_t i = 0; i < set.num_bits; ++i) {
            const Number number = set.base + static_cast<Number>(i);
            if (set.contains(number))
                text += (text.size() > 1 ? " " : "") + std::to_string(number);
        }
        return text + "}";
    }
};

class CapturedOutput final : public Output {
  public:
    struct Message {
        ByteBuffer bytes;
        Locator destination;
    };
    std::vector<Message> messages;

    void send(ByteView message, const Locator& destination) override {
        messages.push_back({ByteBuffer(message.begin(), message.end()), destination});
    }
    int preference(const Locator& locator, const Locator&) const override {
        return locator.address[12] == 10 ? 1 : 0;
    }

    /// The submessages sent since the last call, in order.
    std::vector<std::string> take() {
        SubmessagePrinter printer = parse();
        messages.clear();
        return printer.lines;
    }
    SubmessagePrinter parse() const {
        SubmessagePrinter printer;
        for (const Message& message : messages) {
            if (read_message(message.bytes, printer) != ReadStatus::ok)
                printer.lines.emplace_back("unreadable");
        }
        return printer;
    }
};

using Lines = std::vector<std::string>;

} // namespace meridian::rtps::test
