#include "xml/documents.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using meridian::xml::Documents;

namespace {

/// Files in a folder that goes away with the test.
class DocumentFiles : public testing::Test {
  protected:
    DocumentFiles() {
        char pattern[] = "/tmp/ferret-xml-XXXXXX";
        folder_ = mkdtemp(pattern) + std::string("/");
    }
    ~DocumentFiles() override { std::filesystem::remove_all(folder_); }

    std::string write(const std::string& name, const std::string& contents) const {
        std::ofstream(folder_ + name) << contents;
        return folder_ + name;
    }
    std::string labels() const {
        std::string text;
        for (const auto& document : documents_.all())
            text += document->label().substr(folder_.size()) + " ";
        return text;
    }
    /// "" for success, else the message without the folder's name.
    std::string add(const std::string& path) {
        std::string error;
        const bool added = documents_.add_file(path, error);
        EXPECT_EQ(added, error.empty());
        for (size_t at = error.find(folder_); at != std::string::npos; at = error.find(folder_))
            error.erase(at, folder_.size());
        return error;
    }

    std::string folder_;
    Documents documents_;
};

std::string including(const std::string& file) {
    return "<types>\n<include file=\"" + file + "\"/></types>";
}

} // namespace

TEST_F(DocumentFiles, AreReadOnceByWhateverPath) {
    std::filesystem::create_directory(folder_ + "sub");
    const std::string a = write("a.xml", including("sub/b.xml"));
    write("sub/b.xml", including("../a.xml"));
    std::filesystem::create_symlink(a, folder_ + "link.xml");
    EXPECT_EQ(add(a), "");
    EXPECT_EQ(labels(), "a.xml sub/b.xml ");
    EXPECT_EQ(add(folder_ + "sub/../link.xml"), "");
    EXPECT_EQ(labels(), "a.xml sub/b.xml ");
    EXPECT_EQ(add(write("c.xml", including(a))), ""); // an absolute path
    EXPECT_EQ(labels(), "a.xml sub/b.xml c.xml ");
    ASSERT_EQ(documents_.named().size(), 3u);
    EXPECT_EQ(documents_.named()[0], documents_.named()[1]);
}

TEST_F(DocumentFiles, SayWhoIncludesWhatCannotBeRead) {
    write("b.xml", including("absent.xml"));
    EXPECT_EQ(add(write("a.xml", including("b.xml"))),
              "b.xml:2: element <include>: absent.xml: No such file or directory");
    Documents fresh;
    std::string error;
    EXPECT_FALSE(fresh.add_text("text", including(""), error));
    EXPECT_EQ(error, "text:2: element <include>: needs a file");
    EXPECT_TRUE(Documents().add_text("text", "<dds><other><include/></other></dds>", error));
}

TEST_F(DocumentFiles, AreLimitedInSizeAndNumber) {
    const std::string large =
        write("large.xml", "<types/>" + std::string(Documents::kMaxSize - sizeof "<types/>" + 1, ' '));
    for (size_t size = 0; size < Documents::kMaxSizeInAll; size += Documents::kMaxSize) {
        const std::string copy = folder_ + "copy" + std::to_string(size);
        std::filesystem::copy_file(large, copy);
        EXPECT_EQ(add(copy), "");
    }
    EXPECT_EQ(add(write("one_more.xml", "<types/>")),
              "one_more.xml: all documents together are larger than 16777216 bytes");

    documents_ = Documents();
    for (size_t i = 0; i < Documents::kMaxCount; ++i)
        write(std::to_string(i), including(std::to_string(i + 1)));
    write(std::to_string(Documents::kMaxCount - 1), "<types/>");
    EXPECT_EQ(add(folder_ + "0"), "");
    EXPECT_EQ(documents_.all().size(), Documents::kMaxCount);
    EXPECT_EQ(add(write("one_more.xml", "<types/>")), "one_more.xml: more than 200 documents");
}
