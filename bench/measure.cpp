#include "measure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace ferret::bench {

namespace {

/// Of the calling thread: what else runs on the machine does not count.
double processor_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

void Comparison::add(std::string name, uint64_t operations, std::function<void()> run,
                     std::function<void()> prepare) {
    pieces_.push_back({std::move(name), operations, std::move(run), std::move(prepare), {}});
}

void Comparison::run(int rounds) {
    for (int round = -1; round < rounds; ++round) {
        for (Piece& piece : pieces_) {
            piece.prepare();
            const double start = processor_nanoseconds();
            piece.run();
            const double taken = processor_nanoseconds() - start;
            if (round >= 0)
                piece.nanoseconds.push_back(taken / static_cast<double>(piece.operations));
        }
    }
    std::printf("%s\n%-52s %10s %10s %8s\n", title_.c_str(), "", "best ns", "median ns", "ratio");
    const std::vector<double>& floor = pieces_.front().nanoseconds;
    for (const Piece& piece : pieces_) {
        std::vector<double> ratios;
        for (size_t i = 0; i < floor.size(); ++i)
            ratios.push_back(piece.nanoseconds[i] / floor[i]);
        std::printf("  %-50s %10.1f %10.1f %8.2f\n", piece.name.c_str(),
                    *std::min_element(piece.nanoseconds.begin(), piece.nanoseconds.end()),
                    median(piece.nanoseconds), median(ratios));
    }
    std::printf("\n");
    std::fflush(stdout);
}

int rounds_of(int argc, char** argv) {
    return argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
}

} // namespace ferret::bench
