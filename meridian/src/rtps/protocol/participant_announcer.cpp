#include "rtps/protocol/participant_announcer.h"

#include "rtps/protocol/makers.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

constexpr Duration kAnswerPause = std::chrono::milliseconds(50);
constexpr Duration kShortestAnnouncePause = std::chrono::milliseconds(100);

/// `payload` is what an announcement says, or the key of one that ends; kept by the caller.
Data announcement_data(SequenceNumber number, ByteView payload) {
    Data data;
    data.reader = entity::unknown;
    data.writer = entity::participant_writer;
    data.sequence_number = number;
    data.has_payload = true;
    data.payload = payload;
    return data;
}

/// For participants that refuse an announcement with any parameter that they do not know, and have little
/// room for it.
ParticipantData without_later_parameters(const ParticipantData& announced) {
    ParticipantData data = announced;
    data.domain_id.reset(); // it is known to be the same
    data.name.clear();
    data.user_data.clear();
    data.properties.clear();
    data.raw.clear();
    return data;
}

} // namespace

ParticipantAnnouncer::ParticipantAnnouncer(const ParticipantConfig& config, Output& output,
                                           MessageBatcher& batcher, WarnOnce& warnings)
    : config_(config), output_(output), batcher_(batcher), warnings_(warnings), random_(config.seed) {
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
    encode_all();
}

void ParticipantAnnouncer::take_locators(const OwnLocators& locators) {
    announced_.metatraffic_unicast = locators.metatraffic_unicast;
    announced_.metatraffic_multicast = locators.metatraffic_multicast;
    announced_.default_unicast = locators.default_unicast;
    announced_.default_multicast = locators.default_multicast;
    host_metatraffic_unicast_ = locators.host_metatraffic_unicast;
    host_default_unicast_ = locators.host_default_unicast;
}

void ParticipantAnnouncer::set_locators(const OwnLocators& locators) {
    take_locators(locators);
    encode_all();
}

void ParticipantAnnouncer::set_announced(const ParticipantData& data) {
    announced_ = data;
    encode_all();
}

void ParticipantAnnouncer::join_again(const OwnLocators& locators) {
    announced_.guid.prefix = config_.prefix;
    burst_left_ = std::max(1, config_.initial_announcements);
    set_locators(locators);
}

bool ParticipantAnnouncer::all_fit() const {
    return std::max(announcement_.size(), host_announcement_.size()) <= batcher_.max_payload(0);
}

void ParticipantAnnouncer::encode_all() {
    ++version_;
    encode_all(announced_);
    if (all_fit())
        return;
    const size_t size = std::max(announcement_.size(), host_announcement_.size());
    ParticipantData shorter = announced_;
    std::string left_out = "user data";
    shorter.user_data.clear();
    encode_all(shorter);
    if (!all_fit()) {
        left_out += ", properties and name";
        shorter.properties.clear();
        shorter.name.clear();
        encode_all(shorter);
    }
    // Not in fragments: nothing says that a participant takes an announcement so.
    warnings_.error("size of announcement",
                    "the announcement of this participant has " + std::to_string(size) +
                        " bytes, more than the " + std::to_string(batcher_.max_payload(0)) +
                        " that fit a message: it is announced without its " + left_out + " (-msgMaxSize)");
}

void ParticipantAnnouncer::encode_all(const ParticipantData& announced) {
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
    data.vendor = kMakerOfServers;
    data.properties.push_back({kParticipantType, "SUPER_CLIENT"});
    server_announcement_ = encode(data);
}

Duration ParticipantAnnouncer::jittered(Duration period) {
    // splitmix64; up to 5 % earlier, so that participants started together drift apart and no lease runs
    // short.
    random_ += 0x9e3779b97f4a7c15u;
    uint64_t z = random_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    z ^= z >> 31;
    return period - Duration(static_cast<int64_t>(z % 1000) * (period.count() / 20000));
}

void ParticipantAnnouncer::start(Now now) {
    running_ = true;
    burst_left_ = std::max(1, config_.initial_announcements);
    announce_at_ = announced_at_ = now.monotonic;
}

void ParticipantAnnouncer::stop() {
    running_ = false;
    announce_at_ = announce_to_group_at_ = kNever;
}

void ParticipantAnnouncer::send(const Route& route, Quirks quirks, SequenceNumber number, Now now) {
    if (route.locators.empty())
        return;
    const bool is_bare = quirks.has(kRefusesNewParameters);
    const ByteBuffer bare = is_bare ? encode(without_later_parameters(announced_)) : ByteBuffer{};
    Data data = announcement_data(number, is_bare ? bare : announcement_);
    if (is_bare)
        data.reader = entity::participant_reader; // else it finds none for it
    if (host_announcement_.empty() || is_bare) {
        batcher_.add(route, data, now.wall);
        return;
    }
    for (const Locator& destination : route.locators) {
        data.payload = output_.stays_on_host(destination) ? host_announcement_ : announcement_;
        batcher_.add(Route{route.prefix, {destination}, route.credit}, data, now.wall);
    }
}

void ParticipantAnnouncer::announce_to_servers(Now now) {
    if (config_.servers.empty())
        return;
    InlineQos qos; // they pass over what does not name its writer and number
    qos.related_writer = Guid{config_.prefix, entity::participant_writer};
    qos.related_sequence_number = version_;
    const ByteBuffer inline_qos = encode(qos);
    Data data = announcement_data(version_, server_announcement_);
    data.reader = entity::participant_reader;
    data.inline_qos = inline_qos;
    // Some releases take the vendor from the message instead of from the announcement.
    MessageWriter message(config_.prefix, config_.max_message_size, kMakerOfServers);
    if (!message.add_info_timestamp(now.wall) || !message.add_data(data))
        return;
    for (const Locator& server : config_.servers)
        output_.send(message.view(), server);
}

void ParticipantAnnouncer::announce_to_group(Now now) {
    ++sequence_number_;
    announced_at_ = now.monotonic;
    announce_to_group_at_ = kNever;
    send(Route{kUnknownPrefix, config_.initial_peers}, {}, sequence_number_, now);
    announce_to_servers(now);
}

void ParticipantAnnouncer::announce(Now now) {
    announce_to_group(now);
    if (burst_left_ > 0)
        --burst_left_;
    announce_at_ = later(now.monotonic, burst_left_ > 0 ? config_.initial_announcement_period
                                                        : jittered(config_.announce_period));
}

void ParticipantAnnouncer::answer(const Route& route, Quirks quirks, Now now) {
    send(route, quirks, ++sequence_number_, now);
    if (running_)
        announce_to_group_at_ =
            std::min(announce_to_group_at_,
                     std::max(now.monotonic + kAnswerPause, announced_at_ + kShortestAnnouncePause));
}

void ParticipantAnnouncer::say_farewell(const std::vector<const Route*>& others, Now now) {
    InlineQos qos;
    qos.key_hash = key_hash_of(announced_.guid);
    qos.status_info = kDisposed | kUnregistered;
    const ByteBuffer inline_qos = encode(qos);
    const ByteBuffer key = encode_participant_key(announced_.guid);
    Data data = announcement_data(++sequence_number_, key);
    data.inline_qos = inline_qos;
    data.payload_is_key = true;
    ++version_;
    batcher_.add(Route{kUnknownPrefix, config_.initial_peers}, data, now.wall);
    for (const Route* route : others)
        batcher_.add(*route, data, now.wall);
}

void ParticipantAnnouncer::on_timer(Now now) {
    if (announce_to_group_at_ <= now.monotonic)
        announce_to_group(now);
}

} // namespace meridian::rtps
