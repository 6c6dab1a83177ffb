#pragma once

// QoS profiles from XML documents (OMG DDS-XML 1.0, building block "QoS"). docs/qos-documents.md lists every
// element that is understood and the rules of inheritance.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "meridian/qos.h"
#include "types/model/type.h"

namespace meridian::qos {

/// All profiles that are loaded. After load, every other operation may be called on any thread, as long as
/// none loads again.
class ProfileStore {
  public:
    ProfileStore();
    ~ProfileStore();
    ProfileStore(const ProfileStore&) = delete;
    ProfileStore& operator=(const ProfileStore&) = delete;

    /// Replaces everything by the profiles and types of the string profile, if it is not empty, and then of
    /// the files. All or nothing: when one document cannot be used, false, the store is as it was, and
    /// `error` is one line "file:line: element <x>: reason" ("string profile:line: ..." for the string
    /// profile; without line or element where there is none).
    bool load(const DDS_ProfileQosPolicy& sources, std::string& error);

    /// Elements of profiles that are not known, one line each. A profile that holds one, or whose base does,
    /// can be named but not be used.
    const std::vector<std::string>& warnings() const;

    /// In the order of the documents.
    std::vector<std::string> libraries() const;
    /// In the order of the documents; empty for a library that does not exist.
    std::vector<std::string> profiles(const std::string& library) const;

    /// Replaces the QoS of a participant, topic, subscriber or reader by the defaults, changed by what the
    /// profile and its bases say. False, `qos` untouched and a reason in `error`, when the profile does not
    /// exist or cannot be used. The values are each possible, but may contradict each other: see
    /// qos/consistency.h. Of several <topic_qos> (<datareader_qos>) in a profile, the first counts whose
    /// topic_filter matches `topic_name`, else the one without topic_filter. Null: the one without
    /// topic_filter.
    template <typename Qos>
    bool read(const std::string& library, const std::string& profile, const char* topic_name, Qos& qos,
              std::string& error) const;

    /// The type that a <types> section of a document, or of one that it includes, defines under that name;
    /// empty when none does. May outlive the store.
    types::TypeRef type(const std::string& name) const;

  private:
    struct Contents;
    std::unique_ptr<Contents> contents_; // never null
};

} // namespace meridian::qos
