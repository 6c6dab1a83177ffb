#pragma once

// What the participants of this process know of each other and share.

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "rtps/net/transport_config.h"
#include "rtps/wire/types.h"

namespace meridian::rtps::net {

class ReceiveThread;

/// It cannot be guessed, if the system has such numbers already.
uint32_t random_word();

/// One object serves all participants of a process; its owner shares it with each of them. Any thread.
class OwnParticipants {
  public:
    OwnParticipants();
    OwnParticipants(const OwnParticipants&) = delete;
    OwnParticipants& operator=(const OwnParticipants&) = delete;

    /// A prefix that no participant here has or had, and remembers it as own. Its three words are the given
    /// ones; for 0 the first holds the vendor id and a hash of the host, the second the process id, the third
    /// what makes the participant unique. Where the given words repeat an own prefix, it is returned again:
    /// the caller asked for it.
    GuidPrefix choose(uint32_t host_id, uint32_t app_id, uint32_t instance_id);
    /// A prefix for the same participant when others are to take it for a new one: the third word is another.
    GuidPrefix another(const GuidPrefix& prefix);
    /// Prefixes stay own after their participant has gone: its last messages may still be under way.
    bool contains(const GuidPrefix& prefix) const;

    /// The id of a new endpoint. No two endpoints of a process have the same: so a message that names its
    /// reader and no participant finds the one it is for, among all that share a socket.
    EntityId new_entity(EntityKind kind);

    /// The sockets and the thread of all participants here with this configuration; opened with the first of
    /// them, closed with the last. nullptr with a text in error: see ReceiveThread::open.
    std::shared_ptr<ReceiveThread> receive_thread(const TransportConfig& config, std::string& error);

  private:
    mutable Mutex mutex_;
    std::set<GuidPrefix> prefixes_ MERIDIAN_GUARDED_BY(mutex_);
    uint32_t next_instance_ MERIDIAN_GUARDED_BY(mutex_);
    uint32_t entities_made_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    /// Apart from mutex_, which the threads themselves need while one more is opened.
    Mutex threads_mutex_;
    std::vector<std::pair<TransportConfig, std::weak_ptr<ReceiveThread>>> threads_
        MERIDIAN_GUARDED_BY(threads_mutex_);
};

} // namespace meridian::rtps::net
