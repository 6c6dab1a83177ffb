#include "agent/QuixAgentParticipant.h"

#include <cstdio>
#include <cstring>

#include "agent/QuixAgentQosProfile.h"
#include "meridian/builtin_topics.h"

namespace {

/// Begins a step in which the middleware may log: what was printed before stands before it.
void begin_step(const QuixAgent& agent, const char* text) {
    agent.output().progress("%s\n", text);
    agent.output().flush();
}

/// True for DDS_RETCODE_OK; else false, with a message that says which operation failed.
bool check(const QuixAgent& agent, DDS_ReturnCode_t result, const char* operation) {
    return result == DDS_RETCODE_OK || agent.output().fail("%s %d\n", operation, result);
}

/// The names of a profile, each cut to what the buffers hold.
struct ProfileName {
    char library[255];
    char profile[255];

    void choose(const char* library_name, const char* profile_name) {
        std::snprintf(library, sizeof library, "%s", library_name);
        std::snprintf(profile, sizeof profile, "%s", profile_name);
    }
};

bool contains(const DDS_StringSeq& names, const char* name) {
    for (DDS_Long i = 0; i < names.length(); ++i) {
        if (names[i] != nullptr && std::strcmp(names[i], name) == 0)
            return true;
    }
    return false;
}

bool has_profile(DDSDomainParticipantFactory& factory, const char* library, const char* profile) {
    DDS_StringSeq libraries;
    if (factory.get_qos_profile_libraries(libraries) != DDS_RETCODE_OK || !contains(libraries, library))
        return false;
    DDS_StringSeq profiles;
    return factory.get_qos_profiles(profiles, library) == DDS_RETCODE_OK && contains(profiles, profile);
}

bool set_up_factory(const QuixAgent& agent, DDSDomainParticipantFactory& factory) {
    DDS_DomainParticipantFactoryQos qos;
    if (!check(agent, factory.get_qos(qos), "get_qos on DomainParticipantFactory error"))
        return false;
    DDS_StringSeq_from_array(qos.profile.string_profile, QUIX_AGENT_QOS_FRAGMENTS,
                             QUIX_AGENT_QOS_FRAGMENT_COUNT);
    if (agent.qosFile != nullptr) {
        const char* const file = agent.qosFile;
        DDS_StringSeq_from_array(qos.profile.url_profile, &file, 1);
    }
    qos.entity_factory.autoenable_created_entities = false;
    if (factory.set_qos(qos) != DDS_RETCODE_OK)
        return agent.output().fail("set_qos on DomainParticipantFactory error %d\n", 0);
    return true;
}

ProfileName choose_profile(const QuixAgent& agent, DDSDomainParticipantFactory& factory) {
    ProfileName chosen;
    if (has_profile(factory, QUIX_AGENT_USER_QOS_LIBRARY, QUIX_AGENT_USER_QOS_PROFILE))
        chosen.choose(QUIX_AGENT_USER_QOS_LIBRARY, QUIX_AGENT_USER_QOS_PROFILE);
    else
        chosen.choose(QUIX_AGENT_QOS_LIBRARY, QUIX_AGENT_QOS_PROFILE);
    if (agent.qosProfile != nullptr) {
        if (has_profile(factory, agent.qosLibraryName, agent.qosProfileName))
            chosen.choose(agent.qosLibraryName, agent.qosProfileName);
        else
            agent.output().fail("QoS profile '%s' was not found. Using default configuration.\n",
                                agent.qosProfile);
    }
    return chosen;
}

bool check_property(const QuixAgent& agent, DDS_ReturnCode_t result) {
    return check(agent, result, "DDS_PropertyQosPolicyHelper_add_property error");
}

/// Sets a property to "1" unless the profile has a value for it.
bool add_compatibility_property(const QuixAgent& agent, DDS_PropertyQosPolicy& properties, const char* name) {
    return DDS_PropertyQosPolicyHelper_lookup_property(properties, name) != nullptr ||
           check_property(agent, DDS_PropertyQosPolicyHelper_add_property(properties, name, "1", false));
}

bool set_properties(const QuixAgent& agent, DDS_PropertyQosPolicy& properties) {
    if (!check_property(agent, DDS_PropertyQosPolicyHelper_assert_property(
                                   properties, "dds.builtin_type.auto_register", "0", false)))
        return false;
    if (agent.use43LargeDataFormat &&
        (!add_compatibility_property(agent, properties,
                                     "dds.data_writer.protocol.use_43_large_data_format") ||
         !add_compatibility_property(agent, properties, "dds.data_reader.protocol.use_43_large_data_format")))
        return false;
    return !agent.use510CompatibleLocatorKinds ||
           add_compatibility_property(agent, properties, "dds.transport.use_510_compatible_locator_kinds");
}

void apply_settings(const QuixAgent& agent, const QuixAgentParticipantRequest& request,
                    DDS_DomainParticipantQos& qos) {
    if (agent.participantIndex != -1)
        qos.wire_protocol.participant_id = agent.participantIndex;
    if (agent.appId != 0)
        qos.wire_protocol.rtps_app_id = agent.appId;
    if (agent.transportMask != DDS_TRANSPORTBUILTIN_MASK_DEFAULT)
        qos.transport_builtin.mask = agent.transportMask;
    if (agent.msgMaxSize != -1)
        qos.receiver_pool.buffer_size = agent.msgMaxSize;
    if (agent.tcMaxSize != 4096)
        qos.resource_limits.type_code_max_serialized_length = agent.tcMaxSize;
    if (agent.peerCount > 0)
        DDS_StringSeq_from_array(qos.discovery.initial_peers, agent.peerList, agent.peerCount);
    if (request.setDiscoveryPlugins)
        qos.discovery_config.builtin_discovery_plugins = request.discoveryPlugins;
    if (qos.participant_name.name == nullptr || qos.participant_name.name[0] == '\0')
        QuixAgent_replaceString(qos.participant_name.name, agent.title);
}

bool build_qos(const QuixAgent& agent, const QuixAgentParticipantRequest& request,
               DDSDomainParticipantFactory& factory, const ProfileName& profile,
               DDS_DomainParticipantQos& qos) {
    begin_step(agent, "loading QoS ...");
    if (!check(agent, factory.get_participant_qos_from_profile(qos, profile.library, profile.profile),
               "get_participant_qos_from_profile error") ||
        !set_properties(agent, qos.property))
        return false;
    apply_settings(agent, request, qos);
    if (!removeMonitoringProperties(qos.property, agent.output()))
        return agent.output().fail("removeMonitoringProperties error\n");
    if (agent.domainTag != nullptr &&
        !check(agent,
               DDS_PropertyQosPolicyHelper_assert_property(qos.property, "dds.domain_participant.domain_tag",
                                                           agent.domainTag, false),
               "QUIXAgent: set domainTag"))
        return false;
    if (request.participantPartitionCount > 0) {
        DDS_StringSeq_from_array(qos.partition.name, request.participantPartitions,
                                 request.participantPartitionCount);
    }
    return true;
}

/// Everything that must happen between the creation and the enabling of the participant.
bool prepare(const QuixAgent& agent, const QuixAgentMiddleware& middleware, const ProfileName& profile,
             DDSDomainParticipant& participant) {
    if (!check(agent, participant.set_default_topic_qos_with_profile(profile.library, profile.profile),
               "QUIXAgent: set_default_topic_qos_with_profile") ||
        !check(agent, participant.set_default_subscriber_qos_with_profile(profile.library, profile.profile),
               "QUIXAgent: set_default_subscriber_qos_with_profile") ||
        !check(agent, participant.set_default_datareader_qos_with_profile(profile.library, profile.profile),
               "QUIXAgent: set_default_datareader_qos_with_profile") ||
        !QuixAgentTransports_adjust(agent, middleware, &participant))
        return false;

    // The builtin readers exist from their first look-up on: nothing that is announced after the enabling is
    // lost.
    DDSSubscriber* const builtin = participant.get_builtin_subscriber();
    if (builtin == nullptr)
        return agent.output().fail("get_builtin_subscriber error\n");
    if (builtin->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME) == nullptr)
        return agent.output().fail("lookup DCPSPublication error\n");
    if (builtin->lookup_datareader(DDS_SUBSCRIPTION_TOPIC_NAME) == nullptr)
        return agent.output().fail("lookup DCPSSubscription error\n");
    return true;
}

void destroy(const QuixAgent& agent, DDSDomainParticipantFactory& factory,
             DDSDomainParticipant& participant) {
    check(agent, participant.delete_contained_entities(), "delete_contained_entities error");
    check(agent, factory.delete_participant(&participant), "delete_participant error");
}

DDSSubscriber* create_subscriber(const QuixAgent& agent, const QuixAgentParticipantRequest& request,
                                 DDSDomainParticipant& participant) {
    begin_step(agent, "Creating subscriber...");
    DDS_SubscriberQos qos;
    if (!check(agent, participant.get_default_subscriber_qos(qos), "get_default_subscriber_qos error"))
        return nullptr;
    if (request.subscriberPartitionCount > 0) {
        DDS_StringSeq_from_array(qos.partition.name, request.subscriberPartitions,
                                 request.subscriberPartitionCount);
    }
    DDSSubscriber* const subscriber = participant.create_subscriber(qos, nullptr, DDS_STATUS_MASK_NONE);
    if (subscriber == nullptr) {
        agent.output().fail("create_subscriber error\n");
        return nullptr;
    }
    // A profile may say that entities are not enabled when they are created.
    return check(agent, subscriber->enable(), "QUIXAgent: Subscriber::enable error") ? subscriber : nullptr;
}

} // namespace

bool removeMonitoringProperties(DDS_PropertyQosPolicy& properties, QuixAgentOutput& output) {
    static constexpr char kPrefix[] = "kvo.monitor";
    bool removed = false;
    for (DDS_Long i = 0; i < properties.value.length();) {
        const char* const name = properties.value[i].name;
        if (name != nullptr && std::strncmp(name, kPrefix, sizeof kPrefix - 1) == 0 &&
            DDS_PropertyQosPolicyHelper_remove_property(properties, name) == DDS_RETCODE_OK)
            removed = true;
        else
            ++i;
    }
    if (removed)
        output.fail("The usage of the monitoring library is not supported in this tool.\n");
    return true;
}

DDSDomainParticipant* QuixAgentParticipant_create(const QuixAgent& agent,
                                                  const QuixAgentMiddleware& middleware,
                                                  const QuixAgentParticipantRequest& request,
                                                  DDSSubscriber** subscriber) {
    DDSDomainParticipantFactory& factory = *middleware.factory;
    if (!set_up_factory(agent, factory))
        return nullptr;
    const ProfileName profile = choose_profile(agent, factory);
    DDS_DomainParticipantQos qos;
    if (!build_qos(agent, request, factory, profile, qos))
        return nullptr;

    begin_step(agent, "Creating domain participant...");
    DDSDomainParticipant* const participant =
        factory.create_participant(agent.domainId, qos, nullptr, DDS_STATUS_MASK_NONE);
    if (participant == nullptr) {
        agent.output().fail("create_participant error\n");
        return nullptr;
    }
    if (request.existing != nullptr)
        request.existing->ignore_participant(participant->get_instance_handle());
    if (!prepare(agent, middleware, profile, *participant))
        return nullptr;
    if (!check(agent, participant->enable(), "QUIXAgent: DomainParticipant::enable error")) {
        destroy(agent, factory, *participant);
        return nullptr;
    }
    *subscriber = create_subscriber(agent, request, *participant);
    return *subscriber != nullptr ? participant : nullptr;
}

DDSDomainParticipant* QuixAgent::createDomainParticipant(
    int participantPartitionCount, const char** participantPartitions, int subscriberPartitionCount,
    const char** subscriberPartitions, bool setDiscoveryPlugins,
    DDS_DiscoveryConfigBuiltinPluginKind discoveryPlugins, DDSDomainParticipant* existing,
    DDSSubscriber** subscriber) {
    const QuixAgentMiddleware middleware{DDSDomainParticipantFactory::get_instance(),
                                         QUIXTransportSupport::get_builtin_transport_property,
                                         QUIXTransportSupport::set_builtin_transport_property};
    const QuixAgentParticipantRequest request{participantPartitionCount,
                                              participantPartitions,
                                              subscriberPartitionCount,
                                              subscriberPartitions,
                                              setDiscoveryPlugins,
                                              discoveryPlugins,
                                              existing};
    return QuixAgentParticipant_create(*this, middleware, request, subscriber);
}
