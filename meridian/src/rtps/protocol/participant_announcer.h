#pragma once

// What this participant announces of itself (DDSI-RTPS 2.5, 8.5.3), and when: a burst at start, then
// periodically with a little jitter, and soon after a new participant came. Announcements go to the initial
// peers; discovery servers get a form of their own.

#include <algorithm>
#include <vector>

#include "rtps/protocol/config.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/message_batcher.h"
#include "rtps/protocol/output.h"
#include "rtps/protocol/warn_once.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// What a participant is to a discovery server, in the words of Fast DDS.
constexpr const char* kParticipantType = "PARTICIPANT_TYPE";
/// Vendor-specific parameter of this library: which life of its prefix a participant is in.
constexpr uint16_t kIncarnationParameter = 0x8e01;

class ParticipantAnnouncer {
  public:
    /// All references must outlive the object. config gives everything but what set_announced changes later.
    ParticipantAnnouncer(const ParticipantConfig& config, Output& output, MessageBatcher& batcher,
                         WarnOnce& warnings);

    const ParticipantData& announced() const { return announced_; }
    /// These change what is announced; the caller calls announce. join_again: as another participant, under
    /// the prefix that the configuration has now.
    void set_announced(const ParticipantData& data);
    void set_locators(const OwnLocators& locators);
    void join_again(const OwnLocators& locators);

    void start(Now now);
    /// Announces nothing from now on.
    void stop();
    bool running() const { return running_; }
    /// To these addresses too. For servers it is the next version.
    void say_farewell(const std::vector<const Route*>& others, Now now);

    /// To all initial peers and servers; says when it is due again.
    void announce(Now now);
    /// What was announced to all last, to one participant.
    void repeat(const Route& route, Quirks quirks, Now now) { send(route, quirks, sequence_number_, now); }
    /// For one that is new.
    void answer(const Route& route, Quirks quirks, Now now);

    /// What is announced to discovery servers, and the number of this state of it; they want each once.
    ByteView announcement_to_servers() const { return server_announcement_; }
    SequenceNumber version() const { return version_; }

    bool announce_due(MonotonicTime now) const { return announce_at_ <= now; }
    MonotonicTime next_deadline() const { return std::min(announce_at_, announce_to_group_at_); }
    /// When it last announced itself to all; before the first time, when it started.
    MonotonicTime announced_at() const { return announced_at_; }
    void on_timer(Now now);

  private:
    void take_locators(const OwnLocators& locators);
    /// They are left shorter than they should be where they do not fit a message.
    void encode_all();
    void encode_all(const ParticipantData& data);
    bool all_fit() const;
    void announce_to_group(Now now);
    void announce_to_servers(Now now);
    void send(const Route& route, Quirks quirks, SequenceNumber number, Now now);
    Duration jittered(Duration period);

    const ParticipantConfig& config_;
    Output& output_;
    MessageBatcher& batcher_;
    WarnOnce& warnings_;
    ParticipantData announced_;
    ByteBuffer announcement_;
    LocatorList host_metatraffic_unicast_;
    LocatorList host_default_unicast_;
    ByteBuffer host_announcement_; // empty: the same
    ByteBuffer server_announcement_;
    SequenceNumber sequence_number_ = 0;
    SequenceNumber version_ = 0;
    bool running_ = false;
    int burst_left_ = 0;
    MonotonicTime announce_at_ = kNever;
    MonotonicTime announced_at_{0};
    MonotonicTime announce_to_group_at_ = kNever;
    uint64_t random_;
};

} // namespace meridian::rtps
