#include "rtps/net/own_participants.h"

#include <sys/random.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <set>
#include <string>

#include "platform/mutex.h"

namespace meridian::rtps::net {

namespace {

uint32_t random_word() {
    uint32_t word = 0;
    if (getrandom(&word, sizeof word, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof word))
        return word;
    return static_cast<uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
}

/// The same for all processes of one host, and most likely another on another host.
uint16_t host_hash() {
    std::string identity;
    std::ifstream("/etc/machine-id") >> identity;
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) == 0)
        identity += name;
    uint32_t hash = 2166136261u; // FNV-1a
    for (const char c : identity)
        hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
    return static_cast<uint16_t>((hash >> 16) ^ (hash & 0xffff));
}

void put_word(GuidPrefix& prefix, size_t index, uint32_t word) {
    for (size_t i = 0; i < 4; ++i)
        prefix.bytes[index * 4 + i] = static_cast<uint8_t>(word >> (24 - 8 * i));
}

} // namespace

struct OwnParticipants::State {
    mutable Mutex mutex;
    std::set<GuidPrefix> prefixes MERIDIAN_GUARDED_BY(mutex);
    uint32_t next_instance MERIDIAN_GUARDED_BY(mutex) = random_word();
};

OwnParticipants::OwnParticipants() : state_(std::make_unique<State>()) {}
OwnParticipants::~OwnParticipants() = default;

GuidPrefix OwnParticipants::choose(uint32_t host_id, uint32_t app_id, uint32_t instance_id) {
    if (host_id == 0)
        host_id = uint32_t{kOwnVendorId.bytes[0]} << 24 | uint32_t{kOwnVendorId.bytes[1]} << 16 | host_hash();
    if (app_id == 0)
        app_id = static_cast<uint32_t>(getpid());

    const MutexLock lock(state_->mutex);
    GuidPrefix prefix;
    put_word(prefix, 0, host_id);
    put_word(prefix, 1, app_id);
    put_word(prefix, 2, instance_id);
    while (instance_id == 0) {
        const uint32_t candidate = state_->next_instance++;
        put_word(prefix, 2, candidate);
        if (candidate != 0 && state_->prefixes.count(prefix) == 0)
            break;
    }
    state_->prefixes.insert(prefix);
    return prefix;
}

bool OwnParticipants::contains(const GuidPrefix& prefix) const {
    const MutexLock lock(state_->mutex);
    return state_->prefixes.count(prefix) != 0;
}

} // namespace meridian::rtps::net
