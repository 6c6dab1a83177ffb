#pragma once

#include <memory>
#include <vector>

#include "dcps/entities/participant.h"
#include "discovery/announcement_watch.h"
#include "meridian/domain_participant_factory.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// The factory behind DDSDomainParticipantFactory.
class FactoryImpl final : public DDSDomainParticipantFactory {
  public:
    FactoryImpl();
    /// Deletes what participants are left.
    ~FactoryImpl() override = default;

    DDS_ReturnCode_t get_qos(DDS_DomainParticipantFactoryQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DomainParticipantFactoryQos& qos) override;
    DDS_ReturnCode_t get_qos_profile_libraries(DDS_StringSeq& libraries) override;
    DDS_ReturnCode_t get_qos_profiles(DDS_StringSeq& profiles, const char* library) override;
    DDS_ReturnCode_t get_participant_qos_from_profile(DDS_DomainParticipantQos& qos, const char* library,
                                                      const char* profile) override;
    DDSDomainParticipant* create_participant(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                             DDSDomainParticipantListener* listener,
                                             DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_participant(DDSDomainParticipant* participant) override;

  private:
    std::shared_ptr<const qos::ProfileStore> profiles() MERIDIAN_EXCLUDES(profiles_mutex_);
    /// Null and a text in `error` when the QoS cannot be used.
    std::unique_ptr<ParticipantImpl> make_participant(DDS_DomainId_t domain_id,
                                                      const DDS_DomainParticipantQos& qos,
                                                      std::string& error);
    bool is_in_use(const rtps::GuidPrefix& prefix) MERIDIAN_REQUIRES(mutex_);

    const SharedParts shared_;
    Mutex mutex_;
    DDS_DomainParticipantFactoryQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<ParticipantImpl>> participants_ MERIDIAN_GUARDED_BY(mutex_);
    /// Apart from mutex_, so that a participant can ask while it is locked itself.
    Mutex profiles_mutex_;
    std::shared_ptr<const qos::ProfileStore> profiles_ MERIDIAN_GUARDED_BY(profiles_mutex_);
};

} // namespace meridian::dcps
