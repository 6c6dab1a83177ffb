#pragma once

// Everything written to standard output while a function runs, by stdio or by file descriptor.

#include <unistd.h>

#include <cstdio>
#include <string>

template <typename Function>
std::string printed_by(Function&& function) {
    std::fflush(stdout);
    std::FILE* const file = std::tmpfile();
    if (file == nullptr)
        return "<no temporary file>";
    const int saved = dup(STDOUT_FILENO);
    dup2(fileno(file), STDOUT_FILENO);
    function();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);

    std::string text;
    std::rewind(file);
    char chunk[4096];
    for (size_t count; (count = std::fread(chunk, 1, sizeof chunk, file)) > 0;)
        text.append(chunk, count);
    std::fclose(file);
    return text;
}
