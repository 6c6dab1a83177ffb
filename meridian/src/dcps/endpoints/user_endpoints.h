#pragma once

// Carries what the protocol says of local endpoints to them.

#include <unordered_map>
#include <vector>

#include "rtps/protocol/interfaces.h"

namespace meridian::dcps {

/// A reader or writer of the user's, as the events of the protocol reach it: under the lock of the runtime,
/// so it must not call back there.
class EndpointEvents {
  public:
    virtual ~EndpointEvents() = default;
    virtual void matched(const rtps::EndpointData& remote) = 0;
    virtual void unmatched(const rtps::Guid& remote) = 0;
    virtual void incompatible(const rtps::EndpointData& remote, const std::vector<uint32_t>& policies) = 0;
    virtual void liveliness_changed(const rtps::Guid& remote, bool alive) = 0;
    /// Whether the endpoint can be matched with a remote one whose names and QoS fit.
    virtual rtps::TypeMatch type_fits(const rtps::EndpointData& remote) = 0;
};

/// All events of one participant: passes everything on to `next`, and what concerns an endpoint to the
/// endpoint as well. add and remove are called under the lock of the runtime too, so nothing here needs a
/// lock of its own.
class EventRouter final : public rtps::Events {
  public:
    explicit EventRouter(rtps::Events& next) : next_(next) {}

    void add(rtps::EntityId local, EndpointEvents& endpoint) { endpoints_[local.value] = &endpoint; }
    void remove(rtps::EntityId local) { endpoints_.erase(local.value); }

    bool admits(const rtps::GuidPrefix& prefix) const override { return next_.admits(prefix); }
    void participant_discovered(const rtps::ParticipantData& data) override {
        next_.participant_discovered(data);
    }
    void participant_changed(const rtps::ParticipantData& data) override { next_.participant_changed(data); }
    void participant_gone(const rtps::ParticipantData& data, rtps::GoneReason reason) override {
        next_.participant_gone(data, reason);
    }
    void endpoint_discovered(const rtps::EndpointData& data, rtps::WireTime when) override {
        next_.endpoint_discovered(data, when);
    }
    void endpoint_changed(const rtps::EndpointData& data, rtps::WireTime when) override {
        next_.endpoint_changed(data, when);
    }
    void endpoint_gone(const rtps::EndpointData& data, rtps::GoneReason reason,
                       rtps::WireTime when) override {
        next_.endpoint_gone(data, reason, when);
    }
    void matched(const rtps::Guid& local, const rtps::EndpointData& remote) override {
        if (EndpointEvents* endpoint = find(local))
            endpoint->matched(remote);
    }
    void unmatched(const rtps::Guid& local, const rtps::Guid& remote) override {
        if (EndpointEvents* endpoint = find(local))
            endpoint->unmatched(remote);
    }
    void incompatible(const rtps::Guid& local, const rtps::EndpointData& remote,
                      const std::vector<uint32_t>& policies) override {
        if (EndpointEvents* endpoint = find(local))
            endpoint->incompatible(remote, policies);
    }
    rtps::TypeMatch types_fit(const rtps::Guid& local, const rtps::EndpointData& remote) override {
        EndpointEvents* endpoint = find(local);
        return endpoint == nullptr ? rtps::TypeMatch::fits : endpoint->type_fits(remote);
    }
    void liveliness_changed(const rtps::Guid& writer, bool alive) override {
        for (const auto& [entity, endpoint] : endpoints_)
            endpoint->liveliness_changed(writer, alive);
    }
    void warning(const std::string& text) override { next_.warning(text); }

  private:
    EndpointEvents* find(const rtps::Guid& local) const {
        const auto found = endpoints_.find(local.entity.value);
        return found == endpoints_.end() ? nullptr : found->second;
    }

    rtps::Events& next_;
    std::unordered_map<uint32_t, EndpointEvents*> endpoints_;
};

} // namespace meridian::dcps
