#include "qos/profile.h"

#include <algorithm>
#include <set>

#include "meridian/wildcard.h"

namespace meridian::qos {

namespace {

void append_layers(const Profile& profile, EntityKind kind, const char* topic_name,
                   std::vector<Layer>& layers);

void append_layers(const Profile& profile, const EntityQos& entity, const char* topic_name,
                   std::vector<Layer>& layers) {
    if (entity.base == nullptr) {
        if (profile.base != nullptr)
            append_layers(*profile.base, entity.kind, topic_name, layers);
    } else if (entity.base_element.empty()) {
        append_layers(*entity.base, entity.kind, topic_name, layers);
    } else if (const EntityQos* base = entity.base->find(entity.kind, entity.base_element)) {
        append_layers(*entity.base, *base, topic_name, layers);
    }
    layers.push_back({profile.document, entity.element});
}

/// The loader has refused cycles and long chains, so this ends soon.
void append_layers(const Profile& profile, EntityKind kind, const char* topic_name,
                   std::vector<Layer>& layers) {
    if (const EntityQos* entity = profile.select(kind, topic_name))
        append_layers(profile, *entity, topic_name, layers);
    else if (profile.base != nullptr)
        append_layers(*profile.base, kind, topic_name, layers);
}

/// Bases may be reached by several ways, so those that were seen are passed over.
std::string obstacle_in(const Profile* profile, std::set<const Profile*>& seen) {
    if (profile == nullptr || !seen.insert(profile).second)
        return {};
    std::string obstacle = profile->unknown_element;
    if (obstacle.empty())
        obstacle = obstacle_in(profile->base, seen);
    for (const std::unique_ptr<EntityQos>& entity : profile->entities) {
        if (obstacle.empty())
            obstacle = obstacle_in(entity->base, seen);
    }
    return obstacle;
}

} // namespace

std::string Profile::obstacle() const {
    std::set<const Profile*> seen;
    return obstacle_in(this, seen);
}

const EntityQos* Profile::select(EntityKind kind, const char* topic_name) const {
    const EntityQos* unfiltered = nullptr;
    for (const std::unique_ptr<EntityQos>& entity : entities) {
        if (entity->kind != kind)
            continue;
        if (entity->topic_filter) {
            if (QUIXString_matchesWildcard(entity->topic_filter->c_str(), topic_name))
                return entity.get();
        } else if (unfiltered == nullptr || entity->name.empty()) {
            unfiltered = entity.get();
        }
    }
    return unfiltered;
}

EntityQos* Profile::find(EntityKind kind, const std::string& element_name) const {
    const auto found =
        std::find_if(entities.begin(), entities.end(), [&](const std::unique_ptr<EntityQos>& entity) {
            return entity->kind == kind && entity->name == element_name;
        });
    return found == entities.end() ? nullptr : found->get();
}

std::vector<Layer> layers_of(const Profile& profile, EntityKind kind, const char* topic_name) {
    std::vector<Layer> layers;
    append_layers(profile, kind, topic_name, layers);
    return layers;
}

Profile* ProfileSet::find(const std::string& library, const std::string& profile) const {
    const auto found = by_name.find(library + "::" + profile);
    return found == by_name.end() ? nullptr : found->second;
}

} // namespace meridian::qos
