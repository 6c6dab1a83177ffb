#pragma once

// The participants of this process, by GUID prefix.

#include <cstdint>
#include <memory>

#include "rtps/wire/types.h"

namespace meridian::rtps::net {

/// Chooses GUID prefixes and remembers them. One object serves all participants of a process; its owner
/// shares it with each of them. Any thread.
class OwnParticipants {
  public:
    OwnParticipants();
    ~OwnParticipants();
    OwnParticipants(const OwnParticipants&) = delete;
    OwnParticipants& operator=(const OwnParticipants&) = delete;

    /// A prefix that no participant here has or had, and remembers it as own. Its three words are the given
    /// ones; for 0 the first holds the vendor id and a hash of the host, the second the process id, the third
    /// what makes the participant unique. Where the given words repeat an own prefix, it is returned again:
    /// the caller asked for it.
    GuidPrefix choose(uint32_t host_id, uint32_t app_id, uint32_t instance_id);

    /// Prefixes stay own after their participant has gone: its last messages may still be under way.
    bool contains(const GuidPrefix& prefix) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace meridian::rtps::net
