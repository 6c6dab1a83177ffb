#include "rtps/protocol/participant_discovery.h"

#include <algorithm>

#include "rtps/protocol/locator_choice.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/participant_lives.h"
#include "rtps/protocol/participant_record.h"

namespace meridian::rtps {

namespace {

constexpr size_t kFewParticipants = 32;
// Participants that were not heard again yet and get periodic announcements of their own, at most.
constexpr size_t kFewStrangers = 32;
// What is heard of a participant so long after it was discovered is more than its first packets.
constexpr Duration kFirstPackets = std::chrono::milliseconds(500);
constexpr Duration kListPause = std::chrono::seconds(1);
// How often it is looked whether a participant still has one that speaks for it.
constexpr Duration kManagedPause = std::chrono::seconds(5);
constexpr size_t kDataHeaderSize = 24; // of the submessage, without inline QoS

// For those that no discovery server vouches for at present: it was lost, or has come back and may take them
// for told. How long one may be silent, and how often it is asked for a sign of life.
constexpr Duration kRelayPatience = std::chrono::seconds(15);
constexpr Duration kRelayAskPause = std::chrono::seconds(3);

std::string described(const RemoteParticipant& remote) {
    return "participant " + to_string(remote.data->guid.prefix) +
           (remote.data->name.empty() ? "" : " \"" + remote.data->name + "\"");
}

bool announces_endpoints(const ParticipantData& data) {
    return (data.builtin_endpoints & (kPublicationsAnnouncer | kSubscriptionsAnnouncer)) != 0;
}

} // namespace

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

bool ParticipantDiscovery::needs_announcements(const Remote& remote) const {
    return !remote.is_server && !remote.is_relayed && remote.manager == kUnknownPrefix &&
           (remotes_.size() <= kFewParticipants || !multicasting_ ||
            remote.data->metatraffic_multicast.empty() ||
            quirks_of(*remote.data).has(kRefusesNewParameters)); // as those to the group have
}

void ParticipantDiscovery::announce(Now now) {
    if (!announcer_.running())
        return;
    announcer_.announce(now);
    const auto tell = [&](const Remote& remote) {
        if (needs_announcements(remote))
            announcer_.repeat(remote.metatraffic, quirks_of(*remote.data), now);
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
            match(*entry.second, now);
    }
}

void ParticipantDiscovery::tell_of_two(const RemoteParticipant& remote, const Locator& other) {
    const std::string prefix = to_string(remote.data->guid.prefix);
    warnings_.error_of_others("two participants " + prefix,
                              described(remote) + " announces itself from " +
                                  to_string(remote.announced_from) + " and otherwise from " +
                                  to_string(other) +
                                  ": two applications have the same GUID, or one is forged; the second one "
                                  "is not seen");
}

void ParticipantDiscovery::tell_if_unreachable(const RemoteParticipant& remote) {
    if (!remote.metatraffic.locators.empty())
        return;
    const char* reason = announces_udp(remote.data->metatraffic_unicast)
                             ? "no interface in use leads to the addresses that it announces"
                             : "it announces no UDP address, perhaps shared memory or TCP only";
    warnings_.error_of_others(
        "not reachable " + to_string(remote.data->guid.prefix),
        described(remote) + " is seen but not reachable: " + reason + "; its endpoints are not discovered");
}

void ParticipantDiscovery::look_at_silent(Remote& remote, Now now) {
    // A secured one answers to its like only.
    const bool answers = (remote.data->builtin_endpoints & kSubscriptionsDetector) != 0 &&
                         !remote.data->secured && !remote.is_relayed &&
                         !remote.metatraffic.locators.empty() && listener_.is_admitted(remote);
    const Duration known_for = now.monotonic - remote.discovered_at;
    if (config_.is_further || !answers || known_for < kLongSilence)
        return;
    ask_for_sign(remote, now); // who has nothing to tell may be silent
    if (known_for >= 2 * kLongSilence)
        warnings_.error_of_others(
            "silent " + to_string(remote.prefix()),
            described(remote) + " at " + to_string(remote.announced_from) +
                " announces itself and answers nothing: it ignores this participant, a firewall is between, "
                "or it "
                "sends to an address of this host that it cannot reach (of several interfaces only one may "
                "be allowed); its endpoints are not discovered");
}

void ParticipantDiscovery::ask_for_sign(Remote& remote, Now now) {
    if (remote.ask_source_at <= now.monotonic) {
        remote.ask_source_at = now.monotonic + kAskPause;
        listener_.on_participant_doubted(remote);
    }
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
    const Remote* remote = find_remote(subject);
    if (server != nullptr && server->is_server)
        return remote == nullptr || remote->is_relayed;
    return manages(server, subject, remote != nullptr ? remote->data.get() : nullptr);
}

bool ParticipantDiscovery::can_manage(const GuidPrefix& manager, const GuidPrefix& subject,
                                      const ParticipantData* data) {
    constexpr size_t kNode = 4; // octets of a prefix
    return (data == nullptr ||
            (quirks_of(*data).has(kServiceSpeaksForNode) && !announces_endpoints(*data))) &&
           std::equal(manager.bytes.begin(), manager.bytes.begin() + kNode, subject.bytes.begin());
}

bool ParticipantDiscovery::manages(const Remote* manager, const GuidPrefix& subject,
                                   const ParticipantData* data) const {
    if (manager == nullptr || !quirks_of(*manager->data).has(kServiceSpeaksForNode) ||
        !announces_endpoints(*manager->data) || !can_manage(manager->prefix(), subject, data))
        return false;
    const Remote* remote = find_remote(subject);
    return remote == nullptr || remote->manager == manager->prefix() || manager_of(*remote) == nullptr;
}

const ParticipantDiscovery::Remote* ParticipantDiscovery::manager_of(const Remote& remote) const {
    const Remote* manager = remote.manager != kUnknownPrefix ? find_remote(remote.manager) : nullptr;
    return manages(manager, remote.prefix(), remote.data.get()) ? manager : nullptr;
}

void ParticipantDiscovery::set_manager(Remote& remote, const GuidPrefix& manager) {
    managed_.erase({remote.manager, remote.prefix()});
    remote.manager = manager;
    if (manager != kUnknownPrefix)
        managed_.insert({manager, remote.prefix()});
}

bool ParticipantDiscovery::is_at_home(const Remote& remote, const Locator& source) const {
    const Remote* manager = manager_of(remote);
    return manager != nullptr ? manager->surely_speaks_from(source) : source == remote.announced_from;
}

bool ParticipantDiscovery::is_told_of(const GuidPrefix& prefix) const {
    const Remote* remote = find_remote(prefix);
    return remote != nullptr && (remote->is_relayed || manager_of(*remote) != nullptr);
}

bool ParticipantDiscovery::is_server(const ParticipantData& data, const Locator& source) const {
    const std::string* type = find_property(data.properties, kParticipantType);
    if (type == nullptr || (*type != "SERVER" && *type != "BACKUP"))
        return false;
    const auto is_there = [this](const Locator& from, const Locator& server) {
        return from.address == server.address ||
               (output_.stays_on_host(from) && output_.stays_on_host(server));
    };
    const auto speaks_from = [&](const Locator& server) {
        return std::any_of(remotes_.begin(), remotes_.end(), [&](const auto& entry) {
            return entry.second->is_server && is_there(entry.second->announced_from, server);
        });
    };
    // It may announce other addresses than the one that the user knows, but the port is what it listens at.
    // It may also speak from another one; but any participant can announce the one that the user knows.
    return std::any_of(config_.servers.begin(), config_.servers.end(), [&](const Locator& server) {
        return std::any_of(
            data.metatraffic_unicast.begin(), data.metatraffic_unicast.end(), [&](const Locator& own) {
                return own.port == server.port &&
                       (is_there(source, server) || (own.address == server.address && !speaks_from(server)));
            });
    });
}

ParticipantDiscovery::Hearing ParticipantDiscovery::hear(const GuidPrefix& prefix, EntityId sender,
                                                         const Locator& source, bool is_to_us, size_t bytes,
                                                         Now now) {
    if (excludes(prefix))
        return Hearing::nothing;
    Remote* remote = find_remote(prefix);
    if (remote == nullptr)
        return Hearing::everything;
    if (remote->credit != nullptr)
        remote->credit->earn(bytes);
    const bool is_known = source == remote->announced_from || contains(remote->other_sources, source);
    if (remote->is_server && !is_known && remote->doubt == nullptr)
        doubt(*remote, {remote->data, remote->announcement, remote->sequence_number, source, {}}, now);
    Doubt* const open = remote->doubt.get();
    const bool is_doubted = open != nullptr && open->said.source == source;
    if (!is_known && (remote->is_server || is_doubted))
        return Hearing::announcements;
    if (is_doubted)
        return Hearing::everything;
    if (is_known && open != nullptr)
        open->answered = true;
    else if (!is_known && open == nullptr && sender != entity::participant_writer &&
             remote->other_sources.size() < kMaxOtherSources)
        remote->other_sources.push_back(source);
    remote->renew(now.monotonic);
    remote->has_spoken = remote->has_spoken || sender != entity::participant_writer;
    if (!remote->has_spoken)
        look_at_silent(*remote, now);
    const bool moves = remote->is_stranger
                           ? is_to_us || now.monotonic - remote->discovered_at >= kFirstPackets
                           : now.monotonic - remote->placed_at >= kListPause;
    if (moves)
        make_acquainted(*remote, now);
    return Hearing::everything;
}

void ParticipantDiscovery::make_acquainted(Remote& remote, Now now) {
    acquaintances_.splice(acquaintances_.end(), remote.is_stranger ? strangers_ : acquaintances_,
                          remote.place);
    remote.is_stranger = false;
    remote.placed_at = now.monotonic;
}

bool ParticipantDiscovery::of_this_domain(const ParticipantData& data) const {
    return data.domain_id.value_or(config_.domain_id) == config_.domain_id &&
           data.domain_tag == config_.domain_tag;
}

void ParticipantDiscovery::await_relays(Now now) {
    for (const auto& entry : remotes_) {
        Remote& remote = *entry.second;
        if (!remote.is_relayed)
            continue;
        remote.lease = kRelayPatience;
        remote.renew(now.monotonic);
        remote.ask_at = now.monotonic;
        remote.timer.wake_at(remote.ask_at);
    }
}

void ParticipantDiscovery::on_timer_of(Remote& remote) {
    if (remote.expires <= now_.monotonic) {
        const Remote* manager = manager_of(remote);
        if (manager == nullptr) {
            remove(remote.prefix(), GoneReason::lease_expired, now_);
            return;
        }
        // It ends with its manager, and is forgotten no sooner.
        if (!manager->is_stranger && now_.monotonic - manager->placed_at < kLongSilence)
            make_acquainted(remote, now_);
        remote.expires = later(now_.monotonic, kManagedPause);
    }
    if (remote.ask_at <= now_.monotonic) {
        remote.ask_at = now_.monotonic + kRelayAskPause;
        listener_.on_participant_doubted(remote);
    }
    if (remote.match_at <= now_.monotonic)
        match(remote, now_);
    remote.timer.wake_at(std::min({remote.expires, remote.ask_at, remote.match_at}));
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

std::shared_ptr<Credit> ParticipantDiscovery::first_credit(const GuidPrefix& prefix,
                                                           ByteView announcement) const {
    if (config_.secret_begin == 0)
        return nullptr;
    bool is_new = true;
    std::shared_ptr<Credit> credit = config_.credits->of(prefix, is_new);
    if (is_new)
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
    // They are kept by each participant of this process, and are many and small: alone they would fill the
    // budget and leave nothing for the endpoints of a new one.
    const MemoryBudget& budget = MemoryBudget::of_process();
    if (config_.is_further && !budget.is_ample()) {
        warnings_.error("further participants", kNoMemoryForFurther);
        return;
    }
    if (budget.used() > budget.limit() / 2 && forget_one(now))
        warnings_.error("participant memory", kNoMemoryForParticipants);
    while (!remote.set(announced, now.monotonic)) {
        warnings_.error("participant memory", kNoMemoryForParticipants);
        if (!forget_one(now))
            return;
    }
    choose_routes(remote);
    tell_if_unreachable(remote);
    remote.place = strangers_.insert(strangers_.end(), &remote);
    remotes_.emplace(remote.prefix(), std::move(added));
    set_manager(remote, announced.manager);
    if (manager_of(remote) != nullptr)
        make_acquainted(remote, now);
    if (remote.is_server)
        await_relays(now);
    if (!remote.is_server && !remote.is_relayed && remote.manager == kUnknownPrefix) {
        // First, so that it knows us before it gets what the listener sends.
        announcer_.answer(remote.metatraffic, quirks_of(*remote.data), now);
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
    set_manager(*remote, kUnknownPrefix);
    if (remote->is_server)
        await_relays(now);
    if (quirks_of(*remote->data).has(kServiceSpeaksForNode) && announces_endpoints(*remote->data)) {
        const GuidPrefix manager = remote->prefix();
        for (auto next = managed_.lower_bound({manager, kUnknownPrefix});
             next != managed_.end() && next->first == manager;
             next = managed_.lower_bound({manager, kUnknownPrefix}))
            remove(GuidPrefix(next->second), reason, now);
    }
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
    const Remote* remote = find_remote(prefix);
    if (remote == nullptr)
        return;
    const ByteBuffer payload = remote->announcement;
    const Announcement announced{remote->data, payload, remote->sequence_number, remote->announced_from,
                                 remote->manager};
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
