// The way of the command line: the arguments of main become one text and that text an argument vector again.

#include <cstdio>
#include <cstring>

#include "agent/QuixAgent.h"

namespace {
constexpr char kSeparator = '\x02';
} // namespace

bool QuixAgent::strcatFromArgv(QuixAgentOutput& output, char* dst, int maxLen, const char* title, int argc,
                               const char** argv) {
    const size_t limit = static_cast<size_t>(maxLen);
    if (std::strlen(title) > limit) {
        output.print("QUIXAGENT: Command length exceeds maximum allowed of %d\n", maxLen);
        return false;
    }
    size_t length = 0;
    dst[0] = '\0';
    for (int i = 1; i < argc; ++i) {
        const size_t added = std::strlen(argv[i]);
        if (length + added + 2 > limit) {
            output.print("Parameter length exceeds maximum allowed of %d\n", maxLen);
            return false;
        }
        dst[length++] = kSeparator;
        std::memcpy(dst + length, argv[i], added + 1);
        length += added;
    }
    return true;
}

int QuixAgent::tokenizeStrIntoArgv(QuixAgentOutput& output, char* dst, size_t maxLen, const char** argvOut,
                                   int maxArgs, const char* title, const char* command) {
    if (command == nullptr) {
        output.print("%s: Internal error in tokenizeStrIntoArgv(), NULL paramStr\n", title);
        return -1;
    }
    const size_t length = std::strlen(title) + std::strlen(command);
    if (length > maxLen) {
        output.print("%s: Parameter length: %zu exceeds maximum specified of %zu\n", title, length, maxLen);
        return -1;
    }
    std::snprintf(dst, maxLen + 2, "%s %s", title, command);

    int count = 0;
    char* position = dst;
    while (count < maxArgs) {
        argvOut[count++] = position;
        position += std::strcspn(position, "\x02");
        while (*position == kSeparator)
            *position++ = '\0';
        if (*position == '\0')
            return count;
    }
    return -1;
}
