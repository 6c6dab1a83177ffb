// The spy's own options, tried after those of the frame and in this order, which is that of the usage page.

#include <strings.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>

#include "agent/QuixAgentOptionTable.h"
#include "meridian/string.h"
#include "quixspy/quixSpyAgent.h"

namespace {

using Option = QuixOption<QuixSpyAgent>;
using Step = QuixOptionStep<QuixSpyAgent>;
using Value = QuixOptionValue;

int show_output_help(Step& step) {
    step.agent.print_help_output();
    return QUIX_AGENT_PARSE_STOP;
}

int set_mode(Step& step) {
    QuixSpyAgent& agent = step.agent;
    if (strcasecmp(step.text, "USER") == 0) {
        agent._printUserData = true;
        agent._printSample = PRINT_SAMPLE_PLAIN;
        agent._printDiscovery = false;
    } else if (strcasecmp(step.text, "DISC") == 0) {
        agent._printDiscovery = true;
        agent._printUserData = false;
        agent._showEntityName = true;
        agent._showPartition = true;
        agent._showHandle = true;
    } else {
        agent.output().print("Invalid value \"%s\" for '-mode'. It must be: 'USER' or 'DISC'\n", step.text);
        return QUIX_AGENT_PARSE_ERROR;
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int set_discovery_plugins(Step& step) {
    QuixSpyAgent& agent = step.agent;
    agent._discoveryPluginsSet = true;
    if (strcasecmp(step.text, "SDP") == 0) {
        agent._discoveryPluginKind = DDS_DISCOVERYCONFIG_BUILTIN_SDP;
    } else if (strcasecmp(step.text, "SDP2") == 0) {
        agent._discoveryPluginKind = DDS_DISCOVERYCONFIG_BUILTIN_SDP2;
    } else {
        agent.output().print("Invalid value \"%s\" for '-discoveryPlugins'. It must be: 'SDP', or 'SDP2'.\n",
                             step.text);
        return QUIX_AGENT_PARSE_ERROR;
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int set_max_size_serialized(Step& step) {
    QuixSpyAgent& agent = step.agent;
    agent._maxSizeSerialized = static_cast<uint32_t>(std::strtoul(step.text, nullptr, 0));
    if (agent._maxSizeSerialized != 0)
        return QUIX_AGENT_PARSE_CONSUMED;
    agent.output().print("Invalid value for max size serialized: %u (must be > 0)\n",
                         agent._maxSizeSerialized);
    return QUIX_AGENT_PARSE_ERROR;
}

int set_print_sample(Step& step) {
    step.agent._printSample = PRINT_SAMPLE_PLAIN;
    if (step.text == nullptr || strcasecmp(step.text, "PLAIN") == 0)
        return QUIX_AGENT_PARSE_CONSUMED;
    if (strcasecmp(step.text, "COMPACT") == 0)
        step.agent._printSample = PRINT_SAMPLE_COMPACT;
    else
        --*step.index; // not a value of this option but the next argument
    return QUIX_AGENT_PARSE_CONSUMED;
}

template <char* (QuixSpyAgent::*List)[QuixSpyAgent::kMaxPatterns], int32_t QuixSpyAgent::*Count>
int add_pattern(Step& step) {
    QuixSpyAgent& agent = step.agent;
    int32_t& count = agent.*Count;
    if (count >= QuixSpyAgent::kMaxPatterns) {
        agent.output().fail("Number of topics exceeded. Maximum is %d\n", QuixSpyAgent::kMaxPatterns);
        return QUIX_AGENT_PARSE_ERROR;
    }
    (agent.*List)[count++] = DDS_String_dup(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

template <char* (QuixSpyAgent::*List)[QuixSpyAgent::kMaxPartitions], int32_t QuixSpyAgent::*Count>
int add_partition(Step& step) {
    // The number in the text is not the limit; both are as users know them.
    return QuixOption_append(step, step.agent.*List, step.agent.*Count, QuixSpyAgent::kMaxPartitions,
                             "partition", 1024);
}

std::string joined(char* const* texts, int32_t count, const char* separator) {
    std::string text;
    for (int32_t i = 0; i < count; ++i)
        text.append(i > 0 ? separator : "").append(texts[i]);
    return text;
}

void show_deadline(const QuixSpyAgent& agent) {
    const bool has_deadline = std::fabs(agent._deadline + 1.0F) > FLT_EPSILON;
    agent.output().print("    deadline...............: %+7.6f %s\n", static_cast<double>(agent._deadline),
                         has_deadline ? "" : "(no deadline)");
}

void show_time_filter(const QuixSpyAgent& agent) {
    const bool has_filter = std::fabs(agent._timeFilter) > FLT_EPSILON;
    agent.output().print("    time based filter......: %+7.6f %s\n", static_cast<double>(agent._timeFilter),
                         has_filter ? "" : "(no time-based filter)");
}

void show_topic_patterns(const QuixSpyAgent& agent) {
    const int32_t count = agent._topicRegexCount;
    const std::string patterns = count == 0 ? "*" : joined(agent._topicRegex, count, " ");
    agent.output().put("    topic regex............: " + patterns + "\n");
}

void show_type_patterns(const QuixSpyAgent& agent) {
    const int32_t count = agent._typeRegexCount;
    agent.output().put(count == 0
                           ? "    type regex............: *\n"
                           : "    type regex.............: " + joined(agent._typeRegex, count, " ") + "\n");
}

constexpr const char* kDefaultPartition = "* (unless overwritten with qosProfile)\n";

void show_participant_partitions(const QuixSpyAgent& agent) {
    // A list has no line end of its own: the next item follows on the same line.
    const int32_t count = agent._participantPartitionCount;
    agent.output().put("    Partition in the Participant list.........: " +
                       (count == 0 ? kDefaultPartition : joined(agent._participantPartitions, count, ",")));
}

void show_subscriber_partitions(const QuixSpyAgent& agent) {
    const int32_t count = agent._subscriberPartitionCount;
    agent.output().put("    Partition in the Subscriber list.........: " +
                       (count == 0 ? kDefaultPartition : joined(agent._subscriberPartitions, count, ",")) +
                       "\n");
}

constexpr const char* kPartitionLines =
    "this argument may be repeated\n"
    "to indicate multiple partitions\n"
    "the first occurrence of this parameter resets the default partition list\n"
    "default: * (if the command-line option qosProfile is used, then the default\n"
    "partition is the empty string partition)";
constexpr const char* kWidthLines =
    "Width must be in range (1-255)\n"
    "Names wider than the width will wraparound";

const Option kOptions[] = {
    Option("-hOutput", Value::kNone, show_output_help)
        .help("Display help on ferret output format", nullptr, nullptr, "and interpretation."),
    Option("-mode", Value::kText, set_mode)
        .help("Chooses between printing discovery data or user data.", "USER|DISC", nullptr,
              "\tUSER: Only prints user data samples. Skips discovery events.\n"
              "\t\tAlso sets '-printSample' by default.\n"
              "\tDISC: Only prints discovery events. Skips user data samples.\n"
              "\tBy default, if you do not specify a mode, ferret prints both\n"
              "\tdiscovery events and user data samples."),
    Option("-deadline", &QuixSpyAgent::_deadline,
           "Invalid value for deadline: %f (must be >=0, 0=unlimited)\n")
        .help("Sets subscription DEADLINE QoS", "deadline", nullptr,
              "Units are seconds.\nDefault infinite (i.e. no deadline)")
        .summary(1, show_deadline),
    Option("-discoveryPlugins", Value::kText, set_discovery_plugins)
        .help("Configures the Built-in discovery plugin.", "SDP|SDP2", nullptr,
              "\tSDP: Simple Participant Discovery Protocol and Simple Endpoint Discovery Protocol.\n"
              "\tSPDP2: Simple Participant Discovery Protocol 2.0 (SPDP2) and Simple Endpoint Discovery "
              "Protocol.\n"
              "By default, SDP is used as the discovery plugin."),
    Option("-timeFilter", &QuixSpyAgent::_timeFilter,
           "Invalid value for time-filter duration: %f (must be >=0, 0=unlimited)\n")
        .help("Sets subscription TIME_BASED_FILTER QoS", "duration", nullptr,
              "Units are seconds.\nDefault 0 (i.e. no time-based filter)")
        .summary(2, show_time_filter),
    Option("-history", Value::kInteger, &QuixSpyAgent::_historyDepth)
        .range(1, INT32_MAX, "Invalid value for history: %d (must be >=1)\n")
        .help("Sets subscription HISTORY QoS", "depth", nullptr, "Default 8192"),
    Option("-participantPartition", Value::kText,
           add_partition<&QuixSpyAgent::_participantPartitions, &QuixSpyAgent::_participantPartitionCount>)
        .help("Adds a partition to the list of partition names in the DDS_DomainParticipant entity",
              "partition", nullptr, kPartitionLines)
        .summary(5, show_participant_partitions),
    Option("-subscriberPartition", Value::kText,
           add_partition<&QuixSpyAgent::_subscriberPartitions, &QuixSpyAgent::_subscriberPartitionCount>)
        .help("Adds a partition to the list of partition names in the DDS_Subscriber entity", "partition",
              nullptr, kPartitionLines)
        .summary(6, show_subscriber_partitions),
    Option("-useFirstPublicationQos", &QuixSpyAgent::_useFirstPublicationQos)
        .help("Sets subscription RELIABILITY and DURABILITY QoS", nullptr, nullptr,
              "sets subscription reliability kind and\n"
              "durability kind according to the\n"
              "first discovered publication of that topic"),
    Option("-showHandle", &QuixSpyAgent::_showHandle)
        .help("Add a field with the instance handle", nullptr, nullptr, "handle associated with each sample"),
    Option("-showSampleIdentity", &QuixSpyAgent::_showSampleIdentity)
        .help("Add two fields with the sample identity", nullptr, nullptr,
              "and the related sample identity associated with each sample"),
    Option("-showSampleFlags", &QuixSpyAgent::_showSampleFlags)
        .help("Add a field with the flags associated with each sample"),
    Option("-typeRegex", Value::kText, add_pattern<&QuixSpyAgent::_typeRegex, &QuixSpyAgent::_typeRegexCount>)
        .help("Subscribe to a subset of types", "regex", "default *",
              "regex uses the syntax of\n"
              "posix regular expressions\n"
              "This argument may be repeated\n"
              "to indicate multiple topic expressions")
        .summary(4, show_type_patterns),
    Option("-topicRegex", Value::kText,
           add_pattern<&QuixSpyAgent::_topicRegex, &QuixSpyAgent::_topicRegexCount>)
        .help("Subscribe to a subset of topics", "regex", "default *",
              "regex uses the syntax of\n"
              "posix regular expressions\n"
              "This argument may be repeated\n"
              "to indicate multiple type expressions")
        .summary(3, show_topic_patterns),
    Option("-typeWidth", Value::kInteger, &QuixSpyAgent::_typeWidth)
        .range(1, 255, nullptr)
        .help("Set maximum width of Type name field", nullptr, nullptr, kWidthLines),
    Option("-topicWidth", Value::kInteger, &QuixSpyAgent::_topicWidth)
        .range(1, 255, nullptr)
        .help("Set maximum width of Topic name field", nullptr, nullptr, kWidthLines),
    Option("-printSample", Value::kOptionalText, set_print_sample)
        .help("Print the value of the received samplesPLAIN|COMPACT", nullptr, nullptr,
              "\tPLAIN: Default. Pretty-print sample information for best readability.\n"
              "\tCOMPACT: Print sample information in a single line using a JSON format.\n"
              "This option should be used when compatibility\n"
              "with 4.2e is required and the topic data types\n"
              "contain double, long long, unsigned long long\n"
              "or long double members."),
    Option("-timeout", Value::kInteger, &QuixSpyAgent::_timeout)
        .range(0, INT32_MAX, "Invalid value for timeout: %d (must be >=0, 0=unlimited)\n")
        .help("Sets a timeout to exit", "SS", nullptr, "Default infinite (i.e. no timeout)"),
    Option("-showEntityName", &QuixSpyAgent::_showEntityName)
        .help("Display the entity name each time a sample is received."),
    Option("-showPartition", &QuixSpyAgent::_showPartition)
        .help("Display the partitions to which an entity belongs each time a new entity is discovered and "
              "sample is received."),
    Option("-maxSizeSerialized", Value::kText, set_max_size_serialized),
    Option("-use43LargeDataFormat", &QuixSpyAgent::use43LargeDataFormat)
        .help("Use Kvo Data Distribution 4.3 large data format", nullptr, nullptr,
              "This option should be used when compatibility\n"
              "with 4.3 is required and fragmented data is sent.\n"
              "This is the same as setting the corresponding\n"
              "properties in PropertyQosPolicy.",
              QuixOptionPage::kHiddenUsage),
    Option("-use510CompatibleLocatorKinds", &QuixSpyAgent::use510CompatibleLocatorKinds)
        .help("Use Meridian DDS 5.1.0 locator kinds for", nullptr, nullptr, "SHMEM and UDPv6.",
              QuixOptionPage::kHiddenUsage),
    Option("-noDynamicData", &QuixSpyAgent::_useDynamicData, false),
};

} // namespace

int QuixSpyAgent::parse_argument(int* index, const char** argv, int argc) {
    const int result = QuixAgent::parse_argument(index, argv, argc);
    if (result != QUIX_AGENT_PARSE_UNRECOGNIZED)
        return result;
    return QuixOption_parse(kOptions, *this, index, argv, argc);
}

bool QuixSpyAgent::check_arguments_consistency() {
    return _printSample != PRINT_SAMPLE_COMPACT || _useDynamicData ||
           output().fail(
               "Cannot use '-printSample COMPACT' and '-noDynamicData' at the same time.\n"
               "'-printSample COMPACT' is only available with dynamic data.\n");
}

void QuixSpyAgent::print_usage() {
    QuixAgent::print_usage();
    output().put("Specific options:\n");
    QuixOption_printPage(kOptions, *this, QuixOptionPage::kUsage);
}

void QuixSpyAgent::print_hidden_usage() {
    QuixAgent::print_hidden_usage();
    QuixOption_printPage(kOptions, *this, QuixOptionPage::kHiddenUsage);
}

void QuixSpyAgent::print_command_summary() {
    QuixAgent::print_command_summary();
    QuixOption_printSummary(kOptions, *this);
}
