#include "discovery/discovery_store.h"

#include <iterator>
#include <utility>

#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace meridian::discovery {

namespace {

DDS_SampleInfo sample_info(const rtps::RemoteEndpoint& endpoint, rtps::WireTime when) {
    DDS_SampleInfo info;
    // Where the remote sent no time stamp, the time of reception stands in.
    info.source_timestamp = when == rtps::kTimeInvalid ? wall_time() : to_time(when);
    const rtps::EntityId announcer =
        endpoint.is_writer ? rtps::entity::publications_writer : rtps::entity::subscriptions_writer;
    info.publication_handle = to_handle({endpoint.guid.prefix, announcer});
    return info;
}

const char* text_of(rtps::GoneReason reason) {
    switch (reason) {
        case rtps::GoneReason::disposed:
            return "it left";
        case rtps::GoneReason::lease_expired:
            return "its lease expired";
        case rtps::GoneReason::ignored:
            return "it is ignored";
        case rtps::GoneReason::replaced:
            return "it was replaced";
        case rtps::GoneReason::forgotten:
            return "it was not heard again";
        case rtps::GoneReason::stopped:
            return "this participant stopped";
    }
    return "?";
}

} // namespace

DiscoveryStore::DiscoveryStore(PartitionList own_partitions) : own_partitions_(std::move(own_partitions)) {}

void DiscoveryStore::set_own_partitions(PartitionList own_partitions) {
    MutexLock lock(mutex_);
    own_partitions_ = std::move(own_partitions);
    for (auto& entry : participants_)
        match(entry.second, false);
}

rtps::ParticipantRef DiscoveryStore::find_participant(const rtps::GuidPrefix& prefix) const {
    MutexLock lock(mutex_);
    const auto found = participants_.find(prefix);
    if (found != participants_.end())
        return found->second.announced;
    const auto departed = departed_.find(prefix);
    return departed != departed_.end() ? departed->second.lock() : nullptr;
}

bool DiscoveryStore::admits(const rtps::GuidPrefix& prefix) const {
    MutexLock lock(mutex_);
    const auto found = participants_.find(prefix);
    return found == participants_.end() || found->second.matches;
}

void DiscoveryStore::participant_discovered(const rtps::ParticipantRef& participant) {
    MutexLock lock(mutex_);
    put_participant(participant);
    MERIDIAN_LOG_REMOTE("discovery", "discovered participant %s \"%s\"",
                        rtps::to_string(participant->guid.prefix).c_str(), participant->name.c_str());
}

void DiscoveryStore::participant_changed(const rtps::ParticipantRef& participant) {
    MutexLock lock(mutex_);
    put_participant(participant);
}

void DiscoveryStore::participant_gone(const rtps::ParticipantRef& participant, rtps::GoneReason reason) {
    const rtps::GuidPrefix& prefix = participant->guid.prefix;
    MutexLock lock(mutex_);
    const auto found = participants_.find(prefix);
    if (found == participants_.end())
        return;
    for (const rtps::RemoteEndpointRef& endpoint : found->second.endpoints)
        report_gone(found->second, *endpoint, rtps::kTimeInvalid);
    if (departed_.size() >= departed_limit_) {
        for (auto departed = departed_.begin(); departed != departed_.end();)
            departed = departed->second.expired() ? departed_.erase(departed) : std::next(departed);
        departed_limit_ = 2 * departed_.size() + 16;
    }
    departed_[prefix] = found->second.announced;
    participants_.erase(found);
    MERIDIAN_LOG_REMOTE("discovery", "participant %s is gone: %s", rtps::to_string(prefix).c_str(),
                        text_of(reason));
}

void DiscoveryStore::endpoint_discovered(const rtps::RemoteEndpointRef& endpoint) {
    MutexLock lock(mutex_);
    Participant& participant = participant_of(endpoint->guid.prefix);
    participant.endpoints.erase(endpoint); // an earlier record
    participant.endpoints.insert(endpoint);
    if (participant.matches)
        report(participant, endpoint, endpoint->timestamp);
}

void DiscoveryStore::endpoint_changed(const rtps::RemoteEndpointRef& endpoint) {
    endpoint_discovered(endpoint);
}

void DiscoveryStore::endpoint_gone(const rtps::RemoteEndpointRef& endpoint, rtps::GoneReason /*reason*/,
                                   rtps::WireTime source_timestamp) {
    MutexLock lock(mutex_);
    const auto participant = participants_.find(endpoint->guid.prefix);
    if (participant == participants_.end() || participant->second.endpoints.erase(endpoint) == 0)
        return;
    report_gone(participant->second, *endpoint, source_timestamp);
}

void DiscoveryStore::warning(const std::string& text) {
    MERIDIAN_LOG_WARNING("discovery", "%s", text.c_str());
}

void DiscoveryStore::error(const std::string& text) {
    MERIDIAN_LOG_ERROR("discovery", "%s", text.c_str());
}

void DiscoveryStore::tell_if_cut(const rtps::ParticipantData& participant) {
    const size_t announced = partitions_text(participant.properties).size();
    if (announced == join_partitions(participant_partitions(participant.properties)).size() ||
        std::exchange(cut_told_, true))
        return;
    error("participant " + rtps::to_string(participant.guid.prefix) + " announces partitions in " +
          std::to_string(announced) + " octets; of each participant the first " +
          std::to_string(kMostParticipantPartitions) + " names count, in " +
          std::to_string(kMostPartitionOctets) + " octets");
}

void DiscoveryStore::put_participant(const rtps::ParticipantRef& announced) {
    Participant& participant = participants_[announced->guid.prefix];
    const rtps::ParticipantRef before = std::exchange(participant.announced, announced);
    tell_if_cut(*announced);
    match(participant,
          before != nullptr && partitions_text(before->properties) != partitions_text(announced->properties));
}

/// The protocol tells of a participant before it tells of its endpoints; one that it did not tell of is known
/// by its key alone.
DiscoveryStore::Participant& DiscoveryStore::participant_of(const rtps::GuidPrefix& prefix) {
    const auto found = participants_.find(prefix);
    if (found != participants_.end())
        return found->second;
    rtps::ParticipantData unknown;
    unknown.guid = {prefix, rtps::entity::participant};
    put_participant(std::make_shared<const rtps::ParticipantData>(std::move(unknown)));
    return participants_[prefix];
}

void DiscoveryStore::match(Participant& participant, bool has_moved) {
    const bool matches =
        partitions_match(own_partitions_, participant_partitions(participant.announced->properties));
    if (matches == std::exchange(participant.matches, matches) && !(matches && has_moved))
        return;
    for (const rtps::RemoteEndpointRef& endpoint : participant.endpoints) {
        if (matches)
            report(participant, endpoint, rtps::kTimeInvalid);
        else
            report_gone(participant, *endpoint, rtps::kTimeInvalid);
    }
}

void DiscoveryStore::report(const Participant& participant, const rtps::RemoteEndpointRef& endpoint,
                            rtps::WireTime when) {
    cache_of(*endpoint).put(endpoint, participant.announced, sample_info(*endpoint, when));
}

void DiscoveryStore::report_gone(const Participant& participant, const rtps::RemoteEndpoint& endpoint,
                                 rtps::WireTime when) {
    cache_of(endpoint).remove(endpoint.guid, participant.announced, sample_info(endpoint, when));
}

} // namespace meridian::discovery
