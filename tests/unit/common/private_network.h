#pragma once

// Networks that belong to this test program alone: nothing its sockets send can reach a real interface.

#include <functional>
#include <string>

namespace meridian::test {

/// Moves the calling process, which must still have one thread, into a network of its own, with a loopback
/// interface that carries multicast. False with a text in error where the system does not allow it.
bool enter_private_network(std::string& error);

/// Runs a shell command in the calling thread's network; the test fails with its output when it does.
void shell(const std::string& command);

/// A second host: another network, joined to the present one by a pair of interfaces that "connect" makes.
class OtherHost {
  public:
    OtherHost();
    ~OtherHost();
    OtherHost(const OtherHost&) = delete;
    OtherHost& operator=(const OtherHost&) = delete;

    /// Makes the interface near_name here and far_name there, up, with these addresses ("10.1.0.1/24"; empty:
    /// none) and no others.
    void connect(const std::string& near_name, const std::string& near_address, const std::string& far_name,
                 const std::string& far_address);

    /// Runs the function in a thread whose network is this host's, and waits for it. Sockets and threads made
    /// there stay there.
    void run(const std::function<void()>& function);

  private:
    std::string path() const;

    int network_ = -1;
};

} // namespace meridian::test
