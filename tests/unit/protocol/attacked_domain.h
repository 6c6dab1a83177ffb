#pragma once

// A participant that reads what it finds, in a domain with a healthy writer and a healthy reader, and an
// attacker who sends it mutated conversations.

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/memory_budget.h"
#include "protocol/mutated_conversations.h"
#include "protocol/simulated_network.h"

namespace meridian::rtps::test {

/// Runs one attack. failure() is empty where everything holds.
class AttackedDomain {
  public:
    /// forges: some datagrams name a healthy participant as their source; else all are strangers'.
    AttackedDomain(Choices& choices, const RecordedConversations& recorded, bool forges)
        : choices_(choices),
          forges_(forges),
          recorded_(recorded),
          budget_before_(budget().used()),
          network_(1) {
        for (int i = 0; i < kNodes; ++i)
            network_.add_node();
    }

    void run() {
        for (const size_t index : {kHealthy, kSpy, kNeighbour}) {
            ParticipantConfig config = network_.config(*network_.nodes[index], 1);
            config.domain_id = 0;
            config.max_message_size = 1400;
            config.max_sample_size = size_t{1} << 20;
            if (index == kSpy) {
                config.max_remote_participants = 50;
                config.max_remote_endpoints = 200;
            }
            network_.nodes[index]->boot(config);
        }
        network_.tap = [this](size_t from, ByteView bytes, const Locator& to) { on_sent(from, bytes, to); };
        Participant& healthy = *network_.nodes[kHealthy]->participant;
        healthy.add_writer(endpoint(kHealthy, kReliableWriter, "Square", Reliability::reliable), {}, untold_,
                           network_.now());
        healthy.add_writer(endpoint(kHealthy, kBestEffortWriter, "Circle", Reliability::best_effort), {},
                           untold_, network_.now());
        network_.nodes[kNeighbour]->participant->add_reader(
            endpoint(kNeighbour, 0x204, "Square", Reliability::reliable), {}, neighbour_, network_.now());
        healthy.add_writer(endpoint(kHealthy, kPassingWriter, "Triangle", Reliability::reliable), {}, untold_,
                           network_.now());
        for (int i = 0; i < 8; ++i) {
            write();
            run_for(std::chrono::milliseconds(300));
        }
        healthy.remove_endpoint(EntityId{kPassingWriter}, network_.now()); // the others go on
        run_for(std::chrono::milliseconds(300));
        conversations_ = recorded_.held_with(network_.nodes[kSpy]->participant->guid().prefix, kAttackerHost);
        conversations_.push_back(live_); // what the healthy ones said
        live_.clear();
        is_recording_ = false;
        attack();
        // What is forged does not last, and what strangers said is forgotten with their leases or without.
        run_for(std::chrono::seconds(20));
        check_delivery();
        check_traffic();
        if (network_.spinning)
            fail("a timer never rests");
        for (const size_t index : {kHealthy, kSpy, kNeighbour}) {
            if (!network_.nodes[index]->recorder->contradictions.empty())
                fail("contradiction: " + network_.nodes[index]->recorder->contradictions.front());
        }
        if (most_memory_ > budget_before_ + (size_t{16} << 20))
            fail("memory " + std::to_string(most_memory_));
        network_.nodes[kSpy]->participant->stop(network_.now());
        for (auto& node : network_.nodes)
            node->crash();
        if (budget().used() != budget_before_)
            fail("memory that is not given back: " + std::to_string(budget().used() - budget_before_));
    }

    const std::string& failure() const { return failure_; }
    size_t attacks() const { return attacks_; }

  private:
    static constexpr size_t kHealthy = 0;
    static constexpr size_t kSpy = 1;
    static constexpr size_t kNeighbour = 2;
    static constexpr int kNodes = 3;
    static constexpr uint8_t kAttackerHost = 100;
    static constexpr uint32_t kReliableWriter = 0x103;
    static constexpr uint32_t kBestEffortWriter = 0x203;
    static constexpr uint32_t kPassingWriter = 0x303;
    static constexpr size_t kMostTopics = 12;

    class Reading final : public ReaderSink {
      public:
        void on_sample(const Sample& sample) override {
            for (const uint8_t byte : sample.payload) // to read them is what a sanitizer looks at
                sum_ += byte;
            if (sample.payload.size >= 8)
                numbers[sample.writer].push_back(sample.sequence_number);
        }
        std::map<Guid, std::vector<SequenceNumber>> numbers;

      private:
        unsigned sum_ = 0;
    };

    static MemoryBudget& budget() { return MemoryBudget::of_process(); }

    EndpointData endpoint(size_t node, uint32_t entity, const std::string& topic,
                          Reliability reliability) const {
        EndpointData data;
        data.guid = {network_.nodes[node]->participant->guid().prefix, EntityId{entity}};
        data.topic_name = topic;
        data.type_name = "Shape";
        data.qos.reliability = reliability;
        data.qos.durability = Durability::volatile_;
        data.qos.history = HistoryKind::keep_all;
        return data;
    }
    Guid healthy_writer(uint32_t entity) const {
        return {network_.nodes[kHealthy]->participant->guid().prefix, EntityId{entity}};
    }

    void write() {
        for (const uint32_t writer : {kReliableWriter, kBestEffortWriter}) {
            ++written_;
            const ByteBuffer payload(written_ % 5 == 0 ? 4000 : 40, static_cast<uint8_t>(written_));
            WriteRequest request;
            request.payload = payload;
            const auto number =
                network_.nodes[kHealthy]->participant->write(EntityId{writer}, request, network_.now());
            if (number)
                latest_[writer] = *number;
        }
    }

    void run_for(Duration duration) {
        network_.run_for(duration);
        most_memory_ = std::max(most_memory_, budget().used());
        read_topics();
    }

    /// As the tool does: where a writer is discovered a reader of its topic is made, here one of each kind.
    void read_topics() {
        Node& spy = *network_.nodes[kSpy];
        std::vector<RemoteEndpointRef> writers;
        for (const auto& [guid, remote] : spy.recorder->endpoints) {
            if (guid.entity.is_writer() && topics_.size() < kMostTopics &&
                topics_.insert(remote->topic_name).second)
                writers.push_back(remote);
        }
        for (const RemoteEndpointRef& remote : writers) {
            for (const Reliability reliability : {Reliability::reliable, Reliability::best_effort}) {
                EndpointData data;
                const uint32_t kind = remote->guid.entity.has_key() ? 0x07u : 0x04u;
                data.guid = {spy.participant->guid().prefix, EntityId{++readers_ << 8 | kind}};
                data.topic_name = remote->topic_name;
                data.type_name = remote->type_name;
                data.qos = *remote->qos;
                data.qos.reliability = reliability;
                Reading& sink = reading_[{remote->topic_name, reliability}];
                spy.participant->add_reader(data, {}, spy.recorder->sink_of(data.guid, &sink),
                                            network_.now());
            }
        }
    }

    void attack() {
        Mutator mutator(choices_, conversations_);
        baseline_ = sent_to_others_;
        for (int round = 0; round < kRounds && !choices_.exhausted(); ++round) {
            const size_t index = choices_.below(conversations_.size());
            const Conversation& conversation = conversations_[index];
            const size_t begin = choices_.percent(60) ? 0 : choices_.below(conversation.size());
            const size_t most = 1 + choices_.below(40);
            for (size_t i = begin; i < std::min(conversation.size(), begin + most); ++i)
                strike(mutator.mutated(conversation[i]),
                       static_cast<uint8_t>(kAttackerHost + (choices_.percent(10) ? 0 : index)));
            if (choices_.percent(30))
                write();
            run_for(std::chrono::milliseconds(1) *
                    static_cast<int64_t>(choices_.below(choices_.percent(10) ? 2000 : 30)));
        }
    }

    void strike(ByteBuffer datagram, uint8_t host) {
        Node& spy = *network_.nodes[kSpy];
        const GuidPrefix healthy = network_.nodes[kHealthy]->participant->guid().prefix;
        const GuidPrefix neighbour = network_.nodes[kNeighbour]->participant->guid().prefix;
        if (datagram.size() >= 20) {
            GuidPrefix source;
            std::copy(datagram.begin() + 8, datagram.begin() + 20, source.bytes.begin());
            if (forges_ && choices_.percent(20))
                source = choices_.percent(70) ? healthy : neighbour;
            else if (source == healthy || source == neighbour || source == spy.participant->guid().prefix)
                source.bytes[0] = 0x77;
            std::copy(source.bytes.begin(), source.bytes.end(), datagram.begin() + 8);
        }
        if (choices_.percent(15))
            speak_of_healthy(datagram);
        received_ += datagram.size();
        ++attacks_;
        Locator source = spy.metatraffic();
        source.address[15] = host;
        source.port = 50000;
        spy.participant->receive(datagram, source, network_.now());
        most_memory_ = std::max(most_memory_, budget().used());
        read_topics();
    }

    /// What the datagram says of endpoints is said of those of the healthy writers' participant.
    void speak_of_healthy(ByteBuffer& datagram) {
        const GuidPrefix healthy = network_.nodes[kHealthy]->participant->guid().prefix;
        const auto is_prefix = [&datagram](auto at) {
            return std::equal(datagram.begin() + 8, datagram.begin() + 12, at); // the others may be changed
        };
        const EntityId entity{choices_.percent(50) ? kReliableWriter : kBestEffortWriter};
        const auto octets = static_cast<ptrdiff_t>(healthy.bytes.size());
        for (size_t at = 20; at + 16 <= datagram.size(); at += 4) {
            const auto here = datagram.begin() + static_cast<ptrdiff_t>(at);
            if (!is_prefix(here))
                continue;
            std::copy(healthy.bytes.begin(), healthy.bytes.end(), here);
            if (choices_.percent(70)) {
                for (int i = 0; i < 4; ++i)
                    here[octets + i] = static_cast<uint8_t>(entity.value >> (24 - 8 * i));
            }
        }
    }

    void on_sent(size_t from, ByteView bytes, const Locator& to) {
        if (is_recording_ && live_.size() < 400)
            live_.emplace_back(bytes.begin(), bytes.end());
        if (from != kSpy)
            return;
        const bool is_known =
            to == SimulatedNetwork::group() ||
            std::any_of(network_.nodes.begin(), network_.nodes.end(),
                        [&](const auto& node) { return to == node->metatraffic() || to == node->user(); });
        (is_known ? sent_to_others_ : sent_to_strangers_) += bytes.size;
    }

    /// All that is written from now on comes. Some numbers may have been taken by forged samples.
    void check_delivery() {
        for (int i = 0; forges_ && i < 40; ++i)
            write();
        run_for(std::chrono::seconds(1));
        const std::map<uint32_t, SequenceNumber> before = latest_;
        for (int i = 0; i < 20; ++i) {
            write();
            run_for(std::chrono::milliseconds(50));
        }
        run_for(std::chrono::seconds(3));
        check(reading_[{"Square", Reliability::reliable}], kReliableWriter, before, "reliable");
        check(reading_[{"Square", Reliability::best_effort}], kReliableWriter, before, "best effort");
        check(reading_[{"Circle", Reliability::best_effort}], kBestEffortWriter, before, "best effort both");
        if (!network_.nodes[kHealthy]->participant->all_acknowledged(EntityId{kReliableWriter}))
            fail("not all is acknowledged");
    }

    void check(Reading& reading, uint32_t writer, const std::map<uint32_t, SequenceNumber>& before,
               const std::string& what) {
        const std::vector<SequenceNumber>& numbers = reading.numbers[healthy_writer(writer)];
        const SequenceNumber first = forges_ ? before.at(writer) + 1 : 1;
        SequenceNumber expected = forges_ ? first : 0;
        size_t count = 0;
        for (const SequenceNumber number : numbers) {
            if (number > latest_[writer] || number < first)
                continue;
            if (expected != 0 && number != expected && expected <= latest_[writer]) {
                fail(what + " reader got " + std::to_string(number) + " instead of " +
                     std::to_string(expected));
                return;
            }
            expected = number + 1;
            ++count;
        }
        if (expected != latest_[writer] + 1)
            fail(what + " reader got nothing of " + std::to_string(expected) + " to " +
                 std::to_string(latest_[writer]) + " after " + std::to_string(count));
    }

    void check_traffic() {
        // Three times what came, and what is allowed to each that was never heard.
        if (sent_to_strangers_ > 3 * received_ + kSlack)
            fail("sent " + std::to_string(sent_to_strangers_) + " octets to strangers for " +
                 std::to_string(received_));
        const size_t to_others = sent_to_others_ - baseline_;
        if (to_others > received_ + kSlackOfOthers)
            fail("sent " + std::to_string(to_others) + " octets to the others beside " +
                 std::to_string(received_));
    }

    void fail(const std::string& what) {
        if (failure_.empty())
            failure_ = what;
    }

    static constexpr int kRounds = 30;
    static constexpr size_t kSlack = 2000;
    static constexpr size_t kSlackOfOthers = size_t{256} << 10;

    Choices& choices_;
    const bool forges_;
    const RecordedConversations& recorded_;
    std::vector<Conversation> conversations_;
    Conversation live_;
    bool is_recording_ = true;
    const size_t budget_before_;
    size_t most_memory_ = 0;
    size_t written_ = 0;
    size_t received_ = 0;
    size_t attacks_ = 0;
    size_t sent_to_strangers_ = 0;
    size_t sent_to_others_ = 0;
    size_t baseline_ = 0;
    uint32_t readers_ = 0;
    std::map<uint32_t, SequenceNumber> latest_;
    std::set<std::string> topics_;
    std::map<std::pair<std::string, Reliability>, Reading> reading_;
    Reading neighbour_;
    EndpointSink untold_;
    std::string failure_;
    SimulatedNetwork network_; // goes first: its participants tell the sinks
};

} // namespace meridian::rtps::test
