#include "rtps/protocol/participant_discovery.h"

#include <algorithm>

#include "rtps/protocol/locator_choice.h"
#include "rtps/protocol/participant_lives.h"
#include "rtps/protocol/reader.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

constexpr Duration kShortestLease = std::chrono::milliseconds(100);
constexpr size_t kFewParticipants = 32;
// Participants that were not heard again yet and get periodic announcements of their own, at most.
constexpr size_t kFewStrangers = 32;
// What is heard of a participant so long after it was discovered is more than its first packets.
constexpr Duration kFirstPackets = std::chrono::milliseconds(500);
constexpr Duration kListPause = std::chrono::seconds(1);
constexpr size_t kMaxOtherSources = 4;
constexpr int kRefusals = 2;
// What is kept of a participant: its places in tables, and of its announcement per byte at most.
constexpr size_t kPlaces = 2048;
constexpr size_t kKeptPerByte = 6;
constexpr size_t kDataHeaderSize = 24; // of the submessage, without inline QoS

constexpr const char* kNoMemory =
    "the announcements of participants take too much memory: those that were not heard again are forgotten";

// So long a discovery server that has come back has to name those that it knew.
constexpr Duration kRelayPatience = std::chrono::seconds(20);

bool contains(const LocatorList& list, const Locator& locator) {
    return std::find(list.begin(), list.end(), locator) != list.end();
}

bool is_farewell(const Sample& sample) {
    return (sample.inline_qos.status_info & (kDisposed | kUnregistered)) != 0;
}

/// What is said in the name of a participant from an address that it was not heard from.
struct Doubt {
    Locator source;
    ParticipantRef data; // null: a farewell
    ByteBuffer payload;
    SequenceNumber number = 0;
    int asked = 0;
    int refusals = 0;
    bool answered = false; // the address it has spoke since it was asked first
    MonotonicTime ask_at{0};
    MemoryShare memory{MemoryBudget::of_process()};
};

} // namespace

/// What a participant announced, as it came.
struct ParticipantDiscovery::Announcement {
    ParticipantRef data; // null: a farewell
    ByteView payload;
    SequenceNumber number = 0;
    Locator source;
};

struct ParticipantDiscovery::Remote final : RemoteParticipant, TimerQueue::Client {
    explicit Remote(ParticipantDiscovery& owner) : discovery(owner), timer(owner.timers_, *this) {}
    void on_timer(MonotonicTime) override { discovery.on_timer_of(*this); }
    const GuidPrefix& prefix() const { return data->guid.prefix; }

    ParticipantDiscovery& discovery;
    TimerQueue::Timer timer;
    Duration lease{0};
    MonotonicTime expires = kNever;
    MonotonicTime discovered_at{0};
    bool is_stranger = true;
    RemoteList::iterator place; // in the list of its kind
    MonotonicTime placed_at{0};
    bool is_steady = false;    // it announced itself from that address more than once
    LocatorList other_sources; // it was heard from there too, while nothing was in doubt
    std::unique_ptr<Doubt> doubt;
    MemoryShare memory{MemoryBudget::of_process()};

    /// False where there is no memory for it; nothing changes then.
    bool set(const Announcement& announced, MonotonicTime now) {
        const size_t needed = kPlaces + kKeptPerByte * announced.payload.size;
        if (!memory.take(needed))
            return false;
        memory.give_back(memory.held() - needed);
        data = announced.data;
        announcement.assign(announced.payload.begin(), announced.payload.end());
        // The server watches over those that it tells of.
        lease = is_relayed ? kNever : std::max(to_duration(data->lease), kShortestLease);
        renew(now);
        return true;
    }
    bool announced(ByteView payload) const {
        return announcement.size() == payload.size &&
               std::equal(announcement.begin(), announcement.end(), payload.begin());
    }
    void renew(MonotonicTime now) {
        expires = later(now, lease);
        timer.wake_at(expires); // it is not put off: on_timer looks again
    }
};

std::optional<Guid> subject_of(const Sample& disposal) {
    if (disposal.inline_qos.key_hash)
        return guid_of(*disposal.inline_qos.key_hash);
    return decode_key(disposal.payload, {}, native_endianness());
}

ParticipantDiscovery::~ParticipantDiscovery() = default;

ParticipantDiscovery::ParticipantDiscovery(const ParticipantConfig& config, Output& output,
                                           MessageBatcher& batcher, WarnOnce& warnings, Listener& listener)
    : config_(config),
      output_(output),
      warnings_(warnings),
      listener_(listener),
      announcer_(config, output, batcher, warnings),
      multicasting_(std::any_of(config.initial_peers.begin(), config.initial_peers.end(), is_multicast)) {}

// -- This participant

void ParticipantDiscovery::start(Now now) {
    announcer_.start(now);
    on_timer(now);
}

void ParticipantDiscovery::stop(Now now) {
    announcer_.stop();
    for (const GuidPrefix& prefix : prefixes())
        remove(prefix, GoneReason::stopped, now);
}

void ParticipantDiscovery::say_farewell(Now now) {
    std::vector<const Route*> others;
    for (const auto& entry : remotes_) {
        if (!entry.second->is_server)
            others.push_back(&entry.second->metatraffic);
    }
    announcer_.say_farewell(others, now);
}

void ParticipantDiscovery::set_announced(const ParticipantData& data, Now now) {
    announcer_.set_announced(data);
    announce(now);
}

void ParticipantDiscovery::set_locators(const OwnLocators& locators, Now now) {
    choose_all_routes(now);
    announcer_.set_locators(locators);
    announce(now);
}

void ParticipantDiscovery::join_again(const OwnLocators& locators, Now now) {
    choose_all_routes(now);
    announcer_.join_again(locators);
    announce(now);
}

bool ParticipantDiscovery::needs_announcements(const RemoteParticipant& remote) const {
    return !remote.is_server && !remote.is_relayed &&
           (remotes_.size() <= kFewParticipants || !multicasting_ ||
            remote.data->metatraffic_multicast.empty());
}

void ParticipantDiscovery::announce(Now now) {
    if (!announcer_.running())
        return;
    announcer_.announce(now);
    const auto tell = [&](const Remote& remote) {
        if (needs_announcements(remote))
            announcer_.repeat(remote.metatraffic, now);
    };
    for (const Remote* remote : acquaintances_)
        tell(*remote);
    size_t strangers = 0;
    for (auto at = strangers_.rbegin(); at != strangers_.rend() && ++strangers <= kFewStrangers; ++at)
        tell(**at);
}

// -- The others

void ParticipantDiscovery::choose_all_routes(Now now) {
    for (auto& entry : remotes_) {
        if (choose_routes(*entry.second))
            listener_.on_participant_changed(*entry.second, false, now);
    }
}

void ParticipantDiscovery::tell_if_unreachable(const RemoteParticipant& remote) {
    if (!remote.metatraffic.locators.empty())
        return;
    const std::string name = remote.data->name.empty() ? "" : " \"" + remote.data->name + "\"";
    const char* reason = announces_udp(remote.data->metatraffic_unicast)
                             ? "no interface in use leads to the addresses that it announces"
                             : "it announces no UDP address, perhaps shared memory or TCP only";
    warnings_.error_of_others("not reachable " + to_string(remote.data->guid.prefix),
                              "participant " + to_string(remote.data->guid.prefix) + name +
                                  " is seen but not reachable: " + reason +
                                  "; its endpoints are not discovered");
}

bool ParticipantDiscovery::choose_routes(RemoteParticipant& remote) const {
    const auto choose = [&](const LocatorList& announced, Route& route) {
        LocatorList chosen = choose_locators(announced, remote.announced_from, output_, route.locators);
        const bool changed = chosen != route.locators;
        route.prefix = remote.data->guid.prefix;
        route.credit = remote.credit;
        route.locators = std::move(chosen);
        return changed;
    };
    const bool metatraffic = choose(remote.data->metatraffic_unicast, remote.metatraffic);
    return choose(remote.data->default_unicast, remote.user) || metatraffic;
}

RemoteParticipant* ParticipantDiscovery::find(const GuidPrefix& prefix) const {
    return find_remote(prefix);
}

ParticipantDiscovery::Remote* ParticipantDiscovery::find_remote(const GuidPrefix& prefix) const {
    const auto at = remotes_.find(prefix);
    return at != remotes_.end() ? at->second.get() : nullptr;
}

std::vector<GuidPrefix> ParticipantDiscovery::prefixes() const {
    std::vector<GuidPrefix> result;
    for (const auto& entry : remotes_)
        result.push_back(entry.first);
    std::sort(result.begin(), result.end());
    return result;
}

bool ParticipantDiscovery::speaks_for(const GuidPrefix& announcer, const GuidPrefix& subject) const {
    if (announcer == subject)
        return true;
    const Remote* server = find_remote(announcer);
    if (server == nullptr || !server->is_server)
        return false;
    const Remote* remote = find_remote(subject);
    return remote == nullptr || remote->is_relayed;
}

bool ParticipantDiscovery::is_server(const ParticipantData& data, const Locator& source) const {
    const std::string* type = property(data, kParticipantType);
    if (type == nullptr || (*type != "SERVER" && *type != "BACKUP"))
        return false;
    // It may announce other addresses than the one that the user knows, but the port is what it listens at.
    return std::any_of(config_.servers.begin(), config_.servers.end(), [&](const Locator& server) {
        return std::any_of(data.metatraffic_unicast.begin(), data.metatraffic_unicast.end(),
                           [&](const Locator& own) {
                               return own.port == server.port &&
                                      (own.address == server.address || source.address == server.address);
                           });
    });
}

ParticipantDiscovery::Hearing ParticipantDiscovery::hear(const GuidPrefix& prefix, EntityId sender,
                                                         const Locator& source, bool is_to_us, size_t bytes,
                                                         MonotonicTime now) {
    if (excludes(prefix))
        return Hearing::nothing;
    Remote* remote = find_remote(prefix);
    if (remote == nullptr)
        return Hearing::everything;
    if (remote->credit != nullptr)
        remote->credit->earn(bytes);
    const bool is_known = source == remote->announced_from || contains(remote->other_sources, source);
    if (remote->doubt != nullptr && remote->doubt->source == source)
        return is_known ? Hearing::everything : Hearing::announcements;
    if (is_known && remote->doubt != nullptr)
        remote->doubt->answered = true;
    else if (!is_known && remote->doubt == nullptr && sender != entity::participant_writer &&
             remote->other_sources.size() < kMaxOtherSources)
        remote->other_sources.push_back(source);
    remote->renew(now);
    if (remote->is_stranger && (is_to_us || now - remote->discovered_at >= kFirstPackets)) {
        remote->is_stranger = false;
        acquaintances_.splice(acquaintances_.end(), strangers_, remote->place);
        remote->placed_at = now;
    } else if (!remote->is_stranger && now - remote->placed_at >= kListPause) {
        acquaintances_.splice(acquaintances_.end(), acquaintances_, remote->place);
        remote->placed_at = now;
    }
    return Hearing::everything;
}

bool ParticipantDiscovery::of_this_domain(const ParticipantData& data) const {
    return data.domain_id.value_or(config_.domain_id) == config_.domain_id &&
           data.domain_tag == config_.domain_tag;
}

ParticipantRef ParticipantDiscovery::decode(const Sample& sample) {
    if (!sample.has_payload || sample.payload_is_key)
        return nullptr;
    std::string error;
    std::optional<ParticipantData> decoded = decode_participant(sample.payload, error);
    if (decoded)
        return std::make_shared<const ParticipantData>(std::move(*decoded));
    const std::string writer = to_string(sample.writer.prefix);
    warnings_.warn("participant " + writer + error,
                   "announcement of participant " + writer + " not understood: " + error);
    return nullptr;
}

void ParticipantDiscovery::on_data(const MessageContext& context, const Data& data, const Locator& source,
                                   Now now) {
    Sample sample;
    if (!announcer_.running() ||
        !make_sample({context.source, data.writer}, context, data, now.monotonic, sample))
        return;
    Remote* remote = find_remote(context.source);
    Announcement announced{nullptr, sample.payload, sample.sequence_number, source};
    if (is_farewell(sample)) {
        const std::optional<Guid> key = subject_of(sample);
        if (key && remote != nullptr && context.source == key->prefix)
            on_farewell(*remote, announced, now);
    } else if (remote != nullptr && remote->announced(sample.payload)) {
        on_repetition(*remote, announced, now);
    } else if (announced.data = decode(sample);
               announced.data != nullptr && announced.data->guid.prefix == context.source) {
        on_announcement(announced, now);
    }
}

void ParticipantDiscovery::on_relayed(const Sample& sample, Now now) {
    const Remote* server = find_remote(sample.writer.prefix);
    if (!announcer_.running() || server == nullptr || !server->is_server || server->announced(sample.payload))
        return; // what it says of itself is taken as that of others
    const GuidPrefix server_prefix = server->prefix();
    if (is_farewell(sample)) {
        const std::optional<Guid> key = subject_of(sample);
        if (key && speaks_for(server_prefix, key->prefix))
            remove(key->prefix, GoneReason::disposed, now);
        return;
    }
    const Announcement announced{decode(sample), sample.payload, sample.sequence_number,
                                 server->announced_from};
    if (announced.data == nullptr || excludes(announced.data->guid.prefix) ||
        !speaks_for(server_prefix, announced.data->guid.prefix))
        return;
    if (Remote* remote = find_remote(announced.data->guid.prefix))
        take(*remote, announced, false, now);
    else if (of_this_domain(*announced.data))
        discover(announced, true, first_credit(sample.payload), now);
}

void ParticipantDiscovery::await_relays(Now now) {
    for (const auto& entry : remotes_) {
        Remote& remote = *entry.second;
        if (!remote.is_relayed)
            continue;
        remote.expires = now.monotonic + kRelayPatience;
        remote.timer.wake_at(remote.expires);
    }
}

void ParticipantDiscovery::on_farewell(Remote& remote, const Announcement& farewell, Now now) {
    if (farewell.source == remote.announced_from)
        remove(remote.prefix(), GoneReason::disposed, now);
    else
        doubt(remote, farewell, now);
}

void ParticipantDiscovery::on_repetition(Remote& remote, Announcement& repeated, Now now) {
    if (repeated.source == remote.announced_from) {
        remote.is_steady = true;
        remote.sequence_number = repeated.number;
    } else if (remote.is_steady && repeated.source.kind == remote.announced_from.kind &&
               repeated.source.address == remote.announced_from.address &&
               !contains(remote.other_sources, repeated.source)) {
        repeated.data = remote.data;
        doubt(remote, repeated, now); // another socket of the same host
    }
}

void ParticipantDiscovery::on_announcement(const Announcement& announced, Now now) {
    Remote* remote = find_remote(announced.data->guid.prefix);
    if (remote == nullptr) {
        if (of_this_domain(*announced.data))
            discover(announced, false, first_credit(announced.payload), now);
        return;
    }
    // One announcement may come over several interfaces, with more addresses on some than on others. The
    // first that arrives counts: taking turns would look like changes.
    if (announced.number == remote->sequence_number && of_this_domain(*announced.data) &&
        !another_life(*remote->data, *announced.data))
        return;
    if (announced.source == remote->announced_from)
        take(*remote, announced, false, now);
    else if (!same_content(*remote->data, *announced.data))
        doubt(*remote, announced, now);
}

void ParticipantDiscovery::take(Remote& remote, const Announcement& announced, bool is_other_process,
                                Now now) {
    const bool is_here = of_this_domain(*announced.data);
    if (!is_here || is_other_process || another_life(*remote.data, *announced.data)) {
        const bool is_relayed = remote.is_relayed;
        std::shared_ptr<Credit> credit = remote.credit;
        remove(remote.prefix(), GoneReason::replaced, now);
        if (is_here)
            discover(announced, is_relayed, std::move(credit), now);
        return;
    }
    remote.doubt = nullptr;
    remote.sequence_number = announced.number;
    const bool changed = !same_content(*remote.data, *announced.data);
    if (!remote.set(announced, now.monotonic)) {
        warnings_.error("participant memory", kNoMemory);
    } else if (changed) {
        remote.announced_from = announced.source;
        choose_routes(remote);
        listener_.on_participant_changed(remote, true, now);
    }
}

void ParticipantDiscovery::doubt(Remote& remote, const Announcement& announced, Now now) {
    const bool is_new = remote.doubt == nullptr;
    if (is_new)
        remote.doubt = std::make_unique<Doubt>();
    else if (remote.doubt->source != announced.source)
        return; // one at a time
    Doubt& doubt = *remote.doubt;
    doubt.source = announced.source;
    doubt.data = announced.data;
    doubt.number = announced.number;
    doubt.memory.give_back(doubt.memory.held());
    if (!doubt.memory.take(kKeptPerByte * announced.payload.size)) {
        remote.doubt = nullptr;
        return;
    }
    doubt.payload.assign(announced.payload.begin(), announced.payload.end());
    if (is_new)
        ask(remote, now);
}

void ParticipantDiscovery::ask(Remote& remote, Now now) {
    ++remote.doubt->asked;
    remote.doubt->ask_at = now.monotonic + kAskPause;
    remote.timer.wake_at(remote.doubt->ask_at);
    // One that lives answers to the heartbeats; one that has begun anew does not know this side yet.
    announcer_.repeat(remote.metatraffic, now);
    listener_.on_participant_doubted(remote);
}

void ParticipantDiscovery::settle_doubt(Remote& remote, Now now) {
    Doubt& doubt = *remote.doubt;
    if (doubt.answered && ++doubt.refusals >= kRefusals) {
        if (remote.other_sources.size() < kMaxOtherSources)
            remote.other_sources.push_back(doubt.source);
        remote.doubt = nullptr;
    } else if (doubt.answered || doubt.asked < kAskTimes) {
        if (doubt.answered)
            doubt.asked = 0; // it may have been one of its last packets
        doubt.answered = false;
        ask(remote, now);
    } else if (const std::unique_ptr<Doubt> settled = std::move(remote.doubt); settled->data == nullptr) {
        remove(remote.prefix(), GoneReason::disposed, now);
    } else {
        const bool is_other_socket = settled->source.address == remote.announced_from.address &&
                                     settled->source.port != remote.announced_from.port;
        take(remote, {settled->data, settled->payload, settled->number, settled->source}, is_other_socket,
             now);
    }
}

void ParticipantDiscovery::on_timer_of(Remote& remote) {
    if (remote.expires <= now_.monotonic) {
        remove(remote.prefix(), GoneReason::lease_expired, now_);
        return;
    }
    remote.timer.wake_at(remote.expires);
    if (remote.doubt == nullptr)
        return;
    remote.timer.wake_at(remote.doubt->ask_at);
    if (remote.doubt->ask_at <= now_.monotonic)
        settle_doubt(remote, now_); // last: it may remove it
}

bool ParticipantDiscovery::forget_one(Now now) {
    const RemoteList& candidates = strangers_.empty() ? acquaintances_ : strangers_;
    if (candidates.empty())
        return false;
    const Remote& oldest = *candidates.front();
    if (!oldest.is_stranger && now.monotonic - oldest.placed_at < kLongSilence)
        return false;
    remove(GuidPrefix(oldest.prefix()), GoneReason::forgotten, now);
    return true;
}

std::shared_ptr<Credit> ParticipantDiscovery::first_credit(ByteView announcement) const {
    if (config_.secret_begin == 0)
        return nullptr;
    auto credit = std::make_shared<Credit>();
    credit->earn(kDataHeaderSize + announcement.size);
    return credit;
}

void ParticipantDiscovery::discover(const Announcement& announced, bool is_relayed,
                                    std::shared_ptr<Credit> credit, Now now) {
    if (remotes_.size() >= config_.max_remote_participants) {
        warnings_.error("participant limit",
                        "there are more than " + std::to_string(config_.max_remote_participants) +
                            " participants in the domain: those that were not heard again are forgotten");
        if (!forget_one(now))
            return;
    }
    const std::string name = to_string(announced.data->guid.prefix);
    if (announced.data->secured)
        warnings_.warn("secured " + name, "participant " + name + " is secured; its data is not read");
    auto added = std::make_unique<Remote>(*this);
    Remote& remote = *added;
    remote.sequence_number = announced.number;
    remote.announced_from = announced.source;
    remote.credit = std::move(credit);
    remote.discovered_at = now.monotonic;
    remote.is_relayed = is_relayed;
    remote.is_server = !is_relayed && is_server(*announced.data, announced.source);
    while (!remote.set(announced, now.monotonic)) {
        warnings_.error("participant memory", kNoMemory);
        if (!forget_one(now))
            return;
    }
    choose_routes(remote);
    tell_if_unreachable(remote);
    remote.place = strangers_.insert(strangers_.end(), &remote);
    remotes_.emplace(remote.prefix(), std::move(added));
    if (remote.is_server)
        await_relays(now);
    if (!remote.is_server && !remote.is_relayed) {
        // First, so that it knows us before it gets what the listener sends.
        announcer_.answer(remote.metatraffic, now);
    }
    listener_.on_participant_discovered(remote, now);
}

void ParticipantDiscovery::remove(const GuidPrefix& prefix, GoneReason reason, Now now) {
    const auto at = remotes_.find(prefix);
    if (at == remotes_.end())
        return;
    const std::unique_ptr<Remote> remote = std::move(at->second);
    (remote->is_stranger ? strangers_ : acquaintances_).erase(remote->place);
    remotes_.erase(at);
    listener_.on_participant_gone(*remote, reason, now);
}

bool ParticipantDiscovery::excludes(const GuidPrefix& prefix) const {
    return prefix == config_.prefix || (config_.is_own && config_.is_own(prefix)) ||
           (!ignored_.empty() && ignored_.count(prefix) != 0);
}

void ParticipantDiscovery::ignore(const GuidPrefix& prefix, Now now) {
    ignored_.insert(prefix);
    remove(prefix, GoneReason::ignored, now);
}

void ParticipantDiscovery::replace(const GuidPrefix& prefix, Now now) {
    const RemoteParticipant* remote = find(prefix);
    if (remote == nullptr)
        return;
    const ByteBuffer payload = remote->announcement;
    const Announcement announced{remote->data, payload, remote->sequence_number, remote->announced_from};
    const bool is_relayed = remote->is_relayed;
    std::shared_ptr<Credit> credit = remote->credit;
    remove(prefix, GoneReason::replaced, now);
    discover(announced, is_relayed, std::move(credit), now);
}

MonotonicTime ParticipantDiscovery::next_deadline() const {
    return std::min(announcer_.next_deadline(), timers_.next_deadline());
}

void ParticipantDiscovery::on_timer(Now now) {
    now_ = now;
    if (announcer_.announce_due(now.monotonic))
        announce(now);
    announcer_.on_timer(now);
    timers_.run(now.monotonic);
}

} // namespace meridian::rtps
