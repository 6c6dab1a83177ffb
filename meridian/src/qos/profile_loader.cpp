#include "qos/profile_loader.h"

#include <algorithm>
#include <cstring>

#include "platform/text.h"

namespace meridian::qos {

namespace {

/// Sections that say nothing about QoS: types and applications described in the same document.
constexpr const char* kOtherSections[] = {
    "types", "type_library", "domain_library", "domain_participant_library", "application_library",
};
/// QoS of entities that this side never has.
constexpr const char* kForeignEntities[] = {"publisher_qos", "datawriter_qos"};

struct EntityName {
    const char* element;
    EntityKind kind;
};
constexpr EntityName kEntityNames[] = {
    {"domain_participant_qos", EntityKind::participant}, {"domainparticipant_qos", EntityKind::participant},
    {"participant_qos", EntityKind::participant},        {"topic_qos", EntityKind::topic},
    {"subscriber_qos", EntityKind::subscriber},          {"datareader_qos", EntityKind::datareader},
};

/// A profile and one of its elements for every base.
constexpr int kMaxRecursion = 2 * (ProfileLoader::kMaxHeight + 1);

/// More than this in one profile is not looked through for every base.
constexpr size_t kMaxEntities = 256;

/// "a::b::c" into its parts; none when a part is empty.
std::vector<std::string> split_name(const std::string& name) {
    std::vector<std::string> parts = split(name, "::");
    if (std::find(parts.begin(), parts.end(), "") != parts.end())
        parts.clear();
    return parts;
}

template <typename Qos>
void read_and_drop(QosReader& reader, pugi::xml_node element) {
    Qos qos;
    reader.read(element, qos);
    reader.forget_durations();
}

/// Every element can be read by itself, so all of them are checked here, whether they will be asked for or
/// not.
void check_values(QosReader& reader, EntityKind kind, pugi::xml_node element) {
    switch (kind) {
        case EntityKind::participant:
            return read_and_drop<DDS_DomainParticipantQos>(reader, element);
        case EntityKind::topic:
            return read_and_drop<DDS_TopicQos>(reader, element);
        case EntityKind::subscriber:
            return read_and_drop<DDS_SubscriberQos>(reader, element);
        case EntityKind::datareader:
            return read_and_drop<DDS_DataReaderQos>(reader, element);
    }
}

std::string attribute(pugi::xml_node element, const char* name) {
    return trimmed(element.attribute(name).value());
}

} // namespace

bool ProfileLoader::add(const xml::Document& document, std::string& error) {
    if (std::strcmp(document.root().name(), "types") == 0)
        return true;
    document_ = &document;
    reader_.set_document(document);
    default_of_document_ = nullptr;
    for (const pugi::xml_node section : reader_.children(document.root(), QosReader::Attributes::any)) {
        if (std::strcmp(section.name(), "qos_library") == 0)
            add_library(section);
        else if (!is_one_of(section.name(), kOtherSections))
            reader_.fail(section, "unknown element in <dds>");
        if (!reader_.ok())
            break;
    }
    error = reader_.error();
    return reader_.ok();
}

void ProfileLoader::keep_unknown(Profile& profile) {
    const std::string message = reader_.forgive_unknown();
    if (message.empty())
        return;
    set_.warnings.push_back(message + "; the profile \"" + profile.library + "::" + profile.name +
                            "\" cannot be used");
    if (profile.unknown_element.empty())
        profile.unknown_element = message;
}

std::string ProfileLoader::name_of(pugi::xml_node element) {
    const std::string name = attribute(element, "name");
    if (name.empty())
        reader_.fail(element, "needs a name");
    else if (name.find("::") != std::string::npos)
        reader_.fail(element, "the name \"" + name + "\" must not contain \"::\"");
    return name;
}

void ProfileLoader::add_library(pugi::xml_node element) {
    reader_.check_attributes(element, {"name"});
    const std::string name = name_of(element);
    if (!reader_.ok())
        return;
    // A library may be continued later, also in another document.
    const auto [known, is_new] = set_.library_index.emplace(name, set_.libraries.size());
    if (is_new)
        set_.libraries.push_back({name, {}});
    Library& library = set_.libraries[known->second];
    for (const pugi::xml_node child : reader_.children(element, QosReader::Attributes::any)) {
        if (std::strcmp(child.name(), "qos_profile") == 0)
            add_profile(library, child);
        else
            reader_.fail(child, "unknown element in <qos_library>");
        if (!reader_.ok())
            return;
    }
}

void ProfileLoader::add_profile(Library& library, pugi::xml_node element) {
    reader_.check_attributes(
        element, {"name", "base_name", "is_default_qos", "is_default_participant_factory_profile"});
    std::unique_ptr<Profile> added(new Profile());
    Profile& profile = *added;
    profile.library = library.name;
    profile.name = name_of(element);
    profile.document = document_;
    profile.element = element;
    bool is_default = false;
    bool is_factory_default = false;
    reader_.boolean_attribute(element, "is_default_qos", is_default);
    reader_.boolean_attribute(element, "is_default_participant_factory_profile", is_factory_default);
    if (is_factory_default)
        reader_.fail(element, "the QoS of the participant factory cannot be set by a profile");
    if (is_default && default_of_document_ != nullptr)
        reader_.fail(element, "a second default profile beside \"" + default_of_document_->library +
                                  "::" + default_of_document_->name + "\"");
    if (!reader_.ok())
        return;
    if (is_default)
        default_of_document_ = &profile;
    const auto [known, is_new] = set_.by_name.emplace(profile.library + "::" + profile.name, &profile);
    if (!is_new)
        return reader_.fail(element, "the profile \"" + known->first + "\" exists already");
    library.profiles.push_back(std::move(added));
    entities_of_profile_.clear();
    for (const pugi::xml_node child : reader_.children(element, QosReader::Attributes::any)) {
        const auto entity =
            std::find_if(std::begin(kEntityNames), std::end(kEntityNames),
                         [child](const auto& name) { return std::strcmp(name.element, child.name()) == 0; });
        if (entity != std::end(kEntityNames))
            add_entity(profile, entity->kind, child);
        else if (!is_one_of(child.name(), kForeignEntities))
            reader_.fail_unknown(child, "<qos_profile>");
        keep_unknown(profile);
        if (!reader_.ok())
            return;
    }
}

void ProfileLoader::add_entity(Profile& profile, EntityKind kind, pugi::xml_node element) {
    const bool has_topic = kind == EntityKind::topic || kind == EntityKind::datareader;
    if (has_topic)
        reader_.check_attributes(element, {"name", "base_name", "topic_filter"});
    else
        reader_.check_attributes(element, {"name", "base_name"});
    std::unique_ptr<EntityQos> entity(new EntityQos());
    entity->kind = kind;
    entity->element = element;
    if (element.attribute("name"))
        entity->name = name_of(element);
    if (element.attribute("topic_filter"))
        entity->topic_filter = attribute(element, "topic_filter");
    // A name must be unique to be found; without one, the topics make the difference.
    std::string difference = std::to_string(static_cast<int>(kind));
    if (!entity->name.empty())
        difference += "name " + entity->name;
    else if (entity->topic_filter)
        difference += "filter " + *entity->topic_filter;
    if (!entities_of_profile_.insert(difference).second)
        return reader_.fail(element, "appears twice in <qos_profile>");
    if (entities_of_profile_.size() > kMaxEntities)
        return reader_.fail(element,
                            "more than " + std::to_string(kMaxEntities) + " elements in one profile");
    check_values(reader_, kind, element);
    profile.entities.push_back(std::move(entity));
}

void ProfileLoader::fail(const Profile& profile, pugi::xml_node element, const std::string& reason) {
    reader_.set_document(*profile.document);
    reader_.fail(element, reason);
}

void ProfileLoader::resolve_base(Profile& profile, pugi::xml_node element, EntityQos* entity) {
    if (!element.attribute("base_name"))
        return;
    const std::string name = attribute(element, "base_name");
    const std::vector<std::string> parts = split_name(name);
    const bool names_element = entity != nullptr && parts.size() == 3;
    Profile* base = nullptr;
    if (parts.size() == 1)
        base = set_.find(profile.library, parts[0]);
    else if (parts.size() == 2 || names_element)
        base = set_.find(parts[0], parts[1]);
    if (base != nullptr && names_element) {
        entity->base_element = parts[2];
        if (base->find(entity->kind, parts[2]) == nullptr)
            base = nullptr;
    }
    if (base == nullptr)
        fail(profile, element, "unknown base \"" + name + "\"");
    (entity != nullptr ? entity->base : profile.base) = base;
}

const Height& ProfileLoader::height_of(Profile& profile, EntityKind kind, EntityQos* entity) {
    Height& height = entity != nullptr ? entity->height : profile.height[static_cast<size_t>(kind)];
    if (height.state != Height::State::unknown || !reader_.ok())
        return height;
    if (depth_ > kMaxRecursion) {
        height.value = kMaxHeight; // or more, which need not be known
        return height;
    }
    height.state = Height::State::in_work;
    ++depth_;
    int value = 0;
    const bool has_own_base = entity != nullptr && entity->base != nullptr;
    if (Profile* base = has_own_base ? entity->base : profile.base) {
        const pugi::xml_node element = has_own_base ? entity->element : profile.element;
        EntityQos* base_entity =
            has_own_base && !entity->base_element.empty() ? base->find(kind, entity->base_element) : nullptr;
        const Height& over = height_of(*base, kind, base_entity);
        if (over.state == Height::State::in_work)
            fail(profile, element, "base \"" + attribute(element, "base_name") + "\" leads back to itself");
        else if (over.value >= kMaxHeight)
            fail(profile, element, "more than " + std::to_string(kMaxHeight) + " bases in a row");
        value = over.value + 1;
    }
    if (entity == nullptr) {
        for (const std::unique_ptr<EntityQos>& own : profile.entities) {
            if (own->kind == kind)
                value = std::max(value, height_of(profile, kind, own.get()).value);
        }
    }
    --depth_;
    height = {Height::State::known, value};
    return height;
}

bool ProfileLoader::finish(std::string& error) {
    for (const Library& library : set_.libraries) {
        for (const std::unique_ptr<Profile>& profile : library.profiles) {
            resolve_base(*profile, profile->element, nullptr);
            for (const std::unique_ptr<EntityQos>& entity : profile->entities)
                resolve_base(*profile, entity->element, entity.get());
        }
    }
    for (const Library& library : set_.libraries) {
        for (const std::unique_ptr<Profile>& profile : library.profiles) {
            for (const EntityKind kind :
                 {EntityKind::participant, EntityKind::topic, EntityKind::subscriber, EntityKind::datareader})
                height_of(*profile, kind, nullptr);
        }
    }
    error = reader_.error();
    return reader_.ok();
}

} // namespace meridian::qos
