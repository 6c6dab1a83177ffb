#pragma once

// The output of everything under test in one program, and what was put there while a function ran.

#include <string>
#include <utility>

#include "agent/QuixAgentOutput.h"

inline std::string& test_output_text() {
    static std::string text;
    return text;
}

inline QuixAgentOutput& test_output() {
    static QuixAgentOutput output(test_output_text());
    return output;
}

template <typename Function>
std::string printed_by(Function&& function) {
    test_output_text().clear();
    function();
    return std::exchange(test_output_text(), {});
}
