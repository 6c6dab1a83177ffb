// What participants say of themselves, and discovery servers of others: taken, or doubted until there is a
// second word.

#include "rtps/protocol/makers.h"
#include "rtps/protocol/participant_lives.h"
#include "rtps/protocol/participant_record.h"
#include "rtps/protocol/reader.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

constexpr int kRefusals = 2;
constexpr int kMostGuesses = 1000;
// All sockets with which a participant tells of its endpoints are heard of so soon.
constexpr Duration kFirstSockets = std::chrono::seconds(1);

bool is_other_socket_of_host(const Locator& a, const Locator& b) {
    return a.kind == b.kind && a.address == b.address && a.port != b.port;
}

bool is_farewell(const Sample& sample) {
    return (sample.inline_qos.status_info & (kDisposed | kUnregistered)) != 0;
}

} // namespace

std::optional<Guid> subject_of(const Sample& disposal) {
    if (disposal.inline_qos.key_hash)
        return guid_of(*disposal.inline_qos.key_hash);
    return decode_key(disposal.payload);
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
        !make_sample({context.source, data.writer}, {}, context, data, now.monotonic, sample))
        return;
    Remote* remote = find_remote(context.source);
    Announcement announced{nullptr, sample.payload, sample.sequence_number, source, {}};
    if (is_farewell(sample)) {
        const std::optional<Guid> key = subject_of(sample);
        Remote* const subject = key ? find_remote(key->prefix) : nullptr;
        if (subject != nullptr &&
            (subject == remote || manages(remote, subject->prefix(), subject->data.get())))
            on_farewell(*subject, announced, now);
    } else if (remote != nullptr && remote->announced(sample.payload)) {
        on_repetition(*remote, announced, now);
    } else if (announced.data = decode(sample); announced.data != nullptr) {
        // The service of a node may tell of the others before it tells of itself.
        const GuidPrefix& subject = announced.data->guid.prefix;
        if (subject != context.source) {
            if (excludes(subject) ||
                !(remote != nullptr
                      ? manages(remote, subject, announced.data.get()) && remote->surely_speaks_from(source)
                      : can_manage(context.source, subject, announced.data.get())))
                return;
            announced.manager = context.source;
        }
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
    const Announcement announced{
        decode(sample), sample.payload, sample.sequence_number, server->announced_from, {}};
    if (announced.data == nullptr || excludes(announced.data->guid.prefix) ||
        !speaks_for(server_prefix, announced.data->guid.prefix))
        return;
    if (Remote* remote = find_remote(announced.data->guid.prefix))
        take(*remote, announced, false, now);
    else if (of_this_domain(*announced.data))
        discover(announced, true, first_credit(announced.data->guid.prefix, sample.payload), now);
}

void ParticipantDiscovery::on_farewell(Remote& remote, const Announcement& farewell, Now now) {
    if (is_at_home(remote, farewell.source))
        remove(remote.prefix(), GoneReason::disposed, now);
    else
        doubt(remote, farewell, now);
}

void ParticipantDiscovery::on_repetition(Remote& remote, Announcement& repeated, Now now) {
    if (repeated.source == remote.announced_from) {
        remote.is_steady = true;
        remote.sequence_number = repeated.number;
    } else if (remote.is_steady && is_other_socket_of_host(repeated.source, remote.announced_from) &&
               !contains(remote.other_sources, repeated.source)) {
        repeated.data = remote.data;
        doubt(remote, repeated, now); // another socket of the same host
    }
}

void ParticipantDiscovery::on_announcement(const Announcement& announced, Now now) {
    Remote* remote = find_remote(announced.data->guid.prefix);
    if (remote == nullptr) {
        if (of_this_domain(*announced.data))
            discover(announced, false, first_credit(announced.data->guid.prefix, announced.payload), now);
        return;
    }
    // One announcement may come over several interfaces, with more addresses on some than on others. The
    // first that arrives counts: taking turns would look like changes. Each life of a process begins with the
    // same number, but in a socket of its own.
    if (announced.number == remote->sequence_number && of_this_domain(*announced.data) &&
        !is_other_socket_of_host(announced.source, remote->announced_from) &&
        !another_life(*remote->data, *announced.data) && shares_an_address(*remote->data, *announced.data))
        return;
    // It has no manager yet that is known, and the one that announces it now is.
    if (announced.manager != kUnknownPrefix && manager_of(*remote) == nullptr &&
        manages(find_remote(announced.manager), remote->prefix(), remote->data.get()))
        set_manager(*remote, announced.manager);
    if (is_at_home(*remote, announced.source))
        take(*remote, announced, false, now);
    else if (!same_content(*remote->data, *announced.data))
        doubt(*remote, announced, now);
}

void ParticipantDiscovery::take(Remote& remote, const Announcement& announced, bool is_other_process,
                                Now now) {
    const bool is_here = of_this_domain(*announced.data);
    const bool is_managed = manager_of(remote) != nullptr; // it has no sockets of its own
    if (!is_here || is_other_process || (!is_managed && another_life(*remote.data, *announced.data))) {
        const bool is_relayed = remote.is_relayed;
        std::shared_ptr<Credit> credit = remote.credit;
        remove(remote.prefix(), GoneReason::replaced, now);
        if (is_here)
            discover(announced, is_relayed, std::move(credit), now);
        return;
    }
    remote.doubt = nullptr;
    remote.sequence_number = announced.number;
    if (is_managed)
        make_acquainted(remote, now);
    const bool changed = !same_content(*remote.data, *announced.data);
    if (!remote.set(announced, now.monotonic)) {
        warnings_.error("participant memory", kNoMemoryForParticipants);
    } else if (changed) {
        remote.announced_from = announced.source;
        choose_routes(remote);
        remote.match_at = std::max(now.monotonic, remote.matched_at + kMatchPause);
        if (remote.match_at <= now.monotonic)
            match(remote, now);
        else
            remote.timer.wake_at(remote.match_at);
    }
}

void ParticipantDiscovery::match(Remote& remote, Now now) {
    if (std::exchange(remote.match_at, kNever) != kNever)
        listener_.on_participant_changed(remote, now);
    remote.matched_at = now.monotonic;
    listener_.on_participant_to_match(remote, now);
}

void ParticipantDiscovery::doubt(Remote& remote, const Announcement& announced, Now now) {
    if (manager_of(remote) != nullptr)
        return; // it could not answer
    const bool is_new = remote.doubt == nullptr;
    if (is_new)
        remote.doubt = std::make_unique<Doubt>();
    else if (remote.doubt->said.source != announced.source)
        return; // one at a time
    Doubt& doubt = *remote.doubt;
    doubt.memory.give_back(doubt.memory.held());
    if (!doubt.memory.take(Remote::kKeptPerByte * announced.payload.size)) {
        remote.doubt = nullptr;
        return;
    }
    doubt.payload.assign(announced.payload.begin(), announced.payload.end());
    doubt.said = announced;
    doubt.said.payload = doubt.payload;
    if (is_new)
        ask(remote, now);
}

void ParticipantDiscovery::ask(Remote& remote, Now now) {
    ++remote.doubt->asked;
    remote.doubt->ask_at = now.monotonic + kAskPause;
    remote.timer.wake_at(remote.doubt->ask_at);
    // One that lives answers to the heartbeats; one that has begun anew does not know this side yet.
    announcer_.repeat(remote.metatraffic, quirks_of(*remote.data), now);
    listener_.on_participant_doubted(remote);
}

void ParticipantDiscovery::settle_doubt(Remote& remote, Now now) {
    Doubt& doubt = *remote.doubt;
    if (manager_of(remote) != nullptr) {
        remote.doubt = nullptr; // it has got one meanwhile
    } else if (doubt.answered && ++doubt.refusals >= kRefusals) {
        if (doubt.said.data != nullptr && (another_life(*remote.data, *doubt.said.data) ||
                                           !shares_an_address(*remote.data, *doubt.said.data)))
            tell_of_two(remote, doubt.said.source);
        else if (remote.other_sources.size() < kMaxOtherSources)
            remote.other_sources.push_back(doubt.said.source);
        remote.doubt = nullptr;
    } else if (doubt.answered || doubt.asked < kAskTimes) {
        if (doubt.answered)
            doubt.asked = 0; // it may have been one of its last packets
        doubt.answered = false;
        ask(remote, now);
    } else if (const std::unique_ptr<Doubt> settled = std::move(remote.doubt);
               settled->said.data == nullptr) {
        remove(remote.prefix(), GoneReason::disposed, now);
    } else {
        const bool is_other_socket =
            remote.is_server || is_other_socket_of_host(settled->said.source, remote.announced_from);
        take(remote, settled->said, is_other_socket, now);
    }
}

bool ParticipantDiscovery::may_tell_of_endpoints(const GuidPrefix& prefix, const Locator& source, Now now) {
    Remote* remote = find_remote(prefix);
    if (remote == nullptr || remote->tells_of_endpoints_from(source))
        return true;
    if (now.monotonic - remote->discovered_at < kFirstSockets) {
        remote->add_endpoint_source(source);
        return true;
    }
    ask_for_sign(*remote, now);
    return false;
}

void ParticipantDiscovery::on_answer(const GuidPrefix& prefix, const Locator& source, bool is_right) {
    Remote* remote = find_remote(prefix);
    if (remote == nullptr || remote->tells_of_endpoints_from(source))
        return;
    // Who guesses elsewhere does not keep a new socket of the participant's own host from being believed.
    const LocatorList& own = remote->data->metatraffic_unicast;
    const bool is_own_host = std::any_of(own.begin(), own.end(), [&](const Locator& address) {
        return address.kind == source.kind && address.address == source.address;
    });
    int& guesses = is_own_host ? remote->guesses_at_home : remote->guesses_elsewhere;
    if (!is_right)
        guesses = std::min(guesses + 1, kMostGuesses);
    else if (guesses > 0)
        --guesses;
    else
        remote->add_endpoint_source(source);
}

} // namespace meridian::rtps
