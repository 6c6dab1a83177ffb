#pragma once

// The types of one participant: which plugin handles the samples of a type name.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "meridian/type_plugin.h"
#include "meridian/type_support.h"
#include "platform/seeded_hash.h"

namespace meridian::dcps {

/// One registration. Topics, readers and writers of the type share it, so that the plugin's data live as long
/// as the last of them.
class RegisteredType {
  public:
    /// Attaches the plugin to the participant; adopts the type support, which may be null.
    RegisteredType(const PRESTypePlugin& plugin, DDSTypeSupport* type_support);
    ~RegisteredType();
    RegisteredType(const RegisteredType&) = delete;
    RegisteredType& operator=(const RegisteredType&) = delete;

    const PRESTypePlugin& plugin() const { return plugin_; }
    DDSTypeSupport* type_support() const { return type_support_.get(); }
    PRESTypePluginParticipantData participant_data() const { return participant_data_; }
    bool is_keyed() const {
        return plugin_.getKeyKind != nullptr && plugin_.getKeyKind() != PRES_TYPEPLUGIN_NO_KEY;
    }
    /// Gives the type support back to the caller, after a registration that failed.
    void disown() { type_support_.release(); }

  private:
    const PRESTypePlugin plugin_;
    std::unique_ptr<DDSTypeSupport> type_support_;
    PRESTypePluginParticipantData participant_data_ = nullptr;
};

/// Any thread.
class TypeRegistry {
  public:
    using Type = std::shared_ptr<const RegisteredType>;

    DDS_ReturnCode_t register_type(const char* name, const PRESTypePlugin* plugin,
                                   DDSTypeSupport* type_support);
    DDS_ReturnCode_t unregister_type(const char* name);
    /// Null: not registered.
    Type find(const std::string& name);

    /// Keep other threads out until unlock; may be nested. DDS_RETCODE_PRECONDITION_NOT_MET for an unlock by
    /// another thread.
    DDS_ReturnCode_t lock();
    DDS_ReturnCode_t unlock();

  private:
    // Recursive: a thread that holds the public lock registers and unregisters under it.
    std::recursive_mutex mutex_;
    std::unordered_map<std::string, Type, SeededHash> types_;
    std::atomic<std::thread::id> holder_{};
    int depth_ = 0;
};

} // namespace meridian::dcps
