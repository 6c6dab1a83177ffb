#pragma once

// The frame of a command-line DDS tool: options, header, usage, summary and the construction of a
// participant. Everything runs on the main thread. Nothing throws; failures are a message on the output and a
// result.

#include <cstddef>
#include <cstdint>
#include <string>

#include "agent/QuixAgentOutput.h"
#include "meridian/domain_participant.h"
#include "meridian/property.h"
#include "meridian/qos.h"
#include "meridian/subscriber.h"
#include "meridian/time.h"

/// What parsing one argument came to.
constexpr int QUIX_AGENT_PARSE_ERROR = 0;        // recognised, value missing or bad; a message was printed
constexpr int QUIX_AGENT_PARSE_CONSUMED = 1;     // option and value (if any) were used
constexpr int QUIX_AGENT_PARSE_UNRECOGNIZED = 2; // not an option of this parser
constexpr int QUIX_AGENT_PARSE_STOP = 3;         // handled; end without running

/// The logger's verbosity mask for a verbosity of the tool; every level that is not 0 to 4 means everything.
DDS_Long KvoUtil_getQuixVerbosityFromUtilVerbosity(int32_t verbosity);

/// True when `name` may be a QoS library or profile: not empty, and only letters, digits, '.' and '_'.
bool checkRegex(std::string name);

/// Removes the properties of the monitoring library, which this tool does not support, and prints that once
/// if there were any. Always true.
bool removeMonitoringProperties(DDS_PropertyQosPolicy& properties, QuixAgentOutput& output);

/// Replaces an owned string (DDS_String) by a copy of `value`.
void QuixAgent_replaceString(char*& owned, const char* value);

class QuixAgent {
  public:
    static constexpr int kMaxCommandLength = 512; // characters of the joined command line
    static constexpr int kMaxArguments = 32;      // with the title as the first
    static constexpr int kMaxPeers = 1024;
    static constexpr int kMaxVerbosity = 5;
    static constexpr size_t kTitleSize = 64;

    /// The title is copied, cut to what kTitleSize holds. The output is not owned and outlives the agent.
    QuixAgent(const char* title, int domainId, QuixAgentOutput& output);
    QuixAgent(const QuixAgent&) = delete;
    QuixAgent& operator=(const QuixAgent&) = delete;
    /// Finalises the participant factory: the last use of the middleware in the process.
    virtual ~QuixAgent();

    /// Prints the page that lists the options. Overrides call this one first.
    virtual void print_usage();
    /// Prints the settings in force. Overrides call this one first.
    virtual void print_command_summary();
    /// Prints the options that the usage page leaves out. Overrides call this one first.
    virtual void print_hidden_usage();
    /// A new, enabled participant and one subscriber in it, both the caller's to delete (the subscriber with
    /// the participant); null, and a message from verbosity 1 on, when a step fails. Empty partition lists
    /// keep those of the profile. `existing`, unless null, is made to ignore the new participant. Changes the
    /// factory's QoS.
    virtual DDSDomainParticipant* createDomainParticipant(
        int participantPartitionCount, const char** participantPartitions, int subscriberPartitionCount,
        const char** subscriberPartitions, bool setDiscoveryPlugins,
        DDS_DiscoveryConfigBuiltinPluginKind discoveryPlugins, DDSDomainParticipant* existing,
        DDSSubscriber** subscriber);
    /// Parses the argument at *index and leaves *index at the last one used. Overrides call this one first
    /// and try their own options only when it returns QUIX_AGENT_PARSE_UNRECOGNIZED.
    virtual int parse_argument(int* index, const char** argv, int argc);
    /// The tool's work, after the options were parsed. True on success.
    virtual bool run() = 0;
    /// One turn of the tool's loop; false to end it.
    virtual bool continue_execution() = 0;

    /// Runs the tool with the arguments of main. True only when `run` succeeded.
    bool execute(int argc, const char** argv);
    /// The same with a command line in which every argument is preceded by the separator byte.
    bool execute(const char* command);

    /// Joins argv[1..] into dst (room for maxLen characters), each preceded by the separator byte 0x02, so
    /// that arguments need no quoting. False, with a message, when they do not fit.
    static bool strcatFromArgv(QuixAgentOutput& output, char* dst, int maxLen, const char* title, int argc,
                               const char** argv);
    /// Splits "title command" again: dst (room for maxLen + 2 characters) holds the texts, argvOut (room for
    /// maxArgs) their starts. Empty arguments vanish. The number of arguments, or -1 when it does not fit.
    static int tokenizeStrIntoArgv(QuixAgentOutput& output, char* dst, size_t maxLen, const char** argvOut,
                                   int maxArgs, const char* title, const char* command);

    /// Whether argv[*index] is the option `name`, in any case and however abbreviated, and its value. With
    /// both outputs null the option is a flag. A string value stays the caller's. `optional`: the value may
    /// be missing at the end of the line; the output is then left as it is.
    static int tryParseArgument(QuixAgentOutput& output, int* index, const char** argv, int argc,
                                const char* name, const char** stringOut, int* intOut, bool optional);
    /// Seconds as a duration, truncated to nanoseconds; what does not fit becomes the nearest that does.
    static void convertFromFloat(DDS_Duration_t& out, float seconds);

    /// One entry of the usage page; argumentName and defaultText may be null.
    void printOption(const char* name, const char* description, const char* argumentName,
                     const char* defaultText);
    /// A further line of the entry before.
    void addToOption(const char* text);

    void printHeader();
    void printVersion();

    /// Where everything is printed.
    QuixAgentOutput& output() const { return output_; }

    // Settings: written while the options are parsed, read-only from then on. Strings are owned (DDS_String).
    char title[kTitleSize] = {};
    int32_t verbosity = 1;
    int32_t logFormat = 13330;
    int32_t domainId = 0;
    char* domainTag = nullptr;
    int32_t participantIndex = -1; // -1: automatic
    uint32_t appId = 0;            // 0: automatic
    int32_t peerCount = 0;
    char* peerList[kMaxPeers] = {};
    int32_t discoveryTTL = -1; // -1: the middleware's
    int32_t transportMask = 3; // 1 UDPv4, 2 shared memory, 8 UDPv6
    int32_t msgMaxSize = -1;   // bytes; -1: the transport's
    int32_t shmRcvSize = -1;   // bytes; -1: the transport's
    int32_t tcMaxSize = 4096;  // bytes
    bool use43LargeDataFormat = false;
    bool use510CompatibleLocatorKinds = false;
    char* qosFile = nullptr;
    char* qosProfile = nullptr; // "library::profile"
    char* qosLibraryName = nullptr;
    char* qosProfileName = nullptr;
    DDS_ReturnCode_t lastRetcode = DDS_RETCODE_OK; // of the last tear-down step

  protected:
    /// Prints the header and parses all arguments. False when the tool must not run.
    bool initialize(int argc, const char** argv);

  private:
    QuixAgentOutput& output_;
};
