// Recorded conversations of several makers, with some of each changed, beside healthy applications: the
// fuzzer chooses what is said and what is changed. What must hold stands in AttackedDomain::run.

#include <cstdio>
#include <cstdlib>

#include "input.h"
#include "protocol/attacked_domain.h"

namespace {

using namespace meridian::rtps::test;

class FuzzedChoices final : public Choices {
  public:
    explicit FuzzedChoices(fuzz::Input input) : input_(input) {}
    uint64_t below(uint64_t end) override {
        uint64_t number = input_.next();
        if (end > 256)
            number = number << 8 | input_.next();
        return end == 0 ? 0 : number % end;
    }
    bool exhausted() const override { return input_.size() == 0; }

  private:
    fuzz::Input input_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const RecordedConversations recorded(UNIT_TESTS_DIR);
    fuzz::Input input(data, size);
    const bool forges = input.next() % 2 != 0;
    FuzzedChoices choices(input);
    AttackedDomain domain(choices, recorded, forges);
    domain.run();
    if (!domain.failure().empty()) {
        std::fprintf(stderr, "%s\n", domain.failure().c_str());
        std::abort();
    }
    return 0;
}
