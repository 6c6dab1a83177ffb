#include "quixspy/quixSpyAgent.h"

/// The exit status is 1 after a completed run and 0 otherwise.
int main(int argc, char** argv) {
    auto* const agent = new QuixSpyAgent("Kvo Meridian DDS Spy");
    const bool succeeded = agent->execute(argc, const_cast<const char**>(argv));
    delete agent;
    return succeeded ? 1 : 0;
}
