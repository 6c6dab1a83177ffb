#pragma once

#include "dcps/entities/endpoint_group.h"
#include "dcps/reader/user_reader.h"
#include "meridian/subscriber.h"

namespace meridian::dcps {

struct ReaderTraits {
    using Owner = ReaderOwner;
    using Qos = DDS_SubscriberQos;
    using Untyped = UserReader;
    using Face = DDSDataReader;
    static constexpr const char* kName = "subscriber";
    static constexpr const char* kCreateGroup = "create_subscriber";
    static constexpr uint32_t kGroupKind = 0x09;
    static constexpr const char* kEndpointName = "reader";
    static constexpr const char* kCreate = "create_datareader";
    static constexpr const char* kFaceName = "TDataReader";
    static constexpr rtps::EntityKind kWithKey = rtps::kUserReaderWithKey;
    static constexpr rtps::EntityKind kNoKey = rtps::kUserReaderNoKey;
    static constexpr auto kCreateFace = &DDSTypeSupport::create_datareaderI;
    static constexpr auto kDestroyFace = &DDSTypeSupport::destroy_datareaderI;
    static bool is_in_use(UserReader& reader) { return reader.has_loans(); }
};

class SubscriberImpl final : public EndpointGroup<ReaderTraits> {
  public:
    SubscriberImpl(ParticipantImpl& participant, const rtps::Guid& guid, const DDS_SubscriberQos& qos)
        : EndpointGroup(participant, guid, qos) {}
    ~SubscriberImpl() override = default;

    discovery::AnnouncementWatch& announcements() const override;
    DDS_ReturnCode_t participant_of_endpoint(DDS_ParticipantBuiltinTopicData& data,
                                             const DDS_InstanceHandle_t& endpoint) override;

    DDSDataReader* lookup_datareader(const char* topic_name) override { return find_endpoint(topic_name); }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                     DDSDataReaderListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override { return delete_endpoint(reader); }
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                             const char* topic_name) override;
};

} // namespace meridian::dcps
