#pragma once

// Takes what the two builtin readers have, keeps the registry of remote endpoints and prints one line per
// event.

#include "meridian/builtin_topics.h"
#include "meridian/listener.h"
#include "meridian/sample_info.h"
#include "quixspy/quixSpyEndpointInfo.h"
#include "quixspy/quixSpyHelpers.h"

class QuixSpyAgent;

/// Not installed on the readers: the agent's loop calls it, on the main thread, one call at a time.
class QuixSpyDiscoveryListener : public DDSDataReaderListener {
  public:
    /// Agent and readers are not owned and outlive the listener.
    QuixSpyDiscoveryListener(QuixSpyAgent* agent, DDSPublicationBuiltinTopicDataDataReader* publicationReader,
                             DDSSubscriptionBuiltinTopicDataDataReader* subscriptionReader, bool showHandle,
                             bool showSampleIdentity, bool showSampleFlags, int32_t typeWidth,
                             int32_t topicWidth, PrintSample printSample, bool showPartition);

    /// Takes and reports everything that the reader, one of the two, has. Ends early, with the loan
    /// outstanding, when the participant of an endpoint is not known.
    void on_data_available(DDSDataReader* reader) override;

    /// Whether an endpoint of this entity kind has a topic with a key. True, with a message, for unknown
    /// kinds.
    bool checkIsKeyedTopic(const RtpsGuid& guid) const;

    /// Tells the agent of a publication, updates the registry and prints the line. For a sample without valid
    /// data only isWriter, guid and info count. True when a line for valid data was due.
    bool report_and_notify_agent(
        const char* topicName, const char* typeName, DDS_OwnershipQosPolicyKind ownership,
        DDS_ReliabilityQosPolicyKind reliability, DDS_DurabilityQosPolicyKind durability, bool keyed,
        bool isWriter, const RtpsGuid& guid, const DDS_SampleInfo& info, const DDS_TypeCode* typeCode,
        const DDS_LocatorSeq& locators, const DDS_EntityNameQosPolicy& entityName,
        const DDS_StringSeq& endpointPartitions, const DDS_StringSeq& participantPartitions,
        DDS_TypeCodeAbsence absence, const DDS_EndpointBuiltinTopicData* announced = nullptr);

    /// The endpoint's IPv4 address from its own locators, else from its participant's, else "unknown ip".
    void getIpv4Address(char (&out)[QUIXSPY_IP_SIZE], const RtpsGuid& guid, const DDS_LocatorSeq& locators);

    /// Prints the line of one event, unless the agent prints no discovery.
    void print_discovery_data(const QuixSpyEndpointInfo& record, bool isWriter, const DDS_SampleInfo& info);

    uint32_t discoveredWriters = 0;
    uint32_t discoveredReaders = 0;

    const QuixSpyEndpointInfoList& registry() const { return _registry; }

  private:
    template <typename Data>
    void report_available(DDSBuiltinTopicDataReader<Data>& reader, bool isWriter);

    QuixSpyAgent* agent_;
    DDSPublicationBuiltinTopicDataDataReader* publication_reader_;
    DDSSubscriptionBuiltinTopicDataDataReader* subscription_reader_;
    bool _showHandle;
    // Kept for the lines of samples, which share the constructor arguments; discovery lines have no use for
    // them.
    [[maybe_unused]] bool _showSampleIdentity;
    [[maybe_unused]] bool _showSampleFlags;
    int32_t _typeWidth;
    int32_t _topicWidth;
    [[maybe_unused]] PrintSample _printSample;
    QuixSpyEndpointInfoList _registry;
    bool _showPartition;
};

/// Writes the first IPv4 address among the locators, of whatever IPv4 transport. False, and `out` untouched,
/// when there is none.
bool QuixSpyDiscoveryListenerHelper_getIpv4Address(char (&out)[QUIXSPY_IP_SIZE],
                                                   const DDS_LocatorSeq& locators);
