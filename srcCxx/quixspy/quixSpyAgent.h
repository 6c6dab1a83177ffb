#pragma once

// The spy: its options, its start-up, its loop over the builtin readers and its statistics.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "agent/QuixAgent.h"
#include "meridian/condition.h"
#include "meridian/domain_participant.h"
#include "meridian/semaphore.h"
#include "meridian/type_code.h"
#include "quixspy/quixSpyEnding.h"
#include "quixspy/quixSpyEndpointInfo.h"
#include "quixspy/quixSpyHelpers.h"
#include "quixspy/quixSpyList.h"
#include "quixspy/quixSpyTopicRoom.h"

class DDSDynamicDataTypeSupport;
class QuixSpyDataListener;
class QuixSpyDiscoveryListener;

/// Set when the spy is asked to stop, by the handler of signals. The loop looks at it several times a second.
/// Once the run ends it is cleared: set again, it asks to end without the rest of the output.
extern std::atomic<bool> QUIXSPY_INTERRUPTED;
static_assert(std::atomic<bool>::is_always_lock_free && sizeof(std::atomic<bool>) == 1,
              "a signal handler may only write what needs no lock");

/// Handler of SIGINT, SIGTERM and SIGHUP: sets QUIXSPY_INTERRUPTED, nothing else.
void stopHandler(int signal);

/// One subscribed topic. A plain record of the middleware's heap; owns its listener.
struct QuixSpyDataListenerNode : QuixSpyListLink<QuixSpyDataListenerNode> {
    QuixSpyDataListener* listener;
    DDSDynamicDataTypeSupport* typeSupport; // owned; null where the topic uses the opaque type
    DDSDataReader* reader;                  // of the participant; null when it could not be made
    RtpsGuid writer;                        // for whose participant it has its places
    bool isLateTypeTold;                    // that its type became known when it was read already
};

/// One participant of the spy, the subscriber for its readers and its topics in the order of subscription. In
/// memory of the middleware's heap; owns the participant and the nodes of its list.
struct QuixSpyParticipantListNode : QuixSpyListLink<QuixSpyParticipantListNode> {
    DDSDomainParticipant* participant;
    DDSSubscriber* subscriber;
    QuixSpyList<QuixSpyDataListenerNode> dataListeners;
    /// Those with a listener, by the names of type and topic, which belong to the listener.
    std::map<std::pair<std::string_view, std::string_view>, QuixSpyDataListenerNode*> topics;

    /// Null when memory is short.
    static QuixSpyParticipantListNode* create();
    static void destroy(QuixSpyParticipantListNode* node);
    /// Appends a node, which has its listener.
    void add_topic(QuixSpyDataListenerNode* node);
    /// Deletes a node of the list with its listener and type support. No callback runs when this returns.
    void delete_topic(QuixSpyDataListenerNode* node);
    /// Deletes all nodes with their listeners and type supports. No callback runs when this returns.
    void delete_topics();
    /// The topic of these names; null when it is not watched.
    QuixSpyDataListenerNode* find_topic(const char* topicName, const char* typeName) const;
    /// A topic of this type; null without one.
    QuixSpyDataListenerNode* find_type(const char* typeName) const;
};

class QuixSpyAgent : public QuixAgent {
  public:
    static constexpr int kMaxPatterns = 512;
    static constexpr int kMaxPartitions = 256;
    /// Each takes what is known of all endpoints once more, and types that conflict cost others nothing.
    static constexpr int kMostParticipants = 256;

    QuixSpyAgent(const char* programName, QuixAgentOutput& output);
    /// Deletes listeners, then the participants with what they contain. Failures are printed at any
    /// verbosity.
    ~QuixSpyAgent() override;

    void print_usage() override;
    void print_command_summary() override;
    void print_hidden_usage() override;
    int parse_argument(int* index, const char** argv, int argc) override;
    bool run() override;
    /// Waits for discovery events, less than a second, and reports them. False when the run is over.
    bool continue_execution() override;
    /// Whether the run is to end: interrupted, after its time, or without a reader of the output. Any thread.
    bool is_over() const;
    /// Explains the output.
    virtual void print_help_output();

    /// False, with a message from verbosity 1 on, when options contradict each other.
    bool check_arguments_consistency();
    /// Lets no data listener report any more, so that nothing stands behind the statistics and they count
    /// every line. What the listeners have taken is printed if that is quick, else dropped and counted.
    void end_reports();
    void print_statistics();

    /// Called for every publication that is new or changed, on the main thread. Watches its topic when the
    /// filters let it pass and nothing watches it yet, else makes the writer known to what watches it. True
    /// only when a reader was created; failures are said from verbosity 1 on. The next publication of the
    /// topic tries again, unless the topic itself was created: then nothing watches it.
    bool on_publication_discovered(const char* ip, const RtpsGuid& guid, const char* topicName,
                                   const char* typeName, DDS_OwnershipQosPolicyKind ownership,
                                   DDS_ReliabilityQosPolicyKind reliability,
                                   DDS_DurabilityQosPolicyKind durability, bool keyed,
                                   const DDS_TypeCode* typeCode, const DDS_EntityNameQosPolicy& entityName,
                                   const DDS_StringSeq& endpointPartitions,
                                   const DDS_StringSeq& participantPartitions,
                                   DDS_TypeCodeAbsence absence = DDS_TYPE_CODE_NOT_ANNOUNCED,
                                   const DDS_EndpointBuiltinTopicData* announced = nullptr);

    /// Makes the participant of a node, which then stands in the list. False, and the node the caller's, when
    /// that fails.
    bool add_participant(QuixSpyParticipantListNode& node);
    /// Says why a writer that was announced is not read; once for each key, or for each text without one.
    void tell_unread(const RtpsGuid& writer, const char* topicName, const std::string& reason,
                     const std::string& key = {});
    /// Takes the places of one more topic, where there are any or topics without writers make room; else says
    /// so. The participant is the one that is to read it.
    bool make_room(const QuixSpyParticipantListNode& node, const RtpsGuid& writer, const char* topicName,
                   const char* typeName);
    /// That of the options, or what the reader's limits leave of it.
    int32_t history_depth(const DDS_DataReaderQos& reader) const;

    // Settings: written while the options are parsed, read-only from then on. Strings are owned (DDS_String).
    int32_t _topicRegexCount = 0;
    char* _topicRegex[kMaxPatterns] = {};
    int32_t _typeRegexCount = 0;
    char* _typeRegex[kMaxPatterns] = {};
    float _timeFilter = 0.0F; // seconds; 0: none
    float _deadline = -1.0F;  // seconds; -1: none
    int32_t _historyDepth = 8192;
    uint32_t _maxSizeSerialized = 0xffffffffU; // bytes; all ones: not given
    bool _useFirstPublicationQos = false;
    int32_t _participantPartitionCount = 0;
    char* _participantPartitions[kMaxPartitions] = {};
    int32_t _subscriberPartitionCount = 0;
    char* _subscriberPartitions[kMaxPartitions] = {};
    bool _discoveryPluginsSet = false;
    DDS_DiscoveryConfigBuiltinPluginKind _discoveryPluginKind = DDS_DISCOVERYCONFIG_BUILTIN_SDP;
    QuixSpyDiscoveryListener* _discoveryListener = nullptr; // owned
    QuixSpyList<QuixSpyParticipantListNode> _participantList{};
    bool _showHandle = false;
    bool _showSampleIdentity = false;
    bool _showSampleFlags = false;
    PrintSample _printSample = PRINT_SAMPLE_NONE;
    QUIXSemaphore* _semaphore = nullptr; // owned; taken around the printing of samples
    bool _useDynamicData = true;
    int32_t _typeWidth = 50;
    int32_t _topicWidth = 50;
    int32_t _timeout = 0;                                   // seconds; 0: until interrupted
    DDSWaitSet* _waitSet = nullptr;                         // owned
    QuixSpyParticipantListNode* _participantNode = nullptr; // owned until it stands in the list
    DDSStatusCondition* _subscriptionCondition = nullptr;
    DDSStatusCondition* _publicationCondition = nullptr;
    DDSConditionSeq _activeConditions;
    DDS_Time_t _startTime{};
    DDS_Duration_t _timeoutLimit{};
    bool _printUserData = true;
    bool _printDiscovery = true;
    bool _showEntityName = false;
    bool _showPartition = false;
    bool _quietStart = false; // no option sets it
    QuixSpyEnding _ending{[this] { return is_over(); }};
    QuixSpyTopicRoom _topicRoom;

  private:
    bool check_reader_qos();
    bool initialize_spy();
    void catch_signals();
    template <typename Function>
    void for_each_listener(Function function);
    bool create_semaphore();
    bool create_participant();
    bool watch(DDSDataReader& publications, DDSDataReader& subscriptions);
    void delete_participant(QuixSpyParticipantListNode* node);

    /// Stops to read topics without writers, and deletes participants that read nothing then, but the
    /// first one and the one that is needed. False where there are none, or where it was done a moment ago.
    bool forget_unwritten_topics(const QuixSpyParticipantListNode* needed);

    std::set<std::string> toldUnread_; // what was said of writers that are not read
    std::chrono::steady_clock::time_point forgotAt_{};
    bool toldForgotten_ = false;
};
