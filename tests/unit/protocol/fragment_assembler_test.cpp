#include "rtps/protocol/fragment_assembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "protocol/simulated_network.h"

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
        const FragmentAssembler::Assembled whole = assembler.take(number);
        EXPECT_EQ(whole.sequence_number, number);
        EXPECT_EQ(whole.payload, expected);
        EXPECT_EQ(whole.timestamp, (WireTime{5, 6}));
        EXPECT_FALSE(assembler.has(number));
    }
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

    MonotonicTime now = seconds(1);
    AssemblyBudget budget{1000, 0};
    FragmentAssembler assembler{budget, 500};
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
    EXPECT_EQ(budget.used, 0u);
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
    FragmentAssembler large(budget, 1000);
    budget.limit = 100000;
    DataFrag fragment;
    const ByteBuffer payload(1);
    fragment.sequence_number = 1;
    fragment.fragment_size = 1;
    fragment.sample_size = 600;
    fragment.payload = payload;
    EXPECT_EQ(large.add(fragment, {}, now), Result::stored);
    FragmentNumberSet set;
    ASSERT_TRUE(large.missing(1, set));
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
    EXPECT_EQ(budget.used, 0u);
}

TEST_F(FragmentAssemblerTest, ALongerPayloadIsCutToTheFragment) {
    const ByteBuffer payload(64, 9);
    DataFrag fragment;
    fragment.sequence_number = 1;
    fragment.fragment_size = 10;
    fragment.sample_size = 10;
    fragment.payload = payload;
    EXPECT_EQ(assembler.add(fragment, {}, now), Result::complete);
    EXPECT_EQ(assembler.take(1).payload, ByteBuffer(10, 9));
}

TEST_F(FragmentAssemblerTest, ASampleOfAnotherSizeStartsOver) {
    EXPECT_EQ(add(1, 1, 1, 25), Result::stored);
    EXPECT_EQ(add(1, 2, 1, 30), Result::stored);
    EXPECT_EQ(missing(1), (std::vector<FragmentNumber>{1, 3}));
    EXPECT_EQ(budget.used, 30u);
}

TEST_F(FragmentAssemblerTest, SizeAndMemoryAreLimited) {
    EXPECT_EQ(add(1, 1, 1, 501), Result::too_large);
    EXPECT_EQ(add(1, 1, 1, 500), Result::stored);
    EXPECT_EQ(add(2, 1, 1, 500), Result::stored);
    EXPECT_EQ(add(3, 1, 1, 20), Result::no_memory);
    assembler.drop(1);
    EXPECT_EQ(budget.used, 500u);
    EXPECT_EQ(add(3, 1, 1, 20), Result::stored);
    EXPECT_TRUE(assembler.drop_highest_above(2));
    EXPECT_FALSE(assembler.drop_highest_above(2));
    EXPECT_FALSE(assembler.has(3));
    EXPECT_TRUE(assembler.drop_lowest());
    EXPECT_EQ(budget.used, 0u);
}

TEST_F(FragmentAssemblerTest, TheNumberOfUnfinishedSamplesIsLimited) {
    for (SequenceNumber n = 10; n < 10 + SequenceNumber{FragmentAssembler::kMaxSamples}; ++n)
        EXPECT_EQ(add(n, 1, 1, 12), Result::stored);
    EXPECT_EQ(add(1000, 1, 1, 12), Result::no_memory);
    EXPECT_EQ(add(9, 1, 1, 12), Result::stored); // closer to delivery: the furthest one gives way
    EXPECT_FALSE(assembler.has(73));
}

TEST_F(FragmentAssemblerTest, IdleSamplesAreDropped) {
    add(1, 1);
    now = seconds(5);
    add(2, 1);
    assembler.drop_idle(seconds(3));
    EXPECT_FALSE(assembler.has(1));
    EXPECT_TRUE(assembler.has(2));
    assembler.drop_below(3);
    EXPECT_TRUE(assembler.empty());
    EXPECT_EQ(budget.used, 0u);
}

TEST_F(FragmentAssemblerTest, RandomFragmentsNeverLeak) {
    Random random(5);
    for (int i = 0; i < 20000; ++i) {
        const auto number = static_cast<SequenceNumber>(1 + random.below(100));
        const Result result =
            add(number, static_cast<FragmentNumber>(1 + random.below(5)),
                static_cast<uint16_t>(1 + random.below(2)), static_cast<uint32_t>(1 + random.below(60)));
        if (result == Result::complete)
            assembler.take(number);
        ASSERT_LE(budget.used, budget.limit);
    }
    assembler.clear();
    EXPECT_EQ(budget.used, 0u);
}

} // namespace
} // namespace meridian::rtps::test
