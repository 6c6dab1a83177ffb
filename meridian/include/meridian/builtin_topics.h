#pragma once

// The builtin topics: what is known of remote participants and endpoints (OMG DDS 1.4, 2.2.5), and the
// readers of the two endpoint topics.
//
// Each change of a remote endpoint is one sample. View state: new for the first sample of an endpoint, not
// new for later ones. An endpoint that is gone, by its own word or by lost liveliness of its participant, is
// one sample without valid data (disposed). Endpoints of this process are never reported. Samples carry the
// source time stamp of the announcement; where the remote did not send one, the time of reception.
// States are those of the moment of the change: an endpoint that came and went before samples were taken is
// one new sample and one without data. The data-available status ends with a take, unless the take was cut
// off by max_samples. Wait for it on their status conditions: the two readers have no listeners. Their QoS
// and that of their subscriber cannot be changed.
//
// An application that takes publications, or waits for them, knows a writer before it gets its samples: the
// other readers of the participant hand them out once the loan with the writer's first sample here was given
// back, or after a second.

#include "meridian/data_reader.h"
#include "meridian/locator.h"
#include "meridian/property.h"
#include "meridian/qos.h"
#include "meridian/type_code.h"

constexpr const char* DDS_PUBLICATION_TOPIC_NAME = "DCPSPublication";
constexpr const char* DDS_SUBSCRIPTION_TOPIC_NAME = "DCPSSubscription";

struct DDS_ParticipantBuiltinTopicData {
    DDS_BuiltinTopicKey_t key{};
    DDS_UserDataQosPolicy user_data;
    DDS_PropertyQosPolicy property;
    DDS_EntityNameQosPolicy participant_name;
    DDS_PartitionQosPolicy partition; // of the participant, see docs/partitions.md
    DDS_LocatorSeq default_unicast_locators;
    DDS_LocatorSeq metatraffic_unicast_locators;
    DDS_UnsignedLong domain_id = 0;
    DDS_Octet protocol_version[2] = {0, 0};
    DDS_Octet vendor_id[2] = {0, 0};
    DDS_Duration_t lease_duration{100, 0};
};

/// Owned; never null in a sample with valid data.
struct DDS_EndpointNames {
    char* topic_name = nullptr;
    char* type_name = nullptr;

    DDS_EndpointNames() = default;
    DDS_EndpointNames(const DDS_EndpointNames& other);
    DDS_EndpointNames& operator=(const DDS_EndpointNames& other);
    ~DDS_EndpointNames();
};
/// Why a publication has no type code.
enum DDS_TypeCodeAbsence {
    DDS_TYPE_CODE_NOT_ANNOUNCED, // only the name of the type was
    DDS_TYPE_CODE_NOT_TOLD,      // no participant that was asked for it told it in time
    DDS_TYPE_CODE_NOT_GENUINE,   // what was told does not match the hash that was announced
    DDS_TYPE_CODE_TOO_LARGE,     // above type_code_max_serialized_length
    DDS_TYPE_CODE_UNUSABLE       // what was announced or told is no type; the logger says why
};
/// Members that publications and subscriptions share; the group policies are those of the publisher or
/// subscriber.
struct DDS_EndpointBuiltinTopicData : DDS_EndpointNames, DDS_EndpointPolicies, DDS_GroupPolicies {
    DDS_BuiltinTopicKey_t key{};
    DDS_BuiltinTopicKey_t participant_key{};
    DDS_UserDataQosPolicy user_data;
    DDS_TopicDataQosPolicy topic_data;
    DDS_LocatorSeq unicast_locators;     // of the endpoint; its participant's default ones count when empty
    DDS_EntityNameQosPolicy entity_name; // publication or subscription name
    DDS_PropertyQosPolicy property;
    /// Type announced by the endpoint, or null. Owned by the reader's type table, valid until the participant
    /// is deleted.
    const DDS_TypeCode* type_code = nullptr;
    DDS_TypeCodeAbsence type_code_absence = DDS_TYPE_CODE_NOT_ANNOUNCED; // where there is none
    /// The type information as the endpoint announced it (DDS-XTypes 1.3, 7.6.3.2.2), serialized; empty when
    /// it announced none.
    DDS_OctetSeq type_information;
};
struct DDS_PublicationBuiltinTopicData : DDS_EndpointBuiltinTopicData {
    DDS_LifespanQosPolicy lifespan;
    DDS_Long ownership_strength = 0;
};
struct DDS_SubscriptionBuiltinTopicData : DDS_EndpointBuiltinTopicData {
    DDS_TimeBasedFilterQosPolicy time_based_filter;
};
using DDS_PublicationBuiltinTopicDataSeq = DDS_Sequence<DDS_PublicationBuiltinTopicData>;
using DDS_SubscriptionBuiltinTopicDataSeq = DDS_Sequence<DDS_SubscriptionBuiltinTopicData>;

/// Reader of one builtin topic.
template <typename Data>
class DDSBuiltinTopicDataReader : public DDSDataReader {
  public:
    /// The reader as one of this topic, or null when it is not.
    static DDSBuiltinTopicDataReader* narrow(DDSDataReader* reader) {
        return dynamic_cast<DDSBuiltinTopicDataReader*>(reader);
    }

    /// Takes up to max_samples (DDS_LENGTH_UNLIMITED: all) of any states (else DDS_RETCODE_UNSUPPORTED) on
    /// loan, to be given back with return_loan. DDS_RETCODE_PRECONDITION_NOT_MET for sequences that own
    /// memory or have a loan already, DDS_RETCODE_NO_DATA when there is none.
    virtual DDS_ReturnCode_t take(DDS_Sequence<Data>& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                  DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                  DDS_InstanceStateMask instance_states) = 0;
    /// DDS_RETCODE_PRECONDITION_NOT_MET when the sequences are not on loan from this reader.
    virtual DDS_ReturnCode_t return_loan(DDS_Sequence<Data>& data, DDS_SampleInfoSeq& infos) = 0;
    /// Fills the key members of `holder`. DDS_RETCODE_BAD_PARAMETER for a handle that is not valid.
    virtual DDS_ReturnCode_t get_key_value(Data& holder, const DDS_InstanceHandle_t& handle) = 0;

  protected:
    ~DDSBuiltinTopicDataReader() override = default;
};
using DDSPublicationBuiltinTopicDataDataReader = DDSBuiltinTopicDataReader<DDS_PublicationBuiltinTopicData>;
using DDSSubscriptionBuiltinTopicDataDataReader = DDSBuiltinTopicDataReader<DDS_SubscriptionBuiltinTopicData>;
