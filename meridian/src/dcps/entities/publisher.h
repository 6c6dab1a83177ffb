#pragma once

#include "dcps/entities/endpoint_group.h"
#include "dcps/writer/user_writer.h"
#include "meridian/publisher.h"

namespace meridian::dcps {

struct WriterTraits {
    using Owner = WriterOwner;
    using Qos = DDS_PublisherQos;
    using Untyped = UserWriter;
    using Face = DDSDataWriter;
    static constexpr const char* kName = "publisher";
    static constexpr const char* kCreateGroup = "create_publisher";
    static constexpr uint32_t kGroupKind = 0x08;
    static constexpr const char* kEndpointName = "writer";
    static constexpr const char* kCreate = "create_datawriter";
    static constexpr const char* kFaceName = "TDataWriter";
    static constexpr rtps::EntityKind kWithKey = rtps::kUserWriterWithKey;
    static constexpr rtps::EntityKind kNoKey = rtps::kUserWriterNoKey;
    static constexpr auto kCreateFace = &DDSTypeSupport::create_datawriterI;
    static constexpr auto kDestroyFace = &DDSTypeSupport::destroy_datawriterI;
    static bool is_in_use(UserWriter& /*writer*/) { return false; }
};

/// See writer/user_writer.h for what writers are here for.
class PublisherImpl final : public EndpointGroup<WriterTraits> {
  public:
    PublisherImpl(ParticipantImpl& participant, const rtps::Guid& guid, const DDS_PublisherQos& qos)
        : EndpointGroup(participant, guid, qos) {}
    ~PublisherImpl() override = default;

    DDSDataWriter* lookup_datawriter(const char* topic_name) override { return find_endpoint(topic_name); }
    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos,
                                     DDSDataWriterListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override { return delete_endpoint(writer); }
};

} // namespace meridian::dcps
