// A QoS document of any bytes is loaded or refused with one line; what is loaded can be read, every profile
// of it.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "qos/consistency.h"
#include "qos/profile_loader.h"
#include "xml/documents.h"

using namespace meridian::qos;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

template <typename Qos>
void read(const Profile& profile, EntityKind kind, const char* topic_name) {
    Qos qos;
    QosReader reader;
    for (const Layer& layer : layers_of(profile, kind, topic_name)) {
        reader.set_document(*layer.document);
        reader.read(layer.element, qos);
    }
    require(reader.ok()); // the loader has read every element once
    (void)check_consistency(qos);
}

bool load(ProfileSet& set, std::string source, std::string& error) {
    ProfileLoader loader(set);
    return set.documents.add_text("document", std::move(source), error) &&
           loader.add(*set.documents.named().front(), error) && loader.finish(error);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ProfileSet set;
    std::string error;
    if (!load(set, std::string(data, data + size), error)) {
        require(error.compare(0, 9, "document:") == 0 && error.find('\n') == std::string::npos);
        return 0;
    }
    for (const Library& library : set.libraries) {
        for (const std::unique_ptr<Profile>& profile : library.profiles) {
            if (!profile->obstacle().empty())
                continue; // refused where it is to be used
            for (const char* topic_name : {static_cast<const char*>(nullptr), "Square"}) {
                read<DDS_DomainParticipantQos>(*profile, EntityKind::participant, topic_name);
                read<DDS_TopicQos>(*profile, EntityKind::topic, topic_name);
                read<DDS_SubscriberQos>(*profile, EntityKind::subscriber, topic_name);
                read<DDS_DataReaderQos>(*profile, EntityKind::datareader, topic_name);
            }
        }
    }
    return 0;
}
