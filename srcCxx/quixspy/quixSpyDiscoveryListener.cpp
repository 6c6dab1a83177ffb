#include "quixspy/quixSpyDiscoveryListener.h"

#include "quixspy/quixSpyAgent.h"

QuixSpyDiscoveryListener::QuixSpyDiscoveryListener(
    QuixSpyAgent* agent, DDSPublicationBuiltinTopicDataDataReader* publicationReader,
    DDSSubscriptionBuiltinTopicDataDataReader* subscriptionReader, bool showHandle, bool showSampleIdentity,
    bool showSampleFlags, int32_t typeWidth, int32_t topicWidth, PrintSample printSample, bool showPartition)
    : agent_(agent),
      publication_reader_(publicationReader),
      subscription_reader_(subscriptionReader),
      _showHandle(showHandle),
      _showSampleIdentity(showSampleIdentity),
      _showSampleFlags(showSampleFlags),
      _typeWidth(typeWidth),
      _topicWidth(topicWidth),
      _printSample(printSample),
      _registry(agent->output()),
      _showPartition(showPartition) {}

void QuixSpyDiscoveryListener::on_data_available(DDSDataReader* reader) {
    if (reader != nullptr && reader == publication_reader_)
        report_available(*publication_reader_, true);
    else if (reader != nullptr && reader == subscription_reader_)
        report_available(*subscription_reader_, false);
    else
        agent_->output().fail("unidentified reader for DiscoveryListener\n");
}

template <typename Data>
void QuixSpyDiscoveryListener::report_available(DDSBuiltinTopicDataReader<Data>& reader, bool isWriter) {
    DDS_Sequence<Data> samples;
    DDS_SampleInfoSeq infos;
    DDS_ReturnCode_t result = reader.take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                                          DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
    if (result == DDS_RETCODE_NO_DATA)
        return;
    if (result != DDS_RETCODE_OK) {
        agent_->output().fail("take error %d\n", result);
        return;
    }
    for (DDS_Long i = 0; i < samples.length() && !agent_->is_over(); ++i) {
        const Data& sample = samples[i];
        const DDS_SampleInfo& info = infos[i];
        Data holder;
        result = reader.get_key_value(holder, info.instance_handle);
        if (result != DDS_RETCODE_OK) {
            agent_->output().fail("get_key_value error %d\n", result);
            continue;
        }
        const DDS_UnsignedLong* const key = holder.key.value;
        const RtpsGuid guid{key[0], key[1], key[2], key[3]};
        const bool keyed = checkIsKeyedTopic(guid);
        DDS_ParticipantBuiltinTopicData participant;
        result = reader.get_matched_publication_participant_data(participant, info.instance_handle);
        if (result != DDS_RETCODE_OK) {
            agent_->output().fail("get_matched_publication_participant_data error %d\n", result);
            return;
        }
        report_and_notify_agent(sample.topic_name, sample.type_name, sample.ownership.kind,
                                sample.reliability.kind, sample.durability.kind, keyed, isWriter, guid, info,
                                sample.type_code, sample.unicast_locators, sample.entity_name,
                                sample.partition.name, participant.partition.name, sample.type_code_absence,
                                &sample);
        if (info.valid_data && info.instance_state == DDS_ALIVE_INSTANCE_STATE &&
            info.view_state == DDS_NEW_VIEW_STATE)
            ++(isWriter ? discoveredWriters : discoveredReaders);
    }
    result = reader.return_loan(samples, infos);
    if (result != DDS_RETCODE_OK)
        agent_->output().fail("return loan error %d\n", result);
    agent_->output().flush();
}

bool QuixSpyDiscoveryListener::checkIsKeyedTopic(const RtpsGuid& guid) const {
    // Entity kinds of DDSI-RTPS 2.5, 9.3.1.2. The two top bits (builtin, vendor-specific) do not matter for
    // the key.
    switch (guid.entityId & 0x3fU) {
        case 0x02:
        case 0x07:
        case 0x0b:
        case 0x0e:
        case 0x3d:
            return true;
        case 0x03:
        case 0x04:
        case 0x0c:
        case 0x0d:
        case 0x3c:
            return false;
        default:
            agent_->output().fail("Unknown writer\n");
            return true;
    }
}
