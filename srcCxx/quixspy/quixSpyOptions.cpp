// The spy's own options, tried after those of the frame and in this order.

#include <strings.h>

#include <algorithm>
#include <cstdlib>

#include "agent/QuixAgentOptionTable.h"
#include "meridian/string.h"
#include "quixspy/quixSpyAgent.h"

namespace {

using Step = QuixOptionStep<QuixSpyAgent>;
using Value = QuixOptionValue;

constexpr int kMinWidth = 1;
constexpr int kMaxWidth = 255;

/// Decimal, hexadecimal or octal; what follows the number is not looked at.
long to_integer(const char* text) {
    return std::strtol(text, nullptr, 0);
}

/// Reads seconds into `out`, also when the text is not a number of at least zero; false then.
bool to_seconds(const char* text, float& out) {
    char* end = nullptr;
    out = static_cast<float>(std::strtod(text, &end));
    return *end == '\0' && out >= 0.0F; // NaN is not
}

int32_t to_width(const char* text) {
    return static_cast<int32_t>(std::clamp<long>(to_integer(text), kMinWidth, kMaxWidth));
}

int add_pattern(char** patterns, int32_t& count, const char* pattern) {
    if (count >= QuixSpyAgent::kMaxPatterns) {
        QuixAgent_fail("Number of topics exceeded. Maximum is %d\n", QuixSpyAgent::kMaxPatterns);
        return QUIX_AGENT_PARSE_ERROR;
    }
    patterns[count++] = DDS_String_dup(pattern);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int add_partition(Step& step, char** partitions, int32_t& count) {
    // The number in the text is not the limit; both are as users know them.
    if (count >= QuixSpyAgent::kMaxPartitions)
        return QuixOption_reject("Number of partitions exceeded. Maximum is %d\n", 1024);
    if (step.text[0] == '-') {
        --*step.index;
        return QuixOption_reject("Missing or invalid partition '%s' following the %s option\n", step.text,
                                 step.argv[*step.index]);
    }
    partitions[count++] = DDS_String_dup(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

/// Handler of a flag.
template <bool QuixSpyAgent::*Field, bool Setting = true>
int handle_flag(Step& step) {
    step.agent.*Field = Setting;
    return QUIX_AGENT_PARSE_CONSUMED;
}

/// The same for the flags of the frame.
template <bool QuixAgent::*Field>
int handle_frame_flag(Step& step) {
    step.agent.*Field = true;
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_topic_regex(Step& step) {
    return add_pattern(step.agent._topicRegex, step.agent._topicRegexCount, step.text);
}

int handle_type_regex(Step& step) {
    return add_pattern(step.agent._typeRegex, step.agent._typeRegexCount, step.text);
}

int handle_help_output(Step& step) {
    step.agent.print_help_output();
    return QUIX_AGENT_PARSE_STOP;
}

int handle_time_filter(Step& step) {
    if (!to_seconds(step.text, step.agent._timeFilter)) {
        return QuixOption_reject("Invalid value for time-filter duration: %f (must be >=0, 0=unlimited)\n",
                                 static_cast<double>(step.agent._timeFilter));
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_deadline(Step& step) {
    if (!to_seconds(step.text, step.agent._deadline)) {
        return QuixOption_reject("Invalid value for deadline: %f (must be >=0, 0=unlimited)\n",
                                 static_cast<double>(step.agent._deadline));
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_discovery_plugins(Step& step) {
    step.agent._discoveryPluginsSet = true;
    if (strcasecmp(step.text, "SDP") == 0) {
        step.agent._discoveryPluginKind = DDS_DISCOVERYCONFIG_BUILTIN_SDP;
    } else if (strcasecmp(step.text, "SDP2") == 0) {
        step.agent._discoveryPluginKind = DDS_DISCOVERYCONFIG_BUILTIN_SDP2;
    } else {
        return QuixOption_reject(
            "Invalid value \"%s\" for '-discoveryPlugins'. It must be: 'SDP', or 'SDP2'.\n", step.text);
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_history(Step& step) {
    step.agent._historyDepth = static_cast<int32_t>(to_integer(step.text));
    if (step.agent._historyDepth <= 0)
        return QuixOption_reject("Invalid value for history: %d (must be >=1)\n", step.agent._historyDepth);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_max_size_serialized(Step& step) {
    step.agent._maxSizeSerialized = static_cast<uint32_t>(std::strtoul(step.text, nullptr, 0));
    if (step.agent._maxSizeSerialized == 0) {
        return QuixOption_reject("Invalid value for max size serialized: %u (must be > 0)\n",
                                 step.agent._maxSizeSerialized);
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_type_width(Step& step) {
    step.agent._typeWidth = to_width(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_topic_width(Step& step) {
    step.agent._topicWidth = to_width(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_print_sample(Step& step) {
    step.agent._printSample = PRINT_SAMPLE_PLAIN;
    if (step.text == nullptr || strcasecmp(step.text, "PLAIN") == 0)
        return QUIX_AGENT_PARSE_CONSUMED;
    if (strcasecmp(step.text, "COMPACT") == 0)
        step.agent._printSample = PRINT_SAMPLE_COMPACT;
    else
        --*step.index; // not a value of this option but the next argument
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_timeout(Step& step) {
    step.agent._timeout = static_cast<int32_t>(to_integer(step.text));
    if (step.agent._timeout < 0) {
        return QuixOption_reject("Invalid value for timeout: %d (must be >=0, 0=unlimited)\n",
                                 step.agent._timeout);
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_participant_partition(Step& step) {
    return add_partition(step, step.agent._participantPartitions, step.agent._participantPartitionCount);
}

int handle_subscriber_partition(Step& step) {
    return add_partition(step, step.agent._subscriberPartitions, step.agent._subscriberPartitionCount);
}

int handle_mode(Step& step) {
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
        return QuixOption_reject("Invalid value \"%s\" for '-mode'. It must be: 'USER' or 'DISC'\n",
                                 step.text);
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

const QuixOption<QuixSpyAgent> kOptions[] = {
    {"-topicRegex", Value::kText, handle_topic_regex},
    {"-typeRegex", Value::kText, handle_type_regex},
    {"-hOutput", Value::kNone, handle_help_output},
    {"-timeFilter", Value::kText, handle_time_filter},
    {"-deadline", Value::kText, handle_deadline},
    {"-discoveryPlugins", Value::kText, handle_discovery_plugins},
    {"-history", Value::kText, handle_history},
    {"-useFirstPublicationQos", Value::kNone, handle_flag<&QuixSpyAgent::_useFirstPublicationQos>},
    {"-maxSizeSerialized", Value::kText, handle_max_size_serialized},
    {"-showHandle", Value::kNone, handle_flag<&QuixSpyAgent::_showHandle>},
    {"-showSampleIdentity", Value::kNone, handle_flag<&QuixSpyAgent::_showSampleIdentity>},
    {"-showSampleFlags", Value::kNone, handle_flag<&QuixSpyAgent::_showSampleFlags>},
    {"-typeWidth", Value::kText, handle_type_width},
    {"-topicWidth", Value::kText, handle_topic_width},
    {"-printSample", Value::kOptionalText, handle_print_sample},
    {"-use43LargeDataFormat", Value::kNone, handle_frame_flag<&QuixAgent::use43LargeDataFormat>},
    {"-use510CompatibleLocatorKinds", Value::kNone,
     handle_frame_flag<&QuixAgent::use510CompatibleLocatorKinds>},
    {"-noDynamicData", Value::kNone, handle_flag<&QuixSpyAgent::_useDynamicData, false>},
    {"-timeout", Value::kText, handle_timeout},
    {"-participantPartition", Value::kText, handle_participant_partition},
    {"-subscriberPartition", Value::kText, handle_subscriber_partition},
    {"-mode", Value::kText, handle_mode},
    {"-showEntityName", Value::kNone, handle_flag<&QuixSpyAgent::_showEntityName>},
    {"-showPartition", Value::kNone, handle_flag<&QuixSpyAgent::_showPartition>},
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
           QuixAgent_fail(
               "Cannot use '-printSample COMPACT' and '-noDynamicData' at the same time.\n"
               "'-printSample COMPACT' is only available with dynamic data.\n");
}
