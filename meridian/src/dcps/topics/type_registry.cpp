#include "dcps/topics/type_registry.h"

#include "meridian/logger.h"
#include "platform/log.h"

namespace meridian::dcps {

namespace {

/// The middleware cannot work with a plugin that misses one of these.
bool is_complete(const PRESTypePlugin& plugin) {
    return plugin.onEndpointAttached != nullptr && plugin.onEndpointDetached != nullptr &&
           plugin.getSample != nullptr && plugin.returnSample != nullptr && plugin.deserialize != nullptr;
}

bool is_same_version(const PRESTypePluginVersion& a, const PRESTypePluginVersion& b) {
    return a.major == b.major && a.minor == b.minor && a.release == b.release && a.revision == b.revision;
}

bool is_same_type(const DDS_TypeCode* a, const DDS_TypeCode* b) {
    DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
    return a == b || (a != nullptr && b != nullptr && a->equal(b, exception));
}

bool is_same(const PRESTypePlugin& a, const PRESTypePlugin& b) {
    return a.deserialize == b.deserialize && a.onEndpointAttached == b.onEndpointAttached &&
           a.getKeyKind == b.getKeyKind && is_same_type(a.typeCode, b.typeCode);
}

} // namespace

RegisteredType::RegisteredType(const PRESTypePlugin& plugin, DDSTypeSupport* type_support)
    : plugin_(plugin), type_support_(type_support) {
    if (plugin_.onParticipantAttached != nullptr)
        participant_data_ = plugin_.onParticipantAttached(plugin_.registrationData, plugin_.typeCode);
}

RegisteredType::~RegisteredType() {
    if (plugin_.onParticipantDetached != nullptr && participant_data_ != nullptr)
        plugin_.onParticipantDetached(participant_data_);
}

DDS_ReturnCode_t TypeRegistry::register_type(const char* name, const PRESTypePlugin* plugin,
                                             DDSTypeSupport* type_support) {
    if (name == nullptr || *name == '\0' || plugin == nullptr || !is_complete(*plugin)) {
        QUIXLog_badParameter("register_type", name == nullptr || *name == '\0' ? "type_name" : "plugin");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (!is_same_version(plugin->version, PRES_TYPEPLUGIN_VERSION) ||
        plugin->languageConstant != PRES_TYPEPLUGIN_LANGUAGE_CONSTANT) {
        MERIDIAN_LOG_ERROR("dcps", "type \"%s\": its plugin was made for another version of this library",
                           name);
        return DDS_RETCODE_BAD_PARAMETER;
    }
    const std::lock_guard<std::recursive_mutex> guard(mutex_);
    const auto known = types_.find(name);
    if (known != types_.end()) {
        const PRESTypePlugin& registered = known->second->plugin();
        // A plugin that knows nothing of the type adds nothing to one that does.
        if (is_same(registered, *plugin) || (plugin->typeCode == nullptr && registered.typeCode != nullptr))
            return DDS_RETCODE_OK;
        // One that knows it serves the topics from here on.
        if (plugin->typeCode == nullptr || registered.typeCode != nullptr) {
            MERIDIAN_LOG_WARNING("dcps", "type \"%s\" is registered with another plugin", name);
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
    }
    auto type = std::make_shared<RegisteredType>(*plugin, type_support);
    if (plugin->onParticipantAttached != nullptr && type->participant_data() == nullptr) {
        type->disown();
        QUIXLog_failure("register_type", "on_participant_attached");
        return DDS_RETCODE_ERROR;
    }
    types_[name] = std::move(type);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t TypeRegistry::unregister_type(const char* name) {
    if (name == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    const std::lock_guard<std::recursive_mutex> guard(mutex_);
    const auto known = types_.find(name);
    if (known == types_.end())
        return DDS_RETCODE_BAD_PARAMETER;
    if (known->second.use_count() > 1)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    types_.erase(known);
    return DDS_RETCODE_OK;
}

TypeRegistry::Type TypeRegistry::find(const std::string& name) {
    const std::lock_guard<std::recursive_mutex> guard(mutex_);
    const auto known = types_.find(name);
    return known == types_.end() ? nullptr : known->second;
}

DDS_ReturnCode_t TypeRegistry::lock() {
    mutex_.lock();
    holder_ = std::this_thread::get_id();
    ++depth_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t TypeRegistry::unlock() {
    if (holder_.load() != std::this_thread::get_id())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    if (--depth_ == 0)
        holder_ = std::thread::id();
    mutex_.unlock();
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
