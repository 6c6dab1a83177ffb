// The options that every tool of this frame has. The order in which they are tried is part of the behaviour:
// an abbreviation belongs to the first option that begins with it.

#include <strings.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/QuixAgent.h"
#include "agent/QuixAgentOptionTable.h"
#include "meridian/string.h"

bool checkRegex(std::string name) {
    // Not isalnum: what counts as a letter must not depend on the locale.
    constexpr const char* kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._";
    return !name.empty() && name.find_first_not_of(kAllowed) == std::string::npos;
}

int QuixAgent::tryParseArgument(int* index, const char** argv, int argc, const char* name,
                                const char** stringOut, int* intOut, bool optional) {
    const char* const argument = argv[*index];
    if (strncasecmp(argument, name, std::strlen(argument)) != 0)
        return QUIX_AGENT_PARSE_UNRECOGNIZED;
    if (stringOut == nullptr && intOut == nullptr)
        return QUIX_AGENT_PARSE_CONSUMED;
    if (*index >= argc - 1) {
        if (optional)
            return QUIX_AGENT_PARSE_CONSUMED;
        std::printf("Missing value for argument '%s'\n", name);
        return QUIX_AGENT_PARSE_ERROR;
    }
    const char* const value = argv[++*index];
    if (stringOut != nullptr) {
        *stringOut = value;
        return QUIX_AGENT_PARSE_CONSUMED;
    }
    char* end = nullptr;
    *intOut = static_cast<int>(std::strtol(value, &end, 10));
    if (*end != '\0') {
        std::printf("Missing or mal-formed value following argument '%s'\n", name);
        return QUIX_AGENT_PARSE_ERROR;
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

void QuixAgent::convertFromFloat(DDS_Duration_t& out, float seconds) {
    // 2^31 is the first float beyond the seconds of a duration. Written so that NaN ends here too.
    if (!(seconds < 2147483648.0F)) {
        out = DDS_DURATION_INFINITE;
        return;
    }
    if (seconds <= 0.0F) {
        out = DDS_DURATION_ZERO;
        return;
    }
    out.sec = static_cast<DDS_Long>(seconds);
    out.nanosec = static_cast<DDS_UnsignedLong>((static_cast<double>(seconds) - out.sec) * 1e9);
}

int QuixOption_reject(const char* format, ...) {
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
    return QUIX_AGENT_PARSE_ERROR;
}

namespace {

using Step = QuixOptionStep<QuixAgent>;
using Value = QuixOptionValue;

int handle_help(Step& step) {
    step.agent.print_usage();
    return QUIX_AGENT_PARSE_STOP;
}

int handle_help_hidden(Step& step) {
    step.agent.print_hidden_usage();
    return QUIX_AGENT_PARSE_STOP;
}

int handle_version(Step&) {
    QuixAgent::printVersion();
    return QUIX_AGENT_PARSE_STOP;
}

int handle_qos_file(Step& step) {
    QuixAgent_replaceString(step.agent.qosFile, step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_qos_profile(Step& step) {
    if (step.text == nullptr)
        return QuixOption_reject("Incorrect arguments for \"-qosProfile\"");
    const std::string value = step.text;
    if (value.size() > 512) {
        return QuixOption_reject(
            "The QoS Profile name cannot be longer than 512 characters. %s is %llu characters.\n",
            value.c_str(), static_cast<unsigned long long>(value.size()));
    }
    const size_t separator = value.find("::");
    if (separator == std::string::npos)
        return QUIX_AGENT_PARSE_ERROR;
    const std::string library = value.substr(0, separator);
    const std::string profile = value.substr(separator + 2);
    if (!checkRegex(library) || !checkRegex(profile))
        return QUIX_AGENT_PARSE_ERROR;
    QuixAgent_replaceString(step.agent.qosProfile, value.c_str());
    QuixAgent_replaceString(step.agent.qosLibraryName, library.c_str());
    QuixAgent_replaceString(step.agent.qosProfileName, profile.c_str());
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_domain_id(Step& step) {
    if (step.number < 0)
        return QuixOption_reject("Invalid domain number: %d (must be greater than 0)\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_domain_tag(Step& step) {
    QuixAgent_replaceString(step.agent.domainTag, step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_index(Step& step) {
    if (step.number < -1 || step.number > 50)
        return QuixOption_reject("Invalid participant index: %d (must be between 0 and 50)\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_app_id(Step& step) {
    step.agent.appId = static_cast<uint32_t>(step.number);
    if (step.number < 0)
        return QuixOption_reject("Invalid appId: %d. Must be a positive integer\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_verbosity(Step& step) {
    if (step.number < 0) {
        return QuixOption_reject("Invalid verbosity value: %d (must be >=0, and <= %d)\n", step.number,
                                 QuixAgent::kMaxVerbosity);
    }
    if (step.number > QuixAgent::kMaxVerbosity) {
        std::printf("Verbosity value: %d exceeds maximum of %d. Using the maximum value\n", step.number,
                    QuixAgent::kMaxVerbosity);
        step.agent.verbosity = QuixAgent::kMaxVerbosity;
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_log_format(Step& step) {
    if (step.number < 0)
        return QuixOption_reject("Invalid log format value: %d (must be >=0, and <= %d)\n", step.number,
                                 65535);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_discovery_ttl(Step& step) {
    // The value that stands for the middleware's own TTL can be left in force, but not asked for.
    if (step.number < 0 || step.number > 255)
        return QuixOption_reject("Invalid DiscoveryTTL value: %d  Must be between 1 and 255\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_peer(Step& step) {
    QuixAgent& agent = step.agent;
    if (agent.peerCount >= QuixAgent::kMaxPeers)
        return QuixOption_reject("Number of peers exceeded. Maximum is %d\n", QuixAgent::kMaxPeers);
    if (step.text[0] == '-') {
        --*step.index;
        return QuixOption_reject("Missing or invalid peer '%s' following the %s option\n", step.text,
                                 step.argv[*step.index]);
    }
    agent.peerList[agent.peerCount++] = DDS_String_dup(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_transport(Step& step) {
    if (step.number <= 0) {
        return QuixOption_reject("Invalid transport mask: %d (must be >0 to select at least one transport)\n",
                                 step.number);
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_message_size(Step& step) {
    if (step.number < -1)
        return QuixOption_reject("Invalid message size: %d\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_shmem_size(Step& step) {
    if (step.number < -1)
        return QuixOption_reject("Invalid shmem size: %d\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

int handle_type_code_size(Step& step) {
    if (step.number <= 0)
        return QuixOption_reject("Invalid type code max size: %d\n", step.number);
    return QUIX_AGENT_PARSE_CONSUMED;
}

const QuixOption<QuixAgent> kOptions[] = {
    {"-help", Value::kNone, handle_help},
    {"-helpHidden", Value::kNone, handle_help_hidden},
    {"-qosFile", Value::kText, handle_qos_file},
    {"-qosProfile", Value::kOptionalText, handle_qos_profile}, // has its own text for a missing value
    {"-version", Value::kNone, handle_version},
    {"-domainId", Value::kNumber, handle_domain_id, &QuixAgent::domainId},
    {"-domainTag", Value::kText, handle_domain_tag},
    {"-index", Value::kNumber, handle_index, &QuixAgent::participantIndex},
    {"-appId", Value::kNumber, handle_app_id},
    {"-verbosity", Value::kNumber, handle_verbosity, &QuixAgent::verbosity},
    {"-LogFormat", Value::kNumber, handle_log_format, &QuixAgent::logFormat},
    {"-discoveryTTL", Value::kNumber, handle_discovery_ttl, &QuixAgent::discoveryTTL},
    {"-peer", Value::kText, handle_peer},
    {"-transport", Value::kNumber, handle_transport, &QuixAgent::transportMask},
    {"-msgMaxSize", Value::kNumber, handle_message_size, &QuixAgent::msgMaxSize},
    {"-shmRcvSize", Value::kNumber, handle_shmem_size, &QuixAgent::shmRcvSize},
    {"-tcMaxSize", Value::kNumber, handle_type_code_size, &QuixAgent::tcMaxSize},
};

} // namespace

int QuixAgent::parse_argument(int* index, const char** argv, int argc) {
    if (*index >= argc)
        return QUIX_AGENT_PARSE_ERROR;
    return QuixOption_parse(kOptions, *this, index, argv, argc);
}
