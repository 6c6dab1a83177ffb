#pragma once

// How many topics are read: others choose their number and their names, and each takes memory here, and a
// reader that every application of the domain is told of.

#include <array>
#include <cstddef>
#include <map>

#include "quixspy/quixSpyEndpointInfo.h"

/// Of the main thread.
class QuixSpyTopicRoom {
  public:
    /// A topic takes some 8 KiB, and with long names eight times their octets.
    static constexpr size_t kMost = 32768;
    /// From so many on, topics that have no writer any more make room.
    static constexpr size_t kMany = 20480;
    /// Those that a topic takes.
    static size_t places(const char* topicName, const char* typeName);

    /// False, with nothing taken, where the participant of this endpoint would have more than are left for
    /// all others afterwards.
    bool take(const RtpsGuid& endpoint, size_t places);
    bool is_crowded() const { return taken_ >= kMany; }
    /// What was taken for the same participant.
    void give_back(const RtpsGuid& endpoint, size_t places);

  private:
    using Prefix = std::array<DDS_UnsignedLong, 3>;
    static Prefix prefix_of(const RtpsGuid& guid) { return {guid.hostId, guid.appId, guid.instanceId}; }

    size_t taken_ = 0;
    std::map<Prefix, size_t> takenBy_;
};
