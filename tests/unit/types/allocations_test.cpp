// Steady traffic allocates nothing: neither when instances are told apart nor when contents are printed.

#include <gtest/gtest.h>

#include "corpus.h"
#include "meridian/dynamic_data.h"
#include "support/allocation_counter.h"
#include "types/data/dynamic_sample.h"
#include "types/data/key_hasher.h"

using namespace meridian;
using namespace meridian::types;

namespace {

constexpr int kSamples = 100;
const SampleSource kSource{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 15}}};

/// What a sample of steady traffic allocates, after some that made room. `work` tells whether it went well.
template <typename Work>
double allocations_per_sample(Work work) {
    int failed = 0;
    const auto repeat = [&](int count) {
        for (int i = 0; i < count; ++i)
            failed += work() ? 0 : 1;
    };
    repeat(3);
    const uint64_t allocated = test::count_allocations([&] { repeat(kSamples); });
    EXPECT_EQ(failed, 0);
    return static_cast<double>(allocated) / kSamples;
}

/// Calls check(type, context, sample) for each recorded sample.
template <typename Check>
void for_each_sample(Check check) {
    size_t samples = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const auto context = std::make_shared<const DynamicContext>(test::build_type(type), "topic");
        for (const test::CorpusValue& value : type.values) {
            for (const test::CorpusSample& sample : value.samples) {
                check(type.name + " " + sample.encoding, context, sample.payload);
                ++samples;
            }
        }
    }
    EXPECT_GT(samples, 100u);
}

bool print_compact(const DDS_DynamicData& data, std::string& text) {
    DDS_PrintFormatProperty property = DDS_PRINT_FORMAT_PROPERTY_DEFAULT;
    property.kind = DDS_JSON_PRINT_FORMAT;
    property.pretty_print = false;
    DDS_UnsignedLong size = 0;
    if (data.to_string(nullptr, size, property) != DDS_RETCODE_OK)
        return false;
    text.resize(size);
    return data.to_string(text.data(), size, property) == DDS_RETCODE_OK;
}

} // namespace

TEST(Allocations, AreCounted) {
    std::unique_ptr<int> made;
    EXPECT_EQ(test::count_allocations([&] { made = std::make_unique<int>(1); }), 1u);
    void* volatile memory = nullptr;
    EXPECT_EQ(test::count_allocations([&] { memory = std::malloc(1); }), 1u);
    std::free(memory);
}

TEST(Allocations, NoneForTheInstance) {
    for_each_sample([](const std::string& name, const auto& context, const rtps::ByteBuffer& payload) {
        const KeyHasher hasher(context->reader);
        if (!hasher.is_keyed())
            return;
        std::string failure;
        rtps::KeyHash hash{};
        const auto compute = [&] { return hasher.compute(payload, false, hash, failure, kSource); };
        EXPECT_EQ(allocations_per_sample(compute), 0) << name;
        std::vector<rtps::KeyHash> all;
        const auto compute_all = [&] {
            all.clear();
            return hasher.compute_all(payload, false, all, failure, kSource);
        };
        EXPECT_EQ(allocations_per_sample(compute_all), 0) << name;
    });
}

TEST(Allocations, NoneForTheInstanceOfADispose) {
    size_t keys = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const SampleReader reader(test::build_type(type));
        const KeyHasher hasher(reader);
        for (const test::CorpusValue& value : type.values) {
            for (const test::CorpusSample& key : value.keys) {
                rtps::KeyHash hash{};
                std::string failure;
                const auto compute = [&] {
                    return hasher.compute(key.payload, true, hash, failure, kSource);
                };
                EXPECT_EQ(allocations_per_sample(compute), 0) << type.name << " " << key.encoding;
                ++keys;
            }
        }
    }
    EXPECT_GT(keys, 25u);
}

TEST(Allocations, NoneForContentsInCompactForm) {
    for_each_sample([](const std::string& name, const auto& context, const rtps::ByteBuffer& payload) {
        DDS_DynamicData data;
        std::string text;
        const auto print = [&] {
            return data.impl().assign(context, payload, kSource) && print_compact(data, text);
        };
        EXPECT_EQ(allocations_per_sample(print), 0) << name;
    });
}

TEST(Allocations, NoneForContentsInPlainForm) {
    FILE* const file = std::fopen("/dev/null", "w");
    ASSERT_NE(file, nullptr);
    for_each_sample([file](const std::string& name, const auto& context, const rtps::ByteBuffer& payload) {
        DDS_DynamicData data;
        const auto print = [&] {
            return data.impl().assign(context, payload, kSource) && data.print(file, 1) == DDS_RETCODE_OK;
        };
        EXPECT_EQ(allocations_per_sample(print), 0) << name;
    });
    std::fclose(file);
}

// Samples of a reader's pool take turns.
TEST(Allocations, NoneForContentsOfOneSampleAfterTheOther) {
    for_each_sample([](const std::string& name, const auto& context, const rtps::ByteBuffer& payload) {
        std::vector<DDS_DynamicData> pool(8);
        for (DDS_DynamicData& data : pool)
            data.impl().assign(context, payload, kSource);
        std::string text;
        EXPECT_TRUE(print_compact(pool.front(), text));
        const uint64_t allocated = test::count_allocations([&] {
            for (const DDS_DynamicData& data : pool)
                print_compact(data, text);
        });
        EXPECT_EQ(allocated, 0u) << name;
    });
}
