#include "quixspy/quixSpyEnding.h"

void QuixSpyEnding::begin() {
    began_ = Clock::now();
    phase_ = Phase::lines;
}

void QuixSpyEnding::begin_statistics() {
    phase_ = Phase::statistics;
}

bool QuixSpyEnding::drops_samples(bool is_behind) const {
    // The output stops waiting at the end of the run already, a little before the main thread comes here.
    if (phase_ == Phase::running)
        return is_behind && is_over_();
    return is_behind || Clock::now() - began_ > kLinesTime;
}

bool QuixSpyEnding::keeps_waiting() const {
    switch (phase_.load()) {
        case Phase::running:
            return !is_over_();
        case Phase::lines:
            return false;
        case Phase::statistics:
            break;
    }
    // From here on is_over_ tells of another interrupt.
    return !is_over_() && Clock::now() - began_ < kTextTime;
}
