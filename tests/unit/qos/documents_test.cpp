// Whole documents: structure, files, encodings, and input that means harm.

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "documents.h"
#include "xml/documents.h"

using namespace meridian::qos;
using namespace meridian::qos::test;

namespace {

std::string load_urls(ProfileStore& store, std::initializer_list<std::string> urls) {
    DDS_ProfileQosPolicy sources;
    for (const std::string& url : urls)
        DDS_StringSeq_append(sources.url_profile, url.c_str());
    std::string error;
    const bool loaded = store.load(sources, error);
    return result_in(store, loaded, error);
}

std::string load_file(const std::string& contents) {
    ProfileStore store;
    const TemporaryFile file(contents);
    const std::string result = load_urls(store, {file.path()});
    return result.compare(0, file.path().size(), file.path()) == 0
               ? "FILE" + result.substr(file.path().size())
               : result;
}

std::string with_profile(const std::string& library, const std::string& profile,
                         const std::string& attributes = "") {
    return "<dds><qos_library name=\"" + library + "\">\n<qos_profile name=\"" + profile + "\"" + attributes +
           "/></qos_library></dds>";
}

std::string names_in(const ProfileStore& store) {
    std::string names;
    for (const std::string& library : store.libraries()) {
        for (const std::string& profile : store.profiles(library))
            names += library + "::" + profile + " ";
    }
    return names;
}

TEST(Documents, StructureIsChecked) {
    const std::pair<const char*, const char*> cases[] = {
        {"<dds/>", "loaded"},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><dds xmlns=\"urn:x\" version=\"1\"/>\n",
         "loaded"},
        {"<dds>\n<types><struct name=\"A\"><member name=\"x\" "
         "type=\"int32\"/></struct></types><domain_library/><domain_participant_library/"
         "><application_library/>"
         "<type_library/></dds>",
         "loaded"},
        {"<dds><qos_library name=\"L\"><qos_profile "
         "name=\"P\"><publisher_qos><a/></publisher_qos><datawriter_qos>x"
         "</datawriter_qos></qos_profile></qos_library></dds>",
         "loaded"},
        {"\n<profiles/>", "string profile:2: element <profiles>: the root element must be <dds> or <types>"},
        {"<dds/><dds/>", "string profile:1: element <dds>: a second root element"},
        {"<dds/>\njunk", "string profile:2: text outside of the root element"},
        {"junk", "string profile:1: text outside of the root element"},
        {" \n ", "string profile:1: no element in the document"},
        {"<!-- only this -->", "string profile:1: no element in the document"},
        {"<dds>\n<qos_libary/></dds>", "string profile:2: element <qos_libary>: unknown element in <dds>"},
        {"<dds>text</dds>",
         "string profile:1: element <dds>: holds the text \"text\" where elements are expected"},
        {"<dds><qos_library/></dds>", "string profile:1: element <qos_library>: needs a name"},
        {"<dds><qos_library name=\"a::b\"/></dds>",
         "string profile:1: element <qos_library>: the name \"a::b\" must not contain \"::\""},
        {"<dds><qos_library name=\"a\" x=\"\"/></dds>",
         "string profile:1: element <qos_library>: unknown attribute \"x\""},
        {"<dds><qos_library name=\"a\" name=\"b\"/></dds>",
         "string profile:1: element <qos_library>: attribute \"name\" appears twice"},
        {"<dds><qos_library name=\"a\"><datareader_qos/></qos_library></dds>",
         "string profile:1: element <datareader_qos>: unknown element in <qos_library>"},
        {"<dds><qos_library name=\"a\"><qos_profile/></qos_library></dds>",
         "string profile:1: element <qos_profile>: needs a name"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\"/>\n<qos_profile "
         "name=\"p\"/></qos_library></dds>",
         "string profile:2: element <qos_profile>: the profile \"a::p\" exists already"},
        {"<dds><qos_library name=\"a\"><qos_profile "
         "name=\"p\"><reader_qos/></qos_profile></qos_library></dds>",
         "string profile:1: element <reader_qos>: unknown element in <qos_profile>"},
        {"<dds><qos_library name=\"a\"><qos_profile "
         "name=\"p\"><topic_qos/><topic_qos/></qos_profile></qos_library>"
         "</dds>",
         "string profile:1: element <topic_qos>: appears twice in <qos_profile>"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\"><participant_qos/><domain_participant_qos/>"
         "</qos_profile></qos_library></dds>",
         "string profile:1: element <domain_participant_qos>: appears twice in <qos_profile>"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\"><subscriber_qos "
         "topic_filter=\"*\"/></qos_profile>"
         "</qos_library></dds>",
         "string profile:1: element <subscriber_qos>: unknown attribute \"topic_filter\""},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\" "
         "is_default_qos=\"maybe\"/></qos_library></dds>",
         "string profile:1: element <qos_profile>: attribute \"is_default_qos\": \"maybe\" is not one of "
         "true, "
         "false, "
         "1, 0"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\" "
         "is_default_participant_factory_profile=\"true\"/>"
         "</qos_library></dds>",
         "string profile:1: element <qos_profile>: the QoS of the participant factory cannot be set by a "
         "profile"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\" "
         "is_default_participant_factory_profile=\"false\"/>"
         "</qos_library></dds>",
         "loaded"},
        {"<dds><qos_library name=\"a\"><qos_profile name=\"p\" is_default_qos=\"true\"/>\n"
         "<qos_profile name=\"q\" is_default_qos=\"1\"/></qos_library></dds>",
         "string profile:2: element <qos_profile>: a second default profile beside \"a::p\""},
    };
    for (const auto& [document, expected] : cases)
        EXPECT_EQ(result_of(document), expected) << document;
}

TEST(Documents, MalformedOnes) {
    const std::pair<const char*, const char*> cases[] = {
        {"<dds>\n<qos_library name=\"L\">\n</dds>", "FILE:3: not well-formed: Start-end tags mismatch"},
        {"<dds>\n", "FILE:1: not well-formed: Start-end tags mismatch"},
        {"<dds", "FILE:1: not well-formed: Error parsing start element tag"},
        {"<dds><!-- ", "FILE:1: not well-formed: Error parsing comment"},
        {"", "FILE:1: no element in the document"},
        {"<dds>\n&lol;</dds>", "FILE:2: unknown entity \"&lol;\""},
        {"<dds>\n<!-- &lol; --><![CDATA[ &lol; ]]></dds>",
         "FILE:1: element <dds>: holds the text \"&lol;\" where elements are expected"},
        {"<dds>a & b</dds>", "FILE:1: a bare \"&\" (write \"&amp;\")"},
        {"<dds>&#0;</dds>", "FILE:1: unknown entity \"&#0;\""},
        {"<dds>&#xd800;</dds>", "FILE:1: unknown entity \"&#xd800;\""},
        {"<dds>&#99999999;</dds>", "FILE:1: unknown entity \"&#99999999;\""},
        {"<dds a=\"&x;\"/>", "FILE:1: unknown entity \"&x;\""},
        {"<!DOCTYPE dds [\n<!ENTITY a \"b\">]>\n<dds>&a;</dds>",
         "FILE:1: a document type with declarations is not supported"},
        {"<!DOCTYPE dds SYSTEM \"file:///etc/passwd\">\n<dds/>", "loaded"}, // and not read
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><dds/>",
         "FILE:1: encoding \"ISO-8859-1\" is not supported; use UTF-8"},
        {"<dds>\n\xe4</dds>", "FILE:2: not valid UTF-8"},
        {"\x7f"
         "ELF\x02\x01\x01",
         "FILE:1: a character that XML does not allow (code 2)"},
    };
    for (const auto& [document, expected] : cases)
        EXPECT_EQ(load_file(document), expected) << document;
    EXPECT_EQ(load_file(std::string("<dds>\n\0</dds>", 13)),
              "FILE:2: a character that XML does not allow (code 0)");
}

TEST(Documents, BillionLaughsAreNotLaughedAt) {
    std::string document = "<?xml version=\"1.0\"?>\n<!DOCTYPE dds [\n <!ENTITY l0 \"lol\">\n";
    for (int i = 1; i < 10; ++i) {
        document += " <!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            document += "&l" + std::to_string(i - 1) + ";";
        document += "\">\n";
    }
    EXPECT_EQ(load_file(document + "]>\n<dds>&l9;</dds>"),
              "FILE:2: a document type with declarations is not supported");
}

TEST(Documents, DeepNestingIsRefused) {
    std::string document = "<dds>\n";
    for (int i = 0; i < 100000; ++i)
        document += "<types>";
    std::string closed = document;
    for (int i = 0; i < 100000; ++i)
        closed += "</types>";
    EXPECT_EQ(load_file(closed + "</dds>"), "FILE:2: element <types>: nested deeper than 100 levels");
    EXPECT_EQ(load_file(document), "FILE:2: not well-formed: Start-end tags mismatch");
}

TEST(Documents, JunkOfManyMegabytesIsRefused) {
    EXPECT_EQ(load_file(std::string(meridian::xml::Documents::kMaxSize + 1, ' ')),
              ("FILE: is larger than 4194304 bytes"));
    std::string junk(meridian::xml::Documents::kMaxSize, 'x');
    EXPECT_EQ(load_file(junk), "FILE:1: text outside of the root element");
    for (size_t i = 0; i < junk.size(); ++i)
        junk[i] = static_cast<char>(i * 2654435761u >> 13);
    EXPECT_NE(load_file(junk), "loaded");
    std::string elements = "<dds>\n<qos_library name=\"L\">";
    int number = 0;
    while (elements.size() < meridian::xml::Documents::kMaxSize - 200) {
        const std::string name = std::to_string(number++);
        elements += "<qos_profile name=\"" + name + "\"/>";
        if (number % 2 == 0)
            elements += "</qos_library><qos_library name=\"" + name + "\">";
    }
    elements += "</qos_library></dds>";
    EXPECT_EQ(load_file(elements), "loaded");
}

TEST(Documents, FilesThatCannotBeRead) {
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {"/nowhere/q.xml"}), "/nowhere/q.xml: No such file or directory");
    EXPECT_EQ(load_urls(store, {"/tmp"}), "/tmp: is a directory");
    EXPECT_EQ(load_urls(store, {"/dev/zero"}), "/dev/zero: is not a regular file");
    EXPECT_EQ(load_urls(store, {""}), "no file name in the URL profile \"\"");
    EXPECT_EQ(load_urls(store, {" ; "}), "no file name in the URL profile \" ; \"");
    const std::string pipe = "/tmp/ferret-qos-pipe-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(load_urls(store, {pipe}), pipe + ": is not a regular file"); // and it is not waited for
    unlink(pipe.c_str());
    if (geteuid() != 0) { // root reads everything
        const TemporaryFile file("<dds/>");
        ASSERT_EQ(chmod(file.path().c_str(), 0), 0);
        EXPECT_EQ(load_urls(store, {file.path()}), file.path() + ": Permission denied");
    }
}

TEST(Documents, SeveralFiles) {
    const TemporaryFile first(with_profile("L", "a"));
    const TemporaryFile second(with_profile("M", "b"));
    const TemporaryFile third(with_profile("L", "c", " base_name=\"M::b\""));
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {" file://" + first.path() + " ; " + second.path() + ";", third.path()}),
              "loaded");
    EXPECT_EQ(names_in(store), "L::a L::c M::b ");
    EXPECT_EQ(load_urls(store, {first.path() + ";" + first.path()}),
              first.path() + ":2: element <qos_profile>: the profile \"L::a\" exists already");
    EXPECT_EQ(names_in(store), "L::a L::c M::b "); // a failure changes nothing
    EXPECT_EQ(load_urls(store, {third.path()}),
              third.path() + ":2: element <qos_profile>: unknown base \"M::b\"");
    EXPECT_EQ(load_urls(store, {}), "loaded");
    EXPECT_EQ(names_in(store), "");
}

TEST(Documents, EachMayHaveADefaultProfile) {
    const TemporaryFile first(with_profile("L", "a", " is_default_qos=\"true\""));
    const TemporaryFile second(with_profile("M", "b", " is_default_qos=\" TRUE \""));
    const TemporaryFile third(with_profile("N", "c", " is_default_qos=\"false\""));
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {first.path(), second.path(), third.path()}), "loaded");
}

TEST(Documents, TypesOfAllDocumentsAreKnown) {
    const std::string member = "<member name=\"x\" type=\"int32\"/>";
    const TemporaryFile first("<dds><types><struct name=\"A\">" + member + "</struct></types></dds>");
    const TemporaryFile second("<dds><types><module name=\"m\"><struct name=\"B\">" + member +
                               "</struct></module></types><qos_library name=\"L\"><qos_profile name=\"P\"/>"
                               "</qos_library></dds>");
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {first.path() + ";" + second.path()}), "loaded");
    EXPECT_TRUE(store.type("A"));
    ASSERT_TRUE(store.type("m::B"));
    EXPECT_EQ(store.type("m::B")->members[0].name, "x");
    EXPECT_FALSE(store.type("C"));
    EXPECT_EQ(names_in(store), "L::P ");

    EXPECT_EQ(
        load_file("<dds>\n<types>\n<struct name=\"A\"><member name=\"x\" type=\"nothing\"/></struct></types>"
                  "</dds>")
            .substr(0, 6),
        "FILE:3");
    EXPECT_NE(load_urls(store, {"/nonexistent/types.xml"}), "loaded");
    EXPECT_TRUE(store.type("A")) << "a load that fails changes nothing";
}

/// A folder that goes away with the object.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        char name[] = "/tmp/ferret-qos-XXXXXX";
        path_ = mkdtemp(name);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    std::string write(const std::string& name, const std::string& contents) const {
        std::ofstream(path_ + "/" + name) << contents;
        return path_ + "/" + name;
    }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

TEST(Documents, IncludedOnesAreCheckedAsTheNamedOnesAre) {
    const TemporaryFolder folder;
    const std::string included = folder.path() + "/b.xml";
    const std::string main = folder.write("a.xml", "<dds><types>\n<include file=\"b.xml\"/></types></dds>");
    const auto result_with = [&](const std::string& contents) {
        folder.write("b.xml", contents);
        ProfileStore store;
        const std::string result = load_urls(store, {main});
        const std::string prefix = main + ":2: element <include>: " + included + ":";
        return result.compare(0, prefix.size(), prefix) == 0 ? result.substr(prefix.size()) : result;
    };
    EXPECT_EQ(result_with("<types/>"), "loaded");
    EXPECT_EQ(result_with("<types>\n<struct name=\"\xe4\"/></types>"), "2: not valid UTF-8");
    EXPECT_EQ(result_with("<!DOCTYPE t [<!ENTITY a \"b\">]><types/>"),
              "1: a document type with declarations is not supported");
    EXPECT_EQ(result_with("<types/>\n<types/>"), "2: element <types>: a second root element");
    EXPECT_EQ(result_with("<types>&lol;</types>"), "1: unknown entity \"&lol;\"");
    EXPECT_EQ(result_with(std::string(meridian::xml::Documents::kMaxSize + 1, ' ')),
              " is larger than 4194304 bytes");
    std::filesystem::remove(included);
    ASSERT_EQ(mkfifo(included.c_str(), 0600), 0);
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {main}),
              main + ":2: element <include>: " + included + ": is not a regular file"); // no waiting
}

TEST(Documents, UnknownElementsMatterInProfilesThatAreUsed) {
    ProfileStore store;
    std::string error;
    ASSERT_TRUE(load_string(store,
                            "<dds><qos_library name=\"L\"><qos_profile name=\"Known\"/>\n"
                            "<qos_profile name=\"Foreign\"><actor_qos/><subscriber_qos><x/></subscriber_qos>"
                            "</qos_profile>\n"
                            "<qos_profile name=\"Derived\" base_name=\"Foreign\"/>\n"
                            "<qos_profile name=\"Borrowing\"><topic_qos base_name=\"Derived\"/></qos_profile>"
                            "</qos_library></dds>",
                            error))
        << error;
    const std::string foreign = "string profile:2: element <actor_qos>: unknown element in <qos_profile>";
    EXPECT_EQ(store.warnings(),
              (std::vector<std::string>{
                  foreign + "; the profile \"L::Foreign\" cannot be used",
                  "string profile:2: element <x>: unknown element in <subscriber_qos>; the profile "
                  "\"L::Foreign\" cannot be used"}));
    EXPECT_EQ(store.profiles("L").size(), 4u);
    DDS_SubscriberQos qos;
    EXPECT_TRUE(store.read("L", "Known", nullptr, qos, error)) << error;
    for (const char* profile : {"Foreign", "Derived", "Borrowing"}) {
        EXPECT_FALSE(store.read("L", profile, nullptr, qos, error)) << profile;
        EXPECT_EQ(error, foreign);
    }
}

TEST(Documents, TypesMayBeTheRootAndUseTypesOfLaterDocuments) {
    const TemporaryFile user(
        "<types><struct name=\"A\"><member name=\"b\" type=\"nonBasic\" "
        "nonBasicTypeName=\"B\"/></struct></types>");
    const TemporaryFile used(
        "<types><struct name=\"B\"><member name=\"x\" type=\"int32\"/></struct></types>");
    ProfileStore store;
    EXPECT_EQ(load_urls(store, {user.path() + ";" + used.path()}), "loaded");
    ASSERT_TRUE(store.type("A"));
    EXPECT_EQ(store.type("A")->members[0].type->name, "B");
}

TEST(Documents, MissingProfiles) {
    ProfileStore store;
    std::string error;
    DDS_SubscriberQos qos;
    DDS_StringSeq_append(qos.partition.name, "kept");
    ASSERT_TRUE(load_string(store, in_profile("<subscriber_qos/>"), error));
    EXPECT_FALSE(store.read("L", "Q", nullptr, qos, error));
    EXPECT_EQ(error, "there is no QoS profile \"L::Q\"");
    EXPECT_EQ(joined(qos.partition.name), "kept");
    EXPECT_TRUE(store.read("L", "P", nullptr, qos, error));
    EXPECT_EQ(joined(qos.partition.name), ""); // the defaults, not what was there
    EXPECT_TRUE(store.profiles("M").empty());
}

/// As UTF-16 with or without byte order mark.
std::string utf16(const std::u16string& text, bool big_endian) {
    std::string bytes;
    for (const char16_t unit : text) {
        const char high = static_cast<char>(unit >> 8);
        const char low = static_cast<char>(unit & 0xff);
        bytes += big_endian ? high : low;
        bytes += big_endian ? low : high;
    }
    return bytes;
}

TEST(Documents, Encodings) {
    EXPECT_EQ(load_file("\xef\xbb\xbf<dds>\n<x/></dds>"), "FILE:2: element <x>: unknown element in <dds>");
    const std::u16string plain = u"<dds>\n<x/></dds>";
    for (const bool big_endian : {false, true}) {
        EXPECT_EQ(load_file(utf16(plain, big_endian)), "FILE:2: element <x>: unknown element in <dds>");
        EXPECT_EQ(load_file(utf16(u"\ufeff" + plain, big_endian)),
                  "FILE:2: element <x>: unknown element in <dds>");
        EXPECT_EQ(load_file(utf16(u"\ufeff<dds>\n\xd800</dds>", big_endian)), "FILE:2: not valid UTF-16");
        EXPECT_EQ(load_file(utf16(u"\ufeff<dds/>", big_endian) + "x"), "FILE:1: not valid UTF-16");
    }
    EXPECT_EQ(load_file(std::string("<\0\0\0d\0\0\0", 8)), "FILE:1: UTF-32 is not supported; use UTF-8");

    ProfileStore store;
    const TemporaryFile file(
        utf16(u"\ufeff<?xml version=\"1.0\" encoding=\"UTF-16\"?><dds><qos_library "
              u"name=\"\u00e4\U0001f600\"/></dds>",
              false));
    ASSERT_EQ(load_urls(store, {file.path()}), "loaded");
    EXPECT_EQ(store.libraries(), std::vector<std::string>{"\xc3\xa4\xf0\x9f\x98\x80"});
}

/// Every prefix of a document, and every document with one byte changed, is loaded or refused.
TEST(Documents, TruncatedAndDamagedOnes) {
    const std::string document =
        "<?xml version=\"1.0\"?><!DOCTYPE dds><dds><qos_library name=\"L\"><qos_profile name=\"P\" "
        "base_name=\"Q\">"
        "<datareader_qos topic_filter=\"*\"><history><depth>5</depth></history><user_data><value>AQID</value>"
        "</user_data><deadline><period><sec>1</sec></period></deadline></datareader_qos></qos_profile>"
        "<qos_profile name=\"Q\"><!-- c --></qos_profile></qos_library></dds>";
    ASSERT_EQ(result_of(document), "loaded");
    int refused = 0;
    for (size_t length = 1; length < document.size(); ++length)
        refused += result_of(document.substr(0, length)) != "loaded" ? 1 : 0;
    EXPECT_EQ(refused, static_cast<int>(document.size()) - 1);
    for (size_t at = 0; at < document.size(); ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            std::string damaged = document;
            damaged[at] = static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ 1u << bit);
            const std::string result = result_of(damaged);
            EXPECT_TRUE(result == "loaded" || result.compare(0, 15, "string profile:") == 0) << result;
            EXPECT_EQ(result.find('\n'), std::string::npos) << result;
        }
    }
}

} // namespace
