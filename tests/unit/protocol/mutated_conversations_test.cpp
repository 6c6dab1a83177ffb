// Recorded conversations of several makers with some of each changed: no sample of a healthy application is
// lost by it, memory and traffic stay bounded, and nothing ends or hangs.

#include "protocol/attacked_domain.h"

#include <gtest/gtest.h>

namespace meridian::rtps::test {
namespace {

class RandomChoices final : public Choices {
  public:
    explicit RandomChoices(uint64_t seed) : random_(seed) {}
    uint64_t below(uint64_t end) override { return end == 0 ? 0 : random_.below(end); }
    bool exhausted() const override { return false; }

  private:
    Random random_;
};

const RecordedConversations& recorded() {
    static const RecordedConversations conversations(UNIT_TESTS_DIR);
    return conversations;
}

void attack(uint64_t first, uint64_t count, bool forges) {
    size_t attacks = 0;
    size_t failures = 0;
    for (const uint64_t seed : seeds(first, count)) {
        RandomChoices choices(seed);
        AttackedDomain domain(choices, recorded(), forges);
        domain.run();
        attacks += domain.attacks();
        if (!domain.failure().empty() && ++failures < 20)
            ADD_FAILURE() << "replay with FERRET_SIM_SEED=" << seed << ": " << domain.failure();
    }
    EXPECT_EQ(failures, 0u);
    EXPECT_GT(attacks, count);
}

TEST(MutatedConversations, AreAllThere) {
    ASSERT_EQ(recorded().all().size(), 7u);
    for (const Conversation& conversation : recorded().all())
        EXPECT_GE(conversation.size(), 3u);
}

TEST(MutatedConversations, OfStrangersDoNoHarm) {
    attack(1, 100, false);
}

TEST(MutatedConversations, InTheNameOfOthersDoNoHarmThatLasts) {
    attack(1001, 100, true);
}

} // namespace
} // namespace meridian::rtps::test
