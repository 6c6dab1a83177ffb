#pragma once

// Measures pieces of work against their floor. The machine is not ours alone, so absolute times of two runs
// do not compare: all pieces of one table are measured in turn, round by round, and what counts is the ratio
// of a piece to the first one, the floor.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ferret::bench {

class Comparison {
  public:
    /// `title` says what one operation is.
    explicit Comparison(std::string title) : title_(std::move(title)) {}

    /// `run` does `operations` operations; `prepare` is called before it and not measured. The first piece is
    /// the floor.
    void add(
        std::string name, uint64_t operations, std::function<void()> run,
        std::function<void()> prepare = [] {});

    /// Runs every piece once to warm up and then `rounds` times, and prints a table: the fastest and the
    /// median time of an operation, and the median ratio to the floor of the same round.
    void run(int rounds);

  private:
    struct Piece {
        std::string name;
        uint64_t operations;
        std::function<void()> run;
        std::function<void()> prepare;
        std::vector<double> nanoseconds; // of one operation, per round
    };

    std::string title_;
    std::vector<Piece> pieces_;
};

/// Makes the compiler believe that the bytes behind the pointer are looked at.
inline void keep(const void* pointer) {
    asm volatile("" : : "g"(pointer) : "memory");
}

/// The first argument as a number of rounds; 15 without one. Small numbers serve for a look under a profiler.
int rounds_of(int argc, char** argv);

} // namespace ferret::bench
