#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
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

/// Gives a stream that leads to a terminal or a pipe a description of its own, on which no write blocks: a
/// reader that stands still must not keep the program from ending. The one that was inherited is shared with
/// other programs and stays as it is, also where the system does not let us have another.
void make_nonblocking(int descriptor) {
    struct stat status {};
    if (isatty(descriptor) != 1 && (fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)))
        return;
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    const int own = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own < 0)
        return;
    dup2(own, descriptor);
    close(own);
}

/// A full disk ends no run, as there may be room again later, but what arrived must not be taken for all.
void tell_of_lost_output(QuixAgentOutput& output) {
    output.flush();
    if (output.error() != 0)
        std::fprintf(stderr, "ferret: output was lost: %s\n", std::strerror(output.error()));
    else if (output.has_rest() && !output.is_closed())
        std::fprintf(stderr, "ferret: output was lost: its reader does not read\n");
}

/// The caller that wants memory may hold any lock: nothing more can be done in order, not even a farewell.
void end_without_memory() {
    std::fputs("ferret: no memory is left\n", stderr);
    std::_Exit(0);
}

/// As other filters do whose reader has gone, now that everything is in order.
void end_by_closed_pipe() {
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    std::raise(SIGPIPE);
}

} // namespace

/// The exit status is 1 after a completed run and 0 otherwise.
int main(int argc, char** argv) {
    std::set_new_handler(end_without_memory);
    occupy_standard_streams();
    std::signal(SIGPIPE, SIG_IGN); // the output notices when its reader is gone, and the run ends in order
    make_nonblocking(STDOUT_FILENO);
    make_nonblocking(STDERR_FILENO);
    bool succeeded = false;
    bool has_reader = true;
    {
        QuixAgentOutput output(STDOUT_FILENO);
        auto* const agent = new QuixSpyAgent("Kvo Meridian DDS Spy", output);
        succeeded = agent->execute(argc, const_cast<const char**>(argv));
        tell_of_lost_output(output); // first, as the tear-down may log to the same file
        delete agent;
        has_reader = !output.is_closed() || output.is_terminal();
    }
    if (!has_reader)
        end_by_closed_pipe();
    return succeeded ? 1 : 0;
}
