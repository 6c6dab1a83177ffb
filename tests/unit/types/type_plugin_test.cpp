#include "meridian/type_plugin.h"

#include <gtest/gtest.h>

#include <cstring>

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

TEST(TypePluginDefaults, SamplesAndKeysAreMadeAndDropped) {
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(make_int, drop_int, make_int, drop_int);
    ASSERT_NE(data, nullptr);
    void* sample = PRESTypePluginDefaultEndpointData_getSample(data);
    void* other = PRESTypePluginDefaultEndpointData_createSample(data);
    void* key = PRESTypePluginDefaultEndpointData_getKey(data);
    EXPECT_EQ(living, 3);
    PRESTypePluginDefaultEndpointData_returnSample(data, sample);
    PRESTypePluginDefaultEndpointData_deleteSample(data, other);
    PRESTypePluginDefaultEndpointData_returnKey(data, key);
    EXPECT_EQ(living, 0);
    PRESTypePluginDefaultEndpointData_delete(data);
}

TEST(TypePluginDefaults, ATypeWithoutKeyHasNoKeyHolders) {
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(make_int, drop_int, nullptr, nullptr);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getKey(data), nullptr);
    PRESTypePluginDefaultEndpointData_delete(data);
}

TEST(TypePluginDefaults, WriterHasBuffersOfOneSizeAndKeepsAFreeOne) {
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(make_int, drop_int, nullptr, nullptr);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getBuffer(data, 1), nullptr) << "it has no buffers yet";
    ASSERT_TRUE(PRESTypePluginDefaultEndpointData_setBufferSize(data, 100));
    char* buffer = PRESTypePluginDefaultEndpointData_getBuffer(data, 100);
    ASSERT_NE(buffer, nullptr);
    std::memset(buffer, 1, 100);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getBuffer(data, 101), nullptr);
    char* second = PRESTypePluginDefaultEndpointData_getBuffer(data, 1);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, buffer);
    PRESTypePluginDefaultEndpointData_returnBuffer(data, buffer);
    EXPECT_EQ(PRESTypePluginDefaultEndpointData_getBuffer(data, 100), buffer);
    PRESTypePluginDefaultEndpointData_returnBuffer(data, buffer);
    PRESTypePluginDefaultEndpointData_returnBuffer(data, second);
    PRESTypePluginDefaultEndpointData_delete(data);
}

} // namespace
