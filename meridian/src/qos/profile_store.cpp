#include "qos/profile_store.h"

#include <algorithm>

#include "platform/file.h"
#include "qos/entity_readers.h"
#include "qos/profile_loader.h"
#include "types/documents/type_documents.h"

namespace meridian::qos {

struct ProfileStore::Contents {
    ProfileSet set;
    types::TypeDocuments types;
};

namespace {

constexpr const char* kStringProfileLabel = "string profile";

/// The files of a URL profile, without "file://".
std::vector<std::string> file_names(const char* url_list) {
    std::vector<std::string> names;
    const std::string all = url_list == nullptr ? "" : url_list;
    for (size_t start = 0; start <= all.size();) {
        const size_t end = std::min(all.find(';', start), all.size());
        std::string name = trimmed(all.substr(start, end - start));
        if (name.compare(0, 7, "file://") == 0)
            name.erase(0, 7);
        if (!name.empty())
            names.push_back(name);
        start = end + 1;
    }
    return names;
}

std::string folder_of(const std::string& file) {
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : file.substr(0, slash + 1);
}

/// Takes the documents of one load, one after the other: their profiles and their types.
struct Loader {
    ProfileLoader profiles;
    types::TypeDocuments& types;
};

bool add_document(Loader& loader, const std::string& label, const std::string& folder, std::string source,
                  std::string& error) {
    std::string copy = source; // the parser works in the text itself
    std::unique_ptr<Document> document = Document::parse(label, std::move(copy), error);
    return document && loader.profiles.add(std::move(document), error) &&
           loader.types.load(label, source, folder, error);
}

bool add_string_profile(Loader& loader, const DDS_StringSeq& fragments, std::string& error) {
    std::string source;
    for (DDS_Long i = 0; i < fragments.length(); ++i) {
        if (fragments[i] != nullptr)
            source += fragments[i];
        if (source.size() > ProfileStore::kMaxDocumentSize) {
            error = std::string(kStringProfileLabel) + ": is larger than " +
                    std::to_string(ProfileStore::kMaxDocumentSize) + " bytes";
            return false;
        }
    }
    return source.empty() || add_document(loader, kStringProfileLabel, ".", std::move(source), error);
}

bool add_files(Loader& loader, const char* url_list, std::string& error) {
    const std::vector<std::string> names = file_names(url_list);
    if (names.empty()) {
        error =
            std::string("no file name in the URL profile \"") + (url_list == nullptr ? "" : url_list) + "\"";
        return false;
    }
    for (const std::string& name : names) {
        std::string source;
        if (!read_file(name, ProfileStore::kMaxDocumentSize, source, error)) {
            error = name + ": " + error;
            return false;
        }
        if (!add_document(loader, name, folder_of(name), std::move(source), error))
            return false;
    }
    return true;
}

template <typename Qos>
bool read_profile(const ProfileSet& set, const std::string& library, const std::string& profile_name,
                  EntityKind kind, const char* topic_name, Qos& qos, std::string& error) {
    const Profile* profile = set.find(library, profile_name);
    if (profile == nullptr) {
        error = "there is no QoS profile \"" + library + "::" + profile_name + "\"";
        return false;
    }
    Qos result;
    ElementReader reader;
    for (const Layer& layer : layers_of(*profile, kind, topic_name)) {
        reader.set_document(*layer.document);
        read_qos(reader, layer.element, result);
    }
    if (!reader.ok()) {
        error = reader.error();
        return false;
    }
    qos = result;
    return true;
}

} // namespace

ProfileStore::ProfileStore() : contents_(new Contents()) {}
ProfileStore::~ProfileStore() = default;

bool ProfileStore::load(const DDS_ProfileQosPolicy& sources, std::string& error) {
    std::unique_ptr<Contents> loaded(new Contents());
    Loader loader{ProfileLoader(loaded->set), loaded->types};
    if (!add_string_profile(loader, sources.string_profile, error))
        return false;
    for (DDS_Long i = 0; i < sources.url_profile.length(); ++i) {
        if (!add_files(loader, sources.url_profile[i], error))
            return false;
    }
    if (!loader.profiles.finish(error))
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

std::optional<ProfileName> ProfileStore::default_profile() const {
    const Profile* profile = contents_->set.default_profile;
    if (profile == nullptr)
        return std::nullopt;
    return ProfileName{profile->library, profile->name};
}

bool ProfileStore::participant_qos(const std::string& library, const std::string& profile,
                                   DDS_DomainParticipantQos& qos, std::string& error) const {
    return read_profile(contents_->set, library, profile, EntityKind::participant, nullptr, qos, error);
}

bool ProfileStore::subscriber_qos(const std::string& library, const std::string& profile,
                                  DDS_SubscriberQos& qos, std::string& error) const {
    return read_profile(contents_->set, library, profile, EntityKind::subscriber, nullptr, qos, error);
}

bool ProfileStore::topic_qos(const std::string& library, const std::string& profile, const char* topic_name,
                             DDS_TopicQos& qos, std::string& error) const {
    return read_profile(contents_->set, library, profile, EntityKind::topic, topic_name, qos, error);
}

bool ProfileStore::datareader_qos(const std::string& library, const std::string& profile,
                                  const char* topic_name, DDS_DataReaderQos& qos, std::string& error) const {
    return read_profile(contents_->set, library, profile, EntityKind::datareader, topic_name, qos, error);
}

types::TypeRef ProfileStore::type(const std::string& name) const {
    return contents_->types.find(name);
}

} // namespace meridian::qos
