#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/QuixAgent.h"
#include "support/test_output.h"

/// A tool that notes what the frame does with it.
class FakeAgent : public QuixAgent {
  public:
    explicit FakeAgent(const char* name = "Fake", int domain = 0, QuixAgentOutput& output = test_output())
        : QuixAgent(name, domain, output) {}

    void print_usage() override { calls.emplace_back("usage"); }
    void print_command_summary() override { calls.emplace_back("summary"); }
    int parse_argument(int* index, const char** argv, int argc) override {
        const std::string argument = argv[*index];
        seen.push_back(argument);
        if (argument == "takes-value")
            ++*index;
        const auto scripted = results.find(argument);
        return scripted != results.end() ? scripted->second : QuixAgent::parse_argument(index, argv, argc);
    }
    bool run() override {
        calls.emplace_back("run");
        verbosity_in_run = theVerbosity;
        return run_result;
    }
    bool continue_execution() override { return false; }

    using QuixAgent::initialize;

    std::map<std::string, int> results;
    std::vector<std::string> seen;
    std::vector<std::string> calls;
    bool run_result = true;
    int32_t verbosity_in_run = -1;
};
