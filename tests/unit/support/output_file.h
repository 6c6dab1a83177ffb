#pragma once

// An output to a file that something else writes to as well, as when both streams of a program go to one
// file.

#include <unistd.h>

#include <cstdio>
#include <string>

#include "agent/QuixAgentOutput.h"

class OutputFile {
  public:
    OutputFile() : file_(std::tmpfile()), output(fileno(file_)) {}
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() { std::fclose(file_); }

    int descriptor() const { return fileno(file_); }
    /// What the other one writes.
    bool log(const std::string& text) {
        return ::write(descriptor(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    /// All that was written so far.
    std::string text() const {
        std::string all(static_cast<size_t>(lseek(descriptor(), 0, SEEK_CUR)), '\0');
        return pread(descriptor(), all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()) ? all : "";
    }

  private:
    std::FILE* const file_;

  public:
    QuixAgentOutput output;
};
