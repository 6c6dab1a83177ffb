#pragma once

// The construction of the tool's participants from its settings.

#include "agent/QuixAgent.h"
#include "meridian/domain_participant.h"
#include "meridian/domain_participant_factory.h"
#include "meridian/transport.h"

/// What the construction uses of the middleware; tests give stand-ins.
struct QuixAgentMiddleware {
    DDSDomainParticipantFactory* factory;
    DDS_ReturnCode_t (*get_transport_property)(DDSDomainParticipant*, QUIXTransport_Property&);
    DDS_ReturnCode_t (*set_transport_property)(DDSDomainParticipant*, const QUIXTransport_Property&);
};

/// What the caller asks for beside the agent's settings; see QuixAgent::createDomainParticipant.
struct QuixAgentParticipantRequest {
    int participantPartitionCount = 0;
    const char** participantPartitions = nullptr;
    int subscriberPartitionCount = 0;
    const char** subscriberPartitions = nullptr;
    bool setDiscoveryPlugins = false;
    DDS_DiscoveryConfigBuiltinPluginKind discoveryPlugins = DDS_DISCOVERYCONFIG_BUILTIN_SDP;
    DDSDomainParticipant* existing = nullptr;
};

/// The work of QuixAgent::createDomainParticipant. A failure before enabling leaves a participant that exists
/// already to the factory's finalisation.
DDSDomainParticipant* QuixAgentParticipant_create(const QuixAgent& agent,
                                                  const QuixAgentMiddleware& middleware,
                                                  const QuixAgentParticipantRequest& request,
                                                  DDSSubscriber** subscriber);

/// Applies message sizes, TTL and shared-memory sizes to the transports of a participant that is not enabled
/// yet, and prints what changes. False, with a message from verbosity 1 on, when the middleware refuses.
bool QuixAgentTransports_adjust(const QuixAgent& agent, const QuixAgentMiddleware& middleware,
                                DDSDomainParticipant* participant);
