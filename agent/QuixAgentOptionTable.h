#pragma once

// Options as a table, tried in its order. Used by the frame and by the tools built on it.

#include <cstdint>

#include "agent/QuixAgent.h"

enum class QuixOptionValue { kNone, kText, kOptionalText, kNumber };

/// The option being handled: where the command line stands and the value that was read. `text` is null for an
/// optional value that is missing.
template <typename Agent>
struct QuixOptionStep {
    Agent& agent;
    int* index;
    const char** argv;
    const char* text;
    int number;
};

template <typename Agent>
struct QuixOption {
    const char* name;
    QuixOptionValue value;
    /// Stores and checks the value; returns a result code of the parser.
    int (*handle)(QuixOptionStep<Agent>& step);
    /// Where a number goes as it is read, even one that is then rejected; may be null.
    int32_t Agent::*field = nullptr;
};

/// Handles the argument at *index with the first option of the table whose name begins with it.
template <typename Agent, size_t Count>
int QuixOption_parse(const QuixOption<Agent> (&table)[Count], Agent& agent, int* index, const char** argv,
                     int argc) {
    for (const QuixOption<Agent>& option : table) {
        QuixOptionStep<Agent> step{agent, index, argv, nullptr, 0};
        const bool is_number = option.value == QuixOptionValue::kNumber;
        const bool is_text =
            option.value == QuixOptionValue::kText || option.value == QuixOptionValue::kOptionalText;
        int* const number = option.field != nullptr ? &(agent.*option.field) : &step.number;
        const int result = QuixAgent::tryParseArgument(
            index, argv, argc, option.name, is_text ? &step.text : nullptr, is_number ? number : nullptr,
            option.value == QuixOptionValue::kOptionalText);
        if (result == QUIX_AGENT_PARSE_UNRECOGNIZED)
            continue;
        if (result != QUIX_AGENT_PARSE_CONSUMED)
            return result;
        step.number = *number;
        return option.handle(step);
    }
    return QUIX_AGENT_PARSE_UNRECOGNIZED;
}

/// Prints why a value is refused; returns QUIX_AGENT_PARSE_ERROR.
int QuixOption_reject(const char* format, ...) __attribute__((format(printf, 1, 2)));
