#pragma once

#include "meridian/entity.h"
#include "meridian/qos.h"

class DDSDomainParticipant;

class DDSTopicDescription {
  public:
    /// Owned by the description.
    virtual const char* get_name() = 0;
    virtual const char* get_type_name() = 0;
    virtual DDSDomainParticipant* get_participant() = 0;

  protected:
    virtual ~DDSTopicDescription() = default;
};

class DDSTopicListener;

class DDSTopic : public DDSEntity, public DDSTopicDescription {
  public:
    /// The topic behind a description, or null.
    static DDSTopic* narrow(DDSTopicDescription* description);

    virtual DDS_ReturnCode_t get_qos(DDS_TopicQos& qos) = 0;

  protected:
    ~DDSTopic() override = default;
};
