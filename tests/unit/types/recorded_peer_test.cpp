// What real peers answered, replayed (data/*.recording say how it was recorded): types found from nothing but
// recorded datagrams, requests that get lost, and a peer that never answers.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "types/data/json_printer.h"
#include "types/data/sample_reader.h"
#include "types/lookup/type_resolver.h"
#include "wire/wire_test.h"

namespace meridian::types {
namespace {

using std::chrono::milliseconds;

/// The only submessage with data in a datagram.
rtps::Data data_of(const rtps::ByteBuffer& datagram, rtps::Collector& collector) {
    EXPECT_EQ(rtps::read_message(datagram, collector), rtps::ReadStatus::ok);
    rtps::Data found;
    int count = 0;
    for (const auto& entry : collector.entries) {
        if (const auto* data = std::get_if<rtps::Data>(&entry.item)) {
            found = *data;
            ++count;
        }
    }
    EXPECT_EQ(count, 1);
    return found;
}

struct Recording {
    rtps::EndpointData publication;
    std::vector<rtps::ByteBuffer> requests; // the payloads
    std::vector<TypeLookupReply> replies;
    rtps::ByteBuffer sample;                                 // the payload
    std::string contents;                                    // what the peer wrote, as JSON
    std::vector<std::shared_ptr<rtps::Collector>> datagrams; // the replies point into them
};

Recording read_recording(const std::string& name) {
    std::ifstream file(std::string(TEST_DATA_DIR) + "/" + name + ".recording");
    EXPECT_TRUE(file) << name;
    std::vector<std::pair<std::string, std::string>> blocks;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("@", 0) == 0)
            blocks.emplace_back(line.substr(1), "");
        else if (!blocks.empty())
            blocks.back().second += line + "\n";
    }
    Recording recording;
    for (const auto& [kind, text] : blocks) {
        if (kind == "contents") {
            recording.contents = text.substr(0, text.size() - 1);
            continue;
        }
        recording.datagrams.push_back(std::make_shared<rtps::Collector>());
        const rtps::Data data = data_of(rtps::from_hex(text), *recording.datagrams.back());
        if (kind == "publication") {
            std::string error;
            const auto decoded = rtps::decode_endpoint(data.payload, true, error);
            EXPECT_TRUE(decoded) << error;
            recording.publication = decoded.value_or(rtps::EndpointData());
        } else if (kind == "request") {
            recording.requests.emplace_back(data.payload.begin(), data.payload.end());
        } else if (kind == "reply") {
            recording.replies.emplace_back();
            EXPECT_TRUE(decode(data.payload, recording.replies.back()));
        } else {
            EXPECT_EQ(kind, "sample");
            recording.sample.assign(data.payload.data, data.payload.data + data.payload.size);
        }
    }
    return recording;
}

class Walk final : public JsonWalk {
  public:
    Walk(const SampleReader& reader, rtps::ByteView payload) : reader_(reader), payload_(payload) {}
    bool operator()(ValueSink& sink) const override {
        std::string failure;
        const bool done = reader_.walk(payload_, &sink, failure);
        EXPECT_TRUE(done) << failure;
        return done;
    }

  private:
    const SampleReader& reader_;
    rtps::ByteView payload_;
};

std::string contents_of(const TypeRef& type, const rtps::ByteBuffer& sample) {
    PrintBuffers json;
    print_json(Walk(SampleReader(type), sample), JsonStyle(), json);
    return json.text;
}

/// What stands behind the encapsulation header, the writer and the sequence number of a request, padded as it
/// is sent.
rtps::ByteBuffer call_of(rtps::ByteBuffer request) {
    constexpr std::ptrdiff_t kIdentity = 4 + 16 + 8;
    request.resize(request.size() + rtps::padding_to(request.size(), 4));
    return {request.begin() + kIdentity, request.end()};
}

std::ptrdiff_t count_of(const TypeHash& hash, const TypeLookupReply& reply) {
    return std::count_if(reply.types.begin(), reply.types.end(),
                         [&hash](const TypeObjectPair& pair) { return pair.id.hash == hash; });
}

class RecordedPeer : public ::testing::TestWithParam<const char*> {
  protected:
    RecordedPeer() : recording(read_recording(GetParam())) { settings.max_type_size = 100000; }

    void create() { resolver = std::make_unique<TypeResolver>(settings); }
    TypeResolver::Answer announce() { return resolver->resolve(recording.publication, true, now); }

    /// The replies come in the order of the recording, each after the request that it was the answer to.
    void replay() {
        for (size_t i = 0; i < recording.replies.size(); ++i) {
            const auto requests = resolver->take_requests();
            ASSERT_EQ(requests.size(), 1u) << "round " << i;
            EXPECT_EQ(requests[0].asked, recording.publication.participant);
            EXPECT_EQ(call_of(encode({{}, 0, requests[0].asked, requests[0].hashes})),
                      call_of(recording.requests[i]))
                << "round " << i;
            for (const TypeHash& asked : requests[0].hashes)
                EXPECT_EQ(count_of(asked, recording.replies[i]), 1) << "round " << i;
            EXPECT_TRUE(resolver->take_outcomes().empty()) << "round " << i;
            reply(i, requests[0].number);
        }
    }
    /// The reply of the recording, to that request.
    void reply(size_t i, int64_t request) {
        TypeLookupReply copy = recording.replies[i];
        copy.request_number = request;
        resolver->take(copy, recording.publication.participant, now);
    }
    void expect_found() {
        EXPECT_TRUE(resolver->take_requests().empty());
        const auto outcomes = resolver->take_outcomes();
        ASSERT_EQ(outcomes.size(), 1u);
        EXPECT_EQ(outcomes[0].endpoint, recording.publication.guid);
        ASSERT_TRUE(outcomes[0].type);
        EXPECT_EQ(contents_of(outcomes[0].type, recording.sample), recording.contents);
        EXPECT_EQ(resolver->next_deadline(), rtps::kNever);
    }

    Recording recording;
    TypeResolver::Settings settings;
    std::unique_ptr<TypeResolver> resolver;
    rtps::MonotonicTime now{milliseconds(1000)};
};

TEST_P(RecordedPeer, EveryReplyHoldsWhatItsHashesSay) {
    ASSERT_GE(recording.requests.size(), 2u) << "a type that rests on others";
    ASSERT_EQ(recording.requests.size(), recording.replies.size());
    for (size_t i = 0; i < recording.replies.size(); ++i) {
        EXPECT_EQ(recording.replies[i].exception, 0);
        for (const TypeObjectPair& pair : recording.replies[i].types)
            EXPECT_EQ(hash_of(pair.object, true), pair.id.hash);
    }
}

TEST_P(RecordedPeer, TheWholeTypeIsFoundAndShowsWhatWasWritten) {
    create();
    EXPECT_FALSE(announce());
    replay();
    expect_found();
}

TEST_P(RecordedPeer, ALostRequestIsRepeatedInEveryRound) {
    for (size_t lost = 0; lost < recording.replies.size(); ++lost) {
        create();
        EXPECT_FALSE(announce());
        for (size_t i = 0; i < recording.replies.size(); ++i) {
            auto requests = resolver->take_requests();
            ASSERT_EQ(requests.size(), 1u);
            int64_t number = requests[0].number;
            if (i == lost) {
                now += milliseconds(200);
                resolver->on_timer(now);
                const auto again = resolver->take_requests();
                ASSERT_EQ(again.size(), 1u) << "round " << i;
                EXPECT_EQ(again[0].hashes, requests[0].hashes);
                number = again[0].number;
            }
            reply(i, number);
        }
        expect_found();
    }
}

TEST_P(RecordedPeer, AReplyThatComesTwiceDoesNoHarm) {
    create();
    EXPECT_FALSE(announce());
    for (size_t i = 0; i < recording.replies.size(); ++i) {
        reply(i, static_cast<int64_t>(i) + 1);
        reply(i, static_cast<int64_t>(i) + 1);
    }
    resolver->take_requests();
    expect_found();
}

TEST_P(RecordedPeer, APeerThatFallsSilentIsGivenUpAfterTwoSeconds) {
    // From the start, or after some of its answers.
    for (size_t answers = 0; answers < recording.replies.size(); ++answers) {
        create();
        EXPECT_FALSE(announce());
        const rtps::MonotonicTime begin = now;
        for (size_t i = 0; i < answers; ++i)
            reply(i, static_cast<int64_t>(i) + 1);
        while (now < begin + milliseconds(1900)) {
            now += milliseconds(100);
            resolver->on_timer(now);
            ASSERT_TRUE(resolver->take_outcomes().empty()) << answers;
        }
        now = begin + milliseconds(2000);
        resolver->on_timer(now);
        const auto outcomes = resolver->take_outcomes();
        ASSERT_EQ(outcomes.size(), 1u) << answers;
        EXPECT_EQ(outcomes[0].endpoint, recording.publication.guid);
        EXPECT_FALSE(outcomes[0].type);
    }
}

TEST(RecordedWholeType, ShowsWhatWasWrittenWithoutLookup) {
    const Recording recording = read_recording("fast29_whole");
    EXPECT_FALSE(recording.publication.type_object.empty());
    TypeResolver::Settings settings;
    TypeResolver resolver(settings);
    const rtps::MonotonicTime now{milliseconds(1000)};
    const auto answer = resolver.resolve(recording.publication, true, now);
    ASSERT_TRUE(answer);
    ASSERT_TRUE(answer->type);
    EXPECT_EQ(answer->type->name, "v1::Flat");
    EXPECT_EQ(contents_of(answer->type, recording.sample), recording.contents);
    EXPECT_TRUE(resolver.take_requests().empty());

    rtps::EndpointData changed = recording.publication;
    for (size_t size = 1; size < recording.publication.type_object.size() - 12; ++size) {
        changed.type_object.assign(
            recording.publication.type_object.begin(),
            recording.publication.type_object.begin() + static_cast<std::ptrdiff_t>(size));
        const auto cut = resolver.resolve(changed, true, now);
        ASSERT_TRUE(cut);
        EXPECT_FALSE(cut->type) << size;
        EXPECT_EQ(cut->why, DDS_TYPE_CODE_UNUSABLE) << size;
    }
    changed.type_object.clear();
    const auto identifiers_alone = resolver.resolve(changed, true, now);
    ASSERT_TRUE(identifiers_alone);
    EXPECT_EQ(identifiers_alone->why, DDS_TYPE_CODE_UNUSABLE);
    settings.max_type_size = 100;
    TypeResolver narrow(settings);
    const auto refused = narrow.resolve(recording.publication, true, now);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->why, DDS_TYPE_CODE_TOO_LARGE);
}

INSTANTIATE_TEST_SUITE_P(FastDds31, RecordedPeer,
                         ::testing::Values("fast31_final", "fast31_appendable", "fast31_mutable"),
                         [](const auto& named) { return std::string(named.param); });

} // namespace
} // namespace meridian::types
