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
constexpr size_t kDataHeaderSize = 24; // of the submessage, without inline QoS
// Vendor-specific parameter of this library: which life of its prefix a participant is in.
constexpr uint16_t kIncarnationParameter = 0x8e01;

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

/// True when b cannot be the same process as a: another incarnation, another vendor, or other sockets.
bool another_life(const ParticipantData& a, const ParticipantData& b) {
    const ByteBuffer* first = incarnation(a);
    const ByteBuffer* second = incarnation(b);
    if (first != nullptr && second != nullptr)
        return *first != *second;
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

} // namespace

ParticipantDiscovery::ParticipantDiscovery(const ParticipantConfig& config, const Output& output,
                                           MessageBatcher& batcher, WarnOnce& warnings, Listener& listener)
    : config_(config),
      output_(output),
      batcher_(batcher),
      warnings_(warnings),
      listener_(listener),
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

void ParticipantDiscovery::encode_announcements() {
    announcement_ = encode(announced_);
    host_announcement_.clear();
    if (host_metatraffic_unicast_.empty() && host_default_unicast_.empty())
        return;
    ParticipantData data = announced_;
    const auto append = [](LocatorList& list, const LocatorList& more) {
        list.insert(list.end(), more.begin(), more.end());
    };
    append(data.metatraffic_unicast, host_metatraffic_unicast_);
    append(data.default_unicast, host_default_unicast_);
    host_announcement_ = encode(data);
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

void ParticipantDiscovery::send_announcement(const Route& route, Now now) {
    if (route.locators.empty())
        return;
    Data data;
    data.reader = entity::unknown;
    data.writer = entity::participant_writer;
    data.sequence_number = sequence_number_;
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

bool ParticipantDiscovery::needs_unicast(const RemoteParticipant& remote) const {
    const bool multicasting =
        std::any_of(config_.initial_peers.begin(), config_.initial_peers.end(), is_multicast);
    return remotes_.size() <= kFewParticipants || !multicasting || remote.data->metatraffic_multicast.empty();
}

void ParticipantDiscovery::announce(Now now) {
    ++sequence_number_;
    announced_at_ = now.monotonic;
    send_announcement(Route{kUnknownPrefix, config_.initial_peers}, now);
    for (const auto& entry : remotes_) {
        if (needs_unicast(*entry.second))
            send_announcement(entry.second->metatraffic, now);
    }
    if (burst_left_ > 0)
        --burst_left_;
    announce_at_ = later(now.monotonic, burst_left_ > 0 ? config_.initial_announcement_period
                                                        : jittered(config_.announce_period));
}

void ParticipantDiscovery::announce_soon(MonotonicTime now) {
    if (running_)
        announce_at_ =
            std::min(announce_at_, std::max(now + kAnswerPause, announced_at_ + kShortestAnnouncePause));
}

void ParticipantDiscovery::stop(Now now) {
    if (!running_)
        return;
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
    running_ = false;
    announce_at_ = kNever;
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

void ParticipantDiscovery::renew(RemoteParticipant& remote, MonotonicTime now) {
    remote.expires = later(now, remote.lease);
    expiry_check_at_ = std::min(expiry_check_at_, remote.expires);
}

void ParticipantDiscovery::on_traffic(const GuidPrefix& prefix, size_t bytes, MonotonicTime now) {
    if (RemoteParticipant* remote = find(prefix)) {
        renew(*remote, now);
        remote->credit->earn(bytes);
    }
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
    if ((qos.status_info & (kDisposed | kUnregistered)) != 0) {
        const std::optional<Guid> key = decode_key(data.payload, data.inline_qos, data.endianness);
        if (key)
            remove(key->prefix, GoneReason::disposed, now);
        return;
    }
    if (!data.has_payload || data.payload_is_key)
        return;
    if (RemoteParticipant* remote = find(context.source)) {
        const ByteBuffer& before = remote->announcement;
        if (before.size() == data.payload.size &&
            std::equal(before.begin(), before.end(), data.payload.begin())) {
            remote->sequence_number = data.sequence_number;
            return; // on_traffic has renewed it
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
    on_announcement(std::move(*decoded), data, source, now);
}

void ParticipantDiscovery::on_announcement(ParticipantData&& data, const Data& message, const Locator& source,
                                           Now now) {
    const ByteView payload = message.payload;
    const GuidPrefix prefix = data.guid.prefix;
    if (excludes(prefix))
        return;
    RemoteParticipant* remote = find(prefix);
    if (!of_this_domain(data)) {
        if (remote != nullptr)
            remove(prefix, GoneReason::replaced, now);
        return;
    }
    if (remote != nullptr && another_life(*remote->data, data)) {
        remove(prefix, GoneReason::replaced, now);
        remote = nullptr;
    }
    if (remote == nullptr) {
        auto credit = std::make_shared<Credit>();
        credit->earn(kDataHeaderSize + payload.size);
        discover(std::move(data), payload, message.sequence_number, source, std::move(credit), now);
        return;
    }
    // One announcement may come over several interfaces, with more addresses on some than on others. The
    // first that arrives counts: taking turns would look like changes.
    if (message.sequence_number == remote->sequence_number)
        return;
    remote->sequence_number = message.sequence_number;
    const bool changed = !same_content(*remote->data, data);
    remote->data = std::make_shared<const ParticipantData>(std::move(data));
    remote->announcement.assign(payload.begin(), payload.end());
    remote->lease = std::max(to_duration(remote->data->lease), kShortestLease);
    renew(*remote, now.monotonic);
    if (!changed)
        return;
    remote->announced_from = source;
    choose_routes(*remote);
    listener_.on_participant_changed(*remote, true, now);
}

void ParticipantDiscovery::discover(ParticipantData&& data, ByteView payload, SequenceNumber sequence_number,
                                    const Locator& source, std::shared_ptr<Credit> credit, Now now) {
    if (remotes_.size() >= config_.max_remote_participants) {
        warnings_.warn("participant limit", "more than " + std::to_string(config_.max_remote_participants) +
                                                " participants in the domain; the others are not seen");
        return;
    }
    if (data.secured)
        warnings_.warn("secured " + to_string(data.guid.prefix),
                       "participant " + to_string(data.guid.prefix) + " is secured; its data is not read");
    auto added = std::make_unique<RemoteParticipant>();
    RemoteParticipant& remote = *added;
    remote.data = std::make_shared<const ParticipantData>(std::move(data));
    remote.announcement.assign(payload.begin(), payload.end());
    remote.sequence_number = sequence_number;
    remote.announced_from = source;
    remote.credit = std::move(credit);
    remote.lease = std::max(to_duration(remote.data->lease), kShortestLease);
    choose_routes(remote);
    renew(remote, now.monotonic);
    remotes_.emplace(remote.data->guid.prefix, std::move(added));
    // First, so that it knows us before it gets what the listener sends.
    ++sequence_number_;
    send_announcement(remote.metatraffic, now);
    announce_soon(now.monotonic);
    listener_.on_participant_discovered(remote, now);
}

void ParticipantDiscovery::remove(const GuidPrefix& prefix, GoneReason reason, Now now) {
    const auto at = remotes_.find(prefix);
    if (at == remotes_.end())
        return;
    const std::unique_ptr<RemoteParticipant> remote = std::move(at->second);
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
    ParticipantData data = *remote->data;
    const ByteBuffer announcement = remote->announcement;
    const SequenceNumber sequence_number = remote->sequence_number;
    const Locator source = remote->announced_from;
    std::shared_ptr<Credit> credit = remote->credit;
    remove(prefix, GoneReason::replaced, now);
    discover(std::move(data), announcement, sequence_number, source, std::move(credit), now);
}

MonotonicTime ParticipantDiscovery::next_deadline() const {
    return std::min(announce_at_, expiry_check_at_);
}

void ParticipantDiscovery::on_timer(Now now) {
    if (announce_at_ <= now.monotonic)
        announce(now);
    if (now.monotonic < expiry_check_at_)
        return;
    expiry_check_at_ = kNever;
    std::vector<GuidPrefix> expired;
    for (const auto& entry : remotes_) {
        if (entry.second->expires <= now.monotonic)
            expired.push_back(entry.first);
        else
            expiry_check_at_ = std::min(expiry_check_at_, entry.second->expires);
    }
    std::sort(expired.begin(), expired.end());
    for (const GuidPrefix& prefix : expired)
        remove(prefix, GoneReason::lease_expired, now);
}

} // namespace meridian::rtps
