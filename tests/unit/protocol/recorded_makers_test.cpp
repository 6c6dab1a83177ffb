// What participants of other makers sent when they met the tool (data/*.recording say how it was recorded),
// replayed: their endpoints are seen, and end when they say so.

#include <fstream>
#include <set>

#include "protocol/participant_fixture.h"
#include "wire/wire_test.h"

namespace meridian::rtps::test {

namespace {

struct Datagram {
    uint32_t port;
    ByteBuffer bytes;
};

struct Recording {
    GuidPrefix tool;
    std::vector<Datagram> datagrams;
};

Recording read_recording(const std::string& name) {
    std::ifstream file(std::string(TEST_DATA_DIR) + "/" + name + ".recording");
    EXPECT_TRUE(file) << name;
    Recording recording;
    bool is_first = true;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] != '@') {
            const ByteBuffer more = from_hex(line);
            ByteBuffer& bytes = recording.datagrams.back().bytes;
            bytes.insert(bytes.end(), more.begin(), more.end());
        } else if (std::exchange(is_first, false)) {
            const ByteBuffer prefix = from_hex(line.substr(2));
            std::copy(prefix.begin(), prefix.end(), recording.tool.bytes.begin());
        } else {
            recording.datagrams.push_back({static_cast<uint32_t>(std::stoul(line.substr(2))), {}});
        }
    }
    return recording;
}

struct Case {
    const char* recording;
    size_t participants;
    size_t writers;
    size_t readers;
    const char* topic; // of its application
    size_t endpoints_at_end;
};

class RecordedMakersTest : public ParticipantTest, public ::testing::WithParamInterface<Case> {};

TEST_P(RecordedMakersTest, TheirEndpointsAreSeen) {
    const Case& expected = GetParam();
    const Recording recording = read_recording(expected.recording);
    config.prefix = recording.tool;
    config.domain_id = 0;
    start();
    std::set<GuidPrefix> participants;
    std::set<Guid> writers;
    std::set<Guid> readers;
    std::set<std::string> topics;
    for (const Datagram& datagram : recording.datagrams) {
        run_until(time + std::chrono::milliseconds(10));
        EXPECT_EQ(participant->receive(datagram.bytes, udpv4(2, datagram.port), now()), ReadStatus::ok);
        for (const GuidPrefix& prefix : known_participants())
            participants.insert(prefix);
        for (const auto& [guid, endpoint] : recorder.endpoints) {
            (endpoint->is_writer ? writers : readers).insert(guid);
            topics.insert(endpoint->topic_name);
        }
    }
    EXPECT_EQ(participants.size(), expected.participants);
    EXPECT_EQ(writers.size(), expected.writers);
    EXPECT_EQ(readers.size(), expected.readers);
    EXPECT_EQ(topics.count(expected.topic), 1u);
    EXPECT_EQ(recorder.endpoints.size(), expected.endpoints_at_end);
    EXPECT_TRUE(recorder.warnings.empty()) << recorder.warnings.front();
}

INSTANTIATE_TEST_SUITE_P(All, RecordedMakersTest,
                         ::testing::Values(Case{"opensplice_minimal", 5, 23, 14, "Square", 36},
                                           Case{"foxglove", 1, 0, 1, "rt/chatter", 0},
                                           Case{"dust_dds", 1, 1, 0, "Bytes", 1},
                                           Case{"rustdds", 1, 1, 0, "Bytes", 0},
                                           Case{"embedded_rtps", 1, 1, 0, "Square", 1}),
                         [](const auto& parameter) { return std::string(parameter.param.recording); });

} // namespace

} // namespace meridian::rtps::test
