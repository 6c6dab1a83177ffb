#pragma once

#include <atomic>

#include "rtps/net/runtime.h"

namespace meridian::dcps {

/// The part that a local endpoint has in the protocol, from join to leave. join and leave are called once
/// each, in this order; the rest by any thread.
class EndpointMembership {
  public:
    EndpointMembership() = default;
    EndpointMembership(const EndpointMembership&) = delete;
    EndpointMembership& operator=(const EndpointMembership&) = delete;

    /// `add(participant, now)` adds the endpoint; false when it could not. The runtime must outlive leave.
    template <typename Add>
    bool join(rtps::net::Runtime& runtime, rtps::EntityId entity, Add add) {
        entity_ = entity;
        return runtime.with_participant([&](rtps::Participant& participant, rtps::Now now) {
            if (!add(participant, now))
                return false;
            runtime_.store(&runtime, std::memory_order_release);
            return true;
        });
    }
    /// No event comes any more when this returns. Without effect where nothing was joined.
    void leave() {
        rtps::net::Runtime* runtime = runtime_.exchange(nullptr);
        if (runtime == nullptr)
            return;
        runtime->with_participant([this](rtps::Participant& participant, rtps::Now now) {
            participant.remove_endpoint(entity_, now);
        });
    }
    /// Announces what `data()` says now.
    template <typename Data>
    void announce(Data data) {
        if (rtps::net::Runtime* joined = runtime())
            joined->with_participant([&data](rtps::Participant& participant, rtps::Now now) {
                participant.update_endpoint(data(), now);
            });
    }

    /// Null before join and after leave.
    rtps::net::Runtime* runtime() const { return runtime_.load(std::memory_order_acquire); }

  private:
    std::atomic<rtps::net::Runtime*> runtime_{nullptr};
    rtps::EntityId entity_;
};

} // namespace meridian::dcps
