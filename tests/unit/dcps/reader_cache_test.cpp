#include "dcps/reader/reader_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace meridian::dcps {
namespace {

using std::chrono::milliseconds;

rtps::KeyHash key(uint32_t number) {
    rtps::KeyHash hash{};
    for (size_t i = 0; i < 4; ++i)
        hash[3 - i] = static_cast<uint8_t>(number >> 8 * i);
    return hash;
}

rtps::Guid writer(uint32_t number) {
    rtps::Guid guid;
    guid.prefix.bytes[0] = static_cast<uint8_t>(number);
    guid.prefix.bytes[1] = static_cast<uint8_t>(number >> 8);
    guid.entity.value = 0x00000102;
    return guid;
}

/// Counts samples that came back; every sample is an int of the test.
class Pool : public SampleOwner {
  public:
    void release_sample(void* sample) override { ++released[*static_cast<int*>(sample)]; }
    int* make(int number) {
        numbers_.push_back(std::make_unique<int>(number));
        return numbers_.back().get();
    }
    std::map<int, int> released;

  private:
    std::vector<std::unique_ptr<int>> numbers_;
};

class ReaderCacheTest : public ::testing::Test {
  protected:
    ReaderCache::Settings settings;
    Pool pool;
    std::unique_ptr<MemoryBudget> budget;
    std::unique_ptr<MemoryShare> share;
    std::unique_ptr<ReaderCache> cache;
    rtps::MonotonicTime now{0};
    int next = 0;

    ReaderCacheTest() { settings.history.depth = 8; }

    bool knows_any() const {
        for (int number = 0; number < 256; ++number) {
            if (cache->knows_instance(key(static_cast<uint8_t>(number))))
                return true;
        }
        return false;
    }
    size_t missed_by(rtps::MonotonicTime when) {
        std::vector<DDS_InstanceHandle_t> missed;
        cache->on_timer(when, missed);
        return missed.size();
    }

    /// One holder alone gets half of a budget.
    void create(size_t memory = MemoryBudget::kDefaultLimit / 2) {
        cache.reset();
        share.reset();
        budget = std::make_unique<MemoryBudget>(2 * memory);
        share = std::make_unique<MemoryShare>(*budget);
        cache = std::make_unique<ReaderCache>(settings, pool, *share);
    }

    Change change(ChangeKind kind, uint32_t instance, uint32_t from = 1) {
        Change made;
        made.kind = kind;
        made.writer = writer(from);
        made.key = settings.keyed ? key(instance) : rtps::KeyHash{};
        made.source_timestamp = DDS_Time_t{next, 0};
        made.received = now;
        if (kind == ChangeKind::alive) {
            made.sample = pool.make(next);
            made.bytes = 100;
        }
        ++next;
        return made;
    }
    ReaderCache::Verdict data(uint32_t instance, uint32_t from = 1) {
        return cache->add(change(ChangeKind::alive, instance, from));
    }
    ReaderCache::Verdict dispose(uint32_t instance, uint32_t from = 1) {
        return cache->add(change(ChangeKind::disposed, instance, from));
    }
    ReaderCache::Verdict unregister(uint32_t instance, uint32_t from = 1) {
        return cache->add(change(ChangeKind::unregistered, instance, from));
    }

    /// Takes everything: "N1=0 M1=1 D1 W1" for new, modified, disposed and no-writers samples of instance 1,
    /// data with the sample's number.
    std::string take(ReaderCache::Selection selection = {}) {
        ReaderCache::Batch batch;
        cache->take(selection, batch);
        const std::string text = describe(batch);
        cache->return_batch(batch);
        return text;
    }
    static std::string describe(const ReaderCache::Batch& batch) {
        std::string text;
        for (size_t i = 0; i < batch.infos.size(); ++i) {
            const DDS_SampleInfo& info = *batch.infos[i];
            if (!text.empty())
                text += ' ';
            text += info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE     ? 'D'
                    : info.instance_state == DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE ? 'W'
                    : info.view_state == DDS_NEW_VIEW_STATE                          ? 'N'
                                                                                     : 'M';
            text += std::to_string(info.instance_handle.keyHash[3]);
            EXPECT_EQ(info.valid_data, batch.samples[i] != nullptr);
            if (batch.samples[i] != nullptr)
                text += "=" + std::to_string(*static_cast<int*>(batch.samples[i]));
        }
        return text;
    }
};

TEST_F(ReaderCacheTest, FirstSampleOfAnInstanceIsNewAndLaterOnesAreNot) {
    create();
    data(1);
    data(1);
    data(2);
    data(1);
    EXPECT_EQ(take(), "N1=0 M1=1 N2=2 M1=3");
    data(1);
    EXPECT_EQ(take(), "M1=4");
}

TEST_F(ReaderCacheTest, SampleAfterADisposeIsNewAgain) {
    create();
    data(1);
    dispose(1);
    data(1);
    EXPECT_EQ(take(), "N1=0 D1 N1=2");
}

TEST_F(ReaderCacheTest, EveryDisposeIsReported) {
    create();
    dispose(7);
    dispose(7);
    EXPECT_EQ(take(), "D7 D7");
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, InstanceHasNoWritersWhenTheLastOneUnregisters) {
    create();
    data(1, 1);
    data(1, 2);
    EXPECT_EQ(unregister(1, 1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(take(), "N1=0 M1=1");
    EXPECT_EQ(unregister(1, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "W1");
    EXPECT_EQ(unregister(1, 2), ReaderCache::Verdict::filtered);
    EXPECT_EQ(take(), "");
}

TEST_F(ReaderCacheTest, WriterThatGoesLeavesItsInstancesWithoutWriters) {
    create();
    data(2, 1);
    data(1, 1);
    data(3, 1);
    data(3, 2);
    dispose(1, 1);
    take();
    EXPECT_TRUE(cache->writer_gone(writer(1), DDS_Time_t{9, 0}, now));
    EXPECT_EQ(take(), "W2");
    EXPECT_FALSE(cache->writer_gone(writer(1), DDS_Time_t{9, 0}, now));
    EXPECT_TRUE(cache->writer_gone(writer(2), DDS_Time_t{9, 0}, now));
    EXPECT_EQ(take(), "W3");
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, DisposeWithUnregisterIsOneSample) {
    create();
    data(1);
    cache->add(change(ChangeKind::disposed_and_unregistered, 1));
    EXPECT_EQ(take(), "N1=0 D1");
    cache->writer_gone(writer(1), DDS_Time_t{9, 0}, now);
    EXPECT_EQ(take(), "");
}

TEST_F(ReaderCacheTest, DisposeKeepsTheDataThatCameWithIt) {
    settings.history.depth = 1;
    create();
    data(1);
    Change last = change(ChangeKind::disposed, 1);
    last.sample = pool.make(7);
    EXPECT_EQ(cache->add(last), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "D1=7");
    last = change(ChangeKind::disposed_and_unregistered, 2);
    last.sample = pool.make(8);
    EXPECT_EQ(cache->add(last), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "D2=8");
    EXPECT_EQ(pool.released, (std::map<int, int>{{0, 1}, {7, 1}, {8, 1}}));
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, DataThatComesWithItsUnregistrationIsASampleBeforeThat) {
    create();
    Change last = change(ChangeKind::unregistered, 1);
    last.sample = pool.make(7);
    EXPECT_EQ(cache->add(last), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "N1=7 W1") << "of an instance that was never seen";
    data(2);
    data(2, 2);
    last = change(ChangeKind::unregistered, 2);
    last.sample = pool.make(8);
    EXPECT_EQ(cache->add(last), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "N2=1 M2=2 M2=8") << "it has another writer";
    EXPECT_EQ(pool.released[7], 1);
    EXPECT_EQ(pool.released[8], 1);
    unregister(2, 2);
    EXPECT_EQ(take(), "W2");
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, DataIsNotPushedOutByTheEndThatComesWithIt) {
    settings.history.depth = 1;
    create();
    Change last = change(ChangeKind::unregistered, 1);
    last.sample = pool.make(7);
    EXPECT_EQ(cache->add(last), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "N1=7");
    EXPECT_EQ(cache->overwritten(), 0u);
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, TopicWithoutKeyHasOneInstance) {
    settings.keyed = false;
    create();
    data(0, 1);
    data(0, 2);
    cache->writer_gone(writer(1), DDS_Time_t{9, 0}, now);
    cache->writer_gone(writer(2), DDS_Time_t{9, 0}, now);
    ReaderCache::Batch batch;
    ASSERT_TRUE(cache->take({}, batch));
    EXPECT_EQ(describe(batch), "N0=0 M0=1 W0");
    EXPECT_FALSE(batch.infos[0]->instance_handle.isValid);
    cache->return_batch(batch);
}

TEST_F(ReaderCacheTest, InfoCarriesWhatTheChangeSaid) {
    create();
    Change made = change(ChangeKind::alive, 1, 0xab);
    made.source_timestamp = {12, 34};
    made.identity.sequence_number = {0, 77};
    made.related_identity.sequence_number = {1, 2};
    made.flag = 5;
    cache->add(made);
    ReaderCache::Batch batch;
    ASSERT_TRUE(cache->take({}, batch));
    const DDS_SampleInfo& info = *batch.infos[0];
    EXPECT_EQ(info.source_timestamp.sec, 12);
    EXPECT_EQ(info.source_timestamp.nanosec, 34u);
    EXPECT_EQ(info.sample_identity.sequence_number.low, 77u);
    EXPECT_EQ(info.related_sample_identity.sequence_number.high, 1);
    EXPECT_EQ(info.flag, 5u);
    EXPECT_TRUE(info.instance_handle.isValid);
    EXPECT_EQ(info.instance_handle.keyHash[3], 1);
    EXPECT_EQ(info.publication_handle.keyHash[0], 0xab);
    EXPECT_EQ(info.publication_handle.keyHash[14], 0x01);
    EXPECT_EQ(info.publication_handle.keyHash[15], 0x02);
    cache->return_batch(batch);
}

TEST_F(ReaderCacheTest, KeepLastReplacesTheOldestOfTheInstanceAndCounts) {
    settings.history.depth = 2;
    create();
    for (int i = 0; i < 4; ++i)
        data(1);
    data(2);
    EXPECT_EQ(cache->overwritten(), 2u);
    EXPECT_EQ(pool.released.size(), 2u);
    EXPECT_EQ(take(), "M1=2 M1=3 N2=4");
    EXPECT_EQ(pool.released.size(), 5u);
}

TEST_F(ReaderCacheTest, OverwrittenSampleOnLoanStaysUntilItIsReturned) {
    settings.history.depth = 1;
    create();
    data(1);
    ReaderCache::Batch batch;
    ASSERT_TRUE(cache->read({}, batch));
    data(1);
    EXPECT_EQ(cache->overwritten(), 0u) << "it had been read";
    EXPECT_TRUE(pool.released.empty());
    cache->return_batch(batch);
    EXPECT_EQ(pool.released[0], 1);
    EXPECT_EQ(take(), "M1=1");
}

TEST_F(ReaderCacheTest, ReadLeavesSamplesAndMarksThem) {
    create();
    data(1);
    ReaderCache::Batch first;
    ASSERT_TRUE(cache->read({}, first));
    EXPECT_EQ(first.infos[0]->sample_state, DDS_NOT_READ_SAMPLE_STATE);
    cache->return_batch(first);
    ReaderCache::Selection unread;
    unread.sample_states = DDS_NOT_READ_SAMPLE_STATE;
    EXPECT_FALSE(cache->has(unread));
    ReaderCache::Selection seen;
    seen.sample_states = DDS_READ_SAMPLE_STATE;
    EXPECT_EQ(take(seen), "N1=0");
    EXPECT_EQ(pool.released[0], 1);
}

TEST_F(ReaderCacheTest, SelectionChoosesByStateInstanceAndNumber) {
    create();
    data(1);
    data(2);
    dispose(1);
    data(2);
    ReaderCache::Selection disposed;
    disposed.instance_states = DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    EXPECT_EQ(take(disposed), "D1");
    ReaderCache::Selection second;
    second.instance = key(2);
    second.max_samples = 1;
    EXPECT_EQ(take(second), "N2=1");
    ReaderCache::Selection modified;
    modified.view_states = DDS_NOT_NEW_VIEW_STATE;
    EXPECT_EQ(take(modified), "M2=3");
    EXPECT_EQ(take(), "N1=0");
}

TEST_F(ReaderCacheTest, InstancesAreWalkedInOrderOfTheirKeys) {
    create();
    data(9);
    data(3);
    data(5);
    EXPECT_EQ(cache->next_instance(std::nullopt, {}), key(3));
    EXPECT_EQ(cache->next_instance(key(3), {}), key(5));
    EXPECT_EQ(cache->next_instance(key(9), {}), std::nullopt);
}

TEST_F(ReaderCacheTest, ResourceLimitsRejectAndNameTheLimit) {
    settings.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    settings.limits = {3, 2, 2};
    create();
    EXPECT_EQ(data(1), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1), ReaderCache::Verdict::rejected_samples_per_instance);
    EXPECT_EQ(data(2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(2), ReaderCache::Verdict::rejected_samples);
    EXPECT_EQ(data(3), ReaderCache::Verdict::rejected_instances);
    EXPECT_EQ(take(), "N1=0 M1=1 N2=3");
    EXPECT_TRUE(pool.released.find(2) == pool.released.end()) << "a rejected sample stays the caller's";
}

TEST_F(ReaderCacheTest, MemoryLimitDropsTheOldestOfAll) {
    create(30000);
    settings.history.depth = 8192;
    cache->update(settings);
    for (int i = 0; i < 1000; ++i)
        data(1);
    const uint64_t overwritten = cache->overwritten();
    EXPECT_GT(overwritten, 850u);
    EXPECT_LT(overwritten, 950u) << "a sample of 100 bytes takes about 300";
    EXPECT_EQ(cache->sample_count() + overwritten, 1000u);
    ReaderCache::Batch batch;
    ASSERT_TRUE(cache->take({}, batch));
    EXPECT_EQ(*static_cast<int*>(batch.samples.front()), static_cast<int>(overwritten));
    EXPECT_EQ(*static_cast<int*>(batch.samples.back()), 999);
    EXPECT_LE(share->held(), 30000u);
    EXPECT_GT(share->held(), 25000u) << "what is on loan still takes its memory";
    cache->return_batch(batch);
}

TEST_F(ReaderCacheTest, SampleThatFindsNoMemoryAtAllIsLostAndCounted) {
    create(1000);
    Change large = change(ChangeKind::alive, 1);
    large.bytes = 2000;
    EXPECT_EQ(cache->add(large), ReaderCache::Verdict::lost);
    EXPECT_EQ(cache->overwritten(), 1u);
    EXPECT_TRUE(pool.released.empty()) << "it stays the caller's";
    EXPECT_FALSE(knows_any());
    EXPECT_EQ(data(1), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "N1=1");
}

TEST_F(ReaderCacheTest, InstancesGoBeforeSamplesWhenMemoryIsShort) {
    create(10000);
    for (uint32_t i = 0; i < 200; ++i) {
        data(i);
        take();
    }
    EXPECT_TRUE(cache->knows_instance(key(199)));
    EXPECT_FALSE(cache->knows_instance(key(0)));
    EXPECT_EQ(cache->overwritten(), 0u);
}

TEST_F(ReaderCacheTest, AllMemoryIsGivenBack) {
    create();
    for (uint32_t i = 0; i < 5000; ++i)
        data(i % 3000, i % 7);
    ReaderCache::Batch batch;
    ReaderCache::Selection some;
    some.max_samples = 2000;
    ASSERT_TRUE(cache->take(some, batch));
    cache.reset();
    EXPECT_EQ(share->held(), 0u);
}

TEST_F(ReaderCacheTest, PeakOfWaitingSamplesIsNotKept) {
    settings.history.depth = 100000;
    create();
    for (uint32_t i = 0; i < 50000; ++i)
        data(1);
    const size_t peak = share->held();
    EXPECT_GT(peak, 50000u * 250);
    ReaderCache::Batch batch;
    ASSERT_TRUE(cache->take({}, batch));
    cache->return_batch(batch);
    EXPECT_LT(share->held(), peak / 20);
    EXPECT_LT(batch.infos.capacity(), 5000u);
}

TEST_F(ReaderCacheTest, LongestUnusedInstancesAreForgottenAndThenNewAgain) {
    create();
    const auto most = static_cast<uint32_t>(Instances::kMost);
    for (uint32_t i = 0; i < most; ++i) {
        data(i);
        take();
    }
    EXPECT_EQ(data(0), ReaderCache::Verdict::stored);
    EXPECT_EQ(take().substr(0, 2), "M0") << "used again: instance 1 is the longest unused now";
    const size_t before = share->held();
    for (uint32_t i = 0; i < 1000; ++i) {
        data(most + i);
        take();
    }
    EXPECT_EQ(share->held(), before);
    EXPECT_TRUE(cache->knows_instance(key(0)));
    EXPECT_FALSE(cache->knows_instance(key(1)));
    EXPECT_FALSE(cache->knows_instance(key(1000)));
    EXPECT_TRUE(cache->knows_instance(key(1001)));
    const int number = next;
    data(1);
    EXPECT_EQ(take(), "N1=" + std::to_string(number));
}

TEST_F(ReaderCacheTest, InstancesWithSamplesThatWaitAreNotForgotten) {
    create();
    const auto most = static_cast<uint32_t>(Instances::kMost);
    data(0);
    for (uint32_t i = 1; i <= most; ++i)
        data(i);
    EXPECT_TRUE(cache->knows_instance(key(0)));
    EXPECT_EQ(cache->sample_count(), most + 1u);
    take();
    EXPECT_FALSE(cache->knows_instance(key(0))) << "it was taken first";
    EXPECT_TRUE(cache->knows_instance(key(1)));
}

TEST_F(ReaderCacheTest, InstanceThatIsForgottenMissesNoDeadlineAndHasNoWriters) {
    settings.deadline = milliseconds(100);
    create();
    const auto most = static_cast<uint32_t>(Instances::kMost);
    data(0, 2);
    take();
    now = milliseconds(50);
    for (uint32_t i = 1; i <= most; ++i) {
        data(i);
        take();
    }
    EXPECT_EQ(cache->next_deadline(), milliseconds(150));
    EXPECT_FALSE(cache->writer_gone(writer(2), DDS_Time_t{9, 0}, now));
}

TEST_F(ReaderCacheTest, OnlyTheLatestWritersOfAnInstanceAreRemembered) {
    create();
    const auto most = static_cast<uint32_t>(Instances::kMostWritersOfInstance);
    for (uint32_t i = 0; i <= most; ++i)
        data(1, i);
    take();
    const size_t held = share->held();
    data(1, most + 1);
    take();
    EXPECT_EQ(share->held(), held);
    for (uint32_t i = 2; i <= most; ++i)
        cache->writer_gone(writer(i), DDS_Time_t{9, 0}, now);
    EXPECT_EQ(take(), "");
    cache->writer_gone(writer(most + 1), DDS_Time_t{9, 0}, now);
    EXPECT_EQ(take(), "W1");
}

TEST_F(ReaderCacheTest, OnlyTheStrongestWriterIsHeardUnderExclusiveOwnership) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    create();
    cache->add_writer(writer(1), 5);
    cache->add_writer(writer(2), 10);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(dispose(1, 1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(take(), "N1=0 M1=1");
    cache->writer_gone(writer(2), DDS_Time_t{9, 0}, now);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "M1=4");
}

TEST_F(ReaderCacheTest, OwnerThatDisposesStaysTheOwner) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    create();
    cache->add_writer(writer(2), 10);
    data(1, 2);
    dispose(1, 2);
    EXPECT_EQ(take(), "N1=0 D1");
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::stored);
    dispose(1, 2);
    EXPECT_EQ(take(), "N1=3 D1");
    unregister(1, 2);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::stored);
    EXPECT_EQ(take(), "N1=6");
}

TEST_F(ReaderCacheTest, DisposalTakesNoWriterFromAnInstance) {
    create();
    data(1, 1);
    data(1, 2);
    dispose(1, 1);
    take();
    data(1, 1);
    unregister(1, 1);
    EXPECT_EQ(take(), "N1=3") << "the second writer has not unregistered";
    unregister(1, 2);
    EXPECT_EQ(take(), "W1");
    EXPECT_FALSE(knows_any());
}

TEST_F(ReaderCacheTest, InstancesThatEndedMakeRoomForOthers) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    settings.limits.max_instances = 2;
    create();
    data(1);
    data(2);
    take();
    dispose(2);
    take();
    EXPECT_EQ(data(3), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(4), ReaderCache::Verdict::rejected_instances);
}

TEST_F(ReaderCacheTest, OfInstancesThatEndedTheLongestUnusedGoesFirst) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    settings.limits.max_instances = 3;
    create();
    cache->add_writer(writer(2), 10);
    for (const uint32_t key : {1u, 2u, 3u})
        data(key, 2);
    take();
    for (const uint32_t key : {1u, 2u}) {
        dispose(key, 2);
        take();
    }
    EXPECT_EQ(data(4, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(2, 1), ReaderCache::Verdict::filtered) << "it still has its owner";
    take();
    EXPECT_EQ(data(5, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(6, 2), ReaderCache::Verdict::rejected_instances);
}

TEST_F(ReaderCacheTest, OfEquallyStrongWritersTheLowerGuidOwns) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    create();
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1, 3), ReaderCache::Verdict::filtered);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::filtered);
}

TEST_F(ReaderCacheTest, TimeBasedFilterCountsPerInstance) {
    settings.minimum_separation = milliseconds(100);
    create();
    EXPECT_EQ(data(1), ReaderCache::Verdict::stored);
    now += milliseconds(50);
    EXPECT_EQ(data(1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(data(2), ReaderCache::Verdict::stored);
    EXPECT_EQ(dispose(1), ReaderCache::Verdict::stored) << "the filter is for data";
    now += milliseconds(50);
    EXPECT_EQ(data(1), ReaderCache::Verdict::stored);
}

TEST_F(ReaderCacheTest, TimeBasedFilterShowsWhatMakesAnInstanceNewAgain) {
    settings.minimum_separation = milliseconds(100);
    create();
    data(1, 1);
    now += milliseconds(100);
    data(1, 2);
    dispose(1, 1);
    take();
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::stored);
    EXPECT_EQ(data(1, 2), ReaderCache::Verdict::filtered);
}

TEST_F(ReaderCacheTest, DestinationOrderBySourceDropsWhatIsOlder) {
    settings.destination_order = DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS;
    create();
    Change first = change(ChangeKind::alive, 1);
    Change second = change(ChangeKind::alive, 1);
    EXPECT_EQ(cache->add(second), ReaderCache::Verdict::stored);
    EXPECT_EQ(cache->add(first), ReaderCache::Verdict::filtered);
}

TEST_F(ReaderCacheTest, DeadlineIsMissedOncePerPeriodUntilTheInstanceEnds) {
    settings.deadline = milliseconds(100);
    create();
    EXPECT_EQ(cache->next_deadline(), rtps::kNever);
    data(1);
    now = milliseconds(40);
    data(2);
    EXPECT_EQ(cache->next_deadline(), milliseconds(100));
    EXPECT_EQ(missed_by(milliseconds(99)), 0u);
    ASSERT_EQ(missed_by(milliseconds(100)), 1u);
    EXPECT_EQ(cache->next_deadline(), milliseconds(140));
    EXPECT_EQ(missed_by(milliseconds(205)), 2u);
    dispose(1);
    EXPECT_EQ(cache->next_deadline(), milliseconds(240));
    dispose(2);
    EXPECT_EQ(cache->next_deadline(), rtps::kNever);
}

TEST_F(ReaderCacheTest, ZeroDeadlineIsMissedWithoutStandingStill) {
    settings.deadline = rtps::Duration(0);
    create();
    data(1);
    EXPECT_EQ(missed_by(now), 1u);
    EXPECT_GT(cache->next_deadline(), now);
}

TEST_F(ReaderCacheTest, OwnerThatMissesItsDeadlineLosesTheInstance) {
    settings.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    settings.deadline = milliseconds(10);
    create();
    cache->add_writer(writer(2), 9);
    data(1, 2);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::filtered);
    EXPECT_EQ(missed_by(milliseconds(10)), 1u);
    EXPECT_EQ(data(1, 1), ReaderCache::Verdict::stored);
}

TEST_F(ReaderCacheTest, InstancesThatEndedAreForgottenOnceTaken) {
    create();
    for (int round = 0; round < 100; ++round) {
        for (uint8_t i = 0; i < 200; ++i) {
            data(i);
            dispose(i);
        }
        take();
    }
    EXPECT_FALSE(knows_any());
    EXPECT_EQ(cache->sample_count(), 0u);
}

TEST_F(ReaderCacheTest, SamplesOutOnLoanAreReleasedWithTheCache) {
    create();
    data(1);
    data(2);
    ReaderCache::Batch batch;
    ReaderCache::Selection one;
    one.max_samples = 1;
    cache->take(one, batch);
    cache.reset();
    EXPECT_EQ(pool.released[0], 1);
    EXPECT_EQ(pool.released[1], 1);
}

// Whatever happens, every sample is released exactly once, and what is delivered tells a consistent story of
// each instance: new first, no data after an end without being new again.
TEST_F(ReaderCacheTest, RandomHistoriesAreConsistentAndLeakNothing) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        pool.released.clear();
        next = 0;
        now = milliseconds(0);
        settings.history.depth = static_cast<DDS_Long>(1 + random() % 4);
        settings.deadline = random() % 2 == 0 ? rtps::kNever : milliseconds(5);
        create(random() % 2 == 0 ? 2500 : 100000);
        std::set<int> stored;
        uint64_t delivered = 0;
        uint64_t lost = 0;
        std::vector<ReaderCache::Batch> loans;
        for (int operation = 0; operation < 400; ++operation) {
            now += milliseconds(random() % 3);
            const auto instance = static_cast<uint8_t>(random() % 5);
            const auto from = static_cast<uint8_t>(random() % 3);
            switch (random() % 10) {
                case 0:
                    dispose(instance, from);
                    break;
                case 1:
                    unregister(instance, from);
                    break;
                case 2:
                    cache->writer_gone(writer(from), DDS_Time_t{next, 0}, now);
                    break;
                case 3: {
                    loans.emplace_back();
                    ReaderCache::Selection some;
                    some.max_samples = static_cast<DDS_Long>(random() % 6);
                    cache->take(some, loans.back());
                    for (void* sample : loans.back().samples)
                        delivered += sample != nullptr ? 1 : 0;
                    break;
                }
                case 4:
                    if (!loans.empty()) {
                        cache->return_batch(loans.back());
                        loans.pop_back();
                    }
                    break;
                case 5:
                    missed_by(now);
                    break;
                default: {
                    const int number = next;
                    const ReaderCache::Verdict verdict = data(instance, from);
                    if (verdict == ReaderCache::Verdict::stored)
                        stored.insert(number);
                    lost += verdict == ReaderCache::Verdict::lost ? 1 : 0;
                }
            }
        }
        ReaderCache::Batch rest;
        cache->take({}, rest);
        for (void* sample : rest.samples)
            delivered += sample != nullptr ? 1 : 0;
        cache->return_batch(rest);
        for (ReaderCache::Batch& loan : loans)
            cache->return_batch(loan);
        EXPECT_EQ(delivered + cache->overwritten(), stored.size() + lost);
        EXPECT_EQ(cache->sample_count(), 0u);
        cache.reset();
        EXPECT_EQ(share->held(), 0u);
        EXPECT_EQ(pool.released.size(), stored.size());
        for (const auto& [number, times] : pool.released)
            EXPECT_EQ(times, 1) << number;
    }
}

} // namespace
} // namespace meridian::dcps
