#include "agent/QuixAgent.h"

#include <climits>
#include <cstdio>

#include "meridian/domain_participant_factory.h"
#include "meridian/logger.h"
#include "meridian/string.h"
#include "meridian/version.h"

DDS_Long KvoUtil_getQuixVerbosityFromUtilVerbosity(int32_t verbosity) {
    // Each level adds one to those below it; fatal and error messages come together.
    if (verbosity == 0)
        return QUIX_LOG_SILENT;
    const int32_t level =
        verbosity > 0 && verbosity < QuixAgent::kMaxVerbosity ? verbosity : QuixAgent::kMaxVerbosity;
    return (QUIX_LOG_ERROR << level) - 1;
}

void QuixAgent_replaceString(char*& owned, const char* value) {
    char* const copy = DDS_String_dup(value);
    DDS_String_free(owned);
    owned = copy;
}

QuixAgent::QuixAgent(const char* title_text, int domain_id, QuixAgentOutput& output)
    : domainId(domain_id), output_(output) {
    std::snprintf(title, sizeof title, "%s", title_text);
}

QuixAgent::~QuixAgent() {
    for (int32_t i = 0; i < peerCount; ++i)
        DDS_String_free(peerList[i]);
    lastRetcode = DDSDomainParticipantFactory::finalize_instance();
    if (lastRetcode != DDS_RETCODE_OK)
        output_.print("finalize_instance error %d\n", lastRetcode);
    DDS_String_free(qosFile);
    DDS_String_free(qosProfile);
    DDS_String_free(qosLibraryName);
    DDS_String_free(qosProfileName);
    DDS_String_free(domainTag);
}

bool QuixAgent::execute(int argc, const char** argv) {
    char command[kMaxCommandLength + 1];
    return strcatFromArgv(output_, command, kMaxCommandLength, title, argc, argv) && execute(command);
}

bool QuixAgent::execute(const char* command) {
    QUIXConfigLogger* const logger = QUIXConfigLogger::get_instance();
    char text[kMaxCommandLength + 2];
    const char* argv[kMaxArguments] = {};
    bool succeeded = false;

    const int argc =
        tokenizeStrIntoArgv(output_, text, kMaxCommandLength, argv, kMaxArguments, title, command);
    if (argc >= 0 && initialize(argc, argv)) {
        logger->set_verbosity_by_mask(KvoUtil_getQuixVerbosityFromUtilVerbosity(verbosity));
        theVerbosity = verbosity;
        logger->set_print_format(logFormat);
        if (verbosity > 1)
            print_command_summary();
        output_.flush(); // where standard error goes to the same file, what is logged comes after it
        succeeded = run();
    }
    QUIXConfigLogger::finalize_instance();
    return succeeded;
}

bool QuixAgent::initialize(int argc, const char** argv) {
    printHeader();
    if (argc < 1) {
        print_usage();
        return false;
    }
    if (argc == INT_MAX)
        return output_.fail("%s: Too many parameters (%d)\n", title, argc);
    for (int index = 1; index < argc; ++index) {
        const int result = parse_argument(&index, argv, argc);
        if (result == QUIX_AGENT_PARSE_UNRECOGNIZED)
            return output_.fail("%s: Unrecognized parameter '%s'\n", title, argv[index]);
        if (result == QUIX_AGENT_PARSE_ERROR)
            return output_.fail("%s: Error in parameter '%s'\n", title, argv[index]);
        if (result == QUIX_AGENT_PARSE_STOP)
            return false;
    }
    return true;
}

namespace {

/// Without a revision that is 0.
std::string text_of(const QUIXConfigProductVersion& version) {
    std::string text = std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
                       std::to_string(version.release);
    return version.revision != 0 ? text + "." + std::to_string(version.revision) : text;
}

} // namespace

void QuixAgent::printHeader() {
    const QUIXConfigProductVersion version = QUIXConfigVersion::get_instance().get_product_version();
    output_.print("\n%s built with DDS version: %s\n", title, text_of(version).c_str());
    output_.put("~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~\n");
}

void QuixAgent::printVersion() {
    const QUIXConfigVersion& library = QUIXConfigVersion::get_instance();
    const QUIXConfigProductVersion version = library.get_product_version();
    output_.print("Kvo QUIXAGENT built with DDS version: %s (%s)\n", text_of(version).c_str(),
                  library.to_string());
}
