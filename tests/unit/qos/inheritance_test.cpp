#include "documents.h"

using namespace meridian::qos;
using namespace meridian::qos::test;

namespace {

class Inheritance : public testing::Test {
  protected:
    void load(const std::string& document) {
        std::string error;
        ASSERT_TRUE(load_string(store_, document, error)) << error;
    }
    DDS_DataReaderQos reader(const char* library, const char* profile, const char* topic = nullptr) {
        DDS_DataReaderQos qos;
        std::string error;
        EXPECT_TRUE(store_.read(library, profile, topic, qos, error)) << error;
        return qos;
    }
    DDS_Long depth(const char* profile, const char* topic = nullptr) {
        return reader("L", profile, topic).history.depth;
    }

    ProfileStore store_;
};

std::string reader_with_depth(int depth, const std::string& attributes = "") {
    return "<datareader_qos" + attributes + "><history><depth>" + std::to_string(depth) +
           "</depth></history></datareader_qos>";
}

std::string profile(const std::string& attributes, const std::string& content = "") {
    return "<qos_profile " + attributes + ">" + content + "</qos_profile>\n";
}

std::string library(const std::string& content, const std::string& name = "L") {
    return "<qos_library name=\"" + name + "\">\n" + content + "</qos_library>\n";
}

std::string document(const std::string& content) {
    return "<dds>" + content + "</dds>";
}

TEST_F(Inheritance, OverridesLeafByLeaf) {
    load(document(
        library(profile("name=\"base\"",
                        "<datareader_qos><history><kind>KEEP_ALL_HISTORY_QOS</kind><depth>5</depth></history>"
                        "<reliability><kind>RELIABLE_RELIABILITY_QOS</kind></reliability></datareader_qos>") +
                profile("name=\"middle\" base_name=\"base\"", reader_with_depth(6)) +
                profile("name=\"top\" base_name=\"L::middle\"",
                        "<datareader_qos><ownership><kind>EXCLUSIVE_OWNERSHIP_QOS</kind></ownership></"
                        "datareader_qos>"))));
    const DDS_DataReaderQos qos = reader("L", "top");
    EXPECT_EQ(qos.history.kind, DDS_KEEP_ALL_HISTORY_QOS);
    EXPECT_EQ(qos.history.depth, 6);
    EXPECT_EQ(qos.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    EXPECT_EQ(qos.ownership.kind, DDS_EXCLUSIVE_OWNERSHIP_QOS);
    EXPECT_EQ(depth("base"), 5);
    EXPECT_EQ(reader("L", "base").ownership.kind, DDS_SHARED_OWNERSHIP_QOS);
}

TEST_F(Inheritance, ReachesEveryEntity) {
    load(document(library(
        profile("name=\"base\"",
                "<domain_participant_qos><participant_name><name>n</name></participant_name></"
                "domain_participant_qos>"
                "<topic_qos><history><depth>2</depth></history></topic_qos>"
                "<subscriber_qos><partition><name><element>p</element></name></partition></subscriber_qos>" +
                    reader_with_depth(3)) +
        profile("name=\"derived\" base_name=\"base\""))));
    std::string error;
    DDS_DomainParticipantQos participant;
    ASSERT_TRUE(store_.read("L", "derived", nullptr, participant, error));
    EXPECT_STREQ(participant.participant_name.name, "n");
    DDS_TopicQos topic;
    ASSERT_TRUE(store_.read("L", "derived", nullptr, topic, error));
    EXPECT_EQ(topic.history.depth, 2);
    DDS_SubscriberQos subscriber;
    ASSERT_TRUE(store_.read("L", "derived", nullptr, subscriber, error));
    EXPECT_EQ(joined(subscriber.partition.name), "p");
    EXPECT_EQ(depth("derived"), 3);
}

TEST_F(Inheritance, ListsReplaceLists) {
    const auto partition = [](const std::string& names) {
        return "<subscriber_qos><partition>" + names + "</partition></subscriber_qos>";
    };
    load(document(
        library(profile("name=\"base\"", partition("<name><element>a</element><element>b</element></name>")) +
                profile("name=\"other\" base_name=\"base\"", partition("<name><element>c</element></name>")) +
                profile("name=\"none\" base_name=\"base\"", partition("<name/>")) +
                profile("name=\"same\" base_name=\"base\"", partition("")))));
    const std::pair<const char*, const char*> cases[] = {
        {"base", "a|b"}, {"other", "c"}, {"none", ""}, {"same", "a|b"}};
    for (const auto& [name, expected] : cases) {
        DDS_SubscriberQos qos;
        std::string error;
        ASSERT_TRUE(store_.read("L", name, nullptr, qos, error));
        EXPECT_EQ(joined(qos.partition.name), expected) << name;
    }
}

TEST_F(Inheritance, DurationsMergeTheirParts) {
    const auto period = [](const std::string& parts) {
        return "<datareader_qos><deadline><period>" + parts + "</period></deadline></datareader_qos>";
    };
    load(document(
        library(profile("name=\"base\"", period("<sec>5</sec><nanosec>500</nanosec>")) +
                profile("name=\"sec\" base_name=\"base\"", period("<sec>6</sec>")) +
                profile("name=\"nanosec\" base_name=\"base\"", period("<nanosec>7</nanosec>")) +
                profile("name=\"infinite\" base_name=\"base\"", period("<sec>DURATION_INFINITE_SEC</sec>")) +
                profile("name=\"finite\" base_name=\"infinite\"", period("<sec>1</sec>")))));
    const auto period_of = [this](const char* name) { return reader("L", name).deadline.period; };
    EXPECT_EQ(period_of("sec"), (DDS_Duration_t{6, 500}));
    EXPECT_EQ(period_of("nanosec"), (DDS_Duration_t{5, 7}));
    EXPECT_EQ(period_of("infinite"), DDS_DURATION_INFINITE);
    EXPECT_EQ(period_of("finite"), (DDS_Duration_t{1, 0}));
}

TEST_F(Inheritance, BasesMayStandAnywhere) {
    load(document(library(profile("name=\"derived\" base_name=\"M::base\"")) +
                  library(profile("name=\"base\"", reader_with_depth(4)), "M")));
    EXPECT_EQ(depth("derived"), 4);
}

TEST_F(Inheritance, AnElementMayHaveABaseOfItsOwn) {
    load(document(library(
        profile("name=\"a\"", reader_with_depth(2) + reader_with_depth(3, " name=\"special\"")) +
        profile("name=\"b\"", reader_with_depth(4)) +
        profile("name=\"whole\" base_name=\"b\"",
                "<datareader_qos base_name=\"a\"><ownership><kind>EXCLUSIVE_OWNERSHIP_QOS</kind></ownership>"
                "</datareader_qos>") +
        profile("name=\"named\"", "<datareader_qos base_name=\"L::a::special\"/>"))));
    EXPECT_EQ(depth("a"), 2);
    EXPECT_EQ(depth("whole"), 2); // not from b
    EXPECT_EQ(reader("L", "whole").ownership.kind, DDS_EXCLUSIVE_OWNERSHIP_QOS);
    EXPECT_EQ(depth("named"), 3);
}

TEST_F(Inheritance, TopicFiltersChoose) {
    load(document(library(
        profile("name=\"base\"", reader_with_depth(2) + reader_with_depth(3, " topic_filter=\"Sq*\"") +
                                     reader_with_depth(4, " topic_filter=\"S*\"") +
                                     "<topic_qos topic_filter=\"A\">" +
                                     "<history><depth>9</depth></history></topic_qos>") +
        profile("name=\"derived\" base_name=\"base\"", reader_with_depth(5, " topic_filter=\"Square\"")))));
    EXPECT_EQ(depth("base"), 2);
    EXPECT_EQ(depth("base", "Circle"), 2);
    EXPECT_EQ(depth("base", "Square"), 3);
    EXPECT_EQ(depth("base", "Star"), 4);
    EXPECT_EQ(depth("derived", "Square"), 5);
    EXPECT_EQ(depth("derived", "Squid"), 3);
    EXPECT_EQ(depth("derived", "Circle"), 2);
    std::string error;
    DDS_TopicQos topic;
    ASSERT_TRUE(store_.read("L", "base", "A", topic, error));
    EXPECT_EQ(topic.history.depth, 9);
    ASSERT_TRUE(store_.read("L", "base", "B", topic, error));
    EXPECT_EQ(topic.history.depth, 1);
}

TEST_F(Inheritance, UnknownBases) {
    const std::pair<const char*, const char*> cases[] = {
        {"x", "unknown base \"x\""},       {"L::x", "unknown base \"L::x\""},
        {"M::a", "unknown base \"M::a\""}, {"", "unknown base \"\""},
        {"::a", "unknown base \"::a\""},   {"L::a::b", "unknown base \"L::a::b\""},
    };
    for (const auto& [base, expected] : cases) {
        EXPECT_EQ(result_of(document(library(profile("name=\"a\"") +
                                             profile(std::string("name=\"b\" base_name=\"") + base + "\"")))),
                  std::string("string profile:3: element <qos_profile>: ") + expected);
        EXPECT_EQ(result_of(document(library(
                      profile("name=\"a\"") +
                      profile("name=\"b\"", std::string("<subscriber_qos base_name=\"") + base + "\"/>")))),
                  std::string("string profile:3: element <subscriber_qos>: ") + expected);
    }
}

TEST_F(Inheritance, CyclesAreRefused) {
    EXPECT_EQ(result_of(document(library(profile("name=\"a\" base_name=\"a\"")))),
              "string profile:2: element <qos_profile>: base \"a\" leads back to itself");
    EXPECT_EQ(result_of(document(library(profile("name=\"a\" base_name=\"c\"") +
                                         profile("name=\"b\" base_name=\"a\"") +
                                         profile("name=\"c\" base_name=\"b\"")))),
              "string profile:3: element <qos_profile>: base \"a\" leads back to itself");
    EXPECT_EQ(result_of(document(library(profile("name=\"a\"", "<topic_qos base_name=\"b\"/>") +
                                         profile("name=\"b\" base_name=\"a\"")))),
              "string profile:3: element <qos_profile>: base \"a\" leads back to itself");
    EXPECT_EQ(result_of(document(library(profile("name=\"a\"", "<topic_qos base_name=\"a\"/>")))),
              "string profile:2: element <topic_qos>: base \"a\" leads back to itself");
    EXPECT_EQ(result_of(document(library(profile("name=\"a\"",
                                                 "<topic_qos name=\"x\" base_name=\"L::a::y\"/>"
                                                 "<topic_qos name=\"y\" base_name=\"L::a::x\"/>")))),
              "string profile:2: element <topic_qos>: base \"L::a::x\" leads back to itself");
    // The same profile as base of two is no cycle.
    EXPECT_EQ(result_of(document(
                  library(profile("name=\"a\"") + profile("name=\"b\" base_name=\"a\"") +
                          profile("name=\"c\" base_name=\"a\"",
                                  "<topic_qos base_name=\"b\"/><subscriber_qos base_name=\"a\"/>")))),
              "loaded");
}

std::string chain(int length, bool bases_first) {
    std::string profiles;
    for (int i = 0; i < length; ++i) {
        const std::string text = profile("name=\"p" + std::to_string(i) + "\"" +
                                             (i == 0 ? "" : " base_name=\"p" + std::to_string(i - 1) + "\""),
                                         reader_with_depth(i + 1));
        profiles = bases_first ? profiles + text : text + profiles;
    }
    return document(library(profiles));
}

TEST_F(Inheritance, LongChainsAreRefusedWithoutFollowingThem) {
    for (const bool bases_first : {true, false}) {
        EXPECT_EQ(result_of(chain(33, bases_first)), "loaded");
        EXPECT_NE(result_of(chain(34, bases_first)).find("more than 32 bases in a row"), std::string::npos);
        EXPECT_NE(result_of(chain(2000, bases_first)).find("more than 32 bases in a row"), std::string::npos);
    }
    load(chain(33, false));
    EXPECT_EQ(depth("p32"), 33);
}

} // namespace
