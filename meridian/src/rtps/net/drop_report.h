#pragma once

// What was received and could not be used.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "rtps/net/address.h"
#include "rtps/wire/types.h"

namespace meridian::rtps::net {

/// Where what happens is told: errors are what the user must know, because something is not seen.
struct Messages {
    std::function<void(const std::string&)> warning;
    std::function<void(const std::string&)> error;
};

/// Counts what was dropped, by kind. The first of a kind from an address is told at once, for a few
/// addresses; the rest as one total for each kind. Not thread-safe.
class DropReport {
  public:
    enum class Kind : size_t {
        truncated, // datagrams larger than the receive buffer
        not_rtps,
        malformed,     // datagrams; submessages before the fault were taken
        secured,       // submessages
        receive_error, // a system call failed; what it cost is not known
        count
    };

    DropReport(size_t receive_buffer_size, Messages messages);

    /// Of truncated, not_rtps and malformed ones.
    void note(Kind kind, const Locator& source);
    void note_receive_error(int error_number);
    /// For what was told elsewhere.
    void add(Kind kind, uint64_t count) { counts_[index(kind)] += count; }
    uint64_t count(Kind kind) const { return counts_[index(kind)]; }

    /// One line for each kind that occurred since the last call.
    void tell_totals();

  private:
    static size_t index(Kind kind) { return static_cast<size_t>(kind); }
    std::string first_of(Kind kind, const Locator& source) const;

    const size_t receive_buffer_size_;
    const Messages messages_;
    std::array<uint64_t, static_cast<size_t>(Kind::count)> counts_{};
    std::array<uint64_t, static_cast<size_t>(Kind::count)> totals_told_{};
    /// Addresses without their ports.
    std::array<std::set<std::array<uint8_t, 16>>, static_cast<size_t>(Kind::count)> told_;
    std::set<int> errors_told_;
};

} // namespace meridian::rtps::net
