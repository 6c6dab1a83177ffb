#pragma once

// What the statuses of readers and writers have in common.

#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "discovery/conversions.h"
#include "meridian/status.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

template <typename Status>
void reset_changes(Status& status) {
    status.total_count_change = 0;
}
inline void reset_changes(DDS_LivelinessChangedStatus& status) {
    status.alive_count_change = status.not_alive_count_change = 0;
}
inline void reset_changes(DDS_SubscriptionMatchedStatus& status) {
    status.total_count_change = status.current_count_change = 0;
}
inline void reset_changes(DDS_PublicationMatchedStatus& status) {
    status.total_count_change = status.current_count_change = 0;
}

inline DDS_InstanceHandle_t& last_remote(DDS_SubscriptionMatchedStatus& status) {
    return status.last_publication_handle;
}
inline DDS_InstanceHandle_t& last_remote(DDS_PublicationMatchedStatus& status) {
    return status.last_subscription_handle;
}

/// The communication statuses of one endpoint, one of each type, and the remote endpoints that match it. Not
/// thread-safe; the endpoint that owns it locks.
template <typename Matched, typename Incompatible, typename... Others>
class EndpointStatuses {
  public:
    /// Reads a status, which resets its changes.
    template <typename Status>
    Status take() {
        const Status copy = of<Status>();
        reset_changes(of<Status>());
        return copy;
    }

    // What happened. Each is true when it changed the status.
    bool matched(const rtps::Guid& remote) {
        if (!remotes_.emplace(remote, true).second)
            return false;
        of<Matched>().total_count += 1;
        of<Matched>().total_count_change += 1;
        count_current(remote, 1);
        return true;
    }
    bool unmatched(const rtps::Guid& remote) {
        if (remotes_.erase(remote) == 0)
            return false;
        count_current(remote, -1);
        return true;
    }
    /// One more remote endpoint that these policies keep away.
    void incompatible(const std::vector<uint32_t>& policies) {
        Incompatible& status = of<Incompatible>();
        ++status.total_count;
        ++status.total_count_change;
        for (const uint32_t policy : policies) {
            const auto id = static_cast<DDS_QosPolicyId_t>(policy);
            status.last_policy_id = id;
            DDS_Long at = 0;
            while (at < status.policies.length() && status.policies[at].policy_id != id)
                ++at;
            if (at < status.policies.length())
                ++status.policies[at].count;
            else
                status.policies.append(DDS_QosPolicyCount{id, 1});
        }
    }

    /// Those that match, and whether they are alive as far as that is known.
    const std::map<rtps::Guid, bool>& remotes() const { return remotes_; }

  protected:
    template <typename Status>
    Status& of() {
        return std::get<Status>(all_);
    }

    std::map<rtps::Guid, bool> remotes_;

  private:
    void count_current(const rtps::Guid& remote, DDS_Long change) {
        of<Matched>().current_count += change;
        of<Matched>().current_count_change += change;
        last_remote(of<Matched>()) = discovery::to_handle(remote);
    }

    std::tuple<Matched, Incompatible, Others...> all_;
};

} // namespace meridian::dcps
