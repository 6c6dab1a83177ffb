#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "quixspy/quixSpyAgent.h"

namespace {

/// A standard stream that was closed before the start would be the next descriptor opened, and what we
/// print would go into a socket. It leads nowhere instead.
void occupy_standard_streams() {
    int opened = 0;
    do {
        opened = open("/dev/null", O_RDWR);
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened >= 0)
        close(opened);
}

/// A full disk ends no run, as there may be room again later, but what arrived must not be taken for all.
void tell_of_lost_output(QuixAgentOutput& output) {
    output.flush();
    if (output.error() != 0)
        std::fprintf(stderr, "ferret: output was lost: %s\n", std::strerror(output.error()));
}

} // namespace

/// The exit status is 1 after a completed run and 0 otherwise.
int main(int argc, char** argv) {
    occupy_standard_streams();
    // Services and some shells start programs with this signal ignored, and then nobody would end a spy whose
    // reader has gone.
    std::signal(SIGPIPE, SIG_DFL);
    QuixAgentOutput output(STDOUT_FILENO);
    auto* const agent = new QuixSpyAgent("Kvo Meridian DDS Spy", output);
    const bool succeeded = agent->execute(argc, const_cast<const char**>(argv));
    tell_of_lost_output(output); // first, as the tear-down may log to the same file
    delete agent;
    return succeeded ? 1 : 0;
}
