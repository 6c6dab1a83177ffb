// How single values are read, and what is said of bad ones.

#include "documents.h"
#include "qos/octets.h"

using namespace meridian::qos;
using namespace meridian::qos::test;

namespace {

/// The message for one element in <datareader_qos> (which stands on line 2), without the label.
std::string reader_error(const std::string& xml) {
    const std::string result = result_of(in_profile("<datareader_qos>" + xml + "</datareader_qos>"));
    const std::string label = "string profile:";
    return result.compare(0, label.size(), label) == 0 ? result.substr(label.size()) : result;
}

std::string participant_error(const std::string& xml) {
    return result_of(in_profile("<domain_participant_qos>" + xml + "</domain_participant_qos>"));
}

TEST(Values, BadOnesAreNamedWithLineAndElement) {
    const std::pair<const char*, const char*> cases[] = {
        {"<reliability><kind>RELIABLE</kind></reliability>",
         "2: element <kind>: \"RELIABLE\" is not one of BEST_EFFORT_RELIABILITY_QOS, "
         "RELIABLE_RELIABILITY_QOS"},
        {"<reliabilty/>", "2: element <reliabilty>: unknown element in <datareader_qos>"},
        {"<reliability>\n\n<knd/></reliability>", "4: element <knd>: unknown element in <reliability>"},
        {"<history><depth>0</depth></history>",
         "2: element <depth>: \"0\" is out of range (1 to 2147483647)"},
        {"<history><depth>-1</depth></history>",
         "2: element <depth>: \"-1\" is out of range (1 to 2147483647)"},
        {"<history><depth>2147483648</depth></history>",
         "2: element <depth>: \"2147483648\" is out of range (1 to 2147483647)"},
        {"<history><depth>99999999999999999999999</depth></history>",
         "2: element <depth>: \"99999999999999999999999\" is out of range (1 to 2147483647)"},
        {"<history><depth>12x</depth></history>",
         "2: element <depth>: \"12x\" is not a number (1 to 2147483647)"},
        {"<history><depth></depth></history>", "2: element <depth>: \"\" is not a number (1 to 2147483647)"},
        {"<history><depth>1.5</depth></history>",
         "2: element <depth>: \"1.5\" is not a number (1 to 2147483647)"},
        {"<history><depth>--1</depth></history>",
         "2: element <depth>: \"--1\" is not a number (1 to 2147483647)"},
        {"<history><depth>1</depth><depth>1</depth></history>",
         "2: element <depth>: appears twice in <history>"},
        {"<history/><history/>", "2: element <history>: appears twice in <datareader_qos>"},
        {"<history>KEEP_ALL</history>",
         "2: element <history>: holds the text \"KEEP_ALL\" where elements are expected"},
        {"<history><depth><a/></depth></history>",
         "2: element <a>: unknown element in <depth>, which holds a plain value"},
        {"<history deep=\"yes\"/>", "2: element <history>: unknown attribute \"deep\""},
        {"<history><depth unit=\"samples\">1</depth></history>",
         "2: element <depth>: unknown attribute \"unit\""},
        {"<resource_limits><max_samples>0</max_samples></resource_limits>",
         "2: element <max_samples>: \"0\" is out of range (1 to 2147483647, or LENGTH_UNLIMITED)"},
        {"<resource_limits><max_samples>-2</max_samples></resource_limits>",
         "2: element <max_samples>: \"-2\" is out of range (1 to 2147483647, or LENGTH_UNLIMITED)"},
        {"<resource_limits><max_samples>MANY</max_samples></resource_limits>",
         "2: element <max_samples>: \"MANY\" is not a number (1 to 2147483647, or LENGTH_UNLIMITED)"},
        {"<deadline><period><sec>-1</sec></period></deadline>",
         "2: element <sec>: \"-1\" is out of range (0 to 2147483647, or DURATION_INFINITE_SEC, "
         "DURATION_INFINITY, "
         "DURATION_ZERO_SEC)"},
        {"<deadline><period><nanosec>1000000000</nanosec></period></deadline>",
         "2: element <nanosec>: a second or more; 999999999 is the most"},
        {"<deadline><period><sec>1</sec><nanosec>DURATION_INFINITE_NSEC</nanosec></period></deadline>",
         "2: element <period>: infinite nanoseconds beside finite seconds"},
        {"<deadline><period><seconds>1</seconds></period></deadline>",
         "2: element <seconds>: unknown element in <period>"},
        {"<reader_resource_limits><dynamically_allocate_fragmented_samples>yes"
         "</dynamically_allocate_fragmented_samples></reader_resource_limits>",
         "2: element <dynamically_allocate_fragmented_samples>: \"yes\" is not one of true, false, 1, 0"},
        {"<representation><value><element>2</element></value></representation>",
         "2: element <element>: \"2\" is not one of XCDR_DATA_REPRESENTATION, XML_DATA_REPRESENTATION, "
         "XCDR2_DATA_REPRESENTATION"},
        {"<representation><value><id>2</id></value></representation>",
         "2: element <id>: unknown element in the list <value>"},
        {"<property><value><element><value>1</value></element></value></property>",
         "2: element <element>: a property without name"},
        {"<property><value><element><name>a</name></element><element><name>a</name></element></value></"
         "property>",
         "2: element <element>: the property \"a\" appears twice"},
        {"<user_data><value>256</value></user_data>",
         "2: element <value>: octet 1 is not a number from 0 to 255"},
        {"<user_data><value>?</value></user_data>",
         "2: element <value>: neither base64 nor octets separated by commas"},
        {"<user_data><value><element>256</element></value></user_data>",
         "2: element <element>: \"256\" is out of range (0 to 255)"},
        {"<ownership_strength><value>1</value></ownership_strength>",
         "2: element <ownership_strength>: unknown element in <datareader_qos>"},
    };
    for (const auto& [xml, expected] : cases)
        EXPECT_EQ(reader_error(xml), expected) << xml;
}

TEST(Values, LongOnesAreCutInMessages) {
    EXPECT_EQ(reader_error("<history><depth>" + std::string(5000, '9') + "x</depth></history>"),
              "2: element <depth>: \"" + std::string(60, '9') + "...\" is not a number (1 to 2147483647)");
}

TEST(Values, BadMasksAndIds) {
    EXPECT_EQ(
        participant_error("<transport_builtin><mask>TRANSPORTBUILTIN_UDPv4|TCP</mask></transport_builtin>"),
        "string profile:2: element <mask>: \"TCP\" is not one of TRANSPORTBUILTIN_MASK_DEFAULT, "
        "TRANSPORTBUILTIN_UDPv4, TRANSPORTBUILTIN_SHMEM, TRANSPORTBUILTIN_UDPv6");
    EXPECT_EQ(participant_error("<transport_builtin><mask></mask></transport_builtin>"),
              "string profile:2: element <mask>: \"\" is not one of TRANSPORTBUILTIN_MASK_DEFAULT, "
              "TRANSPORTBUILTIN_UDPv4, TRANSPORTBUILTIN_SHMEM, TRANSPORTBUILTIN_UDPv6");
    EXPECT_EQ(participant_error("<transport_builtin><mask>-1</mask></transport_builtin>"),
              "string profile:2: element <mask>: \"-1\" is out of range (0 to 2147483647)");
    EXPECT_EQ(participant_error("<wire_protocol><rtps_app_id>4294967296</rtps_app_id></wire_protocol>"),
              "string profile:2: element <rtps_app_id>: \"4294967296\" is out of range (0 to 4294967295, or "
              "RTPS_AUTO_ID)");
    EXPECT_EQ(participant_error("<wire_protocol><participant_id>-2</participant_id></wire_protocol>"),
              "string profile:2: element <participant_id>: \"-2\" is out of range (-1 to 2147483647)");
}

DDS_Duration_t period(const std::string& parts) {
    ProfileStore store;
    std::string error;
    DDS_DataReaderQos qos;
    EXPECT_TRUE(load_string(
        store,
        in_profile("<datareader_qos><deadline><period>" + parts + "</period></deadline></datareader_qos>"),
        error))
        << error;
    EXPECT_TRUE(store.read("L", "P", nullptr, qos, error));
    return qos.deadline.period;
}

TEST(Values, Durations) {
    EXPECT_EQ(period(""), DDS_DURATION_INFINITE); // nothing said: the default
    EXPECT_EQ(period("<sec>1</sec>").nanosec, 0u);
    EXPECT_EQ(period("<nanosec>5</nanosec>").sec, 0);
    EXPECT_EQ(period("<sec>DURATION_INFINITE_SEC</sec>"), DDS_DURATION_INFINITE);
    EXPECT_EQ(period("<sec>DDS_DURATION_INFINITE_SEC</sec><nanosec>DDS_DURATION_INFINITE_NSEC</nanosec>"),
              DDS_DURATION_INFINITE);
    EXPECT_EQ(period("<sec>DURATION_INFINITY</sec><nanosec>DURATION_INFINITY</nanosec>"),
              DDS_DURATION_INFINITE);
    EXPECT_EQ(period("<sec>2147483647</sec><nanosec>4294967295</nanosec>"), DDS_DURATION_INFINITE);
    EXPECT_EQ(period("<sec>DURATION_ZERO_SEC</sec><nanosec>DURATION_ZERO_NSEC</nanosec>"), DDS_DURATION_ZERO);
    EXPECT_EQ(period("<sec>1<!-- one -->2</sec>").sec, 12);
    EXPECT_EQ(period("<sec><![CDATA[ 3 ]]></sec>").sec, 3);
    EXPECT_EQ(period("<sec>&#x34;</sec>").sec, 4);
}

TEST(Octets, AllForms) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"0", "0"},
        {"255", "255"},
        {"0x1f", "31"},
        {"1,2,3", "1,2,3"},
        {" 0x01 , 0XFF,\n7", "1,255,7"},
        {"AQID", "1,2,3"},
        {"AQ==", "1"},
        {"AQI=", "1,2"},
        {"AQ\nID", "1,2,3"},
        {"+/+/", "251,255,191"},
        {"1234", "215,109,248"}, // four digits are base64
    };
    for (const auto& [text, expected] : cases) {
        std::vector<DDS_Octet> octets;
        EXPECT_EQ(decode_octets(text, octets), "") << text;
        std::string numbers;
        for (const DDS_Octet octet : octets)
            numbers += (numbers.empty() ? "" : ",") + std::to_string(octet);
        EXPECT_EQ(numbers, expected) << text;
    }
    for (const char* text : {"256", "1,", ",1", "1,,2", "1,x", "0x", "0x100,1", "-1,2", "AQI",
                             "A===", "====", "AQ=I", "A-_Q", "1 2 3 4", "\xc3\xa4\xc3\xa4"}) {
        std::vector<DDS_Octet> octets;
        EXPECT_NE(decode_octets(text, octets), "") << text;
    }
}

} // namespace
