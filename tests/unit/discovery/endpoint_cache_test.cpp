#include "discovery/endpoint_cache.h"
#include "discovery/announcement_watch.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "discovery/conversions.h"
#include "samples.h"
#include "support/logger_guard.h"

namespace meridian::discovery {
namespace {

using Cache = EndpointCache;
using Changes = std::vector<Cache::Change>;
constexpr size_t kAll = 1000000;

class Observer final : public EndpointCacheObserver {
  public:
    void data_available(bool value) override { available = value; }
    bool is_watched() override { return watched; }
    bool available = false;
    bool watched = false;
};

class EndpointCacheTest : public ::testing::Test {
  protected:
    static rtps::Guid guid_of(uint32_t key) { return test::make_writer(1, key).guid; }

    void put(uint32_t key, const char* topic = "T") {
        rtps::EndpointData data = test::make_writer(1, key);
        data.topic_name = topic;
        DDS_SampleInfo info;
        info.source_timestamp = {++clock_, 0};
        cache_.put(test::record(std::move(data)), participant_, info);
    }
    void remove(uint32_t key) {
        DDS_SampleInfo info;
        info.source_timestamp = {++clock_, 0};
        cache_.remove(guid_of(key), participant_, info);
    }
    Changes take(size_t limit = kAll) {
        Changes taken = cache_.take(limit);
        cache_.give_back(taken);
        return taken;
    }

    /// "new", "changed", "gone" for each change.
    static std::vector<std::string> kinds(const Changes& changes) {
        std::vector<std::string> result;
        for (const Cache::Change& change : changes) {
            if (!change.info.valid_data)
                result.emplace_back("gone");
            else
                result.emplace_back(change.info.view_state == DDS_NEW_VIEW_STATE ? "new" : "changed");
        }
        return result;
    }
    using Kinds = std::vector<std::string>;

    Cache cache_{EndpointCacheLimits{4, 3}};
    Observer observer_;
    const rtps::ParticipantRef participant_ = test::shared(test::make_participant(1));
    DDS_Long clock_ = 0;
};

TEST_F(EndpointCacheTest, AChangeCarriesTheStateItHadWhenItHappened) {
    put(1);
    put(1);
    remove(1);
    const Changes changes = take();
    EXPECT_EQ(kinds(changes), (Kinds{"new", "changed", "gone"}));
    EXPECT_EQ(changes[0].info.instance_state, DDS_ALIVE_INSTANCE_STATE);
    EXPECT_EQ(changes[1].info.instance_state, DDS_ALIVE_INSTANCE_STATE);
    EXPECT_EQ(changes[1].info.view_state, DDS_NOT_NEW_VIEW_STATE);
    EXPECT_EQ(changes[2].info.instance_state, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
    EXPECT_EQ(changes[2].info.view_state, DDS_NOT_NEW_VIEW_STATE);
    EXPECT_EQ(changes[2].endpoint->guid, guid_of(1));
    EXPECT_EQ(changes[0].info.source_timestamp.sec, 1);
    EXPECT_EQ(changes[2].info.source_timestamp.sec, 3);
    EXPECT_EQ(changes[0].info.sample_state, DDS_NOT_READ_SAMPLE_STATE);
    EXPECT_EQ(changes[0].info.instance_handle, to_handle(guid_of(1)));
    EXPECT_TRUE(take().empty());
}

TEST_F(EndpointCacheTest, AnEndpointThatComesBackIsNewAgain) {
    put(1);
    remove(1);
    put(1);
    EXPECT_EQ(kinds(take()), (Kinds{"new", "gone", "new"}));
    remove(1);
    EXPECT_EQ(kinds(take()), Kinds{"gone"});
    put(1);
    put(1);
    EXPECT_EQ(kinds(take()), (Kinds{"new", "changed"}));
}

TEST_F(EndpointCacheTest, RemovingWhatIsNotThereIsNothing) {
    remove(1);
    put(1);
    remove(1);
    remove(1);
    EXPECT_EQ(kinds(take()), (Kinds{"new", "gone"}));
}

TEST_F(EndpointCacheTest, ChangesOfDifferentEndpointsKeepTheirOrder) {
    put(1, "A");
    put(2, "B");
    put(1, "C");
    const Changes changes = take();
    ASSERT_EQ(changes.size(), 3u);
    EXPECT_EQ(changes[0].endpoint->topic_name, "A");
    EXPECT_EQ(changes[1].endpoint->topic_name, "B");
    EXPECT_EQ(changes[2].endpoint->topic_name, "C");
}

TEST_F(EndpointCacheTest, DataIsAvailableUntilItWasReadUnlessTheLimitLeftSome) {
    cache_.set_observer(&observer_);
    EXPECT_FALSE(observer_.available);
    put(1);
    put(2);
    EXPECT_TRUE(observer_.available);
    EXPECT_EQ(take(1).size(), 1u);
    EXPECT_TRUE(observer_.available);
    EXPECT_EQ(take(1).size(), 1u);
    EXPECT_FALSE(observer_.available);
    put(3);
    cache_.set_observer(nullptr);
    take();
    EXPECT_TRUE(observer_.available); // not told any more
    cache_.set_observer(&observer_);
    EXPECT_FALSE(observer_.available); // told the present state
}

TEST_F(EndpointCacheTest, TheParticipantIsKnownUntilTheEndWasTakenAndForgotten) {
    put(1);
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_);
    EXPECT_EQ(cache_.participant_of(guid_of(2)), nullptr);
    take();
    remove(1);
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_);
    EXPECT_EQ(kinds(take()), Kinds{"gone"});
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_) << "must be known for the sample just taken";
    take();
    EXPECT_EQ(cache_.participant_of(guid_of(1)), nullptr);
}

TEST_F(EndpointCacheTest, WhatIsOnLoanIsNotForgotten) {
    put(1);
    remove(1);
    const Changes loan = cache_.take(kAll);
    take();
    take();
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_);
    cache_.give_back(loan);
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_);
    take();
    EXPECT_EQ(cache_.participant_of(guid_of(1)), nullptr);
}

TEST_F(EndpointCacheTest, AnEndpointThatCameBackIsNotForgotten) {
    put(1);
    remove(1);
    take();
    put(1);
    take();
    take();
    EXPECT_EQ(cache_.participant_of(guid_of(1)), participant_);
    remove(1);
    EXPECT_EQ(kinds(take()), Kinds{"gone"});
    take();
    EXPECT_EQ(cache_.participant_of(guid_of(1)), nullptr);
}

TEST_F(EndpointCacheTest, ManyChangesOfOneEndpointLoseTheOldest) {
    for (int i = 0; i < 10; ++i)
        put(1, std::to_string(i).c_str());
    const Changes changes = take();
    EXPECT_EQ(kinds(changes), (Kinds{"new", "changed", "changed", "changed"}));
    EXPECT_EQ(changes[0].endpoint->topic_name, "6");
    EXPECT_EQ(changes[3].endpoint->topic_name, "9");
    EXPECT_EQ(cache_.lost(), 6u);
}

TEST(EndpointCache, SaysOnceThatItLosesAndAtItsEndHowMuch) {
    const LoggerGuard guard(QUIX_LOG_WARNING);
    ::testing::internal::CaptureStderr();
    {
        Cache cache(EndpointCacheLimits{4, 3});
        for (int i = 0; i < 10; ++i)
            cache.put(test::record(test::make_writer(1, 1)), test::shared(test::make_participant(1)),
                      DDS_SampleInfo());
    }
    const std::string logged = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 2) << logged;
    EXPECT_NE(logged.find("6 discovery changes"), std::string::npos) << logged;
}

TEST_F(EndpointCacheTest, ALifeThatIsDroppedIsDroppedWhole) {
    for (int i = 0; i < 5; ++i) {
        put(1);
        remove(1);
    }
    put(1);
    const Kinds told = kinds(take());
    ASSERT_LE(told.size(), 4u);
    for (size_t i = 0; i < told.size(); ++i)
        EXPECT_EQ(told[i], i % 2 == 0 ? "new" : "gone");
    EXPECT_EQ(told.back(), "new");
}

TEST_F(EndpointCacheTest, TheEndOfALifeThatWasSeenIsAlwaysTold) {
    put(1);
    take();
    for (int i = 0; i < 5; ++i) {
        remove(1);
        put(1);
    }
    const Kinds told = kinds(take());
    ASSERT_LE(told.size(), 4u);
    EXPECT_EQ(told.front(), "gone");
    EXPECT_EQ(told.back(), "new");
}

TEST_F(EndpointCacheTest, EndpointsThatCameAndWentUnseenAreBounded) {
    put(100);
    for (uint32_t key = 1; key <= 10; ++key) {
        put(key);
        remove(key);
    }
    const Changes changes = take();
    EXPECT_EQ(kinds(changes), (Kinds{"new", "new", "gone", "new", "gone", "new", "gone"}));
    EXPECT_EQ(changes[1].info.instance_handle, to_handle(guid_of(8)));
    EXPECT_EQ(cache_.participant_of(guid_of(1)), nullptr);
    EXPECT_EQ(cache_.participant_of(guid_of(100)), participant_);
}

TEST_F(EndpointCacheTest, WhatGoesBeforeTheApplicationTakesAnInterestLeavesNothing) {
    cache_.set_observer(&observer_);
    put(1);
    put(1);
    put(2);
    remove(1);
    EXPECT_TRUE(observer_.available);
    EXPECT_EQ(cache_.participant_of(guid_of(1)), nullptr);
    remove(2);
    EXPECT_FALSE(observer_.available);
    put(1);
    EXPECT_EQ(kinds(take()), Kinds{"new"});
    EXPECT_EQ(cache_.lost(), 0u);
    remove(1);
    EXPECT_EQ(kinds(take()), Kinds{"gone"}) << "now it does";
    cache_.set_observer(nullptr);
}

TEST_F(EndpointCacheTest, WhoWaitsForChangesSeesWhatCameAndWent) {
    cache_.set_observer(&observer_);
    observer_.watched = true;
    put(1);
    remove(1);
    EXPECT_EQ(kinds(take()), (Kinds{"new", "gone"}));
    cache_.set_observer(nullptr);
}

/// Notes the announcements that the application was given.
class Notes final : public AnnouncementObserver {
  public:
    void announcement_given(const rtps::Guid& endpoint) override { given.push_back(endpoint); }
    std::vector<rtps::Guid> given;
};

TEST_F(EndpointCacheTest, AnAnnouncementIsGivenWhenItsLoanReturns) {
    Notes notes;
    EXPECT_TRUE(take().empty()); // the application takes an interest
    put(1);
    put(2);
    ASSERT_TRUE(cache_.await_announcement(guid_of(1), notes));
    const Changes loan = cache_.take(1);
    EXPECT_TRUE(notes.given.empty());
    put(1); // a change is no announcement
    cache_.give_back(loan);
    EXPECT_EQ(notes.given, std::vector<rtps::Guid>{guid_of(1)});
    EXPECT_FALSE(cache_.await_announcement(guid_of(1), notes));
    ASSERT_TRUE(cache_.await_announcement(guid_of(2), notes));
    take();
    EXPECT_EQ(notes.given.size(), 2u);
    remove(1);
    put(1); // another life
    EXPECT_TRUE(cache_.await_announcement(guid_of(1), notes));
    EXPECT_FALSE(cache_.await_announcement(guid_of(3), notes)); // not there
}

TEST_F(EndpointCacheTest, AReturnedLoanOfAnEarlierLifeIsNoAnnouncementOfThisOne) {
    Notes notes;
    put(1);
    const Changes loan = cache_.take(kAll);
    remove(1);
    put(1);
    ASSERT_TRUE(cache_.await_announcement(guid_of(1), notes));
    cache_.give_back(loan);
    EXPECT_TRUE(notes.given.empty());
    take();
    EXPECT_EQ(notes.given.size(), 1u);
}

TEST_F(EndpointCacheTest, AnAnnouncementMayBeAwaitedBeforeItCame) {
    Notes notes;
    Notes others;
    EXPECT_FALSE(cache_.await_announcement(guid_of(1), notes, true)) << "it is not taken";
    take();
    EXPECT_TRUE(cache_.await_announcement(guid_of(1), notes, true));
    EXPECT_TRUE(cache_.await_announcement(guid_of(1), others, true));
    EXPECT_TRUE(cache_.await_announcement(guid_of(2), notes, true));
    cache_.give_up(guid_of(1), others);
    put(1);
    EXPECT_TRUE(notes.given.empty());
    take();
    EXPECT_EQ(notes.given, std::vector<rtps::Guid>{guid_of(1)});
    EXPECT_TRUE(others.given.empty());
    EXPECT_FALSE(cache_.await_announcement(guid_of(1), notes, true));
}

TEST_F(EndpointCacheTest, ReadersOfAParticipantAwaitWhatAnotherOneGives) {
    const auto caches = std::make_shared<PublicationCaches>();
    EndpointCache second;
    AnnouncementWatch first_watch(caches, 7, cache_);
    AnnouncementWatch watch(caches, 7, second);
    EndpointCache third;
    AnnouncementWatch elsewhere(caches, 8, third);
    Notes notes;
    EXPECT_FALSE(watch.begin(guid_of(1), notes)) << "the application takes no announcements";
    take();
    EXPECT_FALSE(elsewhere.begin(guid_of(1), notes)) << "another domain";
    EXPECT_TRUE(watch.begin(guid_of(1), notes));
    EXPECT_FALSE(first_watch.begin(guid_of(1), notes)) << "its own participant knows no such writer";
    put(1);
    take();
    EXPECT_EQ(notes.given, std::vector<rtps::Guid>{guid_of(1)});
    EXPECT_FALSE(watch.begin(guid_of(1), notes));
    EXPECT_TRUE(watch.begin(guid_of(2), notes));
    watch.forget(notes);
    put(2);
    take();
    EXPECT_EQ(notes.given.size(), 1u);
}

TEST_F(EndpointCacheTest, NothingIsAwaitedOfAnApplicationThatTakesNothing) {
    Notes notes;
    put(1);
    EXPECT_FALSE(cache_.await_announcement(guid_of(1), notes));
    cache_.set_observer(&observer_);
    EXPECT_FALSE(cache_.await_announcement(guid_of(1), notes));
    observer_.watched = true;
    EXPECT_TRUE(cache_.await_announcement(guid_of(1), notes));
    cache_.forget(notes);
    take();
    EXPECT_TRUE(notes.given.empty());
    cache_.set_observer(nullptr);
}

} // namespace
} // namespace meridian::discovery
