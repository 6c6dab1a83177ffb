#include "qos/profile_store.h"

#include <algorithm>

#include "platform/text.h"
#include "qos/profile_loader.h"
#include "qos/qos_reader.h"
#include "types/documents/type_documents.h"

namespace meridian::qos {

struct ProfileStore::Contents {
    ProfileSet set;
    types::TypesByName types;
};

namespace {

/// The files of a URL profile, without "file://".
std::vector<std::string> file_names(const char* url_list) {
    std::vector<std::string> names;
    for (const std::string& part : split(url_list == nullptr ? "" : url_list, ";")) {
        std::string name = trimmed(part);
        if (name.compare(0, 7, "file://") == 0)
            name.erase(0, 7);
        if (!name.empty())
            names.push_back(name);
    }
    return names;
}

bool add_string_profile(xml::Documents& documents, const DDS_StringSeq& fragments, std::string& error) {
    std::string source;
    for (DDS_Long i = 0; i < fragments.length(); ++i)
        source += fragments[i] == nullptr ? "" : fragments[i];
    return source.empty() || documents.add_text("string profile", std::move(source), error);
}

bool add_files(xml::Documents& documents, const char* url_list, std::string& error) {
    const std::vector<std::string> names = file_names(url_list);
    if (names.empty())
        error =
            std::string("no file name in the URL profile \"") + (url_list == nullptr ? "" : url_list) + "\"";
    return !names.empty() && std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return documents.add_file(name, error);
    });
}

template <typename Qos>
constexpr EntityKind kKindOf = EntityKind::participant;
template <>
constexpr EntityKind kKindOf<DDS_TopicQos> = EntityKind::topic;
template <>
constexpr EntityKind kKindOf<DDS_SubscriberQos> = EntityKind::subscriber;
template <>
constexpr EntityKind kKindOf<DDS_DataReaderQos> = EntityKind::datareader;

} // namespace

ProfileStore::ProfileStore() : contents_(new Contents()) {}
ProfileStore::~ProfileStore() = default;

bool ProfileStore::load(const DDS_ProfileQosPolicy& sources, std::string& error) {
    std::unique_ptr<Contents> loaded(new Contents());
    xml::Documents& documents = loaded->set.documents;
    if (!add_string_profile(documents, sources.string_profile, error))
        return false;
    for (DDS_Long i = 0; i < sources.url_profile.length(); ++i) {
        if (!add_files(documents, sources.url_profile[i], error))
            return false;
    }
    ProfileLoader loader(loaded->set);
    for (const xml::Document* document : documents.named()) {
        if (!loader.add(*document, error))
            return false;
    }
    if (!loader.finish(error) || !types::make_types(documents, loaded->types, error))
        return false;
    contents_ = std::move(loaded);
    return true;
}

std::vector<std::string> ProfileStore::libraries() const {
    std::vector<std::string> names;
    for (const Library& library : contents_->set.libraries)
        names.push_back(library.name);
    return names;
}

std::vector<std::string> ProfileStore::profiles(const std::string& library) const {
    std::vector<std::string> names;
    const auto found = contents_->set.library_index.find(library);
    if (found == contents_->set.library_index.end())
        return names;
    for (const std::unique_ptr<Profile>& profile : contents_->set.libraries[found->second].profiles)
        names.push_back(profile->name);
    return names;
}

template <typename Qos>
bool ProfileStore::read(const std::string& library, const std::string& profile, const char* topic_name,
                        Qos& qos, std::string& error) const {
    const Profile* found = contents_->set.find(library, profile);
    if (found == nullptr) {
        error = "there is no QoS profile \"" + library + "::" + profile + "\"";
        return false;
    }
    error = found->obstacle();
    if (!error.empty())
        return false;
    Qos result;
    QosReader reader;
    for (const Layer& layer : layers_of(*found, kKindOf<Qos>, topic_name)) {
        reader.set_document(*layer.document);
        reader.read(layer.element, result);
    }
    if (!reader.ok()) {
        error = reader.error();
        return false;
    }
    qos = result;
    return true;
}
template bool ProfileStore::read(const std::string&, const std::string&, const char*,
                                 DDS_DomainParticipantQos&, std::string&) const;
template bool ProfileStore::read(const std::string&, const std::string&, const char*, DDS_TopicQos&,
                                 std::string&) const;
template bool ProfileStore::read(const std::string&, const std::string&, const char*, DDS_SubscriberQos&,
                                 std::string&) const;
template bool ProfileStore::read(const std::string&, const std::string&, const char*, DDS_DataReaderQos&,
                                 std::string&) const;

const std::vector<std::string>& ProfileStore::warnings() const {
    return contents_->set.warnings;
}

types::TypeRef ProfileStore::type(const std::string& name) const {
    const auto found = contents_->types.find(name);
    return found == contents_->types.end() ? types::TypeRef() : found->second;
}

} // namespace meridian::qos
