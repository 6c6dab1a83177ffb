// The whole receive path: datagrams into a participant with readers, in simulated time. The input is a
// sequence of records: what happens, a number, two bytes of length (little-endian), and the bytes. Where a
// writer is discovered a reader of its topic is made, as the spy does, in turn reliable and best effort.

#include <cstdlib>
#include <map>

#include "input.h"
#include "unit/protocol/simulated_network.h"

using namespace meridian;
using namespace meridian::rtps;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

class Outside final : public Output {
  public:
    void send(ByteView message, const Locator&) override {
        require(message.size >= 20 && message.size <= 65507);
        sent += message.size;
    }
    int preference(const Locator& locator, const Locator&) const override {
        return locator.kind == kLocatorUdpV4 ? 1 : 0;
    }
    size_t sent = 0;
};

class Reading final : public ReaderSink {
  public:
    void on_sample(const Sample& sample) override {
        for (const uint8_t byte : sample.payload)
            sum += byte;
    }
    unsigned sum = 0;
};

class Run {
  public:
    explicit Run(fuzz::Input input)
        : input_(input),
          recorder_([](const GuidPrefix&) { return false; }),
          participant_(config(), outside_, recorder_) {}

    void run() {
        participant_.start(now());
        while (input_.size() != 0) {
            const uint8_t what = input_.next();
            const uint8_t number = input_.next();
            const size_t low = input_.next();
            const ByteView bytes = input_.take(static_cast<size_t>(input_.next()) << 8 | low);
            if (what < 192) {
                participant_.receive(bytes, source(number), now());
            } else if (what < 240) {
                pass(std::chrono::milliseconds(1) * number * (what < 224 ? 1 : 100));
            } else if (what < 248) {
                participant_.begin_batch();
            } else {
                participant_.end_batch(now());
            }
            read_topics();
        }
        participant_.end_batch(now());
        pass(std::chrono::seconds(1));
        // Whatever came: others get no more than their share.
        require(outside_.sent < (size_t{64} << 20));
        participant_.stop(now());
        require(recorder_.participants.empty() && recorder_.endpoints.empty() && recorder_.matches.empty());
        require(recorder_.contradictions.empty());
    }

  private:
    static constexpr size_t kMostReaders = 8;

    static ParticipantConfig config() {
        ParticipantConfig config;
        config.prefix.bytes = {1, 2, 3, 4};
        config.locators.metatraffic_unicast = {address(1, 7410)};
        config.locators.default_unicast = {address(1, 7411)};
        config.initial_peers = {address(2, 7410)};
        config.max_sample_size = size_t{1} << 20;
        config.max_remote_participants = 20;
        config.max_remote_endpoints = 50;
        return config;
    }
    static Locator address(uint8_t host, uint32_t port) {
        Locator locator;
        locator.kind = kLocatorUdpV4;
        locator.port = port;
        locator.address[12] = 10;
        locator.address[15] = host;
        return locator;
    }
    static Locator source(uint8_t number) { return address(2 + (number & 7), 7410 + (number >> 3)); }
    Now now() const { return {time_, {}}; }

    void pass(Duration time) {
        participant_.end_batch(now()); // no batch lasts
        const MonotonicTime until = time_ + time;
        for (unsigned turns = 0; participant_.next_deadline() <= until; ++turns) {
            require(turns < 100000); // a timer that never rests
            time_ = std::max(time_, participant_.next_deadline());
            participant_.on_timer(now());
        }
        time_ = until;
    }

    void read_topics() {
        for (const auto& [guid, remote] : recorder_.endpoints) {
            if (!guid.entity.is_writer() || readers_.size() >= kMostReaders ||
                readers_.count(remote->topic_name) != 0)
                continue;
            EndpointData data;
            const uint32_t number = static_cast<uint32_t>(readers_.size()) + 1;
            data.guid = {participant_.guid().prefix,
                         EntityId{number << 8 | (guid.entity.has_key() ? 0x07u : 0x04u)}};
            data.topic_name = remote->topic_name;
            data.type_name = remote->type_name;
            data.qos = *remote->qos;
            if (number % 2 == 0)
                data.qos.reliability = Reliability::best_effort;
            Reading& sink = readers_[remote->topic_name];
            participant_.add_reader(data, {}, recorder_.sink_of(data.guid, &sink), now());
            return; // the table may have changed
        }
    }

    fuzz::Input input_;
    Outside outside_;
    test::Recorder recorder_;
    std::map<std::string, Reading> readers_;
    Participant participant_;
    MonotonicTime time_{0};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(fuzz::Input(data, size)).run();
    return 0;
}
