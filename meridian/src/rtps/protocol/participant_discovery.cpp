#include "rtps/protocol/participant_discovery.h"

#include <algorithm>

#include "rtps/protocol/locator_choice.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

constexpr Duration kAnswerPause = std::chrono::milliseconds(50);
constexpr Duration kShortestAnnouncePause = std::chrono::milliseconds(100);
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
// Vendor-specific parameter of this library: which life of its prefix a participant is in.
constexpr uint16_t kIncarnationParameter = 0x8e01;

// What Fast DDS announces of the process a participant is in.
constexpr const char* kProcessProperty = "fastdds.physical_data.process";

constexpr const char* kNoMemory =
    "the announcements of participants take too much memory: those that were not heard again are forgotten";

// What a participant is to a discovery server, in the words of Fast DDS.
constexpr const char* kParticipantType = "PARTICIPANT_TYPE";
constexpr VendorId kFastDdsVendorId{{0x01, 0x0f}};
// So long a discovery server that has come back has to name those that it knew.
constexpr Duration kRelayPatience = std::chrono::seconds(20);

const std::string* property(const ParticipantData& data, const char* name) {
    for (const Property& property : data.properties) {
        if (property.name == name)
            return &property.value;
    }
    return nullptr;
}

const ByteBuffer* incarnation(const ParticipantData& data) {
    if (!(data.vendor == kOwnVendorId))
        return nullptr;
    for (const RawParameter& parameter : data.raw) {
        if (parameter.id == kIncarnationParameter)
            return &parameter.value;
    }
    return nullptr;
}

bool shares_a_port(const LocatorList& a, const LocatorList& b) {
    return std::any_of(a.begin(), a.end(), [&b](const Locator& x) {
        return std::any_of(b.begin(), b.end(), [&x](const Locator& y) { return x.port == y.port; });
    });
}

bool contains(const LocatorList& list, const Locator& locator) {
    return std::find(list.begin(), list.end(), locator) != list.end();
}

/// True when b cannot be the same process as a: another incarnation, process or vendor, or other sockets.
bool another_life(const ParticipantData& a, const ParticipantData& b) {
    const ByteBuffer* first = incarnation(a);
    const ByteBuffer* second = incarnation(b);
    if (first != nullptr && second != nullptr)
        return *first != *second;
    const std::string* process_before = property(a, kProcessProperty);
    const std::string* process_after = property(b, kProcessProperty);
    if (process_before != nullptr && process_after != nullptr && *process_before != *process_after)
        return true;
    if (!(a.vendor == b.vendor))
        return true;
    return !a.metatraffic_unicast.empty() && !b.metatraffic_unicast.empty() &&
           !shares_a_port(a.metatraffic_unicast, b.metatraffic_unicast);
}

/// The counter that asserts manual liveliness is no content of an announcement.
bool same_content(const ParticipantData& a, const ParticipantData& b) {
    ParticipantData left = a;
    ParticipantData right = b;
    left.manual_liveliness_count = right.manual_liveliness_count = 0;
    return encode(left) == encode(right);
}

/// What is said in the name of a participant from an address that it was not heard from.
struct Doubt {
    Locator source;
    ParticipantRef data; // null: a farewell
    ByteBuffer announcement;
    SequenceNumber sequence_number = 0;
    int asked = 0;
    int refusals = 0;
    bool answered = false; // the address it has spoke since it was asked first
    MonotonicTime ask_at{0};
    MemoryShare memory{MemoryBudget::of_process()};
};

} // namespace

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
    bool set_data(const ParticipantRef& announced, ByteView payload, MonotonicTime now) {
        const size_t needed = kPlaces + kKeptPerByte * payload.size;
        if (!memory.take(needed))
            return false;
        memory.give_back(memory.held() - needed);
        data = announced;
        announcement.assign(payload.begin(), payload.end());
        // The server watches over those that it tells of.
        lease = is_relayed ? kNever : std::max(to_duration(data->lease), kShortestLease);
        renew(now);
        return true;
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

ParticipantDiscovery::ParticipantDiscovery(const ParticipantConfig& config, const Output& output,
                                           MessageBatcher& batcher, WarnOnce& warnings, Listener& listener)
    : config_(config),
      output_(output),
      batcher_(batcher),
      warnings_(warnings),
      listener_(listener),
      multicasting_(std::any_of(config.initial_peers.begin(), config.initial_peers.end(), is_multicast)),
      random_(config.seed) {
    announced_.vendor = kOwnVendorId;
    announced_.guid = {config.prefix, entity::participant};
    announced_.builtin_endpoints = kParticipantAnnouncer | kParticipantDetector | kPublicationsAnnouncer |
                                   kPublicationsDetector | kSubscriptionsAnnouncer | kSubscriptionsDetector |
                                   kParticipantMessageWriter | kParticipantMessageReader |
                                   config.additional_builtin_endpoints;
    announced_.domain_id = config.domain_id;
    announced_.domain_tag = config.domain_tag;
    announced_.lease = config.lease;
    announced_.name = config.name;
    announced_.user_data = config.user_data;
    announced_.properties = config.properties;
    if (config.incarnation != 0) {
        RawParameter parameter;
        parameter.id = kIncarnationParameter;
        for (int shift = 56; shift >= 0; shift -= 8)
            parameter.value.push_back(static_cast<uint8_t>(config.incarnation >> shift));
        announced_.raw.push_back(parameter);
    }
    take_locators(config.locators);
    encode_announcements();
}

void ParticipantDiscovery::take_locators(const OwnLocators& locators) {
    announced_.metatraffic_unicast = locators.metatraffic_unicast;
    announced_.metatraffic_multicast = locators.metatraffic_multicast;
    announced_.default_unicast = locators.default_unicast;
    announced_.default_multicast = locators.default_multicast;
    host_metatraffic_unicast_ = locators.host_metatraffic_unicast;
    host_default_unicast_ = locators.host_default_unicast;
}

void ParticipantDiscovery::set_locators(const OwnLocators& locators, Now now) {
    for (auto& entry : remotes_) {
        if (choose_routes(*entry.second))
            listener_.on_participant_changed(*entry.second, false, now);
    }
    take_locators(locators);
    announce_changes(now);
}

bool ParticipantDiscovery::announcements_fit() const {
    return std::max(announcement_.size(), host_announcement_.size()) <= batcher_.max_payload(0);
}

void ParticipantDiscovery::encode_announcements() {
    ++version_;
    encode_announcements(announced_);
    if (announcements_fit())
        return;
    const size_t size = std::max(announcement_.size(), host_announcement_.size());
    ParticipantData shorter = announced_;
    std::string left_out = "user data";
    shorter.user_data.clear();
    encode_announcements(shorter);
    if (!announcements_fit()) {
        left_out += ", properties and name";
        shorter.properties.clear();
        shorter.name.clear();
        encode_announcements(shorter);
    }
    // Not in fragments: nothing says that a participant takes an announcement so.
    warnings_.error("size of announcement",
                    "the announcement of this participant has " + std::to_string(size) +
                        " bytes, more than the " + std::to_string(batcher_.max_payload(0)) +
                        " that fit a message: it is announced without its " + left_out + " (-msgMaxSize)");
}

void ParticipantDiscovery::encode_announcements(const ParticipantData& announced) {
    const auto append = [](LocatorList& list, const LocatorList& more) {
        list.insert(list.end(), more.begin(), more.end());
    };
    announcement_ = encode(announced);
    host_announcement_.clear();
    ParticipantData data = announced;
    append(data.metatraffic_unicast, host_metatraffic_unicast_);
    append(data.default_unicast, host_default_unicast_);
    if (!host_metatraffic_unicast_.empty() || !host_default_unicast_.empty())
        host_announcement_ = encode(data);
    if (config_.servers.empty())
        return;
    const bool all_here = std::all_of(config_.servers.begin(), config_.servers.end(),
                                      [&](const Locator& server) { return output_.stays_on_host(server); });
    if (!all_here)
        data = announced;
    // The servers of this vendor pass over participants of others.
    data.vendor = kFastDdsVendorId;
    data.properties.push_back({kParticipantType, "SUPER_CLIENT"});
    server_announcement_ = encode(data);
}

Duration ParticipantDiscovery::jittered(Duration period) {
    // splitmix64; up to 5 % earlier, so that participants started together drift apart and no lease runs
    // short.
    random_ += 0x9e3779b97f4a7c15u;
    uint64_t z = random_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    z ^= z >> 31;
    return period - Duration(static_cast<int64_t>(z % 1000) * (period.count() / 20000));
}

void ParticipantDiscovery::start(Now now) {
    running_ = true;
    burst_left_ = std::max(1, config_.initial_announcements);
    announce_at_ = now.monotonic;
    on_timer(now);
}

void ParticipantDiscovery::send_announcement(const Route& route, SequenceNumber number, Now now) {
    if (route.locators.empty())
        return;
    Data data;
    data.reader = entity::unknown;
    data.writer = entity::participant_writer;
    data.sequence_number = number;
    data.has_payload = true;
    if (host_announcement_.empty()) {
        data.payload = announcement_;
        batcher_.add(route, data, now.wall);
        return;
    }
    for (const Locator& destination : route.locators) {
        data.payload = output_.stays_on_host(destination) ? host_announcement_ : announcement_;
        batcher_.add(Route{route.prefix, {destination}, route.credit}, data, now.wall);
    }
}

void ParticipantDiscovery::announce_to_servers(Now now) {
    if (config_.servers.empty())
        return;
    InlineQos qos; // they pass over what does not name its writer and number
    qos.related_writer = Guid{config_.prefix, entity::participant_writer};
    qos.related_sequence_number = version_;
    const ByteBuffer inline_qos = encode(qos);
    Data data;
    data.reader = entity::participant_reader;
    data.writer = entity::participant_writer;
    data.sequence_number = version_;
    data.inline_qos = inline_qos;
    data.has_payload = true;
    data.payload = server_announcement_;
    batcher_.add(Route{kUnknownPrefix, config_.servers}, data, now.wall);
}

bool ParticipantDiscovery::needs_announcements(const RemoteParticipant& remote) const {
    return !remote.is_server && !remote.is_relayed &&
           (remotes_.size() <= kFewParticipants || !multicasting_ ||
            remote.data->metatraffic_multicast.empty());
}

void ParticipantDiscovery::announce_to_group(Now now) {
    ++sequence_number_;
    announced_at_ = now.monotonic;
    announce_to_group_at_ = kNever;
    send_announcement(Route{kUnknownPrefix, config_.initial_peers}, sequence_number_, now);
    announce_to_servers(now);
}

void ParticipantDiscovery::announce(Now now) {
    announce_to_group(now);
    const auto tell = [&](const Remote& remote) {
        if (needs_announcements(remote))
            send_announcement(remote.metatraffic, sequence_number_, now);
    };
    for (const Remote* remote : acquaintances_)
        tell(*remote);
    size_t strangers = 0;
    for (auto at = strangers_.rbegin(); at != strangers_.rend() && ++strangers <= kFewStrangers; ++at)
        tell(**at);
    if (burst_left_ > 0)
        --burst_left_;
    announce_at_ = later(now.monotonic, burst_left_ > 0 ? config_.initial_announcement_period
                                                        : jittered(config_.announce_period));
}

void ParticipantDiscovery::announce_soon(MonotonicTime now) {
    if (running_)
        announce_to_group_at_ = std::min(
            announce_to_group_at_, std::max(now + kAnswerPause, announced_at_ + kShortestAnnouncePause));
}

void ParticipantDiscovery::say_farewell(Now now) {
    InlineQos qos;
    qos.key_hash = key_hash_of(announced_.guid);
    qos.status_info = kDisposed | kUnregistered;
    const ByteBuffer inline_qos = encode(qos);
    const ByteBuffer key = encode_participant_key(announced_.guid);
    Data data;
    data.reader = entity::unknown;
    data.writer = entity::participant_writer;
    data.sequence_number = ++sequence_number_;
    data.inline_qos = inline_qos;
    data.has_payload = true;
    data.payload_is_key = true;
    data.payload = key;
    batcher_.add(Route{kUnknownPrefix, config_.initial_peers}, data, now.wall);
    for (const auto& entry : remotes_)
        batcher_.add(entry.second->metatraffic, data, now.wall);
}

void ParticipantDiscovery::join_again(const OwnLocators& locators, Now now) {
    announced_.guid.prefix = config_.prefix;
    burst_left_ = std::max(1, config_.initial_announcements);
    set_locators(locators, now);
}

void ParticipantDiscovery::stop(Now now) {
    if (!running_)
        return;
    say_farewell(now);
    running_ = false;
    announce_at_ = announce_to_group_at_ = kNever;
    for (const GuidPrefix& prefix : prefixes())
        remove(prefix, GoneReason::stopped, now);
}

void ParticipantDiscovery::set_announced(const ParticipantData& data, Now now) {
    announced_ = data;
    announce_changes(now);
}

void ParticipantDiscovery::announce_changes(Now now) {
    encode_announcements();
    if (running_)
        announce(now);
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

void ParticipantDiscovery::on_data(const MessageContext& context, const Data& data, const Locator& source,
                                   Now now) {
    if (!running_)
        return;
    InlineQos qos;
    if (!data.inline_qos.empty()) {
        const bool readable = decode_inline_qos(data.inline_qos, data.endianness, qos);
        if (!readable || qos.refused)
            return;
    }
    Remote* remote = find_remote(context.source);
    if ((qos.status_info & (kDisposed | kUnregistered)) != 0) {
        const std::optional<Guid> key = decode_key(data.payload, data.inline_qos, data.endianness);
        if (key && remote != nullptr && context.source == key->prefix)
            on_farewell(*remote, data, source, now);
        return;
    }
    if (!data.has_payload || data.payload_is_key)
        return;
    if (remote != nullptr) {
        const ByteBuffer& before = remote->announcement;
        if (before.size() == data.payload.size &&
            std::equal(before.begin(), before.end(), data.payload.begin())) {
            on_repetition(*remote, data, source, now);
            return;
        }
    }
    std::string error;
    std::optional<ParticipantData> decoded = decode_participant(data.payload, error);
    if (!decoded) {
        warnings_.warn(
            "participant " + to_string(context.source) + error,
            "announcement of participant " + to_string(context.source) + " not understood: " + error);
        return;
    }
    if (context.source == decoded->guid.prefix)
        on_announcement(std::move(*decoded), data, source, now);
}

void ParticipantDiscovery::on_relayed(const Sample& sample, Now now) {
    const Remote* server = find_remote(sample.writer.prefix);
    if (!running_ || server == nullptr || !server->is_server)
        return;
    const GuidPrefix server_prefix = server->prefix();
    const Locator source = server->announced_from;
    if ((sample.inline_qos.status_info & (kDisposed | kUnregistered)) != 0) {
        const std::optional<Guid> key = subject_of(sample);
        if (key && speaks_for(server_prefix, key->prefix))
            remove(key->prefix, GoneReason::disposed, now);
        return;
    }
    std::string error;
    std::optional<ParticipantData> decoded =
        sample.has_payload ? decode_participant(sample.payload, error) : std::nullopt;
    if (!decoded || excludes(decoded->guid.prefix) || !speaks_for(server_prefix, decoded->guid.prefix))
        return;
    const auto data = std::make_shared<const ParticipantData>(std::move(*decoded));
    if (Remote* remote = find_remote(data->guid.prefix))
        take(*remote, data, sample.payload, sample.sequence_number, source, false, now);
    else if (of_this_domain(*data))
        discover(data, sample.payload, sample.sequence_number, source, true, first_credit(sample.payload),
                 now);
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

void ParticipantDiscovery::on_farewell(Remote& remote, const Data& message, const Locator& source, Now now) {
    if (source == remote.announced_from)
        remove(remote.prefix(), GoneReason::disposed, now);
    else
        doubt(remote, nullptr, message, source, now);
}

void ParticipantDiscovery::on_repetition(Remote& remote, const Data& message, const Locator& source,
                                         Now now) {
    if (source == remote.announced_from) {
        remote.is_steady = true;
        remote.sequence_number = message.sequence_number;
    } else if (remote.is_steady && source.kind == remote.announced_from.kind &&
               source.address == remote.announced_from.address && !contains(remote.other_sources, source)) {
        doubt(remote, remote.data, message, source, now); // another socket of the same host
    }
}

void ParticipantDiscovery::on_announcement(ParticipantData&& announced, const Data& message,
                                           const Locator& source, Now now) {
    const auto data = std::make_shared<const ParticipantData>(std::move(announced));
    Remote* remote = find_remote(data->guid.prefix);
    if (remote == nullptr) {
        if (of_this_domain(*data))
            discover(data, message.payload, message.sequence_number, source, false,
                     first_credit(message.payload), now);
        return;
    }
    // One announcement may come over several interfaces, with more addresses on some than on others. The
    // first that arrives counts: taking turns would look like changes.
    if (message.sequence_number == remote->sequence_number && of_this_domain(*data) &&
        !another_life(*remote->data, *data))
        return;
    if (source == remote->announced_from)
        take(*remote, data, message.payload, message.sequence_number, source, false, now);
    else if (!same_content(*remote->data, *data))
        doubt(*remote, data, message, source, now);
}

void ParticipantDiscovery::take(Remote& remote, const ParticipantRef& data, ByteView payload,
                                SequenceNumber sequence_number, const Locator& source, bool is_other_process,
                                Now now) {
    const bool is_here = of_this_domain(*data);
    if (!is_here || is_other_process || another_life(*remote.data, *data)) {
        const bool is_relayed = remote.is_relayed;
        std::shared_ptr<Credit> credit = remote.credit;
        remove(remote.prefix(), GoneReason::replaced, now);
        if (is_here)
            discover(data, payload, sequence_number, source, is_relayed, std::move(credit), now);
        return;
    }
    remote.doubt = nullptr;
    remote.sequence_number = sequence_number;
    const bool changed = !same_content(*remote.data, *data);
    if (!remote.set_data(data, payload, now.monotonic))
        warnings_.error("participant memory", kNoMemory);
    else if (changed)
        on_change(remote, source, now);
}

void ParticipantDiscovery::on_change(Remote& remote, const Locator& source, Now now) {
    remote.announced_from = source;
    choose_routes(remote);
    listener_.on_participant_changed(remote, true, now);
}

void ParticipantDiscovery::doubt(Remote& remote, const ParticipantRef& data, const Data& message,
                                 const Locator& source, Now now) {
    const bool is_new = remote.doubt == nullptr;
    if (is_new)
        remote.doubt = std::make_unique<Doubt>();
    else if (remote.doubt->source != source)
        return; // one at a time
    Doubt& doubt = *remote.doubt;
    doubt.source = source;
    doubt.data = data;
    doubt.memory.give_back(doubt.memory.held());
    if (!doubt.memory.take(kKeptPerByte * message.payload.size)) {
        remote.doubt = nullptr;
        return;
    }
    doubt.announcement.assign(message.payload.begin(), message.payload.end());
    doubt.sequence_number = message.sequence_number;
    if (is_new)
        ask(remote, now);
}

void ParticipantDiscovery::ask(Remote& remote, Now now) {
    ++remote.doubt->asked;
    remote.doubt->ask_at = now.monotonic + kAskPause;
    remote.timer.wake_at(remote.doubt->ask_at);
    // One that lives answers to the heartbeats; one that has begun anew does not know this side yet.
    send_announcement(remote.metatraffic, sequence_number_, now);
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
        take(remote, settled->data, settled->announcement, settled->sequence_number, settled->source,
             is_other_socket, now);
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

void ParticipantDiscovery::discover(const ParticipantRef& data, ByteView payload,
                                    SequenceNumber sequence_number, const Locator& source, bool is_relayed,
                                    std::shared_ptr<Credit> credit, Now now) {
    if (remotes_.size() >= config_.max_remote_participants) {
        warnings_.error("participant limit",
                        "there are more than " + std::to_string(config_.max_remote_participants) +
                            " participants in the domain: those that were not heard again are forgotten");
        if (!forget_one(now))
            return;
    }
    if (data->secured)
        warnings_.warn("secured " + to_string(data->guid.prefix),
                       "participant " + to_string(data->guid.prefix) + " is secured; its data is not read");
    auto added = std::make_unique<Remote>(*this);
    Remote& remote = *added;
    remote.sequence_number = sequence_number;
    remote.announced_from = source;
    remote.credit = std::move(credit);
    remote.discovered_at = now.monotonic;
    remote.is_relayed = is_relayed;
    remote.is_server = !is_relayed && is_server(*data, source);
    while (!remote.set_data(data, payload, now.monotonic)) {
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
        send_announcement(remote.metatraffic, ++sequence_number_, now);
        announce_soon(now.monotonic);
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
    const ParticipantRef data = remote->data;
    const ByteBuffer announcement = remote->announcement;
    const SequenceNumber sequence_number = remote->sequence_number;
    const Locator source = remote->announced_from;
    const bool is_relayed = remote->is_relayed;
    std::shared_ptr<Credit> credit = remote->credit;
    remove(prefix, GoneReason::replaced, now);
    discover(data, announcement, sequence_number, source, is_relayed, std::move(credit), now);
}

MonotonicTime ParticipantDiscovery::next_deadline() const {
    return std::min({announce_at_, announce_to_group_at_, timers_.next_deadline()});
}

void ParticipantDiscovery::on_timer(Now now) {
    now_ = now;
    if (announce_at_ <= now.monotonic)
        announce(now);
    if (announce_to_group_at_ <= now.monotonic)
        announce_to_group(now);
    timers_.run(now.monotonic);
}

} // namespace meridian::rtps
