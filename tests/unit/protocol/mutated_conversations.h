#pragma once

// Conversations of several makers' applications that were recorded, and datagrams that are nearly those. Who
// chooses what is changed may be a random number generator or a fuzzer.

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "rtps/wire/types.h"

namespace meridian::rtps::test {

class Choices {
  public:
    virtual ~Choices() = default;
    /// A number below end; 0 where there is nothing more to choose from.
    virtual uint64_t below(uint64_t end) = 0;
    virtual bool exhausted() const = 0;

    bool percent(uint64_t chance) { return below(100) >= 100 - chance; }
    template <typename Container>
    const auto& one_of(const Container& container) {
        return container[below(container.size())];
    }
};

using Conversation = std::vector<ByteBuffer>;

/// What was recorded of real applications, and is test data of other tests.
class RecordedConversations {
  public:
    /// folder: the one of the unit tests.
    explicit RecordedConversations(const std::string& folder) {
        const auto wire = [&folder](const std::string& name) {
            return folder + "/wire/data/" + name + ".hex";
        };
        add({wire("cyclone_participant"), wire("cyclone_heartbeats_and_publications"),
             wire("cyclone_subscriptions_and_liveliness"), wire("cyclone_data_and_heartbeat"),
             wire("cyclone_data_frag_and_heartbeat_frag"), wire("cyclone_last_data_frag"),
             wire("cyclone_acknacks"), wire("cyclone_disposed_endpoints")});
        add({wire("fast_participant"), wire("fast_publication"), wire("fast_subscription"),
             wire("fast_heartbeat"), wire("fast_data"), wire("fast_data_frag"), wire("fast_last_data_frag"),
             wire("fast_gap"), wire("fast_dispose"), wire("fast_acknack"), wire("fast_disposed_publication"),
             wire("fast_disposed_participant")});
        add({wire("fast214_participant"), wire("fast31_participant"), wire("fast31_publication"),
             wire("fast31_disposed_publication"), wire("fast31_disposed_participant")});
        for (const char* name : {"fast29_inner", "fast29_plain", "fast29_whole", "fast31_final"})
            add({wire("fast31_participant"), folder + "/types/data/" + name + ".recording"});
    }
    const std::vector<Conversation>& all() const { return conversations_; }

    /// As they would be if those applications ran on the hosts 10.0.0.first and following ones, and spoke to
    /// reader.
    std::vector<Conversation> held_with(const GuidPrefix& reader, uint8_t first) const {
        std::vector<Conversation> result = conversations_;
        for (size_t i = 0; i < result.size(); ++i) {
            for (ByteBuffer& datagram : result[i]) {
                address_to(reader, datagram);
                move_to(static_cast<uint8_t>(first + i), datagram);
            }
        }
        return result;
    }

    /// Calls function with the place and the kind of each submessage, and where it ends.
    template <typename Function>
    static void for_each_submessage(const ByteBuffer& datagram, Function function) {
        for (size_t at = kHeader; at + 4 <= datagram.size();) {
            const bool little = (datagram[at + 1] & 1) != 0;
            const size_t length =
                size_t{datagram[at + (little ? 2 : 3)]} | size_t{datagram[at + (little ? 3 : 2)]} << 8;
            const size_t end = length == 0 ? datagram.size() : std::min(datagram.size(), at + 4 + length);
            function(at, datagram[at], end);
            at = end;
        }
    }
    static constexpr size_t kHeader = 20;

  private:
    static void address_to(const GuidPrefix& reader, ByteBuffer& datagram) {
        constexpr uint8_t kInfoDestination = 0x0e;
        for_each_submessage(datagram, [&](size_t at, uint8_t kind, size_t end) {
            if (kind == kInfoDestination && end - at >= 4 + reader.bytes.size())
                std::copy(reader.bytes.begin(), reader.bytes.end(),
                          datagram.begin() + static_cast<ptrdiff_t>(at) + 4);
        });
    }
    /// Changes the address in all that looks like a UDPv4 locator.
    static void move_to(uint8_t host, ByteBuffer& datagram) {
        constexpr std::array<uint8_t, 4> kUdpV4 = {1, 0, 0, 0};
        for (size_t at = kHeader; at + 24 <= datagram.size(); at += 4) {
            const auto here = datagram.begin() + static_cast<ptrdiff_t>(at);
            const bool is_unicast = datagram[at + 20] < 224;
            if (std::equal(kUdpV4.begin(), kUdpV4.end(), here) && std::count(here + 8, here + 20, 0) == 12 &&
                datagram[at + 5] >= 7400 / 256 && is_unicast) {
                const std::array<uint8_t, 4> address = {10, 0, 0, host};
                std::copy(address.begin(), address.end(), here + 20);
            }
        }
    }
    void add(const std::vector<std::string>& files) {
        Conversation conversation;
        for (const std::string& name : files) {
            std::ifstream file(name);
            ByteBuffer bytes;
            bool is_text = false; // what stands behind "@contents"
            for (std::string line; std::getline(file, line);) {
                if (line.rfind('@', 0) == 0) {
                    is_text = line == "@contents";
                    conversation.push_back(std::move(bytes));
                    bytes.clear();
                    continue;
                }
                std::istringstream octets(is_text ? "" : line.substr(0, line.find('#')));
                for (std::string octet; octets >> octet;)
                    bytes.push_back(static_cast<uint8_t>(std::stoul(octet, nullptr, 16)));
            }
            conversation.push_back(std::move(bytes));
        }
        conversation.erase(
            std::remove_if(conversation.begin(), conversation.end(),
                           [](const ByteBuffer& datagram) { return datagram.size() <= kHeader; }),
            conversation.end());
        conversations_.push_back(std::move(conversation));
    }
    std::vector<Conversation> conversations_;
};

/// Datagrams that are nearly those of conversations.
class Mutator {
  public:
    Mutator(Choices& choices, const std::vector<Conversation>& conversations)
        : choices_(choices), conversations_(conversations) {}

    ByteBuffer mutated(const ByteBuffer& datagram) {
        if (choices_.percent(40))
            return datagram;
        std::vector<ByteBuffer> parts = submessages(datagram);
        for (uint64_t count = choices_.below(4); count > 0 && !parts.empty(); --count)
            change(parts);
        ByteBuffer result(datagram.begin(), datagram.begin() + kHeader);
        for (const ByteBuffer& part : parts)
            result.insert(result.end(), part.begin(), part.end());
        if (choices_.percent(10))
            result.resize(choices_.below(result.size() + 1));
        result.resize(std::min<size_t>(result.size(), 65000));
        return result;
    }

  private:
    static constexpr size_t kHeader = 20;

    /// With their headers; what the last one's length does not fit is in it all the same.
    static std::vector<ByteBuffer> submessages(const ByteBuffer& datagram) {
        std::vector<ByteBuffer> result;
        RecordedConversations::for_each_submessage(datagram, [&](size_t at, uint8_t, size_t end) {
            result.emplace_back(datagram.begin() + static_cast<ptrdiff_t>(at),
                                datagram.begin() + static_cast<ptrdiff_t>(end));
        });
        return result;
    }

    void change(std::vector<ByteBuffer>& parts) {
        const size_t index = choices_.below(parts.size());
        ByteBuffer& part = parts[index];
        const auto here = parts.begin() + static_cast<ptrdiff_t>(index);
        switch (choices_.below(8)) {
            case 0:
                part[choices_.below(part.size())] ^= static_cast<uint8_t>(1u << choices_.below(8));
                break;
            case 1: // a length, of the submessage or of something in it
                store(part, choices_.percent(50) ? 2 : choices_.below(part.size() / 2 + 1) * 2,
                      choices_.one_of(kLengths), 2);
                break;
            case 2: // a sequence number where submessages have one: the high word, then the low one
            case 3:
                change_number(part);
                break;
            case 4:
                parts.erase(here);
                break;
            case 5:
                std::swap(part, parts[choices_.below(parts.size())]);
                break;
            case 6: {
                const ByteBuffer copy = part;
                parts.insert(here, 1 + choices_.below(20), copy);
                break;
            }
            default: {
                const std::vector<ByteBuffer> others =
                    submessages(choices_.one_of(choices_.one_of(conversations_)));
                if (!others.empty())
                    parts.insert(here, choices_.one_of(others));
                break;
            }
        }
    }

    void change_number(ByteBuffer& part) {
        static constexpr std::array<uint64_t, 6> kPlaces = {12, 16, 20, 24, 28, 32};
        const uint64_t number = choices_.one_of(kNumbers) + choices_.below(5) - 2;
        const size_t at = choices_.one_of(kPlaces);
        store(part, at, number >> 32, 4);
        store(part, at + 4, number, 4);
    }

    static void store(ByteBuffer& part, size_t at, uint64_t value, size_t octets) {
        const bool little = (part[1] & 1) != 0;
        for (size_t i = 0; i < octets && at + i < part.size(); ++i)
            part[at + i] = static_cast<uint8_t>(value >> (8 * (little ? i : octets - 1 - i)));
    }

    static constexpr std::array<uint64_t, 8> kLengths = {0, 1, 4, 0x7f, 0xff, 0x7fff, 0x8000, 0xffff};
    static constexpr std::array<uint64_t, 10> kNumbers = {
        2, 10, 1u << 16, 1u << 20, 1u << 31, 1ull << 32, 1ull << 40, 1ull << 62, 1ull << 63, ~0ull};

    Choices& choices_;
    const std::vector<Conversation>& conversations_;
};

} // namespace meridian::rtps::test
