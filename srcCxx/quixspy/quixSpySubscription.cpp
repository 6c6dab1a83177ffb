// Subscribing: which participant watches the topic of a discovered writer, and with what reader.

#include <cfloat>
#include <cmath>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "meridian/dynamic_data_type_support.h"
#include "meridian/heap.h"
#include "quixspy/generated/DynamicTypeSupport.h"
#include "quixspy/quixSpyAgent.h"
#include "quixspy/quixSpyDataListener.h"
#include "quixspy/quixSpyText.h"

namespace {

/// A discovered writer, as on_publication_discovered was told of it.
struct Publication {
    const char* ip;
    const RtpsGuid& guid;
    const char* topicName;
    const char* typeName;
    DDS_OwnershipQosPolicyKind ownership;
    DDS_ReliabilityQosPolicyKind reliability;
    DDS_DurabilityQosPolicyKind durability;
    bool keyed;
    const DDS_TypeCode* typeCode;
    DDS_TypeCodeAbsence absence; // of the type code
    const DDS_EntityNameQosPolicy& entityName;
    const DDS_StringSeq& endpointPartitions;
    const DDS_StringSeq& participantPartitions;
    const DDS_EndpointBuiltinTopicData* announced; // all of it; null where that is not known
};

using ParticipantNode = QuixSpyParticipantListNode;
using TopicNode = QuixSpyDataListenerNode;

bool is_wanted(const QuixSpyAgent& agent, const Publication& publication) {
    const bool matched =
        QUIXSpy_matchesPattern(publication.topicName, agent._topicRegex, agent._topicRegexCount) != 0 &&
        QUIXSpy_matchesPattern(publication.typeName, agent._typeRegex, agent._typeRegexCount) != 0;
    agent.output().progress("ferret: ... topic and type %s\n", matched ? "MATCHED" : "NOT MATCHED");
    return matched;
}

bool are_equal(const DDS_TypeCode& a, const DDS_TypeCode& b) {
    DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
    return a.equal(&b, exception) && exception == DDS_NO_EXCEPTION_CODE;
}

/// How a participant can serve a publication.
enum class Fit {
    watching, // has the topic, with the same type
    free,     // can have it
    conflict, // knows topic or type as something else
    failed    // cannot tell; said why
};

Fit fit_of_existing_topic(const QuixSpyAgent& agent, const ParticipantNode& node,
                          DDSTopicDescription* description, const Publication& publication) {
    DDSTopic* const topic = DDSTopic::narrow(description);
    if (topic == nullptr) {
        agent.output().fail("ferret: Error getting the topic '%s'\n",
                            QUIXSpy_text(publication.topicName).c_str());
        return Fit::failed;
    }
    const char* const type_name = topic->get_type_name();
    if (type_name == nullptr) {
        agent.output().fail("ferret: Error getting the type name from topic '%s'\n",
                            QUIXSpy_text(publication.topicName).c_str());
        return Fit::failed;
    }
    // What became known of the type later is not what the topic is read as.
    const TopicNode* const read = node.find_topic(publication.topicName, type_name);
    const bool is_opaque = read != nullptr && !read->listener->uses_dynamic_data();
    const DDS_TypeCode* const registered = is_opaque ? nullptr : node.participant->get_typecode(type_name);
    const bool same = registered == nullptr || publication.typeCode == nullptr
                          ? std::strcmp(publication.typeName, type_name) == 0
                          : are_equal(*registered, *publication.typeCode);
    return same ? Fit::watching : Fit::conflict;
}

/// Whether readers of a type that is registered with the participant are those of topics without key where
/// the publication has one, or the other way round.
bool differs_in_key(const ParticipantNode& node, const DDS_TypeCode* registered,
                    const Publication& publication) {
    if (registered != nullptr)
        return registered->has_key() != publication.keyed;
    const TopicNode* const topic = node.find_type(publication.typeName);
    return topic != nullptr && topic->listener->is_keyed() != publication.keyed;
}

Fit fit_of(const QuixSpyAgent& agent, const ParticipantNode& node, const Publication& publication) {
    DDSDomainParticipant& participant = *node.participant;
    DDSTopicDescription* const description = participant.lookup_topicdescription(publication.topicName);
    if (description != nullptr)
        return fit_of_existing_topic(agent, node, description, publication);
    if (!participant.is_type_registered(publication.typeName))
        return Fit::free;
    const DDS_TypeCode* const registered = participant.get_typecode(publication.typeName);
    const bool differs = registered != nullptr && publication.typeCode != nullptr &&
                         !are_equal(*registered, *publication.typeCode);
    return differs || differs_in_key(node, registered, publication) ? Fit::conflict : Fit::free;
}

/// A further participant, for a topic that is in conflict with all that exist. Null when that fails.
ParticipantNode* make_further_participant(QuixSpyAgent& agent) {
    ParticipantNode* const node = ParticipantNode::create();
    if (node == nullptr) {
        agent.output().fail("ferret: Error allocating participantNode\n");
        return nullptr;
    }
    if (!agent.add_participant(*node)) {
        agent.output().fail("ferret: Error creation participant\n");
        ParticipantNode::destroy(node);
        return nullptr;
    }
    return node;
}

bool record_writer(const QuixSpyAgent& agent, QuixSpyDataListener& listener, const Publication& publication) {
    return listener.record_writer(publication.guid, publication.ip, publication.entityName,
                                  publication.endpointPartitions, publication.participantPartitions) ||
           agent.output().fail("ferret: Failed to add entity for topic '%s' to internal endpoint list).\n",
                               QUIXSpy_text(publication.topicName).c_str());
}

const char* text_of(DDS_DurabilityQosPolicyKind kind) {
    constexpr const char* kTexts[] = {"volatile", "transient-local", "transient", "persistent"};
    return static_cast<size_t>(kind) < std::size(kTexts) ? kTexts[kind] : "unknown";
}

/// Why a topic's reader is never matched with a writer, though no other reader will be; empty when it is, as
/// far as can be told from here.
std::string reason_not_to_read(const TopicNode* topic, const Publication& publication,
                               const char* type_of_topic) {
    if (topic == nullptr)
        return std::string("the topic is read as type \"") + QUIXSpy_text(type_of_topic) +
               "\", which is equal but has another name";
    const QuixSpyDataListener& listener = *topic->listener;
    if (listener.is_keyed() != publication.keyed)
        return publication.keyed ? "the topic is read as one without key, as its first writer announced it"
                                 : "the topic is read as one with key, as its first writer announced it";
    DDS_DataReaderQos qos;
    if (topic->reader == nullptr || topic->reader->get_qos(qos) != DDS_RETCODE_OK)
        return "";
    if (qos.ownership.kind != publication.ownership)
        return qos.ownership.kind == DDS_SHARED_OWNERSHIP_QOS
                   ? "its ownership is exclusive, and that of the first writer is shared"
                   : "its ownership is shared, and that of the first writer is exclusive";
    if (publication.durability < qos.durability.kind)
        return std::string("its durability is ") + text_of(publication.durability) +
               ", and the reader asks for " + text_of(qos.durability.kind);
    if (publication.reliability == DDS_BEST_EFFORT_RELIABILITY_QOS &&
        qos.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS)
        return "it is best-effort, and the reader asks for a reliable one";
    return "";
}

DDS_StringSeq any_partition() {
    const char* const any = "*";
    DDS_StringSeq names;
    DDS_StringSeq_from_array(names, &any, 1);
    return names;
}

void tell_if_not_read(QuixSpyAgent& agent, const TopicNode* topic, const Publication& publication,
                      const char* type_of_topic) {
    const std::string reason = reason_not_to_read(topic, publication, type_of_topic);
    if (!reason.empty())
        return agent.tell_unread(publication.guid, publication.topicName, reason);
    if (topic == nullptr || topic->reader == nullptr || publication.announced == nullptr)
        return;
    DDS_EndpointPolicies policies = *publication.announced;
    policies.deadline.period = DDS_DURATION_ZERO; // the listener tells of this policy
    DDS_GroupPolicies publisher = *publication.announced;
    if (agent._subscriberPartitionCount > 0) // who names partitions wants no others
        publisher.partition.name = any_partition();
    char* const difference = topic->reader->describe_incompatibility(policies, publisher);
    if (difference != nullptr && *difference != '\0') {
        const std::string text = difference; // it begins with the name of a policy
        agent.tell_unread(publication.guid, publication.topicName, text,
                          publication.topicName + ('\n' + text.substr(0, text.find(':'))));
    }
    DDS_String_free(difference);
}

/// Once per topic, where contents were asked for: a topic is read as its first writer was announced.
void tell_if_type_is_late(const QuixSpyAgent& agent, TopicNode& topic, const Publication& publication) {
    if (agent._printSample == PRINT_SAMPLE_NONE || publication.typeCode == nullptr ||
        topic.listener->knows_type() || std::exchange(topic.isLateTypeTold, true))
        return;
    agent.output().fail(
        "ferret: topic '%s' stays without contents: type '%s' is told now, but its first writer was seen "
        "without (start ferret when that writer is gone, or give a <types> document)\n",
        QUIXSpy_text(publication.topicName).c_str(), QUIXSpy_text(publication.typeName).c_str());
}

/// One more writer of a topic that has its reader already.
void add_writer(QuixSpyAgent& agent, const ParticipantNode& participant, const Publication& publication) {
    TopicNode* const topic = participant.find_topic(publication.topicName, publication.typeName);
    if (topic != nullptr) {
        record_writer(agent, *topic->listener, publication);
        tell_if_type_is_late(agent, *topic, publication);
    }
    DDSTopicDescription* const description =
        participant.participant->lookup_topicdescription(publication.topicName);
    tell_if_not_read(agent, topic, publication, description != nullptr ? description->get_type_name() : "");
}

/// The type as dynamic data; null, with the reasons told, where the opaque type must do.
DDSDynamicDataTypeSupport* register_dynamic_type(const QuixSpyAgent& agent, DDSDomainParticipant& participant,
                                                 const Publication& publication) {
    DDS_DynamicDataTypeProperty_t properties = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT;
    properties.serialization.max_size_serialized = agent._maxSizeSerialized;
    properties.serialization.min_size_serialized = 4096;
    properties.serialization.trim_to_size = true;
    auto* const support = new (std::nothrow) DDSDynamicDataTypeSupport(publication.typeCode, properties);
    if (support == nullptr || !support->is_valid()) {
        agent.output().progress("ferret: Failed to allocate memory for DynamicDataTypeSupport\n");
    } else {
        const DDS_ReturnCode_t result = support->register_type(&participant, publication.typeName);
        if (result == DDS_RETCODE_OK)
            return support;
        agent.output().progress("ferret: register_type error %d\n", result);
    }
    agent.output().progress("ferret: using non dynamic data type instead\n");
    delete support;
    return nullptr;
}

bool register_opaque_type(const QuixSpyAgent& agent, DDSDomainParticipant& participant,
                          const Publication& publication) {
    const DDS_ReturnCode_t result =
        publication.keyed ? KeyedDynamicTypeTypeSupport::register_type(&participant, publication.typeName)
                          : DynamicTypeTypeSupport::register_type(&participant, publication.typeName);
    return result == DDS_RETCODE_OK || agent.output().fail("ferret: register_type error %d\n", result);
}

/// A type code for the listener to own; null when there is nothing to clone. False when cloning fails.
bool clone_type_code(const QuixSpyAgent& agent, const DDS_TypeCode* type_code, DDS_TypeCode*& clone) {
    clone = nullptr;
    if (type_code == nullptr)
        return true;
    DDS_TypeCodeFactory* const factory = DDS_TypeCodeFactory::get_instance();
    if (factory == nullptr)
        return agent.output().fail("ferret: Error getting type code factory\n");
    DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
    clone = factory->clone_tc(type_code, exception);
    return exception == DDS_NO_EXCEPTION_CODE || agent.output().fail("ferret: Error cloning type code\n");
}

QuixSpyDataListenerSettings settings_of(QuixSpyAgent& agent, const Publication& publication,
                                        bool useDynamicData) {
    QuixSpyDataListenerSettings settings;
    settings.fields.isKeyed = publication.keyed;
    settings.fields.showHandle = agent._showHandle;
    settings.fields.showSampleIdentity = agent._showSampleIdentity;
    settings.fields.showSampleFlags = agent._showSampleFlags;
    settings.fields.showEntityName = agent._showEntityName;
    settings.fields.showPartition = agent._showPartition;
    settings.printSample = agent._printSample;
    settings.useDynamicData = useDynamicData;
    settings.topicWidth = agent._topicWidth;
    settings.typeWidth = agent._typeWidth;
    settings.deadline = agent._deadline;
    settings.outputSemaphore = agent._semaphore;
    settings.output = &agent.output();
    settings.ending = &agent._ending;
    return settings;
}

/// Whether a participant before this one watches the topic under the same type name. It then reads the
/// writers that announce no type.
bool is_watched_before(const QuixSpyAgent& agent, const ParticipantNode& node,
                       const Publication& publication) {
    for (const ParticipantNode* before = agent._participantList.head(); before != nullptr && before != &node;
         before = QuixSpyList<ParticipantNode>::next(before)) {
        if (before->find_topic(publication.topicName, publication.typeName) != nullptr)
            return true;
    }
    return false;
}

bool build_reader_qos(const QuixSpyAgent& agent, const ParticipantNode& node, const Publication& publication,
                      DDS_DataReaderQos& qos) {
    node.subscriber->get_default_datareader_qos_w_topic_name(qos, publication.topicName);
    if (std::fabs(agent._timeFilter) > FLT_EPSILON)
        QuixAgent::convertFromFloat(qos.time_based_filter.minimum_separation, agent._timeFilter);
    if (std::fabs(agent._deadline + 1.0F) > FLT_EPSILON)
        QuixAgent::convertFromFloat(qos.deadline.period, agent._deadline);
    qos.ownership.kind = publication.ownership;
    qos.reader_resource_limits.dynamically_allocate_fragmented_samples = true;
    qos.history.depth = agent.history_depth(qos);
    if (agent._useFirstPublicationQos) {
        qos.reliability.kind = publication.reliability;
        qos.durability.kind = publication.durability;
    }
    qos.type_consistency.kind = DDS_DISALLOW_TYPE_COERCION;
    qos.type_consistency.force_type_validation = is_watched_before(agent, node, publication);
    const DDS_ReturnCode_t result = DDS_PropertyQosPolicyHelper_assert_property(
        qos.property, "dds.data_reader.history.memory_manager.fast_pool.pool_buffer_max_size", "4096", false);
    return result == DDS_RETCODE_OK ||
           agent.output().fail("DDS_PropertyQosPolicyHelper_add_property error %d\n", result);
}

/// The topic of a type that is registered; null, with the reason told, when it cannot be had.
DDSTopic* create_topic(const QuixSpyAgent& agent, DDSDomainParticipant& participant,
                       const Publication& publication) {
    DDS_TopicQos qos;
    participant.get_default_topic_qos(qos);
    agent.output().progress("ferret: Creating topic... %s\n", QUIXSpy_text(publication.topicName).c_str());
    DDSTopic* const topic = participant.create_topic(publication.topicName, publication.typeName, qos,
                                                     nullptr, DDS_STATUS_MASK_NONE);
    if (topic == nullptr)
        agent.output().fail("ferret: Create_topic error\n");
    return topic;
}

/// True when a publication announces no type, but its type name stands for one in the participant already:
/// then it is read as that.
bool has_known_type(const ParticipantNode& node, const Publication& publication) {
    return publication.typeCode == nullptr && node.participant->get_typecode(publication.typeName) != nullptr;
}

const char* text_of(DDS_TypeCodeAbsence absence) {
    switch (absence) {
        case DDS_TYPE_CODE_NOT_TOLD:
            return "no application told it in time";
        case DDS_TYPE_CODE_NOT_GENUINE:
            return "what was told of it does not match the announced hash";
        case DDS_TYPE_CODE_TOO_LARGE:
            return "it is larger than -tcMaxSize allows";
        case DDS_TYPE_CODE_UNUSABLE:
            return "what was announced of it cannot be used";
        default:
            return "only its name is announced (a <types> document can tell it)";
    }
}

/// Once per topic, where contents were asked for and will not be shown.
void say_why_there_are_no_contents(const QuixSpyAgent& agent, const ParticipantNode& node,
                                   const Publication& publication) {
    if (agent._printSample == PRINT_SAMPLE_NONE || publication.typeCode != nullptr ||
        has_known_type(node, publication))
        return;
    agent.output().fail("ferret: topic '%s' is shown without contents: type '%s' is unknown, as %s\n",
                        QUIXSpy_text(publication.topicName).c_str(),
                        QUIXSpy_text(publication.typeName).c_str(), text_of(publication.absence));
}

/// Registers the type of a topic, and makes the topic and the listener of `topic_node`, which owns both the
/// listener and its type support. Null, with the reason told, when one of them cannot be had.
DDSTopic* make_topic_and_listener(QuixSpyAgent& agent, const ParticipantNode& node,
                                  const Publication& publication, TopicNode& topic_node) {
    // A reader of dynamic data is of the kind that its type says, and never matched with writers of the
    // other.
    if (publication.typeCode != nullptr && publication.typeCode->has_key() != publication.keyed)
        agent.output().progress("ferret: using non dynamic data type instead\n");
    else if (publication.typeCode != nullptr)
        topic_node.typeSupport = register_dynamic_type(agent, *node.participant, publication);
    DDS_TypeCode* type_code = nullptr;
    if ((topic_node.typeSupport == nullptr && !register_opaque_type(agent, *node.participant, publication)) ||
        !clone_type_code(agent, publication.typeCode, type_code))
        return nullptr;
    DDSTopic* const topic = create_topic(agent, *node.participant, publication);
    if (topic != nullptr) {
        say_why_there_are_no_contents(agent, node, publication);
        agent.output().progress("ferret: Creating data reader listener...\n");
        topic_node.listener = new (std::nothrow) QuixSpyDataListener(
            publication.topicName, publication.typeName, type_code,
            settings_of(agent, publication,
                        topic_node.typeSupport != nullptr || has_known_type(node, publication)));
        if (topic_node.listener != nullptr)
            return topic;
        agent.output().fail("ferret: Listener instantiation error\n");
    }
    if (type_code != nullptr) {
        DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
        DDS_TypeCodeFactory::get_instance()->delete_tc(type_code, exception);
    }
    return nullptr;
}

/// Watches a topic that the participant does not have yet. The listener is complete before its reader exists:
/// from then on other threads call it.
bool subscribe(QuixSpyAgent& agent, ParticipantNode& node, const Publication& publication) {
    agent.output().progress("ferret: Registering type... %s\n", QUIXSpy_text(publication.typeName).c_str());
    auto* const topic_node = QUIXHeap_allocateStructure<TopicNode>("struct QuixSpyDataListenerNode");
    if (topic_node == nullptr)
        return agent.output().fail("ferret: Error allocating spyDataListenerNode\n");
    if (!agent.make_room(node, publication.guid, publication.topicName, publication.typeName)) {
        QUIXHeap_free(topic_node);
        return false;
    }
    topic_node->writer = publication.guid;
    DDSTopic* const topic = make_topic_and_listener(agent, node, publication, *topic_node);
    if (topic == nullptr) {
        delete topic_node->typeSupport;
        QUIXHeap_free(topic_node);
        agent._topicRoom.give_back(publication.guid,
                                   QuixSpyTopicRoom::places(publication.topicName, publication.typeName));
        return false;
    }
    node.add_topic(topic_node);
    if (!record_writer(agent, *topic_node->listener, publication))
        return false;

    DDS_DataReaderQos qos;
    if (!build_reader_qos(agent, node, publication, qos))
        return false;
    DDSDataReader* const reader =
        node.subscriber->create_datareader(topic, qos, topic_node->listener, DDS_STATUS_MASK_ALL);
    if (reader == nullptr)
        return agent.output().fail("ferret: Create_datareader error\n");
    topic_node->reader = reader;
    // A profile may say that entities are not enabled when they are created.
    DDS_ReturnCode_t enabled = topic->enable();
    if (enabled == DDS_RETCODE_OK)
        enabled = reader->enable();
    if (enabled != DDS_RETCODE_OK)
        return agent.output().fail("ferret: enable error %d\n", enabled);
    // A profile may ask for more than even the first writer offers.
    tell_if_not_read(agent, topic_node, publication, publication.typeName);
    return true;
}

/// Whether a reader was created; nullopt where the publication is in conflict with what all participants
/// read.
std::optional<bool> read_as_it_fits(QuixSpyAgent& agent, const Publication& publication) {
    for (ParticipantNode* node = agent._participantList.head(); node != nullptr;
         node = QuixSpyList<ParticipantNode>::next(node)) {
        switch (fit_of(agent, *node, publication)) {
            case Fit::watching:
                add_writer(agent, *node, publication);
                return false;
            case Fit::free:
                return subscribe(agent, *node, publication);
            case Fit::failed:
                return false;
            case Fit::conflict:
                break;
        }
    }
    return std::nullopt;
}

} // namespace

bool QuixSpyAgent::on_publication_discovered(
    const char* ip, const RtpsGuid& guid, const char* topicName, const char* typeName,
    DDS_OwnershipQosPolicyKind ownership, DDS_ReliabilityQosPolicyKind reliability,
    DDS_DurabilityQosPolicyKind durability, bool keyed, const DDS_TypeCode* typeCode,
    const DDS_EntityNameQosPolicy& entityName, const DDS_StringSeq& endpointPartitions,
    const DDS_StringSeq& participantPartitions, DDS_TypeCodeAbsence absence,
    const DDS_EndpointBuiltinTopicData* announced) {
    const Publication publication{
        ip,    guid,     topicName, typeName,   ownership,          reliability,           durability,
        keyed, typeCode, absence,   entityName, endpointPartitions, participantPartitions, announced};
    if (!is_wanted(*this, publication))
        return false;
    std::optional<bool> subscribed = read_as_it_fits(*this, publication);
    if (!subscribed && _participantList.count >= kMostParticipants && forget_unwritten_topics(nullptr))
        subscribed = read_as_it_fits(*this, publication);
    if (subscribed)
        return *subscribed;
    if (_participantList.count >= kMostParticipants) {
        tell_unread(
            guid, topicName,
            std::to_string(kMostParticipants) + " participants of this tool read other types already");
        return false;
    }
    ParticipantNode* const added = make_further_participant(*this);
    return added != nullptr && subscribe(*this, *added, publication);
}
