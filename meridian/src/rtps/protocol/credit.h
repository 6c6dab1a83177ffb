#pragma once

// How much may be sent to the addresses that a participant announces. Any participant can announce the
// address of another host: until something came that only those can know who read what was sent there, it
// gets little.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>

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
        // The last of it is for what gets an answer, heartbeats above all.
        if (bytes + (bytes > kSmall ? kReserve : 0) > left_)
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
    static constexpr size_t kSmall = 128;
    static constexpr size_t kReserve = 128;
    static constexpr size_t kMostAddresses = 4;
    static constexpr int kMostDoubts = 1000;
    size_t left_ = 0;
    int doubts_ = 0;
    LocatorList confirmed_;
};

/// Participants that share their sockets hear the same datagrams: what they send together is bounded as if
/// they were one. Not thread-safe.
class CreditLedger {
  public:
    /// is_new: no participant has sent there on this credit.
    std::shared_ptr<Credit> of(const GuidPrefix& prefix, bool& is_new) {
        if (credits_.size() >= sweep_at_)
            sweep();
        std::weak_ptr<Credit>& known = credits_[prefix];
        std::shared_ptr<Credit> credit = known.lock();
        is_new = credit == nullptr;
        if (is_new)
            known = credit = std::make_shared<Credit>();
        return credit;
    }

  private:
    static constexpr size_t kFew = 64;
    void sweep() {
        for (auto at = credits_.begin(); at != credits_.end();)
            at = at->second.expired() ? credits_.erase(at) : std::next(at);
        sweep_at_ = 2 * credits_.size() + kFew;
    }

    std::map<GuidPrefix, std::weak_ptr<Credit>> credits_;
    size_t sweep_at_ = kFew;
};

} // namespace meridian::rtps
