#pragma once

// Another process with a participant in it, made from the layers below: what the tests discover.

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace meridian::dcps::test {

struct PeerSettings {
    int domain = 0;
    std::string tag;
    std::string name = "peer";
    std::string partitions; // of the participant
    int lease_ms = 10000;
};

/// What runs in the other process: answers commands of one line with lines.
class PeerCommands {
  public:
    virtual ~PeerCommands() = default;
    virtual std::string obey(const std::string& command) = 0;
};

/// How the other process makes what answers there; null: it failed.
struct PeerProgram {
    using Make = std::function<std::unique_ptr<PeerCommands>()>;
    explicit PeerProgram(Make function) : make(std::move(function)) {}
    Make make;
};

/// Forked from the test, which must not have other threads then. Killed at the end, if it still lives.
class PeerProcess {
  public:
    explicit PeerProcess(const PeerSettings& settings);
    explicit PeerProcess(const PeerProgram& program);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    /// Sends a command and returns the answer, see peer_process.cpp.
    std::string ask(const std::string& command);
    /// The GUID prefix as rtps::to_string writes it.
    std::string prefix() { return ask("prefix"); }
    /// Leaves the domain and ends.
    void leave();
    /// Ends without a word.
    void kill();

  private:
    void wait();

    pid_t process_ = -1;
    int commands_ = -1;
    int answers_ = -1;
};

} // namespace meridian::dcps::test
