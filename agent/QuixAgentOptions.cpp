// The options that every tool of this frame has. The order in which they are tried is part of the behaviour:
// an abbreviation belongs to the first option that begins with it.

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "agent/QuixAgent.h"
#include "agent/QuixAgentOptionTable.h"

bool checkRegex(std::string name) {
    // Not isalnum: what counts as a letter must not depend on the locale.
    constexpr const char* kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._";
    return !name.empty() && name.find_first_not_of(kAllowed) == std::string::npos;
}

int QuixAgent::tryParseArgument(QuixAgentOutput& output, int* index, const char** argv, int argc,
                                const char* name, const char** stringOut, int* intOut, bool optional) {
    const char* const argument = argv[*index];
    if (strncasecmp(argument, name, std::strlen(argument)) != 0)
        return QUIX_AGENT_PARSE_UNRECOGNIZED;
    if (stringOut == nullptr && intOut == nullptr)
        return QUIX_AGENT_PARSE_CONSUMED;
    if (*index >= argc - 1) {
        if (optional)
            return QUIX_AGENT_PARSE_CONSUMED;
        output.print("Missing value for argument '%s'\n", name);
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
        output.print("Missing or mal-formed value following argument '%s'\n", name);
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

std::string QuixOption_fill(const char* text, const std::string& number) {
    std::string filled = text;
    const size_t at = filled.find('%');
    if (at != std::string::npos)
        filled.replace(at, 2, number);
    return filled;
}

bool QuixOption_toSeconds(const char* text, float& out) {
    char* end = nullptr;
    out = static_cast<float>(std::strtod(text, &end));
    return *end == '\0' && out >= 0.0F; // NaN is not
}

namespace {

using Option = QuixOption<QuixAgent>;
using Step = QuixOptionStep<QuixAgent>;
using Value = QuixOptionValue;

int show_help(Step& step) {
    step.agent.print_usage();
    return QUIX_AGENT_PARSE_STOP;
}

int show_hidden_help(Step& step) {
    step.agent.print_hidden_usage();
    return QUIX_AGENT_PARSE_STOP;
}

int show_version(Step& step) {
    step.agent.printVersion();
    return QUIX_AGENT_PARSE_STOP;
}

int set_qos_profile(Step& step) {
    QuixAgent& agent = step.agent;
    if (step.text == nullptr) {
        agent.output().put("Incorrect arguments for \"-qosProfile\"");
        return QUIX_AGENT_PARSE_ERROR;
    }
    const std::string value = step.text;
    if (value.size() > 512) {
        agent.output().print(
            "The QoS Profile name cannot be longer than 512 characters. %s is %zu characters.\n",
            value.c_str(), value.size());
        return QUIX_AGENT_PARSE_ERROR;
    }
    const size_t separator = value.find("::");
    if (separator == std::string::npos)
        return QUIX_AGENT_PARSE_ERROR;
    const std::string library = value.substr(0, separator);
    const std::string profile = value.substr(separator + 2);
    if (!checkRegex(library) || !checkRegex(profile))
        return QUIX_AGENT_PARSE_ERROR;
    QuixAgent_replaceString(agent.qosProfile, value.c_str());
    QuixAgent_replaceString(agent.qosLibraryName, library.c_str());
    QuixAgent_replaceString(agent.qosProfileName, profile.c_str());
    return QUIX_AGENT_PARSE_CONSUMED;
}

int set_app_id(Step& step) {
    step.agent.appId = static_cast<uint32_t>(step.number);
    if (step.number >= 0)
        return QUIX_AGENT_PARSE_CONSUMED;
    step.agent.output().print("Invalid appId: %d. Must be a positive integer\n", step.number);
    return QUIX_AGENT_PARSE_ERROR;
}

int limit_verbosity(Step& step) {
    if (step.number > QuixAgent::kMaxVerbosity) {
        step.agent.output().print("Verbosity value: %d exceeds maximum of %d. Using the maximum value\n",
                                  step.number, QuixAgent::kMaxVerbosity);
        step.agent.verbosity = QuixAgent::kMaxVerbosity;
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

int add_peer(Step& step) {
    QuixAgent& agent = step.agent;
    return QuixOption_append(step, agent.peerList, agent.peerCount, QuixAgent::kMaxPeers, "peer",
                             QuixAgent::kMaxPeers);
}

void show_verbosity(const QuixAgent& agent) {
    static const char* const kLabels[] = {"0 (Silent)",     "1 (Error)",       "2 (Warning)",
                                          "3 (Local Info)", "4 (Remote Info)", "5 (All Info)"};
    const bool is_known = theVerbosity >= 0 && theVerbosity <= QuixAgent::kMaxVerbosity;
    agent.output().print("    Verbosity..............: %s\n", is_known ? kLabels[theVerbosity] : "Unknown");
}

void show_domain(const QuixAgent& agent) {
    agent.output().print("    Domain.................: %d\n", agent.domainId);
}

void show_domain_tag(const QuixAgent& agent) {
    agent.output().print("    Domain Tag.............: %s\n",
                         agent.domainTag != nullptr ? agent.domainTag : "(not set)");
}

void show_app_id(const QuixAgent& agent) {
    agent.output().print("    AppId..................: %.8x %s\n", agent.appId,
                         agent.appId == 0 ? "(auto pick)" : "");
}

void show_peers(const QuixAgent& agent) {
    std::string line = "    Peer Host list.........:";
    if (agent.peerCount <= 0)
        line += " <default from environment>";
    for (int32_t i = 0; i < agent.peerCount; ++i)
        line.append(" ").append(agent.peerList[i]);
    agent.output().put(line + "\n");
}

constexpr const char* kTransportDefault = "(default -1 --> use transport default)";

const Option kOptions[] = {
    Option("-help", Value::kNone, show_help).help("Prints this page and exits"),
    Option("-helpHidden", Value::kNone, show_hidden_help),
    Option("-version", Value::kNone, show_version).help("Prints version number and exits"),
    Option("-domainId", Value::kNumber, &QuixAgent::domainId)
        .range(0, INT32_MAX, "Invalid domain number: %d (must be greater than 0)\n")
        .help("Sets the domainId", "domainId", "default %d")
        .summary(2, show_domain),
    Option("-domainTag", &QuixAgent::domainTag)
        .help("Sets the domainTag, that allows for additional isolation within a domain", "domainTag")
        .summary(3, show_domain_tag),
    Option("-index", Value::kNumber, &QuixAgent::participantIndex)
        .range(-1, 50, "Invalid participant index: %d (must be between 0 and 50)\n")
        .help("Sets the participant index", "participantIndex", nullptr, "(default -1 --> auto)")
        .summary(4, "Participant index......", -1, "(auto pick)"),
    Option("-appId", Value::kNumber, set_app_id)
        .help("Sets the application id", "application id", "default 0 --> auto")
        .summary(5, show_app_id),
    Option("-verbosity", Value::kNumber, &QuixAgent::verbosity, limit_verbosity)
        .range(0, INT32_MAX, "Invalid verbosity value: %d (must be >=0, and <= 5)\n")
        .help("Sets verbosity level", "level", "default 1 --> error", "Possible values 0..5")
        .summary(1, show_verbosity),
    Option("-LogFormat", Value::kNumber, &QuixAgent::logFormat)
        .range(0, INT32_MAX, "Invalid log format value: %d (must be >=0, and <= 65535)\n"),
    Option("-peer", Value::kText, add_peer)
        .help("Adds a peer to the peer host list", "address", nullptr,
              "this argument may be repeated\nto indicate multiple peers")
        .summary(7, show_peers),
    // The value that stands for the middleware's own TTL can be left in force, but not asked for.
    Option("-discoveryTTL", Value::kNumber, &QuixAgent::discoveryTTL)
        .range(0, 255, "Invalid DiscoveryTTL value: %d  Must be between 1 and 255\n")
        .help("Sets the TTL used for multicast discovery", "ttl", nullptr,
              "default -1 uses DDS's built-in settings\nrange is 0 =>localhost to 255 => worldwide")
        .summary(6, "DiscoveryTTL...........", -1, "(use default)"),
    Option("-transport", Value::kNumber, &QuixAgent::transportMask)
        .range(1, INT32_MAX, "Invalid transport mask: %d (must be >0 to select at least one transport)\n")
        .help("Sets the enabled built-in transports", "mask", nullptr,
              "(default 3 --> UDPv4 + shmem)\nvalues: 1=UDPv4, 2=shared memory, 8=UDPv6")
        .summary(8, "Transport mask.........", 3, "(default)"),
    Option("-msgMaxSize", Value::kNumber, &QuixAgent::msgMaxSize)
        .range(-1, INT32_MAX, "Invalid message size: %d\n")
        .help("Set the maximum message size allowed", "bytes", nullptr, kTransportDefault)
        .summary(9, "Max message size.......", -1, "(use default)"),
    Option("-shmRcvSize", Value::kNumber, &QuixAgent::shmRcvSize)
        .range(-1, INT32_MAX, "Invalid shmem size: %d\n")
        .help("Set the shared memory receive buffer size", "bytes", nullptr, kTransportDefault)
        .summary(10, "Shmem receive size.......", -1, "(use default)"),
    Option("-tcMaxSize", Value::kNumber, &QuixAgent::tcMaxSize)
        .range(1, INT32_MAX, "Invalid type code max size: %d\n")
        .help("Maximum size in bytes of a type code", "size", nullptr, "(default 4096)")
        .summary(11, "Type code max size.......", 4096, "(use default)"),
    Option("-qosFile", &QuixAgent::qosFile).help("Load the specified profile file", "file"),
    // Has its own text for a missing value.
    Option("-qosProfile", Value::kOptionalText, set_qos_profile)
        .help("Load the QoS settings from the profile called", "lib::prof", nullptr,
              "prof contained in the library called lib"),
};

} // namespace

int QuixAgent::parse_argument(int* index, const char** argv, int argc) {
    if (*index >= argc)
        return QUIX_AGENT_PARSE_ERROR;
    return QuixOption_parse(kOptions, *this, index, argv, argc);
}

void QuixAgent::print_usage() {
    output_.put("Usage: ferret [options]\nGeneric options:\n");
    QuixOption_printPage(kOptions, *this, QuixOptionPage::kUsage);
}

void QuixAgent::print_hidden_usage() {
    QuixOption_printPage(kOptions, *this, QuixOptionPage::kHiddenUsage);
}

void QuixAgent::print_command_summary() {
    output_.print("Running %s with the following options:\n", title);
    QuixOption_printSummary(kOptions, *this);
}

void QuixAgent::printOption(const char* name, const char* description, const char* argumentName,
                            const char* defaultText) {
    char option[70];
    const bool has_argument = argumentName != nullptr;
    if (std::snprintf(option, sizeof option, "-%.28s  %c%.16s%c", name, has_argument ? '<' : ' ',
                      has_argument ? argumentName : " ", has_argument ? '>' : ' ') < 0) {
        output_.fail("Error creating parameter string\n");
        return;
    }
    const bool has_default = defaultText != nullptr;
    output_.print("    %-30.28s  - %s %c%s%c\n", option, description, has_default ? '(' : ' ',
                  has_default ? defaultText : " ", has_default ? ')' : ' ');
}

void QuixAgent::addToOption(const char* text) {
    output_.print("    %-30s    %s\n", " ", text);
}
