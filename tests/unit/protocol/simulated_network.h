#pragma once

// A deterministic network of participants for tests: simulated time, and a seed decides about loss,
// duplication, delay and therefore reordering. The same seed gives the same run, packet by packet.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <queue>
#include <set>
#include <string>
#include <vector>

#include "rtps/protocol/participant.h"

namespace meridian::rtps::test {

class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        state_ += 0x9e3779b97f4a7c15u;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t end) { return next() % end; }
    bool percent(uint64_t chance) { return below(100) < chance; }

  private:
    uint64_t state_;
};

struct Conditions {
    uint64_t loss_percent = 0;
    uint64_t duplication_percent = 0;
    uint64_t corruption_percent = 0; // some bits of the packet come wrong, or its end is missing
    Duration shortest_delay = std::chrono::microseconds(100);
    Duration longest_delay = std::chrono::microseconds(100);
};

/// Keeps the tables that the events describe, and notes every event that cannot be.
class Recorder final : public Events {
  public:
    explicit Recorder(std::function<bool(const GuidPrefix&)> is_own) : is_own_(std::move(is_own)) {}

    std::map<GuidPrefix, ParticipantData> participants;
    std::map<Guid, RemoteEndpointRef> endpoints;
    std::vector<std::string> history;        // of endpoints, by their names: "+new", "~changed", "-gone"
    std::set<std::pair<Guid, Guid>> matches; // of the endpoints with a sink of sink_of
    std::vector<std::string> contradictions;
    std::vector<std::string> warnings;
    std::vector<std::string> errors;
    std::vector<std::pair<GuidPrefix, GoneReason>> gone;

    std::function<bool(const ParticipantData&)> admit; // empty: all

    bool admits(const GuidPrefix& prefix) const override {
        const auto at = participants.find(prefix);
        return !admit || at == participants.end() || admit(at->second);
    }
    void participant_discovered(const ParticipantRef& data) override {
        check(!is_own_(data->guid.prefix), "own participant reported");
        check(participants.emplace(data->guid.prefix, *data).second, "participant discovered twice");
    }
    void participant_changed(const ParticipantRef& data) override {
        const auto at = participants.find(data->guid.prefix);
        check(at != participants.end(), "unknown participant changed");
        if (at != participants.end())
            at->second = *data;
    }
    void participant_gone(const ParticipantRef& data, GoneReason reason) override {
        check(participants.erase(data->guid.prefix) == 1, "unknown participant gone");
        for (const auto& entry : endpoints)
            check(entry.first.prefix != data->guid.prefix, "participant gone before its endpoints");
        gone.emplace_back(data->guid.prefix, reason);
    }
    void endpoint_discovered(const RemoteEndpointRef& endpoint) override {
        check(participants.count(endpoint->guid.prefix) == 1, "endpoint discovered before its participant");
        check(endpoint->type_state != TypeState::waiting, "endpoint discovered before its type is settled");
        check(endpoints.emplace(endpoint->guid, endpoint).second, "endpoint discovered twice");
        history.push_back("+" + endpoint->name);
    }
    void endpoint_changed(const RemoteEndpointRef& endpoint) override {
        const auto at = endpoints.find(endpoint->guid);
        check(at != endpoints.end(), "unknown endpoint changed");
        if (at != endpoints.end())
            at->second = endpoint;
        history.push_back("~" + endpoint->name);
    }
    void endpoint_gone(const RemoteEndpointRef& endpoint, GoneReason, WireTime) override {
        check(endpoints.erase(endpoint->guid) == 1, "unknown endpoint gone");
        history.push_back("-" + endpoint->name);
    }
    void warning(const std::string& text) override { warnings.push_back(text); }
    void error(const std::string& text) override { errors.push_back(text); }

    /// Keeps the matches of a local endpoint; next gets the samples, if it is given.
    ReaderSink& sink_of(const Guid& local, ReaderSink* next = nullptr) {
        sinks_.push_back(std::make_unique<Sink>(*this, local, next));
        return *sinks_.back();
    }

  private:
    class Sink final : public ReaderSink {
      public:
        Sink(Recorder& recorder, const Guid& local, ReaderSink* next)
            : recorder_(recorder), local_(local), next_(next) {}
        void matched(const RemoteEndpoint& remote) override {
            recorder_.check(recorder_.matches.emplace(local_, remote.guid).second, "matched twice");
            recorder_.check(recorder_.endpoints.count(remote.guid) == 1, "matched with an unknown endpoint");
        }
        void unmatched(const Guid& remote) override {
            recorder_.check(recorder_.matches.erase({local_, remote}) == 1, "unmatched what was not matched");
        }
        void on_sample(const Sample& sample) override {
            if (next_ != nullptr)
                next_->on_sample(sample);
        }
        void on_lost(const Guid& writer, uint64_t count) override {
            if (next_ != nullptr)
                next_->on_lost(writer, count);
        }

      private:
        Recorder& recorder_;
        const Guid local_;
        ReaderSink* const next_;
    };

    void check(bool holds, const char* what) {
        if (!holds)
            contradictions.emplace_back(what);
    }
    std::function<bool(const GuidPrefix&)> is_own_;
    std::vector<std::unique_ptr<Sink>> sinks_;
};

class SimulatedNetwork;

/// One host with one participant. The address stays when the participant is replaced.
class Node final : public Output {
  public:
    Node(SimulatedNetwork& network, size_t index) : network_(network), index_(index) {}

    size_t index() const { return index_; }
    Locator metatraffic() const { return address(7410); }
    Locator user() const { return address(7411); }
    Locator address(uint32_t port) const {
        Locator locator;
        locator.kind = kLocatorUdpV4;
        locator.port = port;
        locator.address[12] = 10;
        locator.address[15] = static_cast<uint8_t>(index_ + 1);
        return locator;
    }
    /// Replaces the participant (if there is one) without a farewell, as a crash does, and starts the new
    /// one.
    void boot(ParticipantConfig config);
    void crash() {
        participant.reset();
        recorder.reset();
    }

    void send(ByteView message, const Locator& destination) override;
    int preference(const Locator& locator, const Locator&) const override {
        return locator.address[12] == 10 ? 1 : 0;
    }

    std::unique_ptr<Recorder> recorder;
    std::unique_ptr<Participant> participant;
    TypeSettler* settler = nullptr; // of the participants booted from now on

  private:
    SimulatedNetwork& network_;
    size_t index_;
};

class SimulatedNetwork {
  public:
    explicit SimulatedNetwork(uint64_t seed) : random(seed) {}

    Random random;
    Conditions conditions;
    std::vector<std::unique_ptr<Node>> nodes;
    std::set<size_t> island; // nodes that reach each other but not the rest
    size_t packets = 0;
    uint64_t fingerprint = 1469598103934665603u; // of all packets sent and their times
    bool spinning = false;                       // a participant wanted its timer again and again at one time
    std::function<void(size_t from, ByteView, const Locator&)> tap;

    static Locator group() {
        Locator locator;
        locator.kind = kLocatorUdpV4;
        locator.port = 7400;
        locator.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 239, 255, 0, 1};
        return locator;
    }
    Now now() const {
        constexpr int64_t kSecond = 1000000000;
        return {time_, WireTime{static_cast<int32_t>(1000 + time_.count() / kSecond),
                                fraction_from_nanoseconds(static_cast<uint32_t>(time_.count() % kSecond))}};
    }
    Node& add_node() {
        nodes.push_back(std::make_unique<Node>(*this, nodes.size()));
        return *nodes.back();
    }
    /// What a participant on this node has by default: multicast announcements, and leases short enough for
    /// tests.
    ParticipantConfig config(const Node& node, uint32_t life) {
        ParticipantConfig result;
        result.prefix.bytes = {1,
                               0x7e,
                               0,
                               0,
                               0,
                               static_cast<uint8_t>(node.index() + 1),
                               0,
                               0,
                               static_cast<uint8_t>(life >> 24),
                               static_cast<uint8_t>(life >> 16),
                               static_cast<uint8_t>(life >> 8),
                               static_cast<uint8_t>(life)};
        result.domain_id = 7;
        result.locators.metatraffic_unicast = {node.metatraffic()};
        result.locators.metatraffic_multicast = {group()};
        result.locators.default_unicast = {node.user()};
        result.initial_peers = {group()};
        result.seed = random.next();
        result.incarnation = random.next() | 1;
        result.secret_begin = static_cast<SequenceNumber>(1000 + random.below(1024));
        result.name = "node " + std::to_string(node.index());
        return result;
    }

    void transmit(size_t from, ByteView message, const Locator& destination) {
        ++packets;
        hash(static_cast<uint64_t>(time_.count()));
        hash(message.size);
        for (size_t i = 0; i < message.size; i += 7)
            hash(message.data[i]);
        if (tap)
            tap(from, message, destination);
        for (auto& node : nodes) {
            const bool to_it =
                destination == group() || destination == node->metatraffic() || destination == node->user();
            if (!to_it || node->index() == from || island.count(from) != island.count(node->index()))
                continue;
            deliver_later(from, node->index(), message);
            if (random.percent(conditions.duplication_percent))
                deliver_later(from, node->index(), message);
        }
    }

    void run_for(Duration duration) {
        const MonotonicTime end = time_ + duration;
        for (;;) {
            MonotonicTime next = queue_.empty() ? kNever : queue_.top().when;
            for (auto& node : nodes) {
                if (node->participant)
                    next = std::min(next, std::max(time_, node->participant->next_deadline()));
            }
            if (next > end)
                break;
            spins_ = next == time_ ? spins_ + 1 : 0;
            if (spins_ > 20000) {
                spinning = true;
                break;
            }
            time_ = next;
            for (auto& node : nodes) {
                if (node->participant && node->participant->next_deadline() <= time_)
                    node->participant->on_timer(now());
            }
            while (!queue_.empty() && queue_.top().when <= time_) {
                const Packet packet = queue_.top();
                queue_.pop();
                Node& node = *nodes[packet.to];
                if (node.participant)
                    node.participant->receive(packet.bytes, nodes[packet.from]->address(50000), now());
            }
        }
        time_ = end;
    }

  private:
    struct Packet {
        MonotonicTime when{0};
        uint64_t order = 0;
        size_t from = 0;
        size_t to = 0;
        ByteBuffer bytes;
        bool operator<(const Packet& other) const {
            return when != other.when ? when > other.when : order > other.order;
        }
    };
    void hash(uint64_t value) { fingerprint = (fingerprint ^ value) * 1099511628211u; }
    void corrupt(ByteBuffer& bytes) {
        for (uint64_t flips = 1 + random.below(4); flips > 0; --flips)
            bytes[random.below(bytes.size())] ^= static_cast<uint8_t>(1u << random.below(8));
        if (random.percent(20))
            bytes.resize(random.below(bytes.size()));
    }
    void deliver_later(size_t from, size_t to, ByteView message) {
        if (random.percent(conditions.loss_percent))
            return;
        const auto spread =
            static_cast<uint64_t>((conditions.longest_delay - conditions.shortest_delay).count());
        Packet packet;
        packet.when =
            time_ + conditions.shortest_delay + Duration(static_cast<int64_t>(random.below(spread + 1)));
        packet.order = ++order_;
        packet.from = from;
        packet.to = to;
        packet.bytes.assign(message.begin(), message.end());
        if (random.percent(conditions.corruption_percent))
            corrupt(packet.bytes);
        queue_.push(std::move(packet));
    }

    MonotonicTime time_{0};
    uint64_t order_ = 0;
    int spins_ = 0;
    std::priority_queue<Packet> queue_;
};

inline void Node::boot(ParticipantConfig config) {
    crash();
    const GuidPrefix own = config.prefix;
    recorder = std::make_unique<Recorder>([own](const GuidPrefix& prefix) { return prefix == own; });
    participant = std::make_unique<Participant>(std::move(config), *this, *recorder);
    if (settler != nullptr)
        participant->set_type_settler(*settler);
    participant->start(network_.now());
}

inline void Node::send(ByteView message, const Locator& destination) {
    network_.transmit(index_, message, destination);
}

/// The seeds to run: FERRET_SIM_SEED alone when it is set, else count of them from first.
inline std::vector<uint64_t> seeds(uint64_t first, uint64_t count) {
    std::vector<uint64_t> result;
    if (const char* only = std::getenv("FERRET_SIM_SEED")) {
        result.push_back(std::strtoull(only, nullptr, 10));
        return result;
    }
    for (uint64_t i = 0; i < count; ++i)
        result.push_back(first + i);
    return result;
}

} // namespace meridian::rtps::test
