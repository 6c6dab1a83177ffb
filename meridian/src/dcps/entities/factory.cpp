#include "dcps/entities/factory.h"

#include <algorithm>
#include <utility>

#include "dcps/common/qos_change.h"
#include "discovery/conversions.h"
#include "platform/log.h"

namespace meridian::dcps {

namespace {

struct Singleton {
    Mutex mutex;
    std::unique_ptr<FactoryImpl> factory MERIDIAN_GUARDED_BY(mutex);
};

/// Never destroyed: a participant that was not deleted must not be torn down while static objects are.
Singleton& singleton() {
    static auto* instance = new Singleton;
    return *instance;
}

bool are_equal(const DDS_ProfileQosPolicy& a, const DDS_ProfileQosPolicy& b) {
    using discovery::to_strings;
    return to_strings(a.string_profile) == to_strings(b.string_profile) &&
           to_strings(a.url_profile) == to_strings(b.url_profile);
}

} // namespace

FactoryImpl::FactoryImpl() : profiles_(std::make_shared<const qos::ProfileStore>()) {}

std::shared_ptr<const qos::ProfileStore> FactoryImpl::profiles() {
    MutexLock lock(profiles_mutex_);
    return profiles_;
}

DDS_ReturnCode_t FactoryImpl::get_qos(DDS_DomainParticipantFactoryQos& qos) {
    MutexLock lock(mutex_);
    qos = qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t FactoryImpl::set_qos(const DDS_DomainParticipantFactoryQos& qos) {
    MutexLock lock(mutex_);
    // What was loaded from the same sources holds: a file may be gone by now, and participants of one process
    // should not differ.
    if (are_equal(qos.profile, qos_.profile)) {
        qos_ = qos;
        return DDS_RETCODE_OK;
    }
    auto loaded = std::make_shared<qos::ProfileStore>();
    std::string error;
    if (!loaded->load(qos.profile, error)) {
        MERIDIAN_LOG_ERROR("dcps", "%s", error.c_str());
        return DDS_RETCODE_ERROR;
    }
    for (const std::string& warning : loaded->warnings())
        MERIDIAN_LOG_WARNING("dcps", "%s", warning.c_str());
    qos_ = qos;
    MutexLock profiles_lock(profiles_mutex_);
    profiles_ = std::move(loaded);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t FactoryImpl::get_qos_profile_libraries(DDS_StringSeq& libraries) {
    libraries = discovery::to_string_seq(profiles()->libraries());
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t FactoryImpl::get_qos_profiles(DDS_StringSeq& profile_names, const char* library) {
    if (library == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    profile_names = discovery::to_string_seq(profiles()->profiles(library));
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t FactoryImpl::get_participant_qos_from_profile(DDS_DomainParticipantQos& qos,
                                                               const char* library, const char* profile) {
    if (library == nullptr || profile == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    std::string error;
    if (profiles()->read(library, profile, nullptr, qos, error))
        return DDS_RETCODE_OK;
    MERIDIAN_LOG_ERROR("dcps", "%s", error.c_str());
    return DDS_RETCODE_ERROR;
}

DDSDomainParticipant* FactoryImpl::create_participant(DDS_DomainId_t domain_id,
                                                      const DDS_DomainParticipantQos& qos,
                                                      DDSDomainParticipantListener* listener,
                                                      DDS_StatusMask /*mask*/) {
    if (listener != nullptr) {
        QUIXLog_badParameter("create_participant", "listener");
        return nullptr;
    }
    std::string error;
    std::unique_ptr<ParticipantImpl> made;
    if (is_consistent(qos, "participant"))
        made = make_participant(domain_id, qos, error);
    if (made == nullptr) {
        if (!error.empty())
            MERIDIAN_LOG_ERROR("dcps", "cannot create a participant of domain %d: %s", domain_id,
                               error.c_str());
        return nullptr;
    }
    warn_of_properties_without_effect(qos.property);
    MutexLock lock(mutex_);
    if (is_in_use(made->guid().prefix)) {
        MERIDIAN_LOG_ERROR("dcps", "cannot create a participant: another one has the GUID prefix %s",
                           rtps::to_string(made->guid().prefix).c_str());
        return nullptr;
    }
    if (qos_.entity_factory.autoenable_created_entities && made->enable() != DDS_RETCODE_OK)
        return nullptr;
    participants_.push_back(std::move(made));
    return participants_.back().get();
}

std::unique_ptr<ParticipantImpl> FactoryImpl::make_participant(DDS_DomainId_t domain_id,
                                                               const DDS_DomainParticipantQos& qos,
                                                               std::string& error) {
    const DDS_WireProtocolQosPolicy& wire = qos.wire_protocol;
    const rtps::GuidPrefix prefix =
        shared_.own->choose(wire.rtps_host_id, wire.rtps_app_id, wire.rtps_instance_id);
    auto made =
        std::make_unique<ParticipantImpl>(domain_id, qos, prefix, shared_, [this] { return profiles(); });
    return made->check(error) ? std::move(made) : nullptr;
}

bool FactoryImpl::is_in_use(const rtps::GuidPrefix& prefix) {
    return std::any_of(participants_.begin(), participants_.end(),
                       [&prefix](const auto& other) { return other->guid().prefix == prefix; });
}

DDS_ReturnCode_t FactoryImpl::delete_participant(DDSDomainParticipant* participant) {
    std::unique_ptr<ParticipantImpl> deleted; // outside the lock: leaving the domain takes a moment
    MutexLock lock(mutex_);
    const auto found =
        std::find_if(participants_.begin(), participants_.end(),
                     [participant](const auto& candidate) { return candidate.get() == participant; });
    if (found == participants_.end())
        return DDS_RETCODE_BAD_PARAMETER;
    if ((*found)->has_entities())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    deleted = std::move(*found);
    participants_.erase(found);
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps

DDSDomainParticipantFactory* DDSDomainParticipantFactory::get_instance() {
    auto& singleton = meridian::dcps::singleton();
    meridian::MutexLock lock(singleton.mutex);
    if (singleton.factory == nullptr)
        singleton.factory = std::make_unique<meridian::dcps::FactoryImpl>();
    return singleton.factory.get();
}

DDS_ReturnCode_t DDSDomainParticipantFactory::finalize_instance() {
    auto& singleton = meridian::dcps::singleton();
    std::unique_ptr<meridian::dcps::FactoryImpl> finished;
    meridian::MutexLock lock(singleton.mutex);
    finished = std::move(singleton.factory);
    return DDS_RETCODE_OK;
}
