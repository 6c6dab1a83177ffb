#pragma once

// Documents for the tests, and stores made from them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "qos/profile_store.h"

namespace meridian::qos::test {

/// One profile "L::P" with this content, which begins on line 2.
inline std::string in_profile(const std::string& content) {
    return "<dds><qos_library name=\"L\"><qos_profile name=\"P\">\n" + content +
           "\n</qos_profile></qos_library></dds>";
}

inline bool load_string(ProfileStore& store, const std::string& document, std::string& error) {
    DDS_ProfileQosPolicy sources;
    DDS_StringSeq_append(sources.string_profile, document.c_str());
    return store.load(sources, error);
}

/// What loading says, or using the first profile; "loaded" when all is well.
inline std::string result_in(ProfileStore& store, bool loaded, std::string error) {
    if (!loaded)
        return error;
    for (const std::string& library : store.libraries()) {
        for (const std::string& profile : store.profiles(library)) {
            DDS_SubscriberQos qos;
            return store.read(library, profile, nullptr, qos, error) ? "loaded" : error;
        }
    }
    return "loaded";
}

inline std::string result_of(const std::string& document) {
    ProfileStore store;
    std::string error;
    const bool loaded = load_string(store, document, error);
    return result_in(store, loaded, error);
}

/// A file that goes away with the object.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& contents) {
        char name[] = "/tmp/ferret-qos-XXXXXX";
        const int descriptor = mkstemp(name);
        path_ = name;
        std::FILE* file = fdopen(descriptor, "wb");
        std::fwrite(contents.data(), 1, contents.size(), file);
        std::fclose(file);
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

inline std::string joined(const DDS_StringSeq& strings) {
    std::string text;
    for (DDS_Long i = 0; i < strings.length(); ++i)
        text += (i == 0 ? "" : "|") + std::string(strings[i]);
    return text;
}

inline std::string joined(const DDS_OctetSeq& octets) {
    std::string text;
    for (DDS_Long i = 0; i < octets.length(); ++i)
        text += (i == 0 ? "" : ",") + std::to_string(octets[i]);
    return text;
}

} // namespace meridian::qos::test
