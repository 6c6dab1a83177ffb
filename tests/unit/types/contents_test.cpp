// The contents of every sample in the corpora, in every encoding, against literal texts. To accept changed
// texts after reading the difference: WRITE_GOLDEN=1 ./unit_types --gtest_filter='Contents.*'

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "corpus.h"
#include "meridian/dynamic_data.h"
#include "support/type_documents.h"
#include "types/data/dynamic_sample.h"
#include "types/data/plain_printer.h"

using namespace meridian;
using namespace meridian::types;

namespace {

std::string plain(const DDS_DynamicData& data, DDS_ReturnCode_t& result) {
    char* text = nullptr;
    size_t size = 0;
    FILE* file = open_memstream(&text, &size);
    result = data.print(file, 1);
    std::fclose(file);
    const std::string out(text, size);
    std::free(text);
    return out;
}

std::string compact(const DDS_DynamicData& data, DDS_ReturnCode_t& result) {
    DDS_PrintFormatProperty property = DDS_PRINT_FORMAT_PROPERTY_DEFAULT;
    property.kind = DDS_JSON_PRINT_FORMAT;
    property.pretty_print = false;
    DDS_UnsignedLong size = 0;
    result = data.to_string(nullptr, size, property);
    if (result != DDS_RETCODE_OK)
        return "";
    std::vector<char> buffer(size);
    result = data.to_string(buffer.data(), size, property);
    return buffer.data();
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

/// All texts of one corpus: for each value the type's name, the COMPACT and the PLAIN text.
std::string texts_of(const std::string& corpus, size_t& types, size_t& samples) {
    std::string all;
    for (const test::CorpusType& type : test::read_corpus(corpus)) {
        ++types;
        const auto context = std::make_shared<DynamicContext>(test::build_type(type), "topic");
        for (const test::CorpusValue& value : type.values) {
            std::string first;
            for (const test::CorpusSample& sample : value.samples) {
                DDS_DynamicData data;
                data.impl().assign(context, sample.payload);
                DDS_ReturnCode_t result = -1;
                std::string text = type.name + "\n" + compact(data, result) + "\n";
                EXPECT_EQ(result, DDS_RETCODE_OK) << type.name << " " << sample.encoding;
                text += plain(data, result);
                EXPECT_EQ(result, DDS_RETCODE_OK) << type.name << " " << sample.encoding;
                if (first.empty())
                    first = text;
                EXPECT_EQ(text, first) << sample.encoding;
                ++samples;
            }
            all += first;
        }
    }
    return all;
}

void check_golden(const std::string& corpus, const std::string& golden, size_t least_types) {
    const std::string path = std::string(TEST_DATA_DIR) + "/" + golden;
    size_t types = 0;
    size_t samples = 0;
    const std::string texts = texts_of(corpus, types, samples);
    EXPECT_GE(types, least_types);
    EXPECT_GT(samples, types);
    if (std::getenv("WRITE_GOLDEN") != nullptr)
        std::ofstream(path, std::ios::binary) << texts;
    EXPECT_EQ(texts, read_file(path));
}

} // namespace

TEST(Contents, OfCycloneSamples) {
    check_golden("cyclone.corpus", "cyclone.golden", 55);
}

TEST(Contents, OfFastDdsSamples) {
    check_golden("fastdds.corpus", "fastdds.golden", 25);
}

// A damaged sample is one that fails, or other values: never more. What it holds is told as far as it goes.
TEST(Contents, SurviveEveryTruncationAndBitFlip) {
    size_t refused = 0;
    size_t taken = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const SampleReader reader(test::build_type(type));
        for (const test::CorpusSample& sample : type.values.front().samples) {
            std::string failure;
            for (size_t size = 0; size < sample.payload.size(); ++size) {
                // A vector of exactly that size, so that an address sanitizer sees any step beyond it.
                const rtps::ByteBuffer cut(sample.payload.begin(),
                                           sample.payload.begin() + static_cast<std::ptrdiff_t>(size));
                (reader.walk(cut, nullptr, failure) ? taken : refused) += 1;
            }
            rtps::ByteBuffer flipped = sample.payload;
            for (size_t bit = 0; bit < flipped.size() * 8; ++bit) {
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
                PrintBuffers text;
                PlainPrinter printer(text, 0);
                (reader.walk(flipped, &printer, failure) ? taken : refused) += 1;
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
            }
            EXPECT_TRUE(reader.walk(sample.payload, nullptr, failure)) << failure;
        }
    }
    EXPECT_GT(refused, 1000u);
    EXPECT_GT(taken, 1000u);
}

TEST(Contents, TellWhereTheyFail) {
    for (const test::CorpusType& type : test::read_corpus("cyclone.corpus")) {
        if (type.name != "corpus::Nested")
            continue;
        const auto context = std::make_shared<DynamicContext>(test::build_type(type), "topic");
        rtps::ByteBuffer cut = type.values.front().samples.front().payload;
        cut.resize(cut.size() - 12);
        std::string failure;
        EXPECT_FALSE(context->reader.walk(cut, nullptr, failure));
        EXPECT_EQ(failure, "member path[1].x: the sample ends within it");

        DDS_DynamicData data;
        DDS_ReturnCode_t result = DDS_RETCODE_OK;
        EXPECT_EQ(plain(data, result), "");
        EXPECT_EQ(result, DDS_RETCODE_PRECONDITION_NOT_MET);
        data.impl().assign(context, cut);
        testing::internal::CaptureStderr();
        const std::string text = plain(data, result);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(result, DDS_RETCODE_ERROR);
        EXPECT_NE(text.find("path:\n      [0]:\n         x: 7\n         y: 8\n      [1]:\n         x:\n"),
                  std::string::npos)
            << text;
        EXPECT_NE(log.find("topic \"topic\": a sample cannot be decoded: member path[1].x"),
                  std::string::npos)
            << log;
        EXPECT_EQ(compact(data, result), "");
        EXPECT_EQ(result, DDS_RETCODE_ERROR);
        data.impl().assign(context, type.values.front().samples.front().payload);
        EXPECT_NE(compact(data, result), "");
        EXPECT_EQ(result, DDS_RETCODE_OK);
    }
}

TEST(Contents, TextNeedsTheRoomThatWasTold) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    const auto context = std::make_shared<DynamicContext>(test::build_type(corpus.front()), "topic");
    DDS_DynamicData data;
    data.impl().assign(context, corpus.front().values.back().samples.front().payload);
    DDS_PrintFormatProperty property = DDS_PRINT_FORMAT_PROPERTY_DEFAULT;
    DDS_UnsignedLong size = 0;
    property.kind = DDS_XML_PRINT_FORMAT;
    EXPECT_EQ(data.to_string(nullptr, size, property), DDS_RETCODE_UNSUPPORTED);
    EXPECT_EQ(data.print(stdout, property), DDS_RETCODE_UNSUPPORTED);
    property.kind = DDS_JSON_PRINT_FORMAT;
    property.pretty_print = false;
    EXPECT_EQ(data.to_string(nullptr, size, property), DDS_RETCODE_OK);
    std::string buffer(size, 'x');
    DDS_UnsignedLong less = size - 1;
    EXPECT_EQ(data.to_string(buffer.data(), less, property), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(less, size);
    EXPECT_EQ(buffer, std::string(size, 'x'));
    EXPECT_EQ(data.to_string(buffer.data(), size, property), DDS_RETCODE_OK);
    EXPECT_EQ(buffer.find('\0'), size - 1);
    // Another format asks for another text.
    property.pretty_print = true;
    DDS_UnsignedLong pretty = 0;
    EXPECT_EQ(data.to_string(nullptr, pretty, property), DDS_RETCODE_OK);
    EXPECT_GT(pretty, size);
    const DDS_DynamicData copy = data;
    buffer.assign(pretty, 'x');
    EXPECT_EQ(copy.to_string(buffer.data(), pretty, property), DDS_RETCODE_OK);
    EXPECT_NE(buffer.find("\n   \"u8\": 2,"), std::string::npos) << buffer;
}

TEST(Contents, KeepWithinTheSizesOfTheType) {
    const auto corpus = test::read_corpus("cyclone.corpus");
    const rtps::ByteBuffer& payload = corpus.front().values.front().samples.front().payload;
    DDS_DynamicDataTypeProperty_t property = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT;
    property.serialization.max_size_serialized = static_cast<DDS_UnsignedLong>(payload.size());
    property.serialization.trim_to_size = true;
    const auto context =
        std::make_shared<DynamicContext>(test::build_type(corpus.front()), "topic", property);
    DynamicSample sample;
    EXPECT_TRUE(sample.assign(context, payload));
    const uint8_t* buffer = sample.payload().data;
    EXPECT_TRUE(sample.assign(context, payload));
    EXPECT_EQ(sample.payload().data, buffer); // reused
    rtps::ByteBuffer longer = payload;
    longer.push_back(0);
    EXPECT_FALSE(sample.assign(context, longer));
    EXPECT_EQ(sample.context(), nullptr);
    EXPECT_TRUE(sample.payload().empty());
    EXPECT_TRUE(sample.is_too_large());
    EXPECT_TRUE(sample.assign(context, payload));
    EXPECT_FALSE(sample.is_too_large());
}

TEST(Contents, SamplesThatWaitTakeLittleMoreThanTheirBytes) {
    DDS_DynamicDataTypeProperty_t property = DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT;
    property.serialization.min_size_serialized = 4096;
    property.serialization.trim_to_size = true;
    const auto corpus = test::read_corpus("cyclone.corpus");
    const auto context =
        std::make_shared<DynamicContext>(test::build_type(corpus.front()), "topic", property);
    DynamicSample sample;
    ASSERT_TRUE(sample.assign(context, rtps::ByteBuffer(12)));
    EXPECT_LT(sample.memory(), 200u);
    ASSERT_TRUE(sample.assign(context, rtps::ByteBuffer(60000)));
    EXPECT_GT(sample.memory(), 60000u);
    ASSERT_TRUE(sample.assign(context, rtps::ByteBuffer(12)));
    EXPECT_LT(sample.memory(), 200u);
}

// Samples of applications that announce no type are shown through a document as if they had announced it.
TEST(Contents, AreTheSameThroughATypeDocument) {
    TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load_file(std::string(TEST_DATA_DIR) + "/corpus_types.xml", error)) << error;
    size_t compared = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const TypeRef described = documents.find(type.name);
        if (!described)
            continue;
        const auto announced = std::make_shared<DynamicContext>(test::build_type(type), "topic");
        const auto from_document = std::make_shared<DynamicContext>(described, "topic");
        for (const test::CorpusValue& value : type.values) {
            for (const test::CorpusSample& sample : value.samples) {
                DDS_DynamicData a;
                DDS_DynamicData b;
                a.impl().assign(announced, sample.payload);
                b.impl().assign(from_document, sample.payload);
                DDS_ReturnCode_t result = -1;
                EXPECT_EQ(compact(b, result), compact(a, result)) << type.name << " " << sample.encoding;
                EXPECT_EQ(result, DDS_RETCODE_OK);
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 60u);
}
