// The spy's part of the usage page and of the settings in force.

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <initializer_list>

#include "quixspy/quixSpyAgent.h"

namespace {

void add_lines(std::initializer_list<const char*> lines) {
    for (const char* const line : lines)
        QuixAgent::addToOption(line);
}

void print_partition_option(const char* name, const char* description) {
    QuixAgent::printOption(name, description, "partition", nullptr);
    add_lines({"this argument may be repeated", "to indicate multiple partitions",
               "the first occurrence of this parameter resets the default partition list",
               "default: * (if the command-line option qosProfile is used, then the default",
               "partition is the empty string partition)"});
}

void print_width_option(const char* name, const char* description) {
    QuixAgent::printOption(name, description, nullptr, nullptr);
    add_lines({"Width must be in range (1-255)", "Names wider than the width will wraparound"});
}

void print_joined(char* const* texts, int32_t count, const char* separator) {
    for (int32_t i = 0; i < count; ++i)
        std::printf("%s%s", i > 0 ? separator : "", texts[i]);
}

} // namespace

void QuixSpyAgent::print_usage() {
    QuixAgent::print_usage();
    std::puts("Specific options:");
    printOption("hOutput", "Display help on ferret output format", nullptr, nullptr);
    addToOption("and interpretation.");
    printOption("mode", "Chooses between printing discovery data or user data.", "USER|DISC", nullptr);
    add_lines({"\tUSER: Only prints user data samples. Skips discovery events.",
               "\t\tAlso sets '-printSample' by default.",
               "\tDISC: Only prints discovery events. Skips user data samples.",
               "\tBy default, if you do not specify a mode, ferret prints both",
               "\tdiscovery events and user data samples."});
    printOption("deadline", "Sets subscription DEADLINE QoS", "deadline", nullptr);
    add_lines({"Units are seconds.", "Default infinite (i.e. no deadline)"});
    printOption("discoveryPlugins", "Configures the Built-in discovery plugin.", "SDP|SDP2", nullptr);
    add_lines(
        {"\tSDP: Simple Participant Discovery Protocol and Simple Endpoint Discovery Protocol.",
         "\tSPDP2: Simple Participant Discovery Protocol 2.0 (SPDP2) and Simple Endpoint Discovery Protocol.",
         "By default, SDP is used as the discovery plugin."});
    printOption("timeFilter", "Sets subscription TIME_BASED_FILTER QoS", "duration", nullptr);
    add_lines({"Units are seconds.", "Default 0 (i.e. no time-based filter)"});
    printOption("history", "Sets subscription HISTORY QoS", "depth", nullptr);
    addToOption("Default 8192");
    print_partition_option(
        "participantPartition",
        "Adds a partition to the list of partition names in the DDS_DomainParticipant entity");
    print_partition_option("subscriberPartition",
                           "Adds a partition to the list of partition names in the DDS_Subscriber entity");
    printOption("useFirstPublicationQos", "Sets subscription RELIABILITY and DURABILITY QoS", nullptr,
                nullptr);
    add_lines({"sets subscription reliability kind and", "durability kind according to the",
               "first discovered publication of that topic"});
    printOption("showHandle", "Add a field with the instance handle", nullptr, nullptr);
    addToOption("handle associated with each sample");
    printOption("showSampleIdentity", "Add two fields with the sample identity", nullptr, nullptr);
    addToOption("and the related sample identity associated with each sample");
    printOption("showSampleFlags", "Add a field with the flags associated with each sample", nullptr,
                nullptr);
    printOption("typeRegex", "Subscribe to a subset of types", "regex", "default *");
    add_lines({"regex uses the syntax of", "posix regular expressions", "This argument may be repeated",
               "to indicate multiple topic expressions"});
    printOption("topicRegex", "Subscribe to a subset of topics", "regex", "default *");
    add_lines({"regex uses the syntax of", "posix regular expressions", "This argument may be repeated",
               "to indicate multiple type expressions"});
    print_width_option("typeWidth", "Set maximum width of Type name field");
    print_width_option("topicWidth", "Set maximum width of Topic name field");
    printOption("printSample", "Print the value of the received samplesPLAIN|COMPACT", nullptr, nullptr);
    add_lines({"\tPLAIN: Default. Pretty-print sample information for best readability.",
               "\tCOMPACT: Print sample information in a single line using a JSON format.",
               "This option should be used when compatibility",
               "with 4.2e is required and the topic data types",
               "contain double, long long, unsigned long long", "or long double members."});
    printOption("timeout", "Sets a timeout to exit", "SS", nullptr);
    addToOption("Default infinite (i.e. no timeout)");
    printOption("showEntityName", "Display the entity name each time a sample is received.", nullptr,
                nullptr);
    printOption(
        "showPartition",
        "Display the partitions to which an entity belongs each time a new entity is discovered and sample "
        "is received.",
        nullptr, nullptr);
}

void QuixSpyAgent::print_command_summary() {
    QuixAgent::print_command_summary();
    const bool has_deadline = std::fabs(_deadline + 1.0F) > FLT_EPSILON;
    const bool has_time_filter = std::fabs(_timeFilter) > FLT_EPSILON;
    std::printf("    deadline...............: %+7.6f %s\n", static_cast<double>(_deadline),
                has_deadline ? "" : "(no deadline)");
    std::printf("    time based filter......: %+7.6f %s\n", static_cast<double>(_timeFilter),
                has_time_filter ? "" : "(no time-based filter)");
    if (_topicRegexCount == 0) {
        std::puts("    topic regex............: *");
    } else {
        std::printf("    topic regex............: ");
        print_joined(_topicRegex, _topicRegexCount, " ");
        std::printf("\n");
    }
    if (_typeRegexCount == 0) {
        std::puts("    type regex............: *");
    } else {
        std::printf("    type regex.............: ");
        print_joined(_typeRegex, _typeRegexCount, " ");
        std::printf("\n");
    }
    // A list of participant partitions has no line end of its own: the next item follows on the same line.
    std::printf("    Partition in the Participant list.........: ");
    if (_participantPartitionCount == 0)
        std::puts("* (unless overwritten with qosProfile)");
    else
        print_joined(_participantPartitions, _participantPartitionCount, ",");
    std::printf("    Partition in the Subscriber list.........: ");
    if (_subscriberPartitionCount == 0) {
        std::puts("* (unless overwritten with qosProfile)\n");
    } else {
        print_joined(_subscriberPartitions, _subscriberPartitionCount, ",");
        std::printf("\n");
    }
}
