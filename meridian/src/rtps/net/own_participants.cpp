#include "rtps/net/own_participants.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "rtps/net/receive_thread.h"

namespace meridian::rtps::net {

namespace {

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
    const auto octets = octets_of(word);
    std::copy(octets.begin(), octets.end(), prefix.bytes.begin() + 4 * index);
}

} // namespace

uint32_t random_word() {
    uint32_t word = 0;
    if (getrandom(&word, sizeof word, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof word))
        return word;
    return static_cast<uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
}

OwnParticipants::OwnParticipants() : next_instance_(random_word()) {}

GuidPrefix OwnParticipants::choose(uint32_t host_id, uint32_t app_id, uint32_t instance_id) {
    if (host_id == 0)
        host_id = uint32_t{kOwnVendorId.bytes[0]} << 24 | uint32_t{kOwnVendorId.bytes[1]} << 16 | host_hash();
    if (app_id == 0)
        app_id = static_cast<uint32_t>(getpid());

    const MutexLock lock(mutex_);
    GuidPrefix prefix;
    put_word(prefix, 0, host_id);
    put_word(prefix, 1, app_id);
    put_word(prefix, 2, instance_id);
    while (instance_id == 0) {
        const uint32_t candidate = next_instance_++;
        put_word(prefix, 2, candidate);
        if (candidate != 0 && prefixes_.count(prefix) == 0)
            break;
    }
    prefixes_.insert(prefix);
    return prefix;
}

GuidPrefix OwnParticipants::another(const GuidPrefix& prefix) {
    return choose(word_of(prefix, 0), word_of(prefix, 1), 0);
}

bool OwnParticipants::contains(const GuidPrefix& prefix) const {
    const MutexLock lock(mutex_);
    return prefixes_.count(prefix) != 0;
}

EntityId OwnParticipants::new_entity(EntityKind kind) {
    const MutexLock lock(mutex_);
    return EntityId{++entities_made_ << 8 | kind};
}

std::shared_ptr<ReceiveThread> OwnParticipants::receive_thread(const TransportConfig& config,
                                                               std::string& error) {
    const MutexLock lock(threads_mutex_);
    threads_.erase(std::remove_if(threads_.begin(), threads_.end(),
                                  [](const auto& entry) { return entry.second.expired(); }),
                   threads_.end());
    for (const auto& [known, existing] : threads_) {
        if (known == config) {
            if (auto thread = existing.lock())
                return thread;
        }
    }
    std::shared_ptr<ReceiveThread> opened = ReceiveThread::open(config, *this, error);
    if (opened)
        threads_.emplace_back(config, opened);
    return opened;
}

} // namespace meridian::rtps::net
