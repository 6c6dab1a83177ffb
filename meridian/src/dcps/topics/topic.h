#pragma once

#include <string>

#include "dcps/common/entity_impl.h"
#include "dcps/topics/type_registry.h"
#include "meridian/domain_participant.h"
#include "meridian/topic.h"

namespace meridian::dcps {

/// A topic of a participant, which shares it with its readers and writers. Topics have nothing to switch on:
/// they are enabled with their participant.
class TopicImpl final : public EntityImpl<DDSTopic> {
  public:
    using Participant = EntityImpl<DDSDomainParticipant>;

    /// `type` is null for the builtin topics.
    TopicImpl(Participant& participant, const rtps::Guid& guid, std::string name, std::string type_name,
              const DDS_TopicQos& qos, TypeRegistry::Type type = nullptr);
    ~TopicImpl() override = default;

    const TypeRegistry::Type& type() const { return type_; }

    DDS_ReturnCode_t enable() override;
    const char* get_name() override { return name_.c_str(); }
    const char* get_type_name() override { return type_name_.c_str(); }
    DDSDomainParticipant* get_participant() override;
    DDS_ReturnCode_t get_qos(DDS_TopicQos& qos) override;

  private:
    Participant& participant_;
    const std::string name_;
    const std::string type_name_;
    const TypeRegistry::Type type_;
    const DDS_TopicQos qos_;
};

} // namespace meridian::dcps
