#include "rtps/net/runtime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <thread>

#include "common/private_network.h"
#include "platform/mutex.h"
#include "rtps/net/ports.h"
#include "support/logger_guard.h"
#include "support/no_threads.h"

namespace meridian::rtps::net {
namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using namespace std::chrono_literals;

/// Keeps what it is told; called by the runtime's thread, read by the test's.
class Recorder : public Events {
  public:
    void participant_discovered(const ParticipantRef& data) override {
        {
            const MutexLock lock(mutex_);
            default_unicast_[data->name] = data->default_unicast;
        }
        note("+" + data->name);
    }
    void participant_changed(const ParticipantRef& data) override { note("~" + data->name); }
    void participant_gone(const ParticipantRef& data, GoneReason) override { note("-" + data->name); }
    void endpoint_discovered(const RemoteEndpointRef& endpoint) override { note("+" + endpoint->topic_name); }
    void endpoint_gone(const RemoteEndpointRef& endpoint, GoneReason, WireTime) override {
        note("-" + endpoint->topic_name);
    }
    void warning(const std::string& text) override { note("!" + text); }

    /// Waits until the note was made; false when it was not within the time.
    bool wait_for(const std::string& text, std::chrono::milliseconds limit = 20000ms) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!has(text)) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }
    bool has(const std::string& text) {
        const MutexLock lock(mutex_);
        return std::find(notes_.begin(), notes_.end(), text) != notes_.end();
    }
    /// What the participant of this name announced first.
    LocatorList default_unicast(const std::string& name) {
        const MutexLock lock(mutex_);
        return default_unicast_[name];
    }
    std::vector<std::string> notes() {
        const MutexLock lock(mutex_);
        return notes_;
    }

  private:
    void note(const std::string& text) {
        const MutexLock lock(mutex_);
        notes_.push_back(text);
    }

    Mutex mutex_;
    std::vector<std::string> notes_ MERIDIAN_GUARDED_BY(mutex_);
    std::map<std::string, LocatorList> default_unicast_ MERIDIAN_GUARDED_BY(mutex_);
};

RuntimeConfig configured(const std::string& name, const std::shared_ptr<OwnParticipants>& own,
                         uint32_t mask = 3) {
    RuntimeConfig config;
    config.own_participants = own;
    config.participant.prefix = own->choose(0, 0, 0);
    config.participant.name = name;
    config.transport.mask = mask;
    config.transport.v4.receive_socket_buffer_size = 65536;
    config.transport.v6.receive_socket_buffer_size = 65536;
    return config;
}

/// A running participant; each is of a process of its own unless they share the own participants.
struct Node {
    explicit Node(const RuntimeConfig& config) {
        runtime = Runtime::create(config, recorder, error);
        if (runtime) {
            EXPECT_TRUE(runtime->start(error)) << error;
        }
    }
    explicit Node(const std::string& name, uint32_t mask = 3)
        : Node(configured(name, std::make_shared<OwnParticipants>(), mask)) {}

    Recorder recorder;
    std::string error;
    std::unique_ptr<Runtime> runtime;
};

TEST(Runtime, ParticipantsFindEachOtherAndSayFarewell) {
    for (const uint32_t mask : {1u, 2u, 3u, 8u, 9u}) {
        Node a("a", mask);
        Node b("b", mask);
        ASSERT_TRUE(a.runtime && b.runtime) << a.error << b.error;
        EXPECT_TRUE(a.recorder.wait_for("+b")) << mask;
        EXPECT_TRUE(b.recorder.wait_for("+a")) << mask;
        b.runtime->stop();
        EXPECT_TRUE(a.recorder.wait_for("-b")) << mask;
        EXPECT_TRUE(b.recorder.has("-a")) << mask;
    }
}

TEST(Runtime, ParticipantsOfOneProcessAreNotReported) {
    const auto own = std::make_shared<OwnParticipants>();
    Node a(configured("a", own));
    Node b(configured("b", own));
    Node stranger("c");
    EXPECT_TRUE(a.recorder.wait_for("+c"));
    EXPECT_TRUE(b.recorder.wait_for("+c"));
    EXPECT_TRUE(stranger.recorder.wait_for("+a"));
    EXPECT_TRUE(stranger.recorder.wait_for("+b"));
    EXPECT_EQ(a.recorder.notes().size(), 1u);
    EXPECT_EQ(b.recorder.notes().size(), 1u);
}

TEST(Runtime, ParticipantsOfOneProcessShareTheirSocketsUntilTheLastIsGone) {
    const auto own = std::make_shared<OwnParticipants>();
    auto a = std::make_unique<Node>(configured("a", own));
    auto b = std::make_unique<Node>(configured("b", own));
    auto stranger = std::make_unique<Node>("c");
    EXPECT_EQ(a->runtime->participant_index(), 0u);
    EXPECT_EQ(b->runtime->participant_index(), 0u);
    EXPECT_EQ(stranger->runtime->participant_index(), 1u);
    EXPECT_TRUE(stranger->recorder.wait_for("+a"));
    EXPECT_TRUE(stranger->recorder.wait_for("+b"));
    a->runtime->stop();
    a.reset();
    EXPECT_TRUE(stranger->recorder.wait_for("-a"));
    // The other one hears and is heard.
    stranger->runtime->stop();
    EXPECT_TRUE(b->recorder.wait_for("-c"));
    stranger = std::make_unique<Node>("d");
    EXPECT_TRUE(b->recorder.wait_for("+d"));
    EXPECT_TRUE(stranger->recorder.wait_for("+b"));
    EXPECT_EQ(Node("e").runtime->participant_index(), 1u) << "b has its index still";
    b.reset();
    EXPECT_EQ(Node("f").runtime->participant_index(), 0u);
}

TEST(Runtime, ParticipantsThatAreConfiguredDifferentlyShareNothing) {
    const auto own = std::make_shared<OwnParticipants>();
    Node a(configured("a", own, 3));
    Node b(configured("b", own, 1));
    Node c("c");
    EXPECT_EQ(a.runtime->participant_index(), 0u);
    EXPECT_EQ(b.runtime->participant_index(), 1u);
    EXPECT_TRUE(c.recorder.wait_for("+a"));
    EXPECT_TRUE(c.recorder.wait_for("+b"));
    RuntimeConfig fixed = configured("d", own, 1);
    fixed.transport.participant_index = 0;
    Recorder recorder;
    std::string error;
    EXPECT_FALSE(Runtime::create(fixed, recorder, error));
    EXPECT_THAT(error, HasSubstr("index 0 of domain 0 is in use"));
}

EndpointData endpoint_of(Runtime& runtime, uint32_t entity) {
    EndpointData data;
    data.guid = {runtime.prefix(), EntityId{entity}};
    data.topic_name = "T";
    data.type_name = "X";
    return data;
}

// Data and discovery travel through different sockets; the order in which they were sent counts all the same.
TEST(Runtime, WhatAWriterSentLastIsNotOvertakenByItsFarewell) {
    Node a("a");
    Node b("b");
    struct Sink : ReaderSink {
        std::atomic<int> samples{0};
        std::atomic<int> writers{0}; // matched at present
        void on_sample(const Sample&) override { ++samples; }
        void matched(const RemoteEndpoint&) override { ++writers; }
        void unmatched(const Guid&) override { --writers; }
    } sink;
    a.runtime->with_participant([&](Participant& participant, Now now) {
        participant.add_reader(endpoint_of(*a.runtime, 0x104), ReaderConfig{}, sink, now);
    });
    int expected = 0;
    for (int round = 0; round < 20; ++round) {
        const EntityId writer{0x203u + (static_cast<uint32_t>(round) << 8)};
        struct WriterSink : EndpointSink {
            std::atomic<bool> is_matched{false};
            void matched(const RemoteEndpoint&) override { is_matched = true; }
        } writer_sink;
        b.runtime->with_participant([&](Participant& participant, Now now) {
            participant.add_writer(endpoint_of(*b.runtime, writer.value), WriterConfig{}, writer_sink, now);
        });
        while (!writer_sink.is_matched || sink.writers == 0)
            std::this_thread::sleep_for(1ms);
        a.runtime->with_participant([&](Participant&, Now) {
            // While nothing is taken from the sockets, both arrive.
            b.runtime->with_participant([&](Participant& participant, Now now) {
                const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
                WriteRequest request;
                request.payload = payload;
                for (int i = 0; i < 50; ++i)
                    participant.write(writer, request, now);
                participant.remove_endpoint(writer, now);
            });
        });
        expected += 50;
        while (sink.writers != 0)
            std::this_thread::sleep_for(1ms);
        ASSERT_EQ(sink.samples, expected) << round;
    }
    a.runtime->stop();
}

// Even where endpoints of both have the same id, which messages without a destination cannot tell apart.
TEST(Runtime, EachParticipantOfASharedSocketGetsWhatIsForIt) {
    struct Sink : ReaderSink {
        std::atomic<int> samples{0};
        std::atomic<int> writers{0};
        void matched(const RemoteEndpoint&) override { ++writers; }
        void on_sample(const Sample&) override { ++samples; }
    };
    struct WriterSink : EndpointSink {
        std::atomic<int> readers{0};
        void matched(const RemoteEndpoint&) override { ++readers; }
    };
    for (const Reliability reliability : {Reliability::best_effort, Reliability::reliable}) {
        Sink sinks[3];
        WriterSink writer_sinks[2];
        const auto own = std::make_shared<OwnParticipants>();
        Node a(configured("a", own));
        Node b(configured("b", own));
        Node writing("w");
        const auto add_reader = [&](Node& node, uint32_t entity, const char* topic, Sink& sink) {
            EndpointData data = endpoint_of(*node.runtime, entity);
            data.topic_name = topic;
            data.qos.reliability = reliability;
            node.runtime->with_participant([&](Participant& participant, Now now) {
                EXPECT_TRUE(participant.add_reader(data, {}, sink, now));
            });
        };
        add_reader(a, 0x104, "T", sinks[0]);
        add_reader(b, 0x104, "T", sinks[1]);
        add_reader(b, 0x204, "U", sinks[2]);
        constexpr EntityId kWriters[] = {EntityId{0x103}, EntityId{0x203}};
        writing.runtime->with_participant([&](Participant& participant, Now now) {
            for (size_t i = 0; i < 2; ++i) {
                EndpointData data = endpoint_of(*writing.runtime, kWriters[i].value);
                data.topic_name = i == 0 ? "T" : "U";
                data.qos.reliability = reliability;
                EXPECT_TRUE(participant.add_writer(data, {}, writer_sinks[i], now));
            }
        });
        while (writer_sinks[0].readers < 2 || writer_sinks[1].readers < 1 || sinks[0].writers < 1 ||
               sinks[1].writers < 1 || sinks[2].writers < 1)
            std::this_thread::sleep_for(1ms);
        for (int i = 0; i < 100; ++i) {
            writing.runtime->with_participant([&](Participant& participant, Now now) {
                const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
                WriteRequest request;
                request.payload = payload;
                participant.write(kWriters[0], request, now);
                if (i % 2 == 0)
                    participant.write(kWriters[1], request, now);
            });
        }
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while ((sinks[0].samples < 100 || sinks[1].samples < 100 || sinks[2].samples < 50) &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(sinks[0].samples, 100);
        EXPECT_EQ(sinks[1].samples, 100);
        EXPECT_EQ(sinks[2].samples, 50);
        for (Node* node : {&a, &b, &writing})
            node->runtime->stop();
    }
}

TEST(Runtime, TasksOfAParticipantGoWithItAndLeaveTheOthersAlone) {
    const auto own = std::make_shared<OwnParticipants>();
    Node a(configured("a", own));
    Node b(configured("b", own));
    std::atomic<int> runs{0};
    const MonotonicTime start = now().monotonic;
    a.runtime->run_at(start + 20ms, [&](Participant&, Now) { runs += 100; });
    b.runtime->run_at(start + 40ms, [&](Participant& participant, Now) {
        EXPECT_EQ(participant.guid().prefix, b.runtime->prefix());
        ++runs;
    });
    a.runtime->stop();
    while (runs == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(runs, 1);
}

TEST(Runtime, EndpointsMadeAtAnyTimeAreFound) {
    Node a("a");
    Node b("b");
    struct Sink : ReaderSink {
        void on_sample(const Sample&) override {}
    } sink;
    EndpointData reader;
    reader.guid = {a.runtime->prefix(), EntityId{0x00000107}};
    reader.topic_name = "Square";
    reader.type_name = "ShapeType";
    EXPECT_TRUE(a.runtime->with_participant(
        [&](Participant& participant, Now now) { return participant.add_reader(reader, {}, sink, now); }));
    EXPECT_TRUE(b.recorder.wait_for("+Square"));
    EXPECT_TRUE(a.runtime->with_participant([&](Participant& participant, Now now) {
        return participant.remove_endpoint(reader.guid.entity, now);
    }));
    EXPECT_TRUE(b.recorder.wait_for("-Square"));
}

TEST(Runtime, PeersDoWithoutMulticast) {
    RuntimeConfig config = configured("a", std::make_shared<OwnParticipants>());
    config.peers = {"1@127.0.0.1"};
    Node a(config);
    config = configured("b", std::make_shared<OwnParticipants>());
    // Its announcements go nowhere; it answers those that it gets.
    config.peers = {"0@127.0.0.77"};
    Node b(config);
    EXPECT_EQ(b.runtime->participant_index(), 1u);
    EXPECT_TRUE(b.recorder.wait_for("+a"));
    EXPECT_TRUE(a.recorder.wait_for("+b"));
}

TEST(Runtime, BadConfigurationIsRefusedBeforeAndAtCreation) {
    RuntimeConfig config = configured("a", std::make_shared<OwnParticipants>());
    std::string error;
    EXPECT_TRUE(Runtime::check(config, error)) << error;
    config.peers = {"gopher://x"};
    EXPECT_FALSE(Runtime::check(config, error));
    EXPECT_THAT(error, HasSubstr("'gopher://x'"));
    Recorder recorder;
    error.clear();
    EXPECT_FALSE(Runtime::create(config, recorder, error));
    EXPECT_THAT(error, HasSubstr("'gopher://x'"));
    config.peers = {};
    config.transport.domain_id = 250;
    EXPECT_FALSE(Runtime::check(config, error));
    EXPECT_FALSE(Runtime::create(config, recorder, error));
}

TEST(Runtime, StopsOnceAndForGood) {
    Recorder recorder;
    std::string error;
    const auto own = std::make_shared<OwnParticipants>();
    const auto never_started = Runtime::create(configured("a", own), recorder, error);
    ASSERT_TRUE(never_started);
    never_started->stop();
    never_started->stop();
    EXPECT_FALSE(never_started->start(error));

    Node node("b");
    EXPECT_TRUE(node.runtime->start(node.error)) << "a second start does nothing";
    std::thread other([&node] { node.runtime->stop(); });
    node.runtime->stop();
    other.join();
    EXPECT_FALSE(node.runtime->start(node.error));
    // The participant can still be asked.
    EXPECT_EQ(node.runtime->with_participant(
                  [](Participant& participant, Now) { return participant.guid().prefix; }),
              node.runtime->prefix());
}

TEST(Runtime, TasksRunInOrderOfTheirTimes) {
    Node node("a");
    Mutex mutex;
    std::string order;
    std::atomic<int> left{4};
    const auto task = [&](char name) {
        return [&, name](Participant& participant, Now) {
            EXPECT_EQ(participant.guid().prefix, node.runtime->prefix());
            const MutexLock lock(mutex);
            order += name;
            --left;
        };
    };
    MonotonicTime start{};
    // From a task, so that none of them runs before all are there.
    node.runtime->defer([&](Participant& participant, Now at) {
        start = at.monotonic;
        node.runtime->run_at(start + 60ms, task('d'));
        node.runtime->run_at(start + 30ms, task('c'));
        task('a')(participant, at);
        node.runtime->defer(task('b'));
    });
    while (left > 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_GE(now().monotonic - start, MonotonicTime{60ms});
    const MutexLock lock(mutex);
    EXPECT_EQ(order, "abcd");
}

TEST(Runtime, TasksAreDroppedByStop) {
    Node node("a");
    const auto witness = std::make_shared<int>(0);
    node.runtime->run_at(now().monotonic + 1h, [witness](Participant&, Now) {});
    EXPECT_EQ(witness.use_count(), 2);
    node.runtime->stop();
    EXPECT_EQ(witness.use_count(), 1);
    node.runtime->defer([witness](Participant&, Now) {});
    EXPECT_EQ(witness.use_count(), 1);
}

/// Sends datagrams to an address as fast as one thread can, until its end.
class Flood {
  public:
    Flood(const std::string& address, uint16_t port)
        : thread_([this, address, port] {
              const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
              const SocketAddress to = to_socket_address(parse_address(address).value_or(IpAddress{}), port);
              uint8_t message[64] = {'R', 'T', 'P', 'S',
                                     2,   3,   1,   0x7f}; // a header without prefix, then rubbish
              while (!end_) {
                  sendto(socket.get(), message, sizeof message, 0, to.get(), to.length);
                  ++sent_;
              }
          }) {}
    ~Flood() {
        end_ = true;
        thread_.join();
    }
    uint64_t sent() const { return sent_; }

  private:
    std::atomic<bool> end_{false};
    std::atomic<uint64_t> sent_{0};
    std::thread thread_;
};

void send_datagrams(uint16_t port, const ByteBuffer& datagram, int count) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const SocketAddress to = to_socket_address(loopback_address(Family::v4), port);
    for (int i = 0; i < count; ++i)
        sendto(socket.get(), datagram.data(), datagram.size(), 0, to.get(), to.length);
}

// A tool that shows what is there must also say what it could not read.
TEST(Runtime, WhatIsDroppedIsToldWhenItBeginsAndAsTotals) {
    const LoggerGuard logging(QUIX_LOG_WARNING | QUIX_LOG_ERROR);
    CaptureStderr();
    {
        RuntimeConfig config = configured("a", std::make_shared<OwnParticipants>());
        config.transport.receive_buffer_size = 2000;
        Node node(config);
        ASSERT_TRUE(node.runtime) << node.error;
        const uint16_t port = unicast_ports(0, 0)->user;
        const ByteBuffer header{'R', 'T', 'P', 'S', 2, 3, 0xff, 0xff, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
        const auto message = [&header](const ByteBuffer& submessage) {
            ByteBuffer bytes = header;
            bytes.insert(bytes.end(), submessage.begin(), submessage.end());
            return bytes;
        };
        send_datagrams(port, ByteBuffer(3000, 'x'), 5);
        send_datagrams(port, {'r', 'u', 'b', 'b', 'i', 's', 'h'}, 4);
        send_datagrams(port, message({0x15, 1, 100, 0}), 3); // DATA that ends after its header
        send_datagrams(port, message({0x30, 1, 0, 0}), 2);
        send_datagrams(port, message({0x01, 1, 0, 0}), 1); // PAD: nothing is wrong with it
        while (node.runtime->transport_statistics().datagrams_received < 15)
            std::this_thread::sleep_for(1ms);
        EXPECT_TRUE(node.recorder.wait_for(
            "!participant 09090909.09090909.09090909 sends secured messages; they are not read"));
    }
    const std::string logged = GetCapturedStderr();
    const auto times = [&logged](const std::string& text) {
        int count = 0;
        for (size_t at = logged.find(text); at != std::string::npos; at = logged.find(text, at + 1))
            ++count;
        return count;
    };
    for (const char* text : {"from udpv4:127.0.0.1:", "larger than the receive buffer of 2000 bytes",
                             "it is not RTPS", "from its first malformed submessage on",
                             "5 datagrams were larger than the receive buffer and dropped",
                             "4 datagrams were not RTPS and dropped",
                             "3 datagrams were malformed and dropped", "2 secured submessages were not read"})
        EXPECT_EQ(times(text), text[0] == 'f' && text[5] == 'u' ? 3 : 1) << text << " in\n" << logged;
    EXPECT_EQ(times("\n"), 7) << logged;
}

TEST(Runtime, AThreadThatCannotBeHadIsAnErrorOfStart) {
    Recorder recorder;
    std::string error;
    const auto runtime =
        Runtime::create(configured("a", std::make_shared<OwnParticipants>()), recorder, error);
    ASSERT_TRUE(runtime) << error;
    {
        const NoThreads none;
        EXPECT_FALSE(runtime->start(error));
        EXPECT_THAT(error, HasSubstr("cannot start a thread"));
    }
    EXPECT_TRUE(runtime->start(error)) << error;
}

TEST(Runtime, DiscoversCallsAndStopsUnderAFloodOfData) {
    Node a("a");
    const Flood flood("127.0.0.1", unicast_ports(0, 0)->user);
    while (a.runtime->transport_statistics().datagrams_received < 1000)
        std::this_thread::sleep_for(1ms);
    Node b("b");
    EXPECT_TRUE(a.recorder.wait_for("+b"));
    EXPECT_TRUE(b.recorder.wait_for("+a"));
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i)
        a.runtime->with_participant([](Participant& participant, Now) { return participant.guid(); });
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    const auto before_stop = std::chrono::steady_clock::now();
    a.runtime->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before_stop, 10s); // a starved stop never ends
    EXPECT_TRUE(b.recorder.wait_for("-a"));
    EXPECT_GT(flood.sent(), 1000u);
}

TEST(Runtime, PeersBoundToLoopbackFindThoseThatAreNotWithoutAnyOfItElsewhere) {
    test::OtherHost other;
    other.connect("wire", "10.6.0.1/24", "wire", "10.6.0.2/24");
    {
        Node bound("bound", 2);
        Node open("open", 1);
        std::unique_ptr<Node> there;
        other.run([&there] { there = std::make_unique<Node>("there"); });
        EXPECT_TRUE(bound.recorder.wait_for("+open"));
        EXPECT_TRUE(open.recorder.wait_for("+bound"));
        EXPECT_TRUE(there->recorder.wait_for("+open"));
        EXPECT_TRUE(open.recorder.wait_for("+there"));
        const auto told = [](Node& node) { return node.recorder.default_unicast("open"); };
        ASSERT_EQ(told(bound).size(), 2u);
        EXPECT_EQ(to_string(told(bound)[1]), "udpv4:127.0.0.1:7413");
        ASSERT_EQ(told(*there).size(), 1u);
        EXPECT_EQ(to_string(told(*there)[0]), "udpv4:10.6.0.1:7413");
        // Some rounds of announcements later the others still see the same.
        const auto heard = [](Node& node) { return node.runtime->transport_statistics().datagrams_received; };
        const uint64_t heard_by_bound = heard(bound);
        const uint64_t heard_there = heard(*there);
        while (heard(bound) < heard_by_bound + 5 || heard(*there) < heard_there + 5)
            std::this_thread::sleep_for(1ms);
        EXPECT_FALSE(bound.recorder.has("~open"));
        EXPECT_FALSE(there->recorder.has("~open"));
        EXPECT_FALSE(there->recorder.has("+bound"));
    }
    test::shell("ip link del wire");
}

TEST(Runtime, NewInterfaceLeadsToNewPeers) {
    Node here("here");
    test::OtherHost other;
    std::unique_ptr<Node> there;
    other.run([&there] { there = std::make_unique<Node>("there"); });
    EXPECT_FALSE(here.recorder.wait_for("+there", 200ms));
    other.connect("late", "10.4.0.1/24", "late", "10.4.0.2/24");
    EXPECT_TRUE(here.recorder.wait_for("+there"));
    EXPECT_TRUE(there->recorder.wait_for("+here"));
    const auto announced = here.runtime->with_participant(
        [&](Participant& participant, Now) { return participant.announced().metatraffic_unicast; });
    ASSERT_EQ(announced.size(), 1u);
    EXPECT_EQ(to_string(announced[0]), "udpv4:10.4.0.1:7410");
    EXPECT_THAT(here.runtime->describe_interfaces(), HasSubstr("late 10.4.0.1"));
    here.runtime->stop();
    EXPECT_TRUE(there->recorder.wait_for("-here"));
    test::shell("ip link del late");
}

// To join again costs all others much.
TEST(Runtime, AnAddressThatIsBackSoonIsNotLost) {
    test::OtherHost other;
    other.connect("wire", "10.4.0.1/24", "wire", "10.4.0.2/24");
    test::shell(
        "ip link add far type veth peer name near; ip link set near up; ip link set far up; "
        "ip addr add 10.5.0.1/24 dev near");
    Node here("here");
    std::unique_ptr<Node> there;
    other.run([&there] { there = std::make_unique<Node>("there"); });
    EXPECT_TRUE(there->recorder.wait_for("+here"));
    EXPECT_TRUE(here.recorder.wait_for("+there"));
    const auto wait_for_near = [&](bool is_there) {
        while ((here.runtime->describe_interfaces().find("near 10.5.0.1") != std::string::npos) != is_there)
            std::this_thread::sleep_for(1ms);
    };
    for (int i = 0; i < 5; ++i) {
        test::shell("ip link set near down");
        wait_for_near(false);
        test::shell("ip link set near up");
        wait_for_near(true);
    }
    EXPECT_FALSE(there->recorder.wait_for("-here", 1200ms));
    // One that stays away is lost.
    testing::internal::CaptureStderr();
    test::shell("ip link del near");
    EXPECT_TRUE(there->recorder.wait_for("-here"));
    here.runtime->describe_interfaces(); // not before the thread is done with it
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("left the domain and joined it again"));
    test::shell("ip link del wire");
}

TEST(Runtime, ABetterAddressIsNoLossOfTheOtherOne) {
    test::OtherHost other;
    other.connect("wire", "fe80::11/64", "wire", "fe80::12/64");
    Node here("here", 8);
    std::unique_ptr<Node> there;
    other.run([&there] { there = std::make_unique<Node>("there", 8); });
    EXPECT_TRUE(there->recorder.wait_for("+here"));
    test::shell("ip addr add fd04::1/64 dev wire nodad");
    EXPECT_TRUE(there->recorder.wait_for("~here"));
    EXPECT_FALSE(there->recorder.wait_for("-here", 1200ms));
    // But others may go on sending to it.
    test::shell("ip addr del fe80::11/64 dev wire");
    EXPECT_TRUE(there->recorder.wait_for("-here"));
    test::shell("ip link del wire");
}

// The sockets that it shares are served meanwhile.
TEST(Runtime, InterfacesThatComeBetweenCreationAndStartAreAnnounced) {
    const auto own = std::make_shared<OwnParticipants>();
    Node first(configured("first", own));
    Recorder recorder;
    std::string error;
    const auto second = Runtime::create(configured("second", own), recorder, error);
    ASSERT_TRUE(second) << error;
    const auto announced = [](Runtime& runtime) {
        return runtime.with_participant([](Participant& participant, Now) {
            const LocatorList& locators = participant.announced().default_unicast;
            return locators.empty() ? std::string() : to_string(locators.front());
        });
    };
    test::OtherHost other;
    other.connect("late", "10.4.0.1/24", "late", "10.4.0.2/24");
    while (announced(*first.runtime) != "udpv4:10.4.0.1:7411")
        std::this_thread::sleep_for(1ms);
    ASSERT_TRUE(second->start(error)) << error;
    EXPECT_EQ(announced(*second), "udpv4:10.4.0.1:7411");
    test::shell("ip link del late");
}

} // namespace
} // namespace meridian::rtps::net
