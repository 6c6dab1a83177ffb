#pragma once

// The profiles of loaded documents, and how they inherit from each other. Built once by ProfileLoader, then
// only read.

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "xml/documents.h"

namespace meridian::qos {

/// Entities whose QoS is read.
enum class EntityKind { participant, topic, subscriber, datareader };
constexpr size_t kEntityKinds = 4;

struct Profile;

/// How many bases are below; found out, and needed, by ProfileLoader only.
struct Height {
    enum class State { unknown, in_work, known } state = State::unknown;
    int value = 0;
};

/// One <..._qos> element of a profile.
struct EntityQos {
    EntityKind kind = EntityKind::participant;
    std::string name;
    std::optional<std::string> topic_filter;
    pugi::xml_node element;

    // What it inherits from: an element of that name in a profile, or without a name the one that counts
    // there. None: from the same kind of element in the profile's own base.
    Profile* base = nullptr;
    std::string base_element;
    Height height;
};

struct Profile {
    std::string library;
    std::string name;
    const xml::Document* document = nullptr;
    pugi::xml_node element;
    Profile* base = nullptr;
    std::vector<std::unique_ptr<EntityQos>> entities;
    std::string unknown_element; // message about the first one, if any: the profile cannot be used then
    Height height[kEntityKinds];

    /// The one that counts for a topic: the first whose topic_filter matches, else the one without
    /// topic_filter (of several, that without name). Null when there is none.
    const EntityQos* select(EntityKind kind, const char* topic_name) const;
    /// Why this profile cannot be used: an unknown element in it or in one of its bases. Empty: it can be.
    std::string obstacle() const;
    EntityQos* find(EntityKind kind, const std::string& element_name) const;
};

/// An element and its document.
struct Layer {
    const xml::Document* document;
    pugi::xml_node element;
};
/// All elements that make up the QoS of an entity, the deepest base first.
std::vector<Layer> layers_of(const Profile& profile, EntityKind kind, const char* topic_name);

struct Library {
    std::string name;
    std::vector<std::unique_ptr<Profile>> profiles;
};

/// All that is loaded.
struct ProfileSet {
    xml::Documents documents; // the profiles refer to them
    std::vector<Library> libraries;
    std::unordered_map<std::string, size_t> library_index;
    std::unordered_map<std::string, Profile*> by_name; // "library::profile"
    std::vector<std::string> warnings;                 // one line each

    Profile* find(const std::string& library, const std::string& profile) const;
};

} // namespace meridian::qos
