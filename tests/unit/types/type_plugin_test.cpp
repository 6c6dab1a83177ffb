#include "meridian/type_plugin.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

int living = 0;
void* make_int() {
    ++living;
    return new int(0);
}
void drop_int(void* value) {
    --living;
    delete static_cast<int*>(value);
}

TEST(TypePluginDefaults, SamplesComeFromThePoolAndReturnToIt) {
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_READER, 2, 3, nullptr};
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(nullptr, &info, make_int, drop_int, nullptr, nullptr);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(living, 2);
    std::vector<void*> taken;
    for (int i = 0; i < 5; ++i)
        taken.push_back(PRESTypePluginDefaultEndpointData_getSample(data));
    EXPECT_EQ(living, 5);
    for (void* sample : taken)
        PRESTypePluginDefaultEndpointData_returnSample(data, sample);
    EXPECT_EQ(living, 3) << "more than the maximum is not kept";
    void* again = PRESTypePluginDefaultEndpointData_getSample(data);
    EXPECT_EQ(living, 3);
    PRESTypePluginDefaultEndpointData_returnSample(data, again);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getKey(data), nullptr)
        << "a type without key has no key holders";
    PRESTypePluginDefaultEndpointData_delete(data);
    EXPECT_EQ(living, 0);
}

TEST(TypePluginDefaults, KeysHaveAPoolOfTheirOwn) {
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_READER, 0, -1, nullptr};
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(nullptr, &info, make_int, drop_int, make_int, drop_int);
    void* key = PRESTypePluginDefaultEndpointData_getKey(data);
    ASSERT_NE(key, nullptr);
    PRESTypePluginDefaultEndpointData_returnKey(data, key);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getKey(data), key);
    PRESTypePluginDefaultEndpointData_returnKey(data, key);
    void* sample = PRESTypePluginDefaultEndpointData_createSample(data);
    PRESTypePluginDefaultEndpointData_deleteSample(data, sample);
    PRESTypePluginDefaultEndpointData_delete(data);
    EXPECT_EQ(living, 0);
}

TEST(TypePluginDefaults, WriterHasBuffersOfOneSize) {
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_WRITER, 1, 2, nullptr};
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(nullptr, &info, make_int, drop_int, nullptr, nullptr);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getBuffer(data, 1), nullptr) << "no pool yet";
    ASSERT_TRUE(PRESTypePluginDefaultEndpointData_createWriterPool(data, &info, 100));
    char* buffer = PRESTypePluginDefaultEndpointData_getBuffer(data, 100);
    ASSERT_NE(buffer, nullptr);
    std::memset(buffer, 1, 100);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getBuffer(data, 101), nullptr);
    PRESTypePluginDefaultEndpointData_returnBuffer(data, buffer);
    PRESTypePluginDefaultEndpointData_delete(data);
}

// Samples are filled on one thread and come back on another.
TEST(TypePluginDefaults, PoolServesTwoThreads) {
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_READER, 4, 4, nullptr};
    PRESTypePluginEndpointData data = PRESTypePluginDefaultEndpointData_new(
        nullptr, &info, [] { return std::malloc(8); }, [](void* memory) { std::free(memory); }, nullptr,
        nullptr);
    const auto work = [data] {
        for (int i = 0; i < 2000; ++i) {
            void* one = PRESTypePluginDefaultEndpointData_getSample(data);
            void* two = PRESTypePluginDefaultEndpointData_getSample(data);
            ASSERT_NE(one, two);
            std::memset(one, i, 8);
            std::memset(two, i, 8);
            PRESTypePluginDefaultEndpointData_returnSample(data, one);
            PRESTypePluginDefaultEndpointData_returnSample(data, two);
        }
    };
    std::thread other(work);
    work();
    other.join();
    PRESTypePluginDefaultEndpointData_delete(data);
}

} // namespace
