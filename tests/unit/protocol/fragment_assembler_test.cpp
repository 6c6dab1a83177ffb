#include "rtps/protocol/fragment_assembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "protocol/simulated_network.h"
#include "support/allocation_counter.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::seconds;
using Result = FragmentAssembler::Result;

class FragmentAssemblerTest : public ::testing::Test {
  protected:
    /// Fragments first.. of a sample whose bytes count up from its number.
    Result add(SequenceNumber number, FragmentNumber first, uint16_t count = 1, uint32_t sample_size = 25,
               uint16_t fragment_size = 10) {
        ByteBuffer sample(sample_size);
        std::iota(sample.begin(), sample.end(), static_cast<uint8_t>(number));
        const size_t from = std::min<size_t>((first - 1) * size_t{fragment_size}, sample_size);
        const size_t end = std::min<size_t>(from + size_t{count} * fragment_size, sample_size);
        DataFrag fragment;
        fragment.sequence_number = number;
        fragment.first_fragment = first;
        fragment.fragment_count = count;
        fragment.fragment_size = fragment_size;
        fragment.sample_size = sample_size;
        fragment.payload = {sample.data() + from, end - from};
        return assembler.add(fragment, {5, 6}, now);
    }
    void expect_whole(SequenceNumber number, size_t size = 25) {
        ByteBuffer expected(size);
        std::iota(expected.begin(), expected.end(), static_cast<uint8_t>(number));
        ASSERT_TRUE(assembler.is_whole(number));
        const Sample& whole = assembler.whole(number);
        EXPECT_EQ(whole.sequence_number, number);
        EXPECT_EQ(ByteBuffer(whole.payload.begin(), whole.payload.end()), expected);
        EXPECT_EQ(whole.source_timestamp, (WireTime{5, 6}));
        assembler.drop(number);
        EXPECT_FALSE(assembler.has(number));
    }
    /// Bytes [at, at + count) of a sample, as one fragment of that size.
    Result add_bytes(SequenceNumber number, size_t at, size_t count, uint32_t sample_size,
                     FragmentAssembler* to = nullptr) {
        DataFrag fragment;
        fragment.sequence_number = number;
        fragment.first_fragment = static_cast<FragmentNumber>(at / count + 1);
        fragment.fragment_size = static_cast<uint16_t>(count);
        fragment.sample_size = sample_size;
        fragment.payload = {bytes.data(), count};
        return (to != nullptr ? *to : assembler).add(fragment, {5, 6}, now);
    }
    /// One spare, and nothing of what was given back.
    void expect_little_kept() const { EXPECT_LE(budget.used(), 1000u); }
    std::vector<FragmentNumber> missing(SequenceNumber number) {
        FragmentNumberSet set;
        std::vector<FragmentNumber> result;
        if (!assembler.missing(number, set))
            return result;
        for (FragmentNumber i = set.base; i < set.base + set.num_bits; ++i) {
            if (set.contains(i))
                result.push_back(i);
        }
        return result;
    }

    const ByteBuffer bytes = ByteBuffer(60000);
    MonotonicTime now = seconds(1);
    static constexpr size_t kMiB = size_t{1} << 20;
    MemoryBudget budget{256 * kMiB};
    MemoryShare share{budget};
    FragmentAssembler assembler{share, 64 * kMiB};
};

TEST_F(FragmentAssemblerTest, EveryOrderWithEveryDuplicate) {
    std::vector<FragmentNumber> order{1, 2, 3, 4};
    do {
        for (FragmentNumber repeated : order) {
            int complete = 0;
            for (FragmentNumber fragment : order) {
                const Result result = add(1, fragment, 1, 31);
                complete += result == Result::complete;
                if (fragment == repeated && result == Result::stored) {
                    EXPECT_EQ(add(1, fragment, 1, 31), Result::duplicate);
                }
            }
            ASSERT_EQ(complete, 1);
            expect_whole(1, 31);
        }
    } while (std::next_permutation(order.begin(), order.end()));
    expect_little_kept();
}

TEST_F(FragmentAssemblerTest, SeveralFragmentsInOneSubmessageAndOverlapping) {
    EXPECT_EQ(add(1, 2, 2), Result::stored);
    EXPECT_EQ(add(1, 1, 2), Result::complete);
    expect_whole(1);
    EXPECT_EQ(add(2, 1, 3), Result::complete);
    expect_whole(2);
}

TEST_F(FragmentAssemblerTest, SeveralSamplesAtOnce) {
    EXPECT_EQ(add(2, 1), Result::stored);
    EXPECT_EQ(add(1, 3), Result::stored);
    EXPECT_EQ(add(3, 2), Result::stored);
    EXPECT_EQ(add(2, 3), Result::stored);
    EXPECT_EQ(add(2, 2), Result::complete);
    expect_whole(2);
    EXPECT_EQ(missing(1), (std::vector<FragmentNumber>{1, 2}));
    EXPECT_EQ(missing(3), (std::vector<FragmentNumber>{1, 3}));
    EXPECT_EQ(missing(2), (std::vector<FragmentNumber>{}));
}

TEST_F(FragmentAssemblerTest, TheMissingSetBeginsAtTheFirstMissingAndIsBounded) {
    DataFrag fragment;
    const ByteBuffer payload(1);
    fragment.sequence_number = 1;
    fragment.fragment_size = 1;
    fragment.sample_size = 600;
    fragment.payload = payload;
    EXPECT_EQ(assembler.add(fragment, {}, now), Result::stored);
    FragmentNumberSet set;
    ASSERT_TRUE(assembler.missing(1, set));
    EXPECT_EQ(set.base, 2u);
    EXPECT_EQ(set.num_bits, 256u);
}

TEST_F(FragmentAssemblerTest, ContradictionsAreRefused) {
    EXPECT_EQ(add(1, 0), Result::malformed);
    EXPECT_EQ(add(1, 1, 0), Result::malformed);
    EXPECT_EQ(add(1, 4), Result::malformed);
    EXPECT_EQ(add(1, 3, 2), Result::malformed);
    EXPECT_EQ(add(1, 0xffffffff, 0xffff), Result::malformed);
    EXPECT_EQ(add(1, 1, 1, 0), Result::malformed);
    EXPECT_EQ(add(1, 1, 1, 25, 0), Result::malformed);
    DataFrag fragment;
    const ByteBuffer payload(9);
    fragment.sequence_number = 1;
    fragment.fragment_size = 10;
    fragment.sample_size = 25;
    fragment.payload = payload; // one byte short of the first fragment
    EXPECT_EQ(assembler.add(fragment, {}, now), Result::malformed);
    EXPECT_TRUE(assembler.empty());
    EXPECT_EQ(budget.used(), 0u);
}

TEST_F(FragmentAssemblerTest, ALongerPayloadIsCutToTheFragment) {
    const ByteBuffer payload(64, 9);
    DataFrag fragment;
    fragment.sequence_number = 1;
    fragment.fragment_size = 10;
    fragment.sample_size = 10;
    fragment.payload = payload;
    EXPECT_EQ(assembler.add(fragment, {}, now), Result::complete);
    const ByteView whole = assembler.whole(1).payload;
    EXPECT_EQ(ByteBuffer(whole.begin(), whole.end()), ByteBuffer(10, 9));
}

TEST_F(FragmentAssemblerTest, TheFirstSizeOfASampleStands) {
    EXPECT_EQ(add(1, 1, 1, 25), Result::stored);
    EXPECT_EQ(add(1, 2, 1, 30), Result::malformed);
    EXPECT_EQ(add(1, 2, 1, 25, 20), Result::malformed);
    EXPECT_EQ(missing(1), (std::vector<FragmentNumber>{2, 3}));
    EXPECT_EQ(add(1, 2, 2, 25), Result::complete);
    expect_whole(1);
}

TEST_F(FragmentAssemblerTest, MemoryComesWithTheFragments) {
    constexpr uint32_t kSize = 64 * kMiB;
    for (SequenceNumber n = 1; n <= 40; ++n)
        EXPECT_EQ(add_bytes(n, 0, 64, kSize), Result::stored);
    EXPECT_LE(share.held(), kMiB);
    EXPECT_EQ(add_bytes(41, kSize - 64, 64, kSize), Result::too_far) << "the last one, and nothing before it";
    EXPECT_LE(share.held(), kMiB);
    assembler.clear();
    constexpr size_t kStep = 60000;
    for (size_t at = 0; at < 10 * kMiB; at += kStep) {
        ASSERT_EQ(add_bytes(1, at, kStep, kSize), Result::stored);
        ASSERT_LE(share.held(), 5 * (at + kStep) + kMiB);
    }
}

TEST_F(FragmentAssemblerTest, OneByteFragmentsOfALargeSampleCostNoMoreThanOthers) {
    constexpr uint32_t kSize = 64 * kMiB;
    for (size_t at = 0; at < 1000; ++at)
        ASSERT_EQ(add_bytes(1, at, 1, kSize), Result::stored);
    EXPECT_LE(share.held(), kMiB / 4);
    FragmentNumberSet set;
    ASSERT_TRUE(assembler.missing(1, set));
    EXPECT_EQ(set.base, 1001u);
}

TEST_F(FragmentAssemblerTest, FragmentsInAnyOrderOfANetworkAreTaken) {
    constexpr uint32_t kSize = 20 * kMiB;
    constexpr size_t kStep = 60000;
    constexpr size_t kFragments = (kSize + kStep - 1) / kStep;
    for (size_t i = 0; i < kFragments; ++i) {
        const size_t swapped = i % 4 == 3 || i + 3 - i % 4 * 2 >= kFragments ? i : i / 4 * 4 + 2 - i % 4;
        const Result result = add_bytes(1, swapped * kStep, kStep, kSize);
        ASSERT_EQ(result, i + 1 == kFragments ? Result::complete : Result::stored) << i;
    }
}

TEST_F(FragmentAssemblerTest, SizeAndMemoryAreLimited) {
    MemoryBudget small(100000);
    MemoryShare part(small);
    FragmentAssembler limited(part, 40000);
    const auto add_to = [&](SequenceNumber number, uint32_t size) {
        return add_bytes(number, 0, std::min<size_t>(size / 2, 10000), size, &limited);
    };
    EXPECT_EQ(add_to(1, 40001), Result::too_large);
    EXPECT_EQ(add_to(1, 30000), Result::stored);
    EXPECT_EQ(add_to(2, 30000), Result::no_memory) << "half of the budget is for others";
    EXPECT_EQ(add_to(3, 1000), Result::stored);
    EXPECT_TRUE(limited.drop_highest_above(2));
    EXPECT_FALSE(limited.drop_highest_above(2));
    limited.drop(1);
    EXPECT_EQ(small.used(), 0u);
    EXPECT_EQ(add_to(2, 30000), Result::stored);
    EXPECT_TRUE(limited.drop_lowest());
    EXPECT_FALSE(limited.drop_lowest());
    EXPECT_EQ(small.used(), 0u);
}

TEST_F(FragmentAssemblerTest, ASpareIsSmallAndCharged) {
    const auto assemble = [this](uint32_t size) {
        for (size_t at = 0; at < size; at += 60000)
            add_bytes(1, at, 60000, size);
        ASSERT_TRUE(assembler.is_whole(1));
        assembler.drop(1);
    };
    assemble(500000);
    EXPECT_GE(budget.used(), 500000u);
    const uint64_t before = ::test::thread_allocations();
    assemble(500000);
    EXPECT_EQ(::test::thread_allocations(), before);
    assemble(3 * kMiB);
    EXPECT_LE(budget.used(), kMiB);
    MemoryShare other(budget);
    ASSERT_TRUE(other.take(128 * kMiB));
    assemble(500000);
    EXPECT_EQ(budget.used(), other.held()) << "no large one where memory is scarce";
    assemble(66000);
    while (other.take(kMiB) || other.take(1000)) {
    }
    MemoryShare rest(budget);
    while (rest.take(100)) {
    }
    assemble(66000);
}

TEST_F(FragmentAssemblerTest, TheNumberOfUnfinishedSamplesIsLimited) {
    for (SequenceNumber n = 10; n < 10 + SequenceNumber{FragmentAssembler::kMaxSamples}; ++n)
        EXPECT_EQ(add(n, 1, 1, 12), Result::stored);
    EXPECT_EQ(add(1000, 1, 1, 12), Result::too_many);
    EXPECT_EQ(add(9, 1, 1, 12), Result::stored); // closer to delivery: the furthest one gives way
    EXPECT_FALSE(assembler.has(73));
}

TEST_F(FragmentAssemblerTest, IdleSamplesAreDropped) {
    add(1, 1);
    now = seconds(5);
    add(2, 1);
    EXPECT_EQ(assembler.drop_idle(seconds(3)), 1u);
    EXPECT_FALSE(assembler.has(1));
    EXPECT_TRUE(assembler.has(2));
    EXPECT_EQ(assembler.drop_below(3), 1u);
    EXPECT_TRUE(assembler.empty());
    expect_little_kept();
}

TEST_F(FragmentAssemblerTest, RandomFragmentsNeverLeak) {
    Random random(5);
    for (int i = 0; i < 20000; ++i) {
        const auto number = static_cast<SequenceNumber>(1 + random.below(100));
        const Result result =
            add(number, static_cast<FragmentNumber>(1 + random.below(5)),
                static_cast<uint16_t>(1 + random.below(2)), static_cast<uint32_t>(1 + random.below(60)));
        if (result == Result::complete)
            assembler.drop(number);
    }
    assembler.clear();
    expect_little_kept();
}

} // namespace
} // namespace meridian::rtps::test
