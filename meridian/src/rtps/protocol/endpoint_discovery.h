#pragma once

// Endpoint discovery (DDSI-RTPS 2.5, 8.5.4): the table of the endpoints of other participants, filled by the
// builtin readers for publications and subscriptions, and the announcements of the own endpoints.
//
// Endpoint data that comes before its participant is known is never lost: the builtin readers take data of
// known participants only, and ask for all of it when one becomes known. What a known participant announces
// on behalf of an unknown one waits here, unseen, for as long as its announcer is there.

#include <string>
#include <unordered_map>
#include <vector>

#include "rtps/protocol/interfaces.h"
#include "rtps/protocol/reliable_writer.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

struct RemoteEndpoint {
    EndpointData data;
    ByteBuffer announcement; // as it came
    GuidPrefix announcer;    // the participant whose builtin writer told it
    WireTime timestamp = kTimeInvalid;
    bool visible = false; // its participant is known
};

class EndpointDiscovery {
  public:
    /// Called during the calls below; must not call back, except for find and endpoints.
    class Listener {
      public:
        virtual ~Listener() = default;
        virtual bool participant_known(const GuidPrefix& prefix) const = 0;
        virtual bool participant_excluded(const GuidPrefix& prefix) const = 0; // own or ignored
        virtual void on_endpoint_discovered(const RemoteEndpoint& endpoint) = 0;
        virtual void on_endpoint_changed(const RemoteEndpoint& endpoint) = 0;
        virtual void on_endpoint_gone(const RemoteEndpoint& endpoint, GoneReason reason,
                                      WireTime timestamp) = 0;
    };

    /// The references must outlive the object.
    EndpointDiscovery(size_t max_endpoints, WarnOnce& warnings, Listener& listener);

    /// Samples of the builtin readers; writers: of the one for publications.
    void on_sample(const Sample& sample, bool writers);

    void participant_discovered(const GuidPrefix& prefix);
    /// Removes its endpoints, and those it announced for others.
    void participant_gone(const GuidPrefix& prefix, GoneReason reason);
    void clear() { endpoints_.clear(); }

    const RemoteEndpoint* find(const Guid& guid) const;
    /// Sorted by GUID; visible ones only.
    std::vector<Guid> endpoints() const;
    template <typename Function>
    void for_each_visible(Function function) const {
        for (const auto& entry : endpoints_) {
            if (entry.second.visible)
                function(entry.second);
        }
    }

    /// The sample that announces a local endpoint through a builtin writer, and the one that disposes it.
    static void announce(ReliableWriter& builtin_writer, const EndpointData& data, Now now);
    static void dispose(ReliableWriter& builtin_writer, const Guid& guid, Now now);

  private:
    void on_dispose(const Sample& sample);
    void remove(const Guid& guid, GoneReason reason, WireTime timestamp);

    size_t max_endpoints_;
    WarnOnce& warnings_;
    Listener& listener_;
    std::unordered_map<Guid, RemoteEndpoint> endpoints_;
};

} // namespace meridian::rtps
