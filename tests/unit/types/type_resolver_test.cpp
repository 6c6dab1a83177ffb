#include "types/lookup/type_resolver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "support/records.h"
#include "types/corpus.h"

namespace meridian::types {
namespace {

using std::chrono::milliseconds;

rtps::GuidPrefix participant(uint8_t number) {
    return rtps::GuidPrefix{{number}};
}

/// A domain of publications that announce types of the corpus, and a service that answers what it is asked.
class TypeResolverTest : public ::testing::Test {
  protected:
    TypeResolverTest() : corpus(test::read_corpus("cyclone.corpus")) { settings.max_type_size = 100000; }

    void create() { resolver = std::make_unique<TypeResolver>(settings); }

    const test::CorpusType& type(const std::string& name) const {
        const auto found = std::find_if(corpus.begin(), corpus.end(), [&name](const test::CorpusType& entry) {
            return entry.name == name;
        });
        EXPECT_NE(found, corpus.end()) << name;
        return *found;
    }

    TypeResolver::Answer announce(const std::string& name, uint8_t from, uint32_t entity = 0x103,
                                  bool answers = true, TypeResolver::Asker asker = 0) {
        rtps::EndpointData data;
        data.guid = {participant(from), rtps::EntityId{entity}};
        data.type_name = name;
        data.type_information = type(name).information;
        data.raw_endianness = rtps::Endianness::little;
        return resolver->resolve(*rtps::record_of(data), answers, now, asker);
    }
    /// A publication with a type of its own.
    TypeResolver::Answer announce_unknown(uint8_t from, uint32_t number, uint32_t size = 100) {
        rtps::EndpointData data;
        data.guid = {participant(from), rtps::EntityId{3 + ((number + 1) << 8)}};
        data.type_name = "Unknown";
        data.type_information = type("corpus::Integers").information;
        const std::array<uint8_t, 2> complete{0xf2, 0x0c};
        const auto at = std::search(data.type_information.begin(), data.type_information.end(),
                                    complete.begin(), complete.end());
        EXPECT_NE(at, data.type_information.end());
        std::memcpy(&*at + 1, &number, sizeof number);
        std::memcpy(&*at + 16, &size, sizeof size);
        data.raw_endianness = rtps::Endianness::little;
        return resolver->resolve(*rtps::record_of(data), true, now);
    }

    /// Answers a request with those objects of the corpus that it names, one reply for each where
    /// `one_by_one`.
    void answer(const TypeResolver::Request& request, bool one_by_one = false) {
        TypeLookupReply reply;
        reply.request_number = request.number;
        for (const TypeHash& hash : request.hashes) {
            for (const test::CorpusType& entry : corpus) {
                std::vector<TypeObjectPair> pairs;
                test::read_objects(entry, pairs);
                const auto known =
                    std::find_if(pairs.begin(), pairs.end(),
                                 [&hash](const TypeObjectPair& pair) { return pair.id.hash == hash; });
                if (known == pairs.end())
                    continue;
                reply.types.push_back(*known);
                break;
            }
            if (one_by_one) {
                resolver->take(reply, request.asked, now);
                reply.types.clear();
            }
        }
        resolver->take(reply, request.asked, now);
    }

    /// Answers everything until there is nothing left to ask; the number of requests.
    int answer_all() {
        int requests = 0;
        for (auto wanted = resolver->take_requests(); !wanted.empty(); wanted = resolver->take_requests()) {
            for (const TypeResolver::Request& request : wanted) {
                ++requests;
                answer(request);
            }
        }
        return requests;
    }

    std::vector<test::CorpusType> corpus;
    TypeResolver::Settings settings;
    std::unique_ptr<TypeResolver> resolver;
    rtps::MonotonicTime now{milliseconds(1000)};
};

TEST_F(TypeResolverTest, EveryTypeOfTheCorpusIsFoundWithAllItRestsOn) {
    create();
    for (const test::CorpusType& entry : corpus) {
        const auto at_once = announce(entry.name, 1);
        if (at_once) {
            EXPECT_TRUE(*at_once) << entry.name << " should be known from parts of others";
            continue;
        }
        EXPECT_GT(answer_all(), 0);
        const auto outcomes = resolver->take_outcomes();
        ASSERT_EQ(outcomes.size(), 1u) << entry.name;
        EXPECT_TRUE(outcomes[0].type) << entry.name;
        const TypeRef expected = test::build_type(entry);
        EXPECT_TRUE(equal(*outcomes[0].type, *expected)) << entry.name;
    }
    EXPECT_EQ(resolver->next_deadline(), rtps::kNever);
}

TEST_F(TypeResolverTest, ThousandPublicationsOfOneTypeAskOnce) {
    create();
    for (uint32_t i = 0; i < 1000; ++i)
        EXPECT_FALSE(announce("corpus::Integers", static_cast<uint8_t>(i % 10), 0x103 + (i << 8)));
    EXPECT_EQ(answer_all(), 1);
    EXPECT_EQ(resolver->take_outcomes().size(), 1000u);
    const auto later = announce("corpus::Integers", 77);
    ASSERT_TRUE(later);
    EXPECT_TRUE(*later);
}

TEST_F(TypeResolverTest, AnnouncementWithoutTypeHasNone) {
    create();
    rtps::EndpointData data;
    data.guid = {participant(1), rtps::EntityId{0x103}};
    const auto none = resolver->resolve(*rtps::record_of(data), true, now);
    ASSERT_TRUE(none);
    EXPECT_FALSE(*none);
    data.type_information = {1, 2, 3};
    const auto malformed = resolver->resolve(*rtps::record_of(data), true, now);
    ASSERT_TRUE(malformed);
    EXPECT_FALSE(*malformed);
    EXPECT_TRUE(resolver->take_requests().empty());
}

TEST_F(TypeResolverTest, ParticipantThatOffersNoServiceIsNotAsked) {
    create();
    const auto none = announce("corpus::Integers", 1, 0x103, false);
    ASSERT_TRUE(none);
    EXPECT_FALSE(*none);
    EXPECT_TRUE(resolver->take_requests().empty());
    // Another one does offer it.
    EXPECT_FALSE(announce("corpus::Integers", 2));
    EXPECT_EQ(resolver->take_requests().at(0).asked, participant(2));
}

TEST_F(TypeResolverTest, LostRequestsAreRepeatedAndTheAnswerEndsTheWait) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1));
    EXPECT_EQ(resolver->take_requests().size(), 1u);
    EXPECT_EQ(resolver->next_deadline(), now + milliseconds(200));
    now += milliseconds(199);
    resolver->on_timer(now);
    EXPECT_TRUE(resolver->take_requests().empty());
    now += milliseconds(1);
    resolver->on_timer(now);
    const auto again = resolver->take_requests();
    ASSERT_EQ(again.size(), 1u);
    answer(again[0]);
    ASSERT_EQ(resolver->take_outcomes().size(), 1u);
    EXPECT_EQ(resolver->next_deadline(), rtps::kNever);
}

TEST_F(TypeResolverTest, EachParticipantThatAnnouncesTheTypeIsAskedInTurn) {
    create();
    announce("corpus::Integers", 1);
    announce("corpus::Integers", 2);
    EXPECT_EQ(resolver->take_requests().at(0).asked, participant(1));
    now += milliseconds(200);
    resolver->on_timer(now);
    EXPECT_EQ(resolver->take_requests().at(0).asked, participant(2));
    resolver->participant_gone(participant(2), now);
    now += milliseconds(200);
    resolver->on_timer(now);
    EXPECT_EQ(resolver->take_requests().at(0).asked, participant(1));
}

TEST_F(TypeResolverTest, SilentPeerIsGivenUpAfterTwoSecondsAndNotAskedAgain) {
    create();
    announce("corpus::Integers", 1);
    for (int step = 0; step < 20; ++step) {
        EXPECT_TRUE(resolver->take_outcomes().empty()) << step;
        now += milliseconds(100);
        resolver->on_timer(now);
    }
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_FALSE(outcomes[0].type);
    EXPECT_EQ(resolver->next_deadline(), rtps::kNever);
    resolver->take_requests();
    const auto later = announce("corpus::Integers", 1);
    ASSERT_TRUE(later) << "an update of the publication does not wait again";
    EXPECT_FALSE(*later);
    // A restarted participant gets a new chance.
    resolver->participant_gone(participant(1), now);
    EXPECT_FALSE(announce("corpus::Integers", 1));
}

TEST_F(TypeResolverTest, LateAnswerServesLaterPublications) {
    create();
    announce("corpus::Integers", 1);
    const auto requests = resolver->take_requests();
    now += std::chrono::seconds(2);
    resolver->on_timer(now);
    EXPECT_FALSE(resolver->take_outcomes().at(0).type);
    answer(requests.at(0));
    const auto later = announce("corpus::Integers", 1);
    ASSERT_TRUE(later);
    EXPECT_TRUE(*later);
}

TEST_F(TypeResolverTest, PublicationThatChangesItsTypeWaitsForTheLaterOne) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1));
    const auto requests = resolver->take_requests();
    EXPECT_FALSE(announce("corpus::Floats", 1));
    for (const auto& request : requests)
        answer(request);
    EXPECT_TRUE(resolver->take_outcomes().empty());
    answer_all();
    EXPECT_EQ(resolver->take_outcomes().size(), 1u);
}

TEST_F(TypeResolverTest, PublicationsStopWaitingWhenAllParticipantsThatAnswerAreGone) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1));
    EXPECT_FALSE(announce("corpus::Integers", 2, 0x103, false)); // waits for what 1 says
    resolver->participant_gone(participant(1), now);
    EXPECT_TRUE(announce("corpus::Integers", 3, 0x103, false));
    now += std::chrono::seconds(2);
    resolver->on_timer(now);
    const auto outcomes = resolver->take_outcomes();
    EXPECT_EQ(std::count_if(outcomes.begin(), outcomes.end(),
                            [](const auto& outcome) { return outcome.endpoint.prefix == participant(2); }),
              1);
}

TEST_F(TypeResolverTest, WhoComesAfterAllOthersLeftIsAsked) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1));
    EXPECT_FALSE(announce("corpus::Integers", 2, 0x103, false)); // waits for what 1 says
    resolver->take_requests();
    resolver->participant_gone(participant(1), now);
    EXPECT_TRUE(resolver->take_requests().empty());
    EXPECT_FALSE(announce("corpus::Integers", 3));
    const auto requests = resolver->take_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].asked, participant(3));
    answer(requests[0]);
    EXPECT_EQ(resolver->take_outcomes().size(), 3u);
}

TEST_F(TypeResolverTest, AnnouncingAnewDoesNotProlongTheWait) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1));
    now += milliseconds(1500);
    EXPECT_FALSE(announce("corpus::Integers", 1));
    now += milliseconds(500);
    resolver->on_timer(now);
    EXPECT_EQ(resolver->take_outcomes().size(), 1u);
}

TEST_F(TypeResolverTest, TypeAboveTheLimitIsRefusedOnceAndSaysSo) {
    settings.max_type_size = 20;
    create();
    ::testing::internal::CaptureStderr();
    const auto refused = announce("corpus::Integers", 1);
    announce("corpus::Integers", 2);
    const std::string log = ::testing::internal::GetCapturedStderr();
    ASSERT_TRUE(refused);
    EXPECT_FALSE(*refused);
    EXPECT_TRUE(resolver->take_requests().empty());
    EXPECT_NE(log.find("type \"corpus::Integers\" takes "), std::string::npos) << log;
    EXPECT_NE(log.find("-tcMaxSize"), std::string::npos) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(TypeResolverTest, ObjectsThatWereNotAskedForAreNotKept) {
    create();
    TypeLookupReply all;
    all.request_number = 1;
    test::read_objects(type("corpus::Nested"), all.types);
    resolver->take(all, participant(1), now);
    ASSERT_FALSE(announce("corpus::Nested", 1));
    const auto root = resolver->take_requests();
    ASSERT_EQ(root.size(), 1u);
    EXPECT_EQ(root[0].number, 1);
    EXPECT_EQ(root[0].hashes.size(), 1u);
    resolver->take(all, participant(1), now);
    const auto rest = resolver->take_requests();
    ASSERT_EQ(rest.size(), 1u) << "what the root rests on was not asked for yet";
    EXPECT_EQ(rest[0].hashes.size(), 2u);
    answer(rest[0]);
    ASSERT_EQ(resolver->take_outcomes().size(), 1u);
}

TEST_F(TypeResolverTest, ObjectThatIsNotWhatItsHashSaysIsRefused) {
    create();
    ASSERT_FALSE(announce("corpus::Integers", 1));
    const auto request = resolver->take_requests();
    TypeLookupReply forged;
    forged.request_number = request.at(0).number;
    test::read_objects(type("corpus::Floats"), forged.types);
    for (TypeObjectPair& pair : forged.types)
        pair.id = TypeIdentifier::of(request.at(0).hashes.at(0));
    resolver->take(forged, participant(1), now);
    EXPECT_TRUE(resolver->take_outcomes().empty());
    answer(request[0]);
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    ASSERT_TRUE(outcomes[0].type);
    EXPECT_TRUE(equal(*outcomes[0].type, *test::build_type(type("corpus::Integers"))));
}

TEST_F(TypeResolverTest, WhyThereIsNoTypeIsKnownForLaterPublicationsToo) {
    create();
    ASSERT_FALSE(announce("corpus::Integers", 1));
    ASSERT_FALSE(announce("corpus::Floats", 1, 0x203));
    const auto requests = resolver->take_requests();
    ASSERT_EQ(requests.size(), 2u);
    TypeLookupReply forged;
    forged.request_number = requests[0].number;
    test::read_objects(type("corpus::Floats"), forged.types);
    for (TypeObjectPair& pair : forged.types)
        pair.id = TypeIdentifier::of(requests[0].hashes.at(0));
    resolver->take(forged, participant(1), now);
    now += std::chrono::seconds(2);
    resolver->on_timer(now);
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_EQ(outcomes[0].why, DDS_TYPE_CODE_NOT_GENUINE);
    EXPECT_EQ(outcomes[1].why, DDS_TYPE_CODE_NOT_TOLD);
    EXPECT_EQ(announce("corpus::Integers", 1, 0x303)->why, DDS_TYPE_CODE_NOT_GENUINE);
    EXPECT_EQ(announce("corpus::Floats", 1, 0x303)->why, DDS_TYPE_CODE_NOT_TOLD);
}

TEST_F(TypeResolverTest, ObjectWithGarbageInItsPaddingIsTaken) {
    create();
    ASSERT_FALSE(announce("corpus::Integers", 1));
    const auto request = resolver->take_requests();
    TypeLookupReply reply;
    reply.request_number = request.at(0).number;
    test::read_objects(type("corpus::Integers"), reply.types);
    std::vector<rtps::ByteBuffer> objects;
    for (TypeObjectPair& pair : reply.types) {
        objects.emplace_back(pair.object.begin(), pair.object.end());
        // The first name ends with one octet of padding behind it, before the length of the members.
        const std::string name = "corpus::Integers";
        const auto at = std::search(objects.back().begin(), objects.back().end(), name.begin(), name.end());
        if (at != objects.back().end()) {
            const size_t end = static_cast<size_t>(at - objects.back().begin()) + name.size() + 1;
            ASSERT_NE(end % 4, 0u);
            objects.back()[end] = 0x5a;
        }
        pair.object = objects.back();
    }
    resolver->take(reply, participant(1), now);
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_TRUE(outcomes[0].type);
}

TEST_F(TypeResolverTest, TypeThatIsLargerThanAnnouncedIsGivenUpAtOnce) {
    // Nothing is announced of its size.
    auto nested = std::find_if(corpus.begin(), corpus.end(),
                               [](const test::CorpusType& entry) { return entry.name == "corpus::Nested"; });
    std::vector<TypeObjectPair> pairs;
    test::read_objects(*nested, pairs);
    size_t root_size = 0;
    for (const TypeObjectPair& pair : pairs) {
        auto& bytes = nested->information;
        const auto hash = pair.id.hash.bytes;
        const auto at = std::search(bytes.begin(), bytes.end(), hash.begin(), hash.end());
        ASSERT_NE(at, bytes.end());
        std::fill_n(at + 15, 4, uint8_t{0});
    }
    create();
    ASSERT_FALSE(announce("corpus::Nested", 1));
    const TypeHash root = resolver->take_requests().at(0).hashes.at(0);
    for (const TypeObjectPair& pair : pairs)
        root_size = pair.id.hash == root ? pair.object.size : root_size;
    ASSERT_GT(root_size, 0u);

    // Too large by its first object, or only by one that this rests on.
    for (const size_t limit : {root_size - 1, root_size}) {
        settings.max_type_size = limit;
        create();
        ASSERT_FALSE(announce("corpus::Nested", 1));
        ::testing::internal::CaptureStderr();
        for (size_t round = 0; round <= limit + 1 - root_size; ++round) {
            const auto requests = resolver->take_requests();
            ASSERT_EQ(requests.size(), 1u);
            answer(requests[0], true);
        }
        const std::string log = ::testing::internal::GetCapturedStderr();
        EXPECT_NE(log.find("-tcMaxSize"), std::string::npos) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
        EXPECT_TRUE(resolver->take_requests().empty());
        const auto outcomes = resolver->take_outcomes();
        ASSERT_EQ(outcomes.size(), 1u);
        EXPECT_FALSE(outcomes[0].type);
    }
}

TEST_F(TypeResolverTest, AnswersCountFromWhoWasAskedOnly) {
    create();
    ASSERT_FALSE(announce("corpus::Integers", 1));
    const auto requests = resolver->take_requests();
    ASSERT_EQ(requests.size(), 1u);
    TypeResolver::Request other = requests[0];
    other.asked = participant(2);
    answer(other);
    other = requests[0];
    ++other.number;
    answer(other);
    EXPECT_TRUE(resolver->take_outcomes().empty());
    answer(requests[0]);
    EXPECT_EQ(resolver->take_outcomes().size(), 1u);
}

TEST_F(TypeResolverTest, UnknownTypesOfOneParticipantDoNotKeepOthersWaiting) {
    create();
    size_t most = 0;
    size_t sent = 0;
    std::vector<TypeResolver::Request> requests;
    const auto collect = [&](std::chrono::milliseconds time) {
        for (const auto end = now + time; now < end; now += milliseconds(20)) {
            resolver->on_timer(now);
            auto more = resolver->take_requests();
            most = std::max(most, more.size());
            sent += more.size();
            requests.insert(requests.end(), more.begin(), more.end());
        }
    };
    for (uint32_t i = 0; i < 12000; ++i)
        announce_unknown(1, i);
    collect(milliseconds(0));
    EXPECT_FALSE(announce("corpus::Integers", 2));
    EXPECT_LE(resolver->take_requests().size(), RequestPacer::kFirstWindow + 1u);
    collect(milliseconds(4000));
    EXPECT_LE(sent, 200u) << "one that never answers is asked ever less";
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(),
                            [](const auto& request) { return request.asked == participant(2); }));
    EXPECT_GE(resolver->take_outcomes().size(), 12000u);
    EXPECT_EQ(resolver->next_deadline(), rtps::kNever);
    resolver->participant_gone(participant(1), now);
    EXPECT_FALSE(announce("corpus::Floats", 2));
    ASSERT_EQ(resolver->take_requests().size(), 1u);
}

TEST_F(TypeResolverTest, ManySilentParticipantsShareALimit) {
    create();
    size_t sent = 0;
    for (uint32_t i = 0; i < 200; ++i) {
        for (uint32_t type = 0; type < 20; ++type)
            announce_unknown(static_cast<uint8_t>(10 + i), 1000 * i + type);
    }
    sent += resolver->take_requests().size();
    EXPECT_LE(sent, size_t{RequestPacer::kMostUnderWay});
    for (const auto end = now + milliseconds(1000); now < end; now += milliseconds(5)) {
        resolver->on_timer(now);
        sent += resolver->take_requests().size();
    }
    EXPECT_LE(sent, 1000u + RequestPacer::kBurst);
}

TEST_F(TypeResolverTest, MemoryIsGivenBack) {
    const size_t before = MemoryBudget::of_process().used();
    create();
    for (uint32_t i = 0; i < 1000; ++i)
        announce_unknown(1, i);
    for (const test::CorpusType& entry : corpus) {
        announce(entry.name, 2);
        answer_all();
    }
    EXPECT_GT(MemoryBudget::of_process().used(), before + 500000);
    resolver->participant_gone(participant(2), now);
    EXPECT_FALSE(announce("corpus::Nested", 3)) << "who told it is gone, and the type with it";
    resolver->participant_gone(participant(3), now);
    resolver->participant_gone(participant(1), now);
    now += std::chrono::seconds(3);
    resolver->on_timer(now);
    EXPECT_EQ(MemoryBudget::of_process().used(), before);
}

TEST_F(TypeResolverTest, ParticipantsOfThisProcessShareWhatWasFound) {
    create();
    EXPECT_FALSE(announce("corpus::Integers", 1, 0x103, true, 1));
    EXPECT_FALSE(announce("corpus::Integers", 1, 0x103, true, 2));
    EXPECT_FALSE(announce("corpus::Integers", 1, 0x103, true, 3));
    resolver->asker_gone(2, now);
    const auto requests = resolver->take_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].asker, 1u);
    answer(requests[0]);
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_EQ(outcomes[0].asker, 1u);
    EXPECT_EQ(outcomes[1].asker, 3u);
    resolver->participant_gone(participant(1), now, 1);
    EXPECT_TRUE(announce("corpus::Integers", 1, 0x203, true, 3)) << "3 still knows the participant";
    resolver->asker_gone(1, now);
    EXPECT_TRUE(announce("corpus::Integers", 1, 0x303, true, 3));
    resolver->participant_gone(participant(1), now, 3);
    EXPECT_FALSE(announce("corpus::Integers", 1, 0x103, true, 3));
}

TEST_F(TypeResolverTest, TypesThatAreTooLargeAreToldAFewTimesAndCounted) {
    create();
    ::testing::internal::CaptureStderr();
    for (uint32_t i = 0; i < 4000; ++i)
        announce_unknown(1, i, 1000000);
    now += std::chrono::seconds(61);
    resolver->on_timer(now);
    announce_unknown(1, 4000, 1000000);
    resolver->participant_gone(participant(1), now);
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 7) << log;
    EXPECT_NE(log.find(" 3995 more types of participant"), std::string::npos) << log;
}

TEST_F(TypeResolverTest, ManyParticipantsWithTypesThatAreTooLargeAreToldAFewTimesInAMinute) {
    create();
    const auto lines_of = [this](uint32_t from, uint32_t count) {
        ::testing::internal::CaptureStderr();
        for (uint32_t i = from; i < from + count; ++i) {
            announce_unknown(1, i, 1000000);
            resolver->participant_gone(participant(1), now);
        }
        const std::string log = ::testing::internal::GetCapturedStderr();
        return std::count(log.begin(), log.end(), '\n');
    };
    EXPECT_EQ(lines_of(0, 10), 10);
    EXPECT_EQ(lines_of(10, 1000), 40);
    now += std::chrono::seconds(61);
    EXPECT_EQ(lines_of(2000, 10), 10);
}

// As OpenDDS announces types unless it is told otherwise: the complete one is none, without size and parts.
TEST_F(TypeResolverTest, WhereOnlyAMinimalTypeIsAnnouncedItIsAskedFor) {
    create();
    rtps::EndpointData data;
    data.guid = {participant(1), rtps::EntityId{0x103}};
    data.raw_endianness = rtps::Endianness::little;
    rtps::ByteBuffer& bytes = data.type_information = type("corpus::Nested").information;
    const std::array<uint8_t, 4> complete{0x02, 0x10, 0x00, 0x50};
    bytes.erase(std::search(bytes.begin(), bytes.end(), complete.begin(), complete.end()), bytes.end());
    const rtps::ByteBuffer none{0x02, 0x10, 0, 0x40, 28, 0, 0, 0, 24, 0, 0, 0, 8, 0, 0, 0, 0, 0,
                                0,    0,    0, 0,    0,  0, 0, 0, 0,  0, 4, 0, 0, 0, 0, 0, 0, 0};
    bytes.insert(bytes.end(), none.begin(), none.end());
    bytes[0] = static_cast<uint8_t>(bytes.size() - 4);
    EXPECT_FALSE(resolver->resolve(*rtps::record_of(data), true, now));
    EXPECT_GT(answer_all(), 0);
    const auto outcomes = resolver->take_outcomes();
    ASSERT_EQ(outcomes.size(), 1u);
    ASSERT_TRUE(outcomes[0].type);
    EXPECT_TRUE(outcomes[0].type->nameless);
    EXPECT_TRUE(have_equal_samples(*outcomes[0].type, *test::build_type(type("corpus::Nested"))));
}

TEST_F(TypeResolverTest, PartialAnswersAddUp) {
    create();
    const test::CorpusType* deepest = nullptr;
    for (const test::CorpusType& entry : corpus) {
        if (deepest == nullptr || entry.mapping.size() > deepest->mapping.size())
            deepest = &entry;
    }
    ASSERT_FALSE(announce(deepest->name, 1));
    for (int round = 0; round < 50; ++round) {
        for (const TypeResolver::Request& request : resolver->take_requests())
            answer(request, true);
        now += milliseconds(30);
        resolver->on_timer(now);
    }
    ASSERT_EQ(resolver->take_outcomes().size(), 1u);
}

} // namespace
} // namespace meridian::types
