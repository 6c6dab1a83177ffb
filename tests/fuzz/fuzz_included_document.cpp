// Documents of types and QoS that include each other. The input is cut at bytes of 0: the first part is the
// document "a.xml" that is loaded, the others are "b.xml" and "c.xml" beside it.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "input.h"
#include "qos/profile_loader.h"
#include "types/documents/type_documents.h"
#include "xml/documents.h"

using namespace meridian;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// A folder of this process, which goes with it.
class Folder {
  public:
    Folder() {
        // In memory: a disk may keep one write waiting for seconds.
        std::string name = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        name += "/fuzz_included_document.XXXXXX";
        require(mkdtemp(name.data()) != nullptr);
        path = name;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::filesystem::path path;
};

/// One line, which begins with the document that it is about.
bool is_complaint(const std::string& error, const Folder& folder) {
    return error.compare(0, folder.path.native().size(), folder.path.native()) == 0 &&
           error.find('\n') == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    const char* at = reinterpret_cast<const char*>(data);
    const char* const end = at + size;
    for (const char* name : {"a.xml", "b.xml", "c.xml"}) {
        const char* const cut = std::find(at, end, '\0');
        std::ofstream(folder.path / name, std::ios::binary).write(at, cut - at);
        at = cut == end ? end : cut + 1;
    }
    const std::string document = folder.path / "a.xml";
    std::string error;

    xml::Documents documents;
    types::TypesByName types;
    const bool made = documents.add_file(document, error) && types::make_types(documents, types, error);
    require(made ? error.empty() : is_complaint(error, folder));

    qos::ProfileSet set;
    qos::ProfileLoader loader(set);
    error.clear();
    const bool loaded = set.documents.add_file(document, error) &&
                        loader.add(*set.documents.named().front(), error) && loader.finish(error);
    require(loaded ? error.empty() : is_complaint(error, folder));
    return 0;
}
