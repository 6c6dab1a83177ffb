#pragma once

// Participant discovery (DDSI-RTPS 2.5, 8.5.3): keeps the table of the other participants, and says to whom
// this one is announced (see ParticipantAnnouncer): participants that multicast may not reach (those that
// announce no multicast address, and all while there are few) get periodic announcements at their own address
// too, since only those keep our lease alive there. Any traffic of a participant renews its lease.
// Participants of another domain id or tag are not seen at all.
//
// What is said in the name of a known participant from another address than it announced itself from needs a
// second word: it is put aside, the participant is asked at the address it has, and it counts only where that
// stays silent. So one forged message ends and changes nothing, while a participant with a new address, or a
// process that was killed and came back with the same prefix, is taken after kAskPause times kAskTimes. Any
// word from another socket of a discovery server is such a one. Until it counts nothing is heard but what it
// announces of itself: an acknowledgement by what its former life told would make it pass over what is new.
//
// What it tells of its endpoints counts from the sockets that it used at first; from another one only after
// an answer from there has named a number that this side told the participant (see Credit). Any sender can
// write its prefix, and one forged sample takes the number of a real one, or ends an endpoint, for good.
//
// The table has a limit. When it is reached, those make room that were never heard again after their first
// packets, the oldest first; then those that are silent for kLongSilence.

#include <list>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/memory_budget.h"
#include "rtps/protocol/config.h"
#include "rtps/protocol/events.h"
#include "rtps/protocol/message_batcher.h"
#include "rtps/protocol/participant_announcer.h"
#include "rtps/protocol/sinks.h"
#include "rtps/protocol/timer_queue.h"
#include "rtps/protocol/warn_once.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

struct RemoteParticipant {
    ParticipantRef data;
    ByteBuffer announcement;            // as it came: repetitions are recognised without decoding
    SequenceNumber sequence_number = 0; // of the announcement taken last
    Locator announced_from;
    Route metatraffic;              // chosen from what it announces
    Route user;                     // for endpoints without locators of their own
    std::shared_ptr<Credit> credit; // of all its addresses; null: no limit
    bool is_server = false;         // a discovery server that the user named
    bool is_relayed = false;        // known from such a server only
};

/// Which participant or endpoint a sample of a builtin writer disposes of.
std::optional<Guid> subject_of(const Sample& disposal);

class ParticipantDiscovery {
  public:
    /// Called during on_data, on_timer and the other calls that change the table; must not call back.
    class Listener {
      public:
        virtual ~Listener() = default;
        virtual void on_participant_discovered(RemoteParticipant& remote, Now now) = 0;
        /// What it announces changed. At most once in kMatchPause: it may have many endpoints.
        virtual void on_participant_changed(RemoteParticipant& remote, Now now) = 0;
        /// What its endpoints are matched by may have changed, with the announcement or with the choice of
        /// addresses. Behind on_participant_changed where the participant is the cause.
        virtual void on_participant_to_match(RemoteParticipant& remote, Now now) = 0;
        virtual void on_participant_gone(RemoteParticipant& remote, GoneReason reason, Now now) = 0;
        /// An answer of it is wanted, as a sign of life.
        virtual void on_participant_doubted(RemoteParticipant& remote) = 0;
        /// Whether it is one that this participant has to do with (see Events::admits).
        virtual bool is_admitted(const RemoteParticipant& /*remote*/) const { return true; }
    };
    static constexpr Duration kAskPause = std::chrono::milliseconds(200);
    static constexpr int kAskTimes = 3;
    static constexpr Duration kMatchPause = std::chrono::seconds(1);
    static constexpr Duration kLongSilence = std::chrono::seconds(10);

    /// All references must outlive the object. config gives everything but what set_announced changes later.
    ParticipantDiscovery(const ParticipantConfig& config, Output& output, MessageBatcher& batcher,
                         WarnOnce& warnings, Listener& listener);
    ~ParticipantDiscovery();

    /// What is announced of this participant.
    const ParticipantAnnouncer& announcer() const { return announcer_; }
    void start(Now now);
    /// Forgets the others; say_farewell was called.
    void stop(Now now);
    /// Announces the participant under the prefix that the configuration has now, as if it had just started;
    /// the others stay known. say_farewell was called under the old prefix.
    void join_again(const OwnLocators& locators, Now now);
    /// To all but discovery servers.
    void say_farewell(Now now);
    void set_announced(const ParticipantData& data, Now now);
    /// Announces these addresses, and chooses those of others again: the preferences of Output may have
    /// changed with them.
    void set_locators(const OwnLocators& locators, Now now);

    /// A DATA of a participant writer.
    void on_data(const MessageContext& context, const Data& data, const Locator& source, Now now);
    /// What a discovery server tells, of itself and of others: samples of its participant writer.
    void on_relayed(const Sample& sample, Now now);
    enum class Hearing { nothing, announcements, everything };
    /// A datagram of this participant came, whose first submessage is of that writer (or reader); is_to_us:
    /// it names this participant; bytes: of it that were not told before. What of it is taken: nothing of own
    /// and ignored participants, and of an address that is in doubt its announcements only.
    Hearing hear(const GuidPrefix& prefix, EntityId sender, const Locator& source, bool is_to_us,
                 size_t bytes, Now now);

    /// Whether what comes from this socket in the participant's name tells of its endpoints, or asks for
    /// those of this side.
    bool may_tell_of_endpoints(const GuidPrefix& prefix, const Locator& source, Now now);
    /// An acknowledgement came from there; is_right: it named a number that this side told.
    void on_answer(const GuidPrefix& prefix, const Locator& source, bool is_right);

    void ignore(const GuidPrefix& prefix, Now now);
    /// Whether what the one announces of the other, or of its endpoints, counts. Each participant speaks for
    /// itself alone: a participant that could end what others have could hide it. Only a discovery server
    /// speaks for those that do not speak for themselves, and the participant of a service for
    /// those of its node (see makers.h).
    bool speaks_for(const GuidPrefix& announcer, const GuidPrefix& subject) const;
    /// A known one, of which others tell.
    bool is_told_of(const GuidPrefix& prefix) const;
    /// Own participants and those that are ignored: nothing that is told of them counts.
    bool excludes(const GuidPrefix& prefix) const;
    /// Forgets the participant and discovers it again from its last announcement, because it began a new
    /// life.
    void replace(const GuidPrefix& prefix, Now now);

    /// nullptr: it is not known.
    RemoteParticipant* find(const GuidPrefix& prefix) const;
    std::vector<GuidPrefix> prefixes() const;

    MonotonicTime next_deadline() const;
    void on_timer(Now now);

  private:
    struct Announcement;
    struct Doubt;
    struct Remote;
    using RemoteList = std::list<Remote*>;

    Remote* find_remote(const GuidPrefix& prefix) const;
    /// Whether the one, null for none, speaks for the other, which has nothing to speak with; null data: that
    /// is not known yet. Those that it speaks for live as long as it does.
    /// Where the subject has another one that is known, that one alone does.
    bool manages(const Remote* manager, const GuidPrefix& subject, const ParticipantData* data) const;
    /// Whether it would, as far as its prefix tells.
    static bool can_manage(const GuidPrefix& manager, const GuidPrefix& subject, const ParticipantData* data);
    /// The one that announced it, if that is known and manages it; null: none. It is never heard itself, so
    /// nothing that is said of it from elsewhere can be doubted: only what comes from its manager counts.
    const Remote* manager_of(const Remote& remote) const;
    void set_manager(Remote& remote, const GuidPrefix& manager);
    /// Whether what is said of it from there counts at once.
    bool is_at_home(const Remote& remote, const Locator& source) const;
    void make_acquainted(Remote& remote, Now now);
    /// Null for what is no announcement.
    ParticipantRef decode(const Sample& sample);
    void on_farewell(Remote& remote, const Announcement& farewell, Now now);
    /// The same announcement as before.
    void on_repetition(Remote& remote, Announcement& repeated, Now now);
    void on_announcement(const Announcement& announced, Now now);
    /// What the participant announced; is_other_process: by what is known beyond the announcement.
    void take(Remote& remote, const Announcement& announced, bool is_other_process, Now now);
    void match(Remote& remote, Now now);
    void doubt(Remote& remote, const Announcement& announced, Now now);
    void ask(Remote& remote, Now now);
    void settle_doubt(Remote& remote, Now now);
    void on_timer_of(Remote& remote);
    void discover(const Announcement& announced, bool is_relayed, std::shared_ptr<Credit> credit, Now now);
    std::shared_ptr<Credit> first_credit(const GuidPrefix& prefix, ByteView announcement) const;
    bool is_server(const ParticipantData& data, const Locator& source) const;
    /// A server is lost or has come back: those it told of are there as long as it names them or they answer.
    void await_relays(Now now);
    /// False where all are needed.
    bool forget_one(Now now);
    void remove(const GuidPrefix& prefix, GoneReason reason, Now now);
    bool choose_routes(RemoteParticipant& remote) const;
    bool of_this_domain(const ParticipantData& data) const;
    bool needs_announcements(const Remote& remote) const;
    void tell_if_unreachable(const RemoteParticipant& remote);
    /// At one that announced itself and said nothing else yet.
    void look_at_silent(Remote& remote, Now now);
    /// At most once in kAskPause.
    void ask_for_sign(Remote& remote, Now now);
    /// Another participant with its prefix announces itself from there.
    void tell_of_two(const RemoteParticipant& remote, const Locator& other);
    void announce(Now now);
    void choose_all_routes(Now now);

    const ParticipantConfig& config_;
    const Output& output_;
    WarnOnce& warnings_;
    Listener& listener_;
    ParticipantAnnouncer announcer_;
    const bool multicasting_;
    TimerQueue timers_;
    Now now_; // of on_timer
    std::unordered_map<GuidPrefix, std::unique_ptr<Remote>> remotes_;
    std::set<std::pair<GuidPrefix, GuidPrefix>> managed_; // by the one that announced it
    // Each is in one of the two. Not heard again after their first packets, the oldest first:
    RemoteList strangers_;
    RemoteList acquaintances_; // the longest silent first, to a second
    std::unordered_set<GuidPrefix> ignored_;
};

} // namespace meridian::rtps
