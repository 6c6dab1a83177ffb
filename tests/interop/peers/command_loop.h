// The command language of the test peers, and what a peer has to be able to do.
//
// Commands come one per argument, then one per line of standard input until its end. The answer to each is
// any number of lines of facts and then "ok" or "error REASON", so that a driver can go step by step.
// README.md lists the commands.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace peers {

// One command: "verb name key=value flag ...". Quotes keep blanks together: partitions="a b,c".
struct Command {
    std::string verb;
    std::string name;
    std::map<std::string, std::string> values;

    bool has(const std::string& key) const { return values.count(key) != 0; }
    std::string text(const std::string& key, const std::string& otherwise = "") const;
    long number(const std::string& key, long otherwise) const;
    double seconds(const std::string& key, double otherwise) const;
    std::vector<std::string> list(const std::string& key) const;
};

struct EndpointOptions {
    std::string topic;
    std::string type;
    std::string type_name; // announced instead of the type's own, without type information
    std::string entity_name;
    std::optional<std::vector<std::string>> partitions;
    bool reliable = true;
    bool transient_local = false;
    bool exclusive = false;
    int strength = 0;
    double deadline = 0;    // seconds; 0 means none
    int depth = 0;          // 0 means keep all
    int representation = 0; // 1 and 2 are the versions of XCDR; 0 leaves it to the library
    std::vector<uint8_t> user_data;
};

struct Sample {
    int32_t id = 0;
    uint32_t value = 0;
    uint32_t size = 0;
};

using GuidBytes = std::array<uint8_t, 16>;

struct Other {
    GuidBytes guid;
    std::string name;
};

// What a maker's library has to offer. A failure is an error text; an empty one is success. One thread calls.
class Peer {
  public:
    virtual ~Peer() = default;

    // The library and its version, as "NAME 1.2.3".
    virtual std::string release() const = 0;
    virtual std::string create_participant(const Command& command, GuidBytes& guid) = 0;
    virtual std::string create_endpoint(const std::string& name, bool writer, const EndpointOptions& options,
                                        GuidBytes& guid) = 0;
    virtual std::string write(const std::string& name, const Sample& sample) = 0;
    // What write() writes, as JSON; empty for an unknown name.
    virtual std::string describe(const std::string& name, const Sample& sample) = 0;
    virtual std::string dispose(const std::string& name, int32_t id) = 0;
    // Writes and disposes in one sample.
    virtual std::string write_dispose(const std::string& name, const Sample& sample) {
        static_cast<void>(sample);
        return "the library of " + name + " has no such operation";
    }
    virtual std::string unregister(const std::string& name, int32_t id) = 0;
    virtual std::string set_partitions(const std::string& name,
                                       const std::vector<std::string>& partitions) = 0;
    virtual std::string set_user_data(const std::string& name, const std::vector<uint8_t>& data) = 0;
    virtual std::string remove(const std::string& name) = 0;
    // Number of endpoints of others that the endpoint is matched with; negative for an unknown name.
    virtual int matches(const std::string& name) = 0;
    // Whether all matched readers have acknowledged everything that a writer wrote; negative for an unknown
    // name.
    virtual int acknowledged(const std::string& name) = 0;
    // Takes what a reader has and counts the samples with data; negative for an unknown name.
    virtual int take(const std::string& name) = 0;
    // Participants of others that are known and alive, with their names.
    virtual std::vector<Other> others() = 0;
    // Removes the participant and everything in it.
    virtual void close() = 0;
};

// Runs all commands; returns the exit status: 0 unless a command given as an argument failed.
int run_commands(Peer& peer, int argc, char** argv);

} // namespace peers
