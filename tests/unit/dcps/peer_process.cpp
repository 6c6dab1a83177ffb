#include "peer_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "rtps/net/runtime.h"

namespace meridian::dcps::test {

namespace {

/// Reads up to a line feed; empty at the end of the stream.
std::string read_line(int descriptor) {
    std::string line;
    char character = 0;
    while (read(descriptor, &character, 1) == 1 && character != '\n')
        line += character;
    return line;
}

bool write_line(int descriptor, const std::string& line) {
    const std::string text = line + "\n";
    return write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// What runs in the other process.
class Peer final : public PeerCommands {
  public:
    bool start(const PeerSettings& settings) {
        rtps::net::RuntimeConfig config;
        config.transport.domain_id = static_cast<uint32_t>(settings.domain);
        config.own_participants = std::make_shared<rtps::net::OwnParticipants>();
        config.participant.prefix = config.own_participants->choose(0, 0, 0);
        config.participant.name = settings.name;
        config.participant.domain_tag = settings.tag;
        config.participant.lease = {
            settings.lease_ms / 1000,
            rtps::fraction_from_nanoseconds(static_cast<uint32_t>(settings.lease_ms % 1000) * 1000000)};
        config.participant.announce_period = std::chrono::milliseconds(settings.lease_ms / 4);
        if (!settings.partitions.empty())
            config.participant.properties.push_back(
                {"dds.domain_participant.partition", settings.partitions});
        std::string error;
        runtime_ = rtps::net::Runtime::create(std::move(config), events_, error);
        return runtime_ != nullptr && runtime_->start(error);
    }

    /// writer|reader KEY TOPIC PARTITION, update KEY PARTITION, remove KEY: the GUID
    /// participants PREFIX: "NAME LEASE PROPERTY=VALUE..." of that participant, or "unknown"
    std::string obey(const std::string& command) override {
        std::istringstream words(command);
        std::string verb;
        std::string topic;
        std::string partition;
        uint32_t key = 0;
        words >> verb;
        if (verb == "prefix")
            return rtps::to_string(runtime_->prefix());
        if (verb == "participant") {
            words >> topic;
            return describe(topic);
        }
        words >> key;
        if (verb == "writer" || verb == "reader") {
            words >> topic >> partition;
            const bool writer = verb == "writer";
            data_ = {};
            data_.guid = {runtime_->prefix(), rtps::EntityId{key << 8 | (writer ? 0x02u : 0x07u)}};
            data_.topic_name = topic;
            data_.type_name = "Type";
            data_.name = verb + " " + topic;
            data_.qos.reliability = rtps::Reliability::reliable;
            if (!partition.empty())
                data_.qos.partitions = {partition};
            return writer ? add_writer() : add_reader();
        }
        if (verb == "update") {
            words >> partition;
            data_.qos.partitions = {partition};
            return result(runtime_->with_participant([this](rtps::Participant& participant, rtps::Now now) {
                return participant.update_endpoint(data_, now);
            }));
        }
        if (verb == "remove") {
            return result(runtime_->with_participant([this](rtps::Participant& participant, rtps::Now now) {
                return participant.remove_endpoint(data_.guid.entity, now);
            }));
        }
        return "?";
    }

  private:
    class NoSink final : public rtps::ReaderSink {
        void on_sample(const rtps::Sample& /*sample*/) override {}
    };

    /// The participants that are there, by their prefixes. Under the lock of the runtime.
    class KnownParticipants final : public rtps::Events {
      public:
        std::map<std::string, rtps::ParticipantData> participants;
        void participant_discovered(const rtps::ParticipantRef& data) override {
            participants[rtps::to_string(data->guid.prefix)] = *data;
        }
        void participant_changed(const rtps::ParticipantRef& data) override { participant_discovered(data); }
        void participant_gone(const rtps::ParticipantRef& data, rtps::GoneReason /*reason*/) override {
            participants.erase(rtps::to_string(data->guid.prefix));
        }
    };

    std::string result(bool ok) const { return ok ? rtps::to_string(data_.guid) : "refused"; }

    std::string add_writer() {
        return result(runtime_->with_participant([this](rtps::Participant& participant, rtps::Now now) {
            return participant.add_writer(data_, rtps::WriterConfig(), sink_, now);
        }));
    }
    std::string add_reader() {
        return result(runtime_->with_participant([this](rtps::Participant& participant, rtps::Now now) {
            return participant.add_reader(data_, rtps::ReaderConfig(), sink_, now);
        }));
    }

    std::string describe(const std::string& prefix) {
        return runtime_->with_participant(
            [this, &prefix](rtps::Participant& /*participant*/, rtps::Now /*now*/) {
                const auto known = events_.participants.find(prefix);
                if (known == events_.participants.end())
                    return std::string("unknown");
                const rtps::ParticipantData& data = known->second;
                std::ostringstream text;
                text << data.name << ' ' << data.lease.seconds << ' ' << data.user_data.size();
                for (const rtps::Property& property : data.properties)
                    text << ' ' << property.name << '=' << property.value;
                return text.str();
            });
    }

    KnownParticipants events_;
    NoSink sink_;
    rtps::EndpointData data_; // of the endpoint made last
    std::unique_ptr<rtps::net::Runtime> runtime_;
};

[[noreturn]] void run(const PeerProgram& program, int commands, int answers) {
    {
        const std::unique_ptr<PeerCommands> peer = program.make();
        if (peer == nullptr)
            _exit(1);
        write_line(answers, "ready");
        std::string command;
        while (!(command = read_line(commands)).empty() && command != "leave")
            write_line(answers, peer->obey(command));
    }
    _exit(0); // nothing of the test runs here
}

} // namespace

PeerProcess::PeerProcess(const PeerSettings& settings)
    : PeerProcess(PeerProgram([&settings]() -> std::unique_ptr<PeerCommands> {
          auto peer = std::make_unique<Peer>();
          return peer->start(settings) ? std::move(peer) : nullptr;
      })) {}

PeerProcess::PeerProcess(const PeerProgram& program) {
    int commands[2] = {-1, -1};
    int answers[2] = {-1, -1};
    if (pipe(commands) != 0 || pipe(answers) != 0) {
        ADD_FAILURE() << "no pipes";
        return;
    }
    process_ = fork();
    if (process_ == 0) {
        close(commands[1]);
        close(answers[0]);
        run(program, commands[0], answers[1]);
    }
    close(commands[0]);
    close(answers[1]);
    commands_ = commands[1];
    answers_ = answers[0];
    EXPECT_EQ(read_line(answers_), "ready");
}

PeerProcess::~PeerProcess() {
    kill();
    close(commands_);
    close(answers_);
}

std::string PeerProcess::ask(const std::string& command) {
    EXPECT_TRUE(write_line(commands_, command));
    return read_line(answers_);
}

void PeerProcess::leave() {
    EXPECT_TRUE(write_line(commands_, "leave")); // later peers hold the pipe open, so closing it says nothing
    wait();
}

void PeerProcess::kill() {
    if (process_ > 0)
        ::kill(process_, SIGKILL);
    wait();
}

void PeerProcess::wait() {
    if (process_ > 0)
        waitpid(process_, nullptr, 0);
    process_ = -1;
}

} // namespace meridian::dcps::test
