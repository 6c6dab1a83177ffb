// What real peers answered, replayed (data/*.recording say how it was recorded): types found from nothing but
// recorded datagrams, requests that get lost, and a peer that never answers.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "support/records.h"
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
    std::vector<rtps::EndpointData> publications;
    rtps::EndpointData publication;         // the last one
    std::vector<rtps::ByteBuffer> requests; // the payloads
    std::vector<TypeLookupReply> replies;
    std::vector<rtps::ByteBuffer> reply_payloads;
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
            recording.publications.push_back(recording.publication);
        } else if (kind == "request") {
            recording.requests.emplace_back(data.payload.begin(), data.payload.end());
        } else if (kind == "reply") {
            recording.replies.emplace_back();
            EXPECT_TRUE(decode(data.payload, recording.replies.back()));
            recording.reply_payloads.emplace_back(data.payload.begin(), data.payload.end());
        } else {
            EXPECT_EQ(kind, "sample");
            recording.sample.assign(data.payload.data, data.payload.data + data.payload.size);
        }
    }
    return recording;
}

class Walk {
  public:
    Walk(const SampleReader& reader, rtps::ByteView payload) : reader_(reader), payload_(payload) {}
    bool operator()(ValueSink& sink) const {
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

/// A request without its writer and sequence number, padded as it is sent.
rtps::ByteBuffer call_of(rtps::ByteBuffer request) {
    const std::ptrdiff_t headers = request[1] == 3 ? 8 : 4; // the plain form has two
    request.resize(request.size() + rtps::padding_to(request.size(), 4));
    request.erase(request.begin() + headers, request.begin() + headers + 16 + 8);
    return request;
}

std::ptrdiff_t count_of(const TypeHash& hash, const TypeLookupReply& reply) {
    const auto is_asked = [&hash](const auto& pair) { return pair.id.hash == hash; };
    return std::count_if(reply.types.begin(), reply.types.end(), is_asked) +
           std::count_if(reply.plain_types.begin(), reply.plain_types.end(), is_asked);
}

class RecordedPeer : public ::testing::TestWithParam<const char*> {
  protected:
    RecordedPeer() : recording(read_recording(GetParam())) { settings.max_type_size = 100000; }

    void create() { resolver = std::make_unique<TypeResolver>(settings); }
    TypeResolver::Answer announce() {
        return resolver->resolve(*rtps::record_of(recording.publication), true, now);
    }

    /// The replies come in the order of the recording, each after the request that it was the answer to.
    void replay() {
        for (size_t i = 0; i < recording.replies.size(); ++i) {
            const auto requests = resolver->take_requests();
            ASSERT_EQ(requests.size(), 1u) << "round " << i;
            EXPECT_EQ(requests[0].asked, recording.publication.guid.prefix);
            EXPECT_EQ(call_of(encode({{}, 0, requests[0].asked, requests[0].hashes, requests[0].form})),
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
        resolver->take(copy, recording.publication.guid.prefix, now);
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
    const auto answer = resolver.resolve(*rtps::record_of(recording.publication), true, now);
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
        const auto cut = resolver.resolve(*rtps::record_of(changed), true, now);
        ASSERT_TRUE(cut);
        EXPECT_FALSE(cut->type) << size;
        EXPECT_EQ(cut->why, DDS_TYPE_CODE_UNUSABLE) << size;
    }
    settings.max_type_size = 100;
    TypeResolver narrow(settings);
    const auto refused = narrow.resolve(*rtps::record_of(recording.publication), true, now);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->why, DDS_TYPE_CODE_TOO_LARGE);
}

/// Types of 2.9 that are announced whole, one of which is in the other.
class RecordedInner : public ::testing::Test {
  protected:
    TypeResolver::Answer announce(rtps::EndpointData publication) {
        return resolver.resolve(*rtps::record_of(publication), false, now);
    }

    const Recording recording = read_recording("fast29_inner");
    const rtps::EndpointData& inner = recording.publications[0];
    const rtps::EndpointData& outer = recording.publications[1];
    TypeResolver resolver{TypeResolver::Settings()};
    rtps::MonotonicTime now{milliseconds(1000)};
};

TEST_F(RecordedInner, IsTakenFromAnEarlierTopicOfTheParticipant) {
    ASSERT_TRUE(announce(inner));
    const auto answer = announce(outer);
    ASSERT_TRUE(answer);
    ASSERT_TRUE(answer->type);
    EXPECT_EQ(contents_of(answer->type, recording.sample), recording.contents);
    EXPECT_EQ(resolver.next_deadline(), rtps::kNever);
}

TEST_F(RecordedInner, IsTakenFromALaterTopicThatComesAtOnce) {
    EXPECT_FALSE(announce(outer));
    EXPECT_FALSE(announce(outer)) << "that the writer is announced anew changes nothing";
    ASSERT_TRUE(announce(inner));
    const auto outcomes = resolver.take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_EQ(outcomes[0].endpoint, outer.guid);
    EXPECT_EQ(contents_of(outcomes[0].type, recording.sample), recording.contents);
    EXPECT_EQ(resolver.next_deadline(), rtps::kNever);
}

TEST_F(RecordedInner, IsNotAwaitedForLong) {
    EXPECT_FALSE(announce(outer));
    now += TypeResolver::Settings().retry;
    resolver.on_timer(now);
    const auto outcomes = resolver.take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_FALSE(outcomes[0].type);
    EXPECT_EQ(outcomes[0].why, DDS_TYPE_CODE_UNUSABLE);
    // A writer that comes later finds what has come meanwhile.
    ASSERT_TRUE(announce(inner));
    rtps::EndpointData second = outer;
    second.guid.entity = rtps::EntityId{0x903};
    const auto answer = announce(second);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->type);
}

TEST_F(RecordedInner, IsNotTakenFromAnotherParticipant) {
    rtps::EndpointData foreign = inner;
    foreign.guid.prefix.bytes[11] ^= 1;
    ASSERT_TRUE(announce(foreign));
    EXPECT_FALSE(announce(outer)) << "nothing says that it is the same";
    resolver.participant_gone(foreign.guid.prefix, now);
    ASSERT_TRUE(announce(inner));
    EXPECT_EQ(resolver.take_outcomes().size(), 1u);
}

TEST_F(RecordedInner, GoesWithItsParticipant) {
    const size_t used = MemoryBudget::of_process().used();
    EXPECT_FALSE(announce(outer));
    ASSERT_TRUE(announce(inner));
    EXPECT_EQ(resolver.take_outcomes().size(), 1u);
    EXPECT_GT(MemoryBudget::of_process().used(), used);
    resolver.participant_gone(inner.guid.prefix, now);
    EXPECT_EQ(MemoryBudget::of_process().used(), used);
    EXPECT_FALSE(announce(outer)) << "nothing is left of it";
    resolver.participant_gone(outer.guid.prefix, now);
    EXPECT_EQ(resolver.take_outcomes().size(), 1u) << "no other participant can tell it";
    EXPECT_EQ(MemoryBudget::of_process().used(), used);
    EXPECT_FALSE(announce(outer)) << "it is back";
    ASSERT_TRUE(announce(inner));
    EXPECT_EQ(resolver.take_outcomes().size(), 1u);
}

TEST(RecordedPlainInformation, EveryPrefixAndBitFlipIsReadOrRefused) {
    const Recording recording = read_recording("fast29_plain");
    const rtps::ByteBuffer& bytes = recording.publication.type_information;
    TypeInformation information;
    ASSERT_TRUE(decode(bytes, rtps::Endianness::big, information)) << "its header tells the byte order";
    EXPECT_EQ(information.form, TypeObjectForm::plain);
    EXPECT_EQ(information.best(), &information.complete);
    EXPECT_EQ(information.complete.type.serialized_size, 0xbcu);
    ASSERT_EQ(information.complete.dependencies.size(), 3u);
    EXPECT_EQ(information.complete.total_size(), 0xbcu + 0x80u);
    EXPECT_EQ(information.minimal.total_size(), 0x4au + 0x24u);
    for (size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decode({bytes.data(), size}, rtps::Endianness::little, information)) << size;
    for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        rtps::ByteBuffer flipped = bytes;
        flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << bit % 8));
        decode(flipped, rtps::Endianness::little, information);
    }
}

TEST(RecordedPlainReply, EveryPrefixAndBitFlipIsReadOrRefused) {
    const Recording recording = read_recording("fast29_plain");
    for (const rtps::ByteBuffer& payload : recording.reply_payloads) {
        TypeLookupReply reply;
        for (size_t size = 0; size + 8 < payload.size(); ++size)
            EXPECT_FALSE(decode({payload.data(), size}, reply)) << size;
        for (size_t bit = 0; bit < payload.size() * 8; ++bit) {
            rtps::ByteBuffer flipped = payload;
            flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << bit % 8));
            decode(flipped, reply);
        }
    }
}

TEST(RecordedPlainReply, IsNotTakenForAnAnswerInTheOtherForm) {
    // Its objects cannot be checked, so they must not serve types that all participants share.
    const Recording plain = read_recording("fast29_plain");
    const Recording other = read_recording("fast31_final");
    TypeResolver::Settings settings;
    settings.max_type_size = 100000;
    TypeResolver resolver(settings);
    const rtps::MonotonicTime now{milliseconds(1000)};
    EXPECT_FALSE(resolver.resolve(*rtps::record_of(other.publication), true, now));
    const auto requests = resolver.take_requests();
    ASSERT_EQ(requests.size(), 1u);
    TypeLookupReply forged = plain.replies[0];
    forged.request_number = requests[0].number;
    forged.plain_types[0].id = TypeIdentifier::of(requests[0].hashes[0]);
    resolver.take(forged, other.publication.guid.prefix, now);
    EXPECT_TRUE(resolver.take_requests().empty());
    EXPECT_TRUE(resolver.take_outcomes().empty());
}

INSTANTIATE_TEST_SUITE_P(FastDds29, RecordedPeer, ::testing::Values("fast29_plain"),
                         [](const auto& named) { return std::string(named.param); });
INSTANTIATE_TEST_SUITE_P(FastDds31, RecordedPeer,
                         ::testing::Values("fast31_final", "fast31_appendable", "fast31_mutable"),
                         [](const auto& named) { return std::string(named.param); });

} // namespace
} // namespace meridian::types
