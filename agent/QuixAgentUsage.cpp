// What the frame prints about options: the usage page, the options it leaves out, and the settings in force.

#include <cstdio>

#include "agent/QuixAgent.h"

void QuixAgent::printOption(const char* name, const char* description, const char* argumentName,
                            const char* defaultText) {
    char option[70];
    const bool has_argument = argumentName != nullptr;
    if (std::snprintf(option, sizeof option, "-%.28s  %c%.16s%c", name, has_argument ? '<' : ' ',
                      has_argument ? argumentName : " ", has_argument ? '>' : ' ') < 0) {
        if (theVerbosity > 0)
            std::puts("Error creating parameter string");
        return;
    }
    const bool has_default = defaultText != nullptr;
    std::printf("    %-30.28s  - %s %c%s%c\n", option, description, has_default ? '(' : ' ',
                has_default ? defaultText : " ", has_default ? ')' : ' ');
}

void QuixAgent::addToOption(const char* text) {
    std::printf("    %-30s    %s\n", " ", text);
}

void QuixAgent::print_usage() {
    char default_domain[64];
    std::snprintf(default_domain, sizeof default_domain, "default %d", domainId);

    std::puts("Usage: ferret [options]");
    std::puts("Generic options:");
    printOption("help", "Prints this page and exits", nullptr, nullptr);
    printOption("version", "Prints version number and exits", nullptr, nullptr);
    printOption("domainId", "Sets the domainId", "domainId", default_domain);
    printOption("domainTag", "Sets the domainTag, that allows for additional isolation within a domain",
                "domainTag", nullptr);
    printOption("index", "Sets the participant index", "participantIndex", nullptr);
    addToOption("(default -1 --> auto)");
    printOption("appId", "Sets the application id", "application id", "default 0 --> auto");
    printOption("verbosity", "Sets verbosity level", "level", "default 1 --> error");
    addToOption("Possible values 0..5");
    printOption("peer", "Adds a peer to the peer host list", "address", nullptr);
    addToOption("this argument may be repeated");
    addToOption("to indicate multiple peers");
    printOption("discoveryTTL", "Sets the TTL used for multicast discovery", "ttl", nullptr);
    addToOption("default -1 uses DDS's built-in settings");
    addToOption("range is 0 =>localhost to 255 => worldwide");
    printOption("transport", "Sets the enabled built-in transports", "mask", nullptr);
    addToOption("(default 3 --> UDPv4 + shmem)");
    addToOption("values: 1=UDPv4, 2=shared memory, 8=UDPv6");
    printOption("msgMaxSize", "Set the maximum message size allowed", "bytes", nullptr);
    addToOption("(default -1 --> use transport default)");
    printOption("shmRcvSize", "Set the shared memory receive buffer size", "bytes", nullptr);
    addToOption("(default -1 --> use transport default)");
    printOption("tcMaxSize", "Maximum size in bytes of a type code", "size", nullptr);
    addToOption("(default 4096)");
    printOption("qosFile", "Load the specified profile file", "file", nullptr);
    printOption("qosProfile", "Load the QoS settings from the profile called", "lib::prof", nullptr);
    addToOption("prof contained in the library called lib");
}

void QuixAgent::print_hidden_usage() {
    printOption("use43LargeDataFormat", "Use Kvo Data Distribution 4.3 large data format", nullptr, nullptr);
    addToOption("This option should be used when compatibility");
    addToOption("with 4.3 is required and fragmented data is sent.");
    addToOption("This is the same as setting the corresponding");
    addToOption("properties in PropertyQosPolicy.");
    printOption("use510CompatibleLocatorKinds", "Use Meridian DDS 5.1.0 locator kinds for", nullptr, nullptr);
    addToOption("SHMEM and UDPv6.");
}

void QuixAgent::print_command_summary() {
    static const char* const kVerbosityLabels[] = {"0 (Silent)",     "1 (Error)",       "2 (Warning)",
                                                   "3 (Local Info)", "4 (Remote Info)", "5 (All Info)"};
    const bool is_known = theVerbosity >= 0 && theVerbosity <= kMaxVerbosity;

    std::printf("Running %s with the following options:\n", title);
    std::printf("    Verbosity..............: %s\n", is_known ? kVerbosityLabels[theVerbosity] : "Unknown");
    std::printf("    Domain.................: %d\n", domainId);
    std::printf("    Domain Tag.............: %s\n", domainTag != nullptr ? domainTag : "(not set)");
    std::printf("    Participant index......: %d %s\n", participantIndex,
                participantIndex == -1 ? "(auto pick)" : "");
    std::printf("    AppId..................: %.8x %s\n", appId, appId == 0 ? "(auto pick)" : "");
    std::printf("    DiscoveryTTL...........: %d %s\n", discoveryTTL,
                discoveryTTL == -1 ? "(use default)" : "");
    std::printf("    Peer Host list.........:");
    if (peerCount <= 0)
        std::printf(" <default from environment>");
    for (int32_t i = 0; i < peerCount; ++i)
        std::printf(" %s", peerList[i]);
    std::printf("\n");
    std::printf("    Transport mask.........: %d %s\n", transportMask, transportMask == 3 ? "(default)" : "");
    std::printf("    Max message size.......: %d %s\n", msgMaxSize, msgMaxSize < 0 ? "(use default)" : "");
    std::printf("    Shmem receive size.......: %d %s\n", shmRcvSize, shmRcvSize < 0 ? "(use default)" : "");
    std::printf("    Type code max size.......: %d %s\n", tcMaxSize,
                tcMaxSize == 4096 ? "(use default)" : "");
}
