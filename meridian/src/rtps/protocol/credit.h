#pragma once

// How much may be sent to the addresses that a participant announces. Anybody can announce the address of
// somebody else: until something came that only those can know who read what was sent there, it gets little.

#include <algorithm>
#include <cstddef>

#include "rtps/wire/types.h"

namespace meridian::rtps {

class Credit {
  public:
    /// So many bytes came in the participant's name.
    void earn(size_t bytes) { left_ = std::min(left_ + kFactor * bytes, kMost); }
    /// False: these bytes must not be sent there. Nothing more is, until more comes.
    bool spend(size_t bytes, const Locator& to) {
        if (is_confirmed(to))
            return true;
        if (bytes > left_)
            return false;
        left_ -= bytes;
        return true;
    }
    /// Who has this address, whatever the port, reads what is sent there, and answers in the participant's
    /// name.
    void confirm(const Locator& address) {
        if (is_confirmed(address))
            return;
        if (doubts_ > 0) {
            --doubts_;
            return;
        }
        if (confirmed_.size() == kMostAddresses)
            confirmed_.erase(confirmed_.begin());
        confirmed_.push_back(address);
    }
    /// An answer was wrong, and one more right one is needed: who guesses for long enough is right in the
    /// end.
    void doubt() { doubts_ = std::min(doubts_ + 1, kMostDoubts); }
    bool is_confirmed(const Locator& address) const {
        return std::any_of(confirmed_.begin(), confirmed_.end(), [&address](const Locator& one) {
            return one.kind == address.kind && one.address == address.address;
        });
    }

  private:
    static constexpr size_t kFactor = 3;
    static constexpr size_t kMost =
        65536; // else who sends much and then names another address could do much harm
    static constexpr size_t kMostAddresses = 4;
    static constexpr int kMostDoubts = 100;
    size_t left_ = 0;
    int doubts_ = 0;
    LocatorList confirmed_;
};

} // namespace meridian::rtps
