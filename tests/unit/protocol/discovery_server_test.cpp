// A participant that knows others through a discovery server, and what it tells that server of itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint8_t kServer = 9;
constexpr uint8_t kClient = 5;
const Locator kServerAddress = udpv4(kServer, 11811);

/// Under which prefixes samples came, and which they name in their inline QoS.
class Identities final : public MessageVisitor {
  public:
    explicit Identities(const CapturedOutput& output) {
        for (const auto& message : output.messages) {
            if (message.destination == kServerAddress)
                read_message(message.bytes, *this);
        }
    }
    std::vector<EntityId> writers;
    std::vector<VendorId> announced_as; // makers of the messages that announce the participant
    std::vector<Guid> sources;
    std::vector<Guid> named;

    void forget_first() {
        for (std::vector<Guid>* list : {&sources, &named})
            list->erase(list->begin());
    }

  private:
    void on_data(const MessageContext& context, const Data& data) override {
        InlineQos qos;
        decode_inline_qos(data.inline_qos, data.endianness, qos);
        writers.push_back(data.writer);
        if (data.writer == entity::participant_writer)
            announced_as.push_back(context.vendor);
        sources.push_back(Guid{context.source, data.writer});
        named.push_back(qos.related_writer.value_or(Guid{}));
        EXPECT_EQ(qos.related_sequence_number, data.sequence_number);
    }
};

class DiscoveryServerTest : public ParticipantTest {
  protected:
    DiscoveryServerTest() { config.servers = {kServerAddress}; }

    ParticipantData server() {
        ParticipantData data = remote(kServer);
        data.vendor = VendorId{{0x01, 0x0f}};
        data.metatraffic_unicast = {kServerAddress};
        data.metatraffic_multicast.clear();
        data.properties = {{"PARTICIPANT_TYPE", "SERVER"}};
        return data;
    }
    /// A sample of the server's, with a heartbeat of that count behind it.
    void server_tells(EntityId writer_id, SequenceNumber number, const ByteBuffer& payload, Count count,
                      uint8_t server = kServer) {
        receive(
            server,
            [&](MessageWriter& writer) {
                writer.add_data(data_of(writer_id, number, payload));
                writer.add_heartbeat(heartbeat_of(writer_id, 1, number, count));
            },
            true);
    }
    void client_answers() {
        source_port = 50007;
        acknowledge(kClient, 1);
        source_port = 50000;
    }
    void meet() {
        start();
        server_tells(entity::participant_writer, 1, encode(server()), 1);
        output.messages.clear();
    }
};

// Servers of Fast DDS 3 believe the message and not the parameter.
TEST_F(DiscoveryServerTest, TheMessageSaysTheMakerThatServersSpeakWith) {
    start();
    run_until(time + seconds(4));
    const Identities identities(output);
    EXPECT_FALSE(identities.announced_as.empty());
    EXPECT_THAT(identities.announced_as, Each(VendorId{{0x01, 0x0f}}));
    EXPECT_THAT(identities.sources, Each(testing::Field(&Guid::prefix, prefix(1))));
}

TEST_F(DiscoveryServerTest, ItsSamplesNameWhoItIs) {
    meet();
    SilentReader sink;
    ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {}, sink, now()));
    run_until(time + MessageBatcher::kLongestWait);
    const Identities before(output);
    EXPECT_THAT(before.sources, Each(testing::Field(&Guid::prefix, prefix(1))));
    EXPECT_EQ(before.named, before.sources);
    output.messages.clear();

    participant->join_again(prefix(100), config.locators, now());
    run_until(time + MessageBatcher::kLongestWait);
    Identities after(output);
    EXPECT_EQ(after.sources.at(0).prefix, prefix(1)) << "the farewell";
    EXPECT_EQ(after.named.at(0).prefix, prefix(1));
    after.forget_first();
    EXPECT_THAT(after.writers, testing::Contains(entity::participant_writer));
    EXPECT_THAT(after.writers, testing::Contains(entity::subscriptions_writer));
    EXPECT_THAT(after.sources, Each(testing::Field(&Guid::prefix, prefix(100))));
    EXPECT_EQ(after.named, after.sources);
}

/// The server, a client and its writer are known.
class ServerThatComesBack : public DiscoveryServerTest {
  protected:
    ServerThatComesBack() {
        meet();
        server_tells(entity::participant_writer, 2, encode(remote(kClient)), 69);
        server_tells(entity::publications_writer, 1, encode(writer_of(kClient, "early")), 49);
        EXPECT_EQ(recorder.history, (Lines{"+early"}));
        run_until(time + seconds(3));
        output.messages.clear();
    }
    EndpointData writer_of(uint8_t id, const std::string& name) {
        EndpointData data = publication(id);
        data.name = name;
        return data;
    }
    /// What a writer of the server asks or tells before it was asked itself.
    void knock(Count count) {
        receive(
            kServer,
            [&](MessageWriter& writer) {
                AckNack acknack;
                acknack.reader = entity::participant_reader;
                acknack.writer = entity::participant_writer;
                acknack.missing.base = 0;
                acknack.count = count;
                writer.add_acknack(acknack);
            },
            true);
    }
    /// Everything from the beginning, as a server does that began anew, with this client besides.
    void tell_all(uint8_t client, const std::string& name, Count count) {
        server_tells(entity::participant_writer, 1, encode(server()), count);
        server_tells(entity::participant_writer, 2, encode(remote(kClient)), count + 1);
        server_tells(entity::participant_writer, 3, encode(remote(client)), count + 2);
        server_tells(entity::publications_writer, 1, encode(writer_of(kClient, "early")), count);
        server_tells(entity::publications_writer, 2, encode(writer_of(client, name)), count + 1);
    }
    /// Acknowledgements to the server.
    Lines acknowledged() {
        Lines lines = sent_to(kServerAddress);
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) { return line.rfind("ACKNACK", 0) != 0; }),
                    lines.end());
        return lines;
    }
};

TEST_F(ServerThatComesBack, NothingIsAcknowledgedThatItsFirstLifeTold) {
    source_port = 50001;
    knock(1);
    tell_all(6, "late", 70); // its counts have come as far as those of its first life
    tell_all(6, "late", 80);
    EXPECT_THAT(acknowledged(), IsEmpty()) << "they would be acknowledgements of what was not heard";
    run_until(time + seconds(1));
    EXPECT_THAT(acknowledged(), Each(testing::StartsWith("ACKNACK 0 {}"))) << "it is asked for everything";
    EXPECT_FALSE(acknowledged().empty());
    tell_all(6, "late", 90);
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        knock(10 + i);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early", "+late"}));
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(ServerThatComesBack, WhatItDoesNotNameAgainStaysAsLongAsItAnswers) {
    // As one with a state file does, which takes its clients for told.
    source_port = 50001;
    server_tells(entity::participant_writer, 1, encode(server()), 1);
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        if (!sent_to(udpv4(kClient)).empty())
            client_answers();
        output.messages.clear();
        server_tells(entity::participant_writer, 1, encode(server()), 1);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early"}));
    for (int i = 0; i < 30; ++i) {
        run_until(time + seconds(1));
        server_tells(entity::participant_writer, 1, encode(server()), 1);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early", "-early"}));
}

/// A server as Fast DDS has it: it repeats what is not acknowledged, and takes what is acknowledged for told.
class ServerModel final : public MessageVisitor {
  public:
    struct Writer {
        std::vector<ByteBuffer> samples;
        SequenceNumber acknowledged = 0;
        Count count = 0;
    };
    std::map<EntityId, Writer> writers;

    void hear(const CapturedOutput& output) {
        for (const auto& message : output.messages) {
            if (message.destination == kServerAddress)
                read_message(message.bytes, *this);
        }
    }

  private:
    void on_acknack(const MessageContext&, const AckNack& acknack) override {
        Writer& writer = writers[acknack.writer];
        writer.acknowledged = std::max(writer.acknowledged, acknack.missing.base - 1);
    }
};

class RandomServers : public DiscoveryServerTest {
  protected:
    explicit RandomServers() { start(); }

    void begin_life(Random& random) {
        server_id = random.percent(80) ? kServer : static_cast<uint8_t>(kServer + 1);
        ++source_port;
        model = ServerModel();
        for (const EntityId id : {entity::participant_writer, entity::publications_writer})
            model.writers[id].count = static_cast<Count>(random.below(5000));
        tell(entity::participant_writer, encode(server_data()));
        for (const uint8_t client : clients)
            tell_of(client);
    }
    void tell(EntityId writer, const ByteBuffer& payload) {
        model.writers[writer].samples.push_back(payload);
    }
    void tell_of(uint8_t client) {
        EndpointData data = publication(client);
        data.name = std::to_string(client);
        tell(entity::participant_writer, encode(remote(client)));
        tell(entity::publications_writer, encode(data));
    }
    ParticipantData server_data() {
        ParticipantData data = server();
        data.guid.prefix = prefix(server_id);
        return data;
    }
    /// A tenth of a second of server and clients.
    void pass(bool has_server, bool asks) {
        run_until(time + milliseconds(100));
        for (const uint8_t client : clients) {
            if (!sent_to(udpv4(client)).empty())
                answer_of(client);
        }
        if (has_server)
            model.hear(output);
        output.messages.clear();
        if (!has_server)
            return;
        if (asks)
            hear_server([&](MessageWriter& writer) {
                AckNack acknack;
                acknack.reader = entity::participant_reader;
                acknack.writer = entity::participant_writer;
                acknack.count = ++asked;
                writer.add_acknack(acknack);
            });
        for (auto& [id, writer] : model.writers)
            repeat(id, writer);
    }
    /// Whatever its GUID, it is at the address of the server.
    void hear_server(const std::function<void(MessageWriter&)>& fill) {
        source_host = kServer;
        receive(server_id, fill, true);
        source_host = 0;
    }
    void answer_of(uint8_t client) {
        const uint32_t port = std::exchange(source_port, 50007);
        acknowledge(client, 1);
        source_port = port;
    }
    void repeat(EntityId id, ServerModel::Writer& from) {
        const auto end = static_cast<SequenceNumber>(from.samples.size());
        const bool is_due = ++steps % 30 == 0; // it announces itself now and then
        for (SequenceNumber number = 1; number <= end; ++number) {
            if (number <= from.acknowledged && !(is_due && number == 1 && id == entity::participant_writer))
                continue;
            hear_server([&](MessageWriter& writer) {
                writer.add_data(data_of(id, number, from.samples[static_cast<size_t>(number - 1)]));
                writer.add_heartbeat(heartbeat_of(id, 1, end, ++from.count));
            });
        }
    }

    std::set<std::string> names() const {
        std::set<std::string> result;
        for (const auto& [guid, endpoint] : recorder.endpoints)
            result.insert(endpoint->name);
        return result;
    }

    ServerModel model;
    std::vector<uint8_t> clients;
    uint8_t server_id = kServer;
    Count asked = 0;
    unsigned steps = 0;
};

TEST_F(RandomServers, EachClientIsToldOfOnceAndEndsOnce) {
    Random random(77);
    Lines expected;
    std::vector<uint8_t> dead;
    uint8_t next = 20;
    for (int life = 0; life < 40; ++life) {
        begin_life(random);
        const bool asks_first = random.percent(50);
        pass(true, asks_first);
        for (uint64_t left = 5 + random.below(60); left > 0; --left) {
            if (random.percent(4)) {
                clients.push_back(next);
                tell_of(next++);
            }
            pass(true, asks_first && left % 7 == 0);
        }
        for (int i = 0; i < 30; ++i)
            pass(true, false);
        const std::set<std::string> seen = names();
        for (const uint8_t client : clients)
            EXPECT_EQ(seen.count(std::to_string(client)), 1u) << int{client} << " in life " << life;
        for (uint64_t left = random.below(40); left > 0; --left) {
            if (random.percent(5) && !clients.empty()) { // no client is told of it
                const auto at = clients.begin() + static_cast<std::ptrdiff_t>(random.below(clients.size()));
                dead.push_back(*at);
                clients.erase(at);
            }
            pass(false, false);
        }
    }
    begin_life(random);
    for (int i = 0; i < 400; ++i)
        pass(true, false);
    std::set<std::string> alive;
    for (const uint8_t client : clients)
        alive.insert(std::to_string(client));
    EXPECT_EQ(names(), alive);
    EXPECT_GT(next, 40);
    EXPECT_GT(dead.size(), 5u);
    for (uint8_t client = 20; client < next; ++client) {
        const std::string name = std::to_string(client);
        EXPECT_LE(std::count(recorder.history.begin(), recorder.history.end(), "+" + name), 1) << name;
    }
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(ServerThatComesBack, NoOtherParticipantSpeaksInItsPlace) {
    ParticipantData stranger = server();
    stranger.guid.prefix = prefix(7);
    announce(stranger);
    server_tells(entity::participant_writer, 1, encode(stranger), 1, 7);
    server_tells(entity::participant_writer, 2, encode(remote(6)), 2, 7);
    server_tells(entity::publications_writer, 1, encode(writer_of(kClient, "forged")), 1, 7);
    receive(7, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, 2, writer_of(kClient, "").guid);
        add_end(writer, entity::participant_writer, 3, {prefix(kClient), entity::participant});
    });
    EXPECT_EQ(recorder.history, (Lines{"+early"}));
    EXPECT_EQ(recorder.participants.count(prefix(kClient)), 1u);
    EXPECT_EQ(recorder.participants.count(prefix(6)), 0u);
}

TEST_F(ServerThatComesBack, EndpointsOfClientsThatItNeverTellsOfDoNotStay) {
    const size_t before = MemoryBudget::of_process().used();
    SequenceNumber number = 1;
    for (uint32_t i = 0; i < 3000; ++i) {
        EndpointData writer = writer_of(40, "unknown");
        writer.guid.prefix.bytes[2] = static_cast<uint8_t>(i >> 8);
        writer.guid.prefix.bytes[3] = static_cast<uint8_t>(i);
        server_tells(entity::publications_writer, ++number, encode(writer), 100 + static_cast<Count>(i));
    }
    EXPECT_GT(MemoryBudget::of_process().used(), before + 3000 * 200);
    const auto pass = [this](int count) {
        for (int i = 0; i < count; ++i) {
            run_until(time + seconds(1));
            server_tells(entity::participant_writer, 1, encode(server()), 1);
        }
    };
    pass(50);
    server_tells(entity::publications_writer, ++number, encode(writer_of(50, "late")), 5000);
    pass(13);
    server_tells(entity::publications_writer, ++number, encode(writer_of(kClient, "later")), 5001);
    EXPECT_LT(MemoryBudget::of_process().used(), before + 10000);
    server_tells(entity::participant_writer, 3, encode(remote(50)), 70);
    EXPECT_EQ(recorder.history, (Lines{"+early", "~later", "+late"}));
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(ServerThatComesBack, EndpointsThatEndBeforeTheirClientIsToldOfAreNeverSeen) {
    const size_t before = MemoryBudget::of_process().used();
    server_tells(entity::publications_writer, 2, encode(writer_of(6, "short")), 50);
    receive(kServer, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, 3, writer_of(6, "").guid);
    });
    EXPECT_EQ(recorder.history, (Lines{"+early"}));
    EXPECT_TRUE(recorder.contradictions.empty());
    EXPECT_EQ(MemoryBudget::of_process().used(), before);
    server_tells(entity::participant_writer, 3, encode(remote(6)), 70);
    server_tells(entity::publications_writer, 4, encode(writer_of(6, "again")), 51);
    EXPECT_EQ(recorder.history, (Lines{"+early", "+again"}));
}

TEST_F(ServerThatComesBack, WhatItRelaysBackOfThisParticipantIsPassedOver) {
    const size_t before = MemoryBudget::of_process().used();
    server_tells(entity::participant_writer, 3, encode(participant->announced()), 70);
    server_tells(entity::publications_writer, 2, encode(writer_of(1, "own")), 50);
    server_tells(entity::publications_writer, 3, encode(writer_of(100, "of another one here")), 51);
    receive(kServer, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, 4, writer_of(1, "").guid);
        add_end(writer, entity::participant_writer, 4, {prefix(1), entity::participant});
    });
    EXPECT_EQ(recorder.history, (Lines{"+early"}));
    EXPECT_TRUE(recorder.contradictions.empty());
    EXPECT_THAT(recorder.warnings, IsEmpty());
    EXPECT_EQ(MemoryBudget::of_process().used(), before);
}

/// Two servers that tell of all that there can be, each other, themselves and this participant too, in any
/// order.
class ServersAtOdds : public DiscoveryServerTest {
  protected:
    static constexpr uint8_t kSecond = kServer + 1;

    ServersAtOdds() { config.servers = {kServerAddress, udpv4(kSecond, 11811)}; }

    ParticipantData data_of(uint8_t id) {
        if (id != kServer && id != kSecond)
            return id == 1 ? participant->announced() : remote(id);
        ParticipantData data = server();
        data.guid.prefix = prefix(id);
        data.metatraffic_unicast = {udpv4(id, 11811)};
        return data;
    }
    void say(Random& random) {
        const uint8_t server = random.percent(50) ? kServer : kSecond;
        const auto subject = static_cast<uint8_t>(1 + random.below(kSecond));
        const bool is_participant = random.percent(50);
        const EntityId writer_id = is_participant ? entity::participant_writer : entity::publications_writer;
        SequenceNumber& number = numbers_[{server, is_participant}];
        if (random.below(500) == 0)
            number = 0; // it began anew
        const uint32_t entity = 0x102 + (static_cast<uint32_t>(random.below(4)) << 8);
        if (random.percent(subject < kServer ? 30 : 3)) {
            const Guid key = is_participant ? Guid{prefix(subject), entity::participant}
                                            : Guid{prefix(subject), EntityId{entity}};
            receive(
                server, [&](MessageWriter& writer) { add_end(writer, writer_id, ++number, key); }, true);
        } else {
            server_tells(writer_id, ++number,
                         is_participant ? encode(data_of(subject)) : encode(publication(subject, entity)),
                         ++count_, server);
        }
    }
    void announce_themselves() {
        for (const uint8_t server : {kServer, kSecond})
            server_tells(entity::participant_writer, ++numbers_[{server, true}], encode(data_of(server)),
                         ++count_, server);
    }
    void begin_anew() {
        numbers_.clear();
        start();
    }

  private:
    std::map<std::pair<uint8_t, bool>, SequenceNumber> numbers_;
    Count count_ = 0;
};

TEST_F(ServersAtOdds, ContradictNothingAndLeaveNothing) {
    const size_t before = MemoryBudget::of_process().used();
    for (const uint64_t seed : seeds(1, 100)) {
        SCOPED_TRACE("replay with FERRET_SIM_SEED=" + std::to_string(seed));
        Random random(seed);
        begin_anew();
        size_t sent = 0;
        for (int i = 0; i < 400; ++i) {
            if (i % 20 == 0)
                announce_themselves();
            say(random);
            run_until(time + milliseconds(random.below(200)));
            sent += output.messages.size();
            output.messages.clear();
        }
        EXPECT_EQ(recorder.contradictions, std::vector<std::string>());
        EXPECT_LT(sent, 4000u);
        participant->stop(now());
        participant.reset();
        ASSERT_TRUE(recorder.participants.empty());
        ASSERT_TRUE(recorder.endpoints.empty());
        ASSERT_EQ(MemoryBudget::of_process().used(), before);
    }
    EXPECT_GT(recorder.history.size(), 10000u);
}

TEST_F(DiscoveryServerTest, ItMaySpeakFromAnotherOfItsAddresses) {
    start();
    source_host = 99;
    server_tells(entity::participant_writer, 1, encode(server()), 1);
    server_tells(entity::participant_writer, 2, encode(remote(kClient)), 2);
    EXPECT_EQ(recorder.participants.count(prefix(kClient)), 1u);
}

TEST_F(DiscoveryServerTest, ClientsOfALostServerLeaveWhenTheyNoLongerAnswer) {
    meet();
    server_tells(entity::participant_writer, 2, encode(remote(kClient)), 2);
    receive(kServer, [&](MessageWriter& writer) {
        add_end(writer, entity::participant_writer, 3, {prefix(kServer), entity::participant});
    });
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        if (!sent_to(udpv4(kClient)).empty())
            client_answers();
        output.messages.clear();
    }
    EXPECT_EQ(known_participants(), (std::vector<GuidPrefix>{prefix(kClient)}));
    run_until(time + seconds(30));
    EXPECT_THAT(known_participants(), IsEmpty());
}

} // namespace
} // namespace meridian::rtps::test
