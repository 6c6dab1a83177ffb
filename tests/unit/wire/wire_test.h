#pragma once

// Helpers of the wire tests: bytes from commented hex text, and a visitor that keeps what it was shown.

#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// Bytes of hex digits; blanks are skipped, and everything from '#' to the end of a line is a comment.
inline ByteBuffer from_hex(const std::string& text) {
    ByteBuffer bytes;
    int high = -1;
    bool comment = false;
    for (const char c : text) {
        if (c == '\n')
            comment = false;
        if (c == '#')
            comment = true;
        if (comment || std::isspace(static_cast<unsigned char>(c)) != 0)
            continue;
        const int digit =
            std::isdigit(static_cast<unsigned char>(c)) != 0 ? c - '0' : std::tolower(c) - 'a' + 10;
        if (digit < 0 || digit > 15)
            ADD_FAILURE() << "no hex digit: " << c;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    EXPECT_EQ(high, -1) << "odd number of hex digits";
    return bytes;
}

/// Everything shown to it, in order, with the payload views copied into buffers that live as long as the
/// collector.
class Collector : public MessageVisitor {
  public:
    using Item = std::variant<Data, DataFrag, Heartbeat, HeartbeatFrag, AckNack, NackFrag, Gap, uint8_t>;
    struct Entry {
        MessageContext context;
        Item item;
    };

    void on_data(const MessageContext& context, const Data& data) override {
        Data kept = data;
        kept.inline_qos = keep(data.inline_qos);
        kept.payload = keep(data.payload);
        entries.push_back({context, kept});
    }
    void on_data_frag(const MessageContext& context, const DataFrag& fragment) override {
        DataFrag kept = fragment;
        kept.inline_qos = keep(fragment.inline_qos);
        kept.payload = keep(fragment.payload);
        entries.push_back({context, kept});
    }
    void on_heartbeat(const MessageContext& context, const Heartbeat& item) override {
        entries.push_back({context, item});
    }
    void on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& item) override {
        entries.push_back({context, item});
    }
    void on_acknack(const MessageContext& context, const AckNack& item) override {
        entries.push_back({context, item});
    }
    void on_nack_frag(const MessageContext& context, const NackFrag& item) override {
        entries.push_back({context, item});
    }
    void on_gap(const MessageContext& context, const Gap& item) override {
        entries.push_back({context, item});
    }
    void on_secured(const MessageContext& context, uint8_t kind) override {
        entries.push_back({context, kind});
    }

    /// The entry of that index, which must exist and be of that kind.
    template <typename T>
    T at(size_t index) const {
        if (index >= entries.size() || !std::holds_alternative<T>(entries[index].item)) {
            ADD_FAILURE() << "entry " << index << " of " << entries.size()
                          << " is missing or of another kind";
            return T{};
        }
        return std::get<T>(entries[index].item);
    }

    std::vector<Entry> entries;

  private:
    ByteView keep(ByteView view) {
        if (view.empty())
            return {};
        kept_.push_back(std::make_unique<ByteBuffer>(view.begin(), view.end()));
        return *kept_.back();
    }

    std::vector<std::unique_ptr<ByteBuffer>> kept_;
};

inline ByteBuffer bytes_of(ByteView view) {
    return view.empty() ? ByteBuffer() : ByteBuffer(view.begin(), view.end());
}
inline std::string text_of(const ByteBuffer& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

inline GuidPrefix prefix_of(uint8_t first) {
    GuidPrefix prefix;
    for (size_t i = 0; i < prefix.bytes.size(); ++i)
        prefix.bytes[i] = static_cast<uint8_t>(first + i);
    return prefix;
}

inline Locator udp4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint32_t port) {
    Locator locator;
    locator.kind = kLocatorUdpV4;
    locator.port = port;
    locator.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, a, b, c, d};
    return locator;
}

} // namespace meridian::rtps
