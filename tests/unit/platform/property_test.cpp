#include "meridian/property.h"

#include <gtest/gtest.h>

namespace {

class PropertyHelper : public testing::Test {
  protected:
    DDS_PropertyQosPolicy policy_;

    std::string value_of(const char* name) {
        const DDS_Property_t* property = DDS_PropertyQosPolicyHelper_lookup_property(policy_, name);
        return property == nullptr ? "absent" : property->value;
    }
};

TEST_F(PropertyHelper, AddRefusesAPresentName) {
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, "a", "1", true), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, "a", "2", false),
              DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(value_of("a"), "1");
    EXPECT_TRUE(DDS_PropertyQosPolicyHelper_lookup_property(policy_, "a")->propagate);
}

TEST_F(PropertyHelper, AssertAddsAndReplaces) {
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_assert_property(policy_, "a", "1", false), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_assert_property(policy_, "a", "2", true), DDS_RETCODE_OK);
    EXPECT_EQ(policy_.value.length(), 1);
    EXPECT_EQ(value_of("a"), "2");
    EXPECT_TRUE(policy_.value[0].propagate);
    // With the strings that the policy itself holds.
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_assert_property(policy_, policy_.value[0].name,
                                                          policy_.value[0].value, false),
              DDS_RETCODE_OK);
    EXPECT_EQ(value_of("a"), "2");
}

TEST_F(PropertyHelper, RemoveKeepsTheOrderOfTheOthers) {
    for (const char* name : {"a", "b", "c", "d"})
        ASSERT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, name, name, false), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_remove_property(policy_, "b"), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_remove_property(policy_, "b"), DDS_RETCODE_PRECONDITION_NOT_MET);
    ASSERT_EQ(policy_.value.length(), 3);
    EXPECT_STREQ(policy_.value[0].name, "a");
    EXPECT_STREQ(policy_.value[1].name, "c");
    EXPECT_STREQ(policy_.value[2].name, "d");
    EXPECT_EQ(value_of("b"), "absent");
    EXPECT_EQ(value_of("d"), "d");
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, "b", "again", false), DDS_RETCODE_OK);
    EXPECT_EQ(value_of("b"), "again");
}

TEST_F(PropertyHelper, BadNames) {
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, name, "1", false),
                  DDS_RETCODE_BAD_PARAMETER);
        EXPECT_EQ(DDS_PropertyQosPolicyHelper_assert_property(policy_, name, "1", false),
                  DDS_RETCODE_BAD_PARAMETER);
        EXPECT_EQ(DDS_PropertyQosPolicyHelper_remove_property(policy_, name), DDS_RETCODE_BAD_PARAMETER);
        EXPECT_EQ(DDS_PropertyQosPolicyHelper_lookup_property(policy_, name), nullptr);
    }
    EXPECT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, "a", nullptr, false),
              DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(PropertyHelper, CopiesAreDeep) {
    ASSERT_EQ(DDS_PropertyQosPolicyHelper_add_property(policy_, "a", "1", true), DDS_RETCODE_OK);
    DDS_PropertyQosPolicy copy = policy_;
    policy_.value[0].value[0] = 'X';
    EXPECT_STREQ(copy.value[0].value, "1");
    EXPECT_TRUE(copy.value[0].propagate);
    DDS_Property_t& self = copy.value[0];
    self = copy.value[0];
    EXPECT_STREQ(copy.value[0].value, "1");
}

} // namespace
