// The opaque form of every sample in the corpora that other makers' serializers wrote, against literal texts.
// To accept changed texts after reading the difference: WRITE_GOLDEN=1 ./unit_quixspy
// --gtest_filter='RawCorpus.*'

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "quixspy/quixSpyRawPrinter.h"
#include "raw_sample.h"
#include "types/corpus.h"

using namespace meridian::types;

namespace {

/// What is printed, and whether the walk came to the end of the type.
std::string print(const DDS_TypeCode* type, const test::Bytes& payload) {
    test::RawSample sample;
    std::string text;
    if (!sample.set(payload))
        return "refused\n";
    const bool done = QuixSpyRawPrinter(text).print_sample(sample.record, type, 1);
    return text + (done ? "\n" : "\n(failed)\n");
}

std::string texts_of(const std::string& corpus) {
    std::string all;
    for (const test::CorpusType& type : test::read_corpus(corpus)) {
        const TypeRef code = test::build_type(type);
        for (const test::CorpusValue& value : type.values) {
            std::string last;
            all += type.name;
            for (const test::CorpusSample& sample : value.samples) {
                const std::string text = print(code.get(), sample.payload);
                if (!last.empty() && text != last)
                    all += last;
                all += " " + sample.encoding;
                last = text;
            }
            all += last;
        }
    }
    return all;
}

void check_golden(const std::string& corpus, const std::string& golden) {
    const std::string path = std::string(TEST_DATA_DIR) + "/" + golden;
    const std::string texts = texts_of(corpus);
    if (std::getenv("WRITE_GOLDEN") != nullptr)
        std::ofstream(path, std::ios::binary) << texts;
    std::ifstream in(path, std::ios::binary);
    std::ostringstream expected;
    expected << in.rdbuf();
    EXPECT_EQ(texts, expected.str());
}

} // namespace

TEST(RawCorpus, CycloneSamples) {
    check_golden("cyclone.corpus", "cyclone_raw.golden");
}

TEST(RawCorpus, FastDdsSamples) {
    check_golden("fastdds.corpus", "fastdds_raw.golden");
}

TEST(RawCorpus, SurvivesEveryTruncationAndBitFlip) {
    size_t different = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const TypeRef code = test::build_type(type);
        for (const test::CorpusSample& sample : type.values.front().samples) {
            const std::string whole = print(code.get(), sample.payload);
            for (size_t size = 0; size < sample.payload.size(); ++size) {
                const auto end = sample.payload.begin() + static_cast<std::ptrdiff_t>(size);
                different += print(code.get(), test::Bytes(sample.payload.begin(), end)) != whole;
            }
            for (size_t bit = 0; bit < 8 * sample.payload.size(); ++bit) {
                test::Bytes flipped = sample.payload;
                flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << (bit % 8)));
                different += print(code.get(), flipped) != whole;
            }
            EXPECT_EQ(print(code.get(), sample.payload), whole);
        }
    }
    EXPECT_GT(different, 10000u);
}
