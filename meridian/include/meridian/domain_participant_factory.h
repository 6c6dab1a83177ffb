#pragma once

#include "meridian/domain_participant.h"
#include "meridian/qos.h"
#include "meridian/sequence.h"

class DDSDomainParticipantFactory {
  public:
    /// Created on first use. Process-wide; operations may be called on any thread.
    static DDSDomainParticipantFactory* get_instance();
    /// Deletes what participants are left, then the factory. Always DDS_RETCODE_OK for a factory that holds
    /// none.
    static DDS_ReturnCode_t finalize_instance();

    virtual DDS_ReturnCode_t get_qos(DDS_DomainParticipantFactoryQos& qos) = 0;
    /// Loads the profiles of the string profile and of all files, replacing those loaded before. Sources that
    /// are the ones loaded already are not read again.
    /// DDS_RETCODE_ERROR when a document cannot be read or used; the logger then says file, line and reason,
    /// and nothing changes.
    virtual DDS_ReturnCode_t set_qos(const DDS_DomainParticipantFactoryQos& qos) = 0;

    virtual DDS_ReturnCode_t get_qos_profile_libraries(DDS_StringSeq& libraries) = 0;
    virtual DDS_ReturnCode_t get_qos_profiles(DDS_StringSeq& profiles, const char* library) = 0;
    virtual DDS_ReturnCode_t get_participant_qos_from_profile(DDS_DomainParticipantQos& qos,
                                                              const char* library, const char* profile) = 0;

    /// Owned by the factory until deleted. Enabled at once when the factory's QoS says so. Null when the QoS,
    /// an initial peer or the domain id cannot be used (the logger says why). The listener must be null.
    /// Looks up the names of peers.
    virtual DDSDomainParticipant* create_participant(DDS_DomainId_t domain_id,
                                                     const DDS_DomainParticipantQos& qos,
                                                     DDSDomainParticipantListener* listener,
                                                     DDS_StatusMask mask) = 0;
    /// DDS_RETCODE_PRECONDITION_NOT_MET while the participant contains entities, DDS_RETCODE_BAD_PARAMETER
    /// for one that is not this factory's.
    virtual DDS_ReturnCode_t delete_participant(DDSDomainParticipant* participant) = 0;

  protected:
    virtual ~DDSDomainParticipantFactory() = default;
};
