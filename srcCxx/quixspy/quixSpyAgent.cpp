#include "quixspy/quixSpyAgent.h"

#include <algorithm>
#include <csignal>
#include <new>

#include "meridian/builtin_topics.h"
#include "meridian/domain_participant_factory.h"
#include "meridian/dynamic_data_type_support.h"
#include "meridian/heap.h"
#include "meridian/logger.h"
#include "meridian/string.h"
#include "quixspy/quixSpyDataListener.h"
#include "quixspy/quixSpyDiscoveryListener.h"
#include "quixspy/quixSpySampleLine.h"
#include "quixspy/quixSpyText.h"

std::atomic<bool> QUIXSPY_INTERRUPTED{false};

void stopHandler(int) {
    QUIXSPY_INTERRUPTED = true;
}

namespace {

void free_strings(char** strings, int32_t count) {
    for (int32_t i = 0; i < count; ++i)
        DDS_String_free(strings[i]);
}

} // namespace

QuixSpyParticipantListNode* QuixSpyParticipantListNode::create() {
    void* const memory =
        QUIXHeap_allocate(sizeof(QuixSpyParticipantListNode), "struct QuixSpyParticipantListNode");
    return memory != nullptr ? new (memory) QuixSpyParticipantListNode{} : nullptr;
}

void QuixSpyParticipantListNode::destroy(QuixSpyParticipantListNode* node) {
    node->~QuixSpyParticipantListNode();
    QUIXHeap_free(node);
}

void QuixSpyParticipantListNode::add_topic(QuixSpyDataListenerNode* node) {
    const QuixSpyDataListener& listener = *node->listener;
    dataListeners.append(node);
    topics.insert({{listener.typeName, listener.topicName}, node});
}

void QuixSpyParticipantListNode::delete_topic(QuixSpyDataListenerNode* node) {
    dataListeners.unlink(node);
    topics.erase({node->listener->typeName, node->listener->topicName}); // the names are the listener's
    delete node->listener;
    delete node->typeSupport;
    QUIXHeap_free(node);
}

void QuixSpyParticipantListNode::delete_topics() {
    while (QuixSpyDataListenerNode* const topic = dataListeners.head())
        delete_topic(topic);
}

QuixSpyDataListenerNode* QuixSpyParticipantListNode::find_topic(const char* topicName,
                                                                const char* typeName) const {
    const auto found = topics.find({typeName, topicName});
    return found != topics.end() ? found->second : nullptr;
}

QuixSpyDataListenerNode* QuixSpyParticipantListNode::find_type(const char* typeName) const {
    const auto first = topics.lower_bound({typeName, ""});
    return first != topics.end() && first->first.first == typeName ? first->second : nullptr;
}

QuixSpyAgent::QuixSpyAgent(const char* programName, QuixAgentOutput& output)
    : QuixAgent(programName, 0, output) {}

QuixSpyAgent::~QuixSpyAgent() {
    if (_waitSet != nullptr) {
        if (_subscriptionCondition != nullptr)
            _waitSet->detach_condition(_subscriptionCondition);
        if (_publicationCondition != nullptr)
            _waitSet->detach_condition(_publicationCondition);
        delete _waitSet;
    }
    delete _discoveryListener;
    if (_participantNode != nullptr && _participantNode->list == nullptr)
        QuixSpyParticipantListNode::destroy(_participantNode); // its participant could not be made
    for (QuixSpyParticipantListNode* node = _participantList.head(); node != nullptr;) {
        QuixSpyParticipantListNode* const following = QuixSpyList<QuixSpyParticipantListNode>::next(node);
        delete_participant(node);
        node = following;
    }
    free_strings(_participantPartitions, _participantPartitionCount);
    free_strings(_subscriberPartitions, _subscriberPartitionCount);
    free_strings(_topicRegex, _topicRegexCount);
    free_strings(_typeRegex, _typeRegexCount);
    if (_semaphore != nullptr)
        QUIXSemaphore::destroy(_semaphore);
    output().wait_while([] { return false; }); // it outlives the agent, which it has asked until now
}

void QuixSpyAgent::delete_participant(QuixSpyParticipantListNode* node) {
    // Listeners go first: no callback may run while the readers are taken apart.
    node->delete_topics();
    lastRetcode = node->participant->delete_contained_entities();
    if (lastRetcode != DDS_RETCODE_OK)
        output().print("delete_contained_entities error %d\n", lastRetcode);
    lastRetcode = DDSDomainParticipantFactory::get_instance()->delete_participant(node->participant);
    if (lastRetcode != DDS_RETCODE_OK)
        output().print("delete_participant error %d\n", lastRetcode);
    QuixSpyParticipantListNode::destroy(node);
}

bool QuixSpyAgent::run() {
    if (!check_arguments_consistency() || !initialize_spy())
        return false;
    _participantNode->participant->get_current_time(_startTime);
    _timeoutLimit = {_timeout != 0 ? _timeout : 30, 0};
    _activeConditions.length(0);
    _activeConditions.maximum(0);

    while (continue_execution()) {
    }
    QUIXSPY_INTERRUPTED = false; // from now on it tells of one more interrupt
    end_reports();
    print_statistics();
    return !output().is_closed();
}

void QuixSpyAgent::end_reports() {
    const bool has_waited = output().has_waited();
    _ending.begin();
    for_each_listener([](QuixSpyDataListener& listener) { listener.detach(); });
    // Where the output could not keep up, samples are left in the readers too. Otherwise those came after the
    // end.
    if (has_waited || output().has_waited() || output().is_behind())
        for_each_listener([this](QuixSpyDataListener& listener) { listener.drop_waiting(_ending); });
    _ending.begin_statistics();
    if (_ending.dropped() > 0) {
        output().print("%llu samples were not printed\n", static_cast<unsigned long long>(_ending.dropped()));
    }
}

template <typename Function>
void QuixSpyAgent::for_each_listener(Function function) {
    for (QuixSpyParticipantListNode* node = _participantList.head(); node != nullptr;
         node = QuixSpyList<QuixSpyParticipantListNode>::next(node)) {
        for (QuixSpyDataListenerNode* topic = node->dataListeners.head(); topic != nullptr;
             topic = QuixSpyList<QuixSpyDataListenerNode>::next(topic)) {
            if (topic->listener != nullptr)
                function(*topic->listener);
        }
    }
}

bool QuixSpyAgent::is_over() const {
    if (QUIXSPY_INTERRUPTED || output().is_closed())
        return true;
    if (_timeout == 0 || _timeoutLimit.sec == 0 || !_ending.takes_samples())
        return false;
    DDS_Time_t now{};
    _participantNode->participant->get_current_time(now);
    return static_cast<int64_t>(now.sec) - _startTime.sec > _timeoutLimit.sec;
}

bool QuixSpyAgent::continue_execution() {
    constexpr DDS_Duration_t kOneTurn{0, 250000000}; // nothing wakes it at an interrupt
    output().has_waited();                           // only what comes from here on counts at the end
    if (_waitSet->wait(_activeConditions, kOneTurn) == DDS_RETCODE_OK) {
        for (DDS_Long i = 0; i < _activeConditions.length(); ++i) {
            // Only status conditions of readers are attached.
            auto* const condition = dynamic_cast<DDSStatusCondition*>(_activeConditions[i]);
            if (condition != nullptr)
                _discoveryListener->on_data_available(dynamic_cast<DDSDataReader*>(condition->get_entity()));
        }
    }
    return !output().look_whether_closed() && !is_over();
}

void QuixSpyAgent::catch_signals() {
    QUIXSPY_INTERRUPTED = false;
    struct sigaction action {};
    action.sa_handler = stopHandler;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        // Programs that outlive their terminal are started with SIGHUP ignored.
        if (signal != SIGHUP || sigaction(signal, nullptr, &before) != 0 || before.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
    output().wait_while([this] { return _ending.keeps_waiting(); });
}

bool QuixSpyAgent::create_semaphore() {
    _semaphore = QUIXSemaphore::create();
    if (_semaphore == nullptr)
        return output().fail("ferret fail creating semaphore\n");
    return _semaphore->give() || output().fail("ferret fail giving semaphore\n");
}

bool QuixSpyAgent::create_participant() {
    _participantNode = QuixSpyParticipantListNode::create();
    if (_participantNode == nullptr)
        return output().fail("ferret: Error allocating _participantNode\n");
    return add_participant(*_participantNode);
}

bool QuixSpyAgent::add_participant(QuixSpyParticipantListNode& node) {
    const QuixSpyParticipantListNode* const first = _participantList.head();
    node.participant = createDomainParticipant(
        _participantPartitionCount, const_cast<const char**>(_participantPartitions),
        _subscriberPartitionCount, const_cast<const char**>(_subscriberPartitions), _discoveryPluginsSet,
        _discoveryPluginKind, first != nullptr ? first->participant : nullptr, &node.subscriber);
    if (node.participant == nullptr || node.subscriber == nullptr)
        return false;
    _participantList.append(&node);
    return true;
}

bool QuixSpyAgent::initialize_spy() {
    if (theVerbosity >= 3)
        output().put("Initializing spy application...\n");
    catch_signals(); // first: who was told of the participant is told of its end as well
    if (!create_semaphore() || !create_participant() || !check_reader_qos())
        return false;

    DDSSubscriber* const builtin = _participantNode->participant->get_builtin_subscriber();
    if (builtin == nullptr)
        return output().fail("get_builtin_subscriber error\n");
    auto* const publications = DDSPublicationBuiltinTopicDataDataReader::narrow(
        builtin->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME));
    if (publications == nullptr)
        return output().fail("lookup DCPSPublication error\n");
    auto* const subscriptions = DDSSubscriptionBuiltinTopicDataDataReader::narrow(
        builtin->lookup_datareader(DDS_SUBSCRIPTION_TOPIC_NAME));
    if (subscriptions == nullptr)
        return output().fail("lookup DCPSSubscription error\n");

    if (theVerbosity >= 1) {
        output().put(_quietStart ? "ferret is listening for data.\n\n"
                                 : "ferret is listening for data, press CTRL+C to stop it.\n\n");
        output().flush();
    }
    _discoveryListener = new (std::nothrow)
        QuixSpyDiscoveryListener(this, publications, subscriptions, _showHandle, _showSampleIdentity,
                                 _showSampleFlags, _typeWidth, _topicWidth, _printSample, _showPartition);
    _waitSet = new (std::nothrow) DDSWaitSet();
    if (_discoveryListener == nullptr || _waitSet == nullptr)
        return false;
    return watch(*publications, *subscriptions);
}

int32_t QuixSpyAgent::history_depth(const DDS_DataReaderQos& reader) const {
    const DDS_ResourceLimitsQosPolicy& limits = reader.resource_limits;
    int32_t depth = _historyDepth;
    if (reader.history.kind != DDS_KEEP_LAST_HISTORY_QOS)
        return depth;
    for (const DDS_Long limit : {limits.max_samples_per_instance, limits.max_samples}) {
        if (limit != DDS_LENGTH_UNLIMITED && limit > 0)
            depth = std::min(depth, limit);
    }
    return depth;
}

/// Options that contradict the profile would make every topic fail.
bool QuixSpyAgent::check_reader_qos() {
    DDS_DataReaderQos qos;
    if (_participantNode->subscriber->get_default_datareader_qos(qos) != DDS_RETCODE_OK)
        return true;
    const int32_t depth = history_depth(qos);
    if (depth < _historyDepth) {
        const std::string text = "max_samples_per_instance or max_samples of the QoS profile is " +
                                 std::to_string(depth) + ", less than the history of " +
                                 std::to_string(_historyDepth) +
                                 " samples (-history): " + std::to_string(depth) + " are kept";
        QUIXLog_error("qos", text.c_str());
    }
    const bool has_filter = _timeFilter > 0.0F;
    const bool has_deadline = _deadline >= 0.0F;
    if (has_filter)
        convertFromFloat(qos.time_based_filter.minimum_separation, _timeFilter);
    if (has_deadline)
        convertFromFloat(qos.deadline.period, _deadline);
    if (!(qos.deadline.period < qos.time_based_filter.minimum_separation))
        return true;
    return output().fail("ferret: %s contradicts %s: a deadline cannot be shorter than the time filter\n",
                         has_deadline ? "-deadline" : "the deadline of the QoS profile",
                         has_filter ? "-timeFilter" : "the time filter of the QoS profile");
}

void QuixSpyAgent::tell_unread(const RtpsGuid& writer, const char* topicName, const std::string& reason,
                               const std::string& key) {
    constexpr size_t kMostTold = 50;
    if (toldUnread_.size() >= kMostTold)
        return;
    std::string text = "writer";
    QUIXSpy_appendGuid(text, " guid", writer);
    text += " of topic \"" + QUIXSpy_text(topicName) + "\" is not read: " + reason;
    // An update may change the reason, and a writer of the same GUID may be another one.
    if (!toldUnread_.insert(key.empty() ? text : key).second)
        return;
    if (toldUnread_.size() == kMostTold)
        text += "; further ones are not told";
    QUIXLog_error("subscription", text.c_str());
}

bool QuixSpyAgent::watch(DDSDataReader& publications, DDSDataReader& subscriptions) {
    _subscriptionCondition = subscriptions.get_statuscondition();
    _publicationCondition = publications.get_statuscondition();
    if (_subscriptionCondition == nullptr || _publicationCondition == nullptr)
        return output().fail("ferret fail to create status condition\n");
    for (DDSStatusCondition* const condition : {_subscriptionCondition, _publicationCondition}) {
        if (condition->set_enabled_statuses(DDS_DATA_AVAILABLE_STATUS) != DDS_RETCODE_OK)
            return output().fail("ferret fail to set statuses\n");
    }
    for (DDSStatusCondition* const condition : {_subscriptionCondition, _publicationCondition}) {
        if (_waitSet->attach_condition(condition) != DDS_RETCODE_OK)
            return output().fail("ferret fail to attach condition\n");
    }
    return true;
}

void QuixSpyAgent::print_statistics() {
    output().put("\n\n---- Statistics ----\n");
    if (_discoveryListener != nullptr) {
        output().print("Discovered %u DataWriters and %u DataReaders\n",
                       _discoveryListener->discoveredWriters, _discoveryListener->discoveredReaders);
    }
    for (const auto* node = _participantList.head(); node != nullptr;
         node = QuixSpyList<QuixSpyParticipantListNode>::next(node)) {
        if (node->dataListeners.head() != nullptr)
            output().put("Received samples (Data, Dispose, NoWriters):\n");
        for (const auto* topic = node->dataListeners.head(); topic != nullptr;
             topic = QuixSpyList<QuixSpyDataListenerNode>::next(topic)) {
            if (topic->listener == nullptr)
                continue;
            const QuixSpyDataListener& listener = *topic->listener;
            output().print("\t%llu, %llu, %llu \t(Topic=\"%s\"  Type=\"%s\")\n",
                           static_cast<unsigned long long>(listener.dataSampleCount.load()),
                           static_cast<unsigned long long>(listener.disposeSampleCount.load()),
                           static_cast<unsigned long long>(listener.noWritersSampleCount.load()),
                           QUIXSpy_text(listener.topicName).c_str(), QUIXSpy_text(listener.typeName).c_str());
        }
    }
    output().put("\n\n");
    output().flush();
}
