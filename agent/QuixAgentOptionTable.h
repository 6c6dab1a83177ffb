#pragma once

// Options as one table: parsing, the usage page and the summary read what a row says of its option. Used by
// the frame and by the tools built on it. Rows are tried in the order of the table, which is also that of the
// usage page.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "agent/QuixAgent.h"
#include "meridian/string.h"

enum class QuixOptionValue {
    kNone,
    kText,
    kOptionalText, // may be missing at the end of the line
    kNumber,       // decimal, and nothing behind it
    kInteger,      // decimal, hexadecimal or octal; what follows the number is not looked at
    kSeconds,      // of at least zero, with decimals
};

/// Where an option is explained.
enum class QuixOptionPage { kNone, kUsage, kHiddenUsage };

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

/// One row. What the constructor does not set is added by the operations behind it; each gives the row back.
template <typename Agent>
struct QuixOption {
    using Step = QuixOptionStep<Agent>;

    /// An option that does something: `handler` stores and checks the value; returns a result of the parser.
    constexpr QuixOption(const char* option, QuixOptionValue kind, int (*handler)(Step&))
        : name(option), value(kind), handle(handler) {}
    /// A flag that sets a field.
    constexpr QuixOption(const char* option, bool Agent::*field, bool on = true)
        : name(option), value(QuixOptionValue::kNone), flag(field), setting(on) {}
    /// A whole number that goes to a field as it is read, even when it is then refused.
    /// `handler`, unless null, is called when it is in range.
    constexpr QuixOption(const char* option, QuixOptionValue kind, int32_t Agent::*field,
                         int (*handler)(Step&) = nullptr)
        : name(option), value(kind), number(field), handle(handler) {}
    /// The same for seconds. `refusal` tells why, with the value in place of "%f".
    constexpr QuixOption(const char* option, float Agent::*field, const char* refusal_text)
        : name(option), value(QuixOptionValue::kSeconds), seconds(field), refusal(refusal_text) {}
    /// A text, of which the field gets a copy.
    constexpr QuixOption(const char* option, char* Agent::*field)
        : name(option), value(QuixOptionValue::kText), text(field) {}

    /// What the number may be. `refusal_text` tells why another one is refused, with the value in place of
    /// "%d"; without it the nearest that may be is taken.
    constexpr QuixOption& range(int32_t from, int32_t to, const char* refusal_text) {
        least = from;
        most = to;
        refusal = refusal_text;
        return *this;
    }
    /// The entry of the usage page: see QuixAgent::printOption. "%d" in the note stands for the number in the
    /// field. `further_lines` are separated by line ends.
    constexpr QuixOption& help(const char* text_of_option, const char* value_of_option = nullptr,
                               const char* note_of_option = nullptr, std::string_view further_lines = {},
                               QuixOptionPage page_of_option = QuixOptionPage::kUsage) {
        description = text_of_option;
        value_name = value_of_option;
        note = note_of_option;
        lines = further_lines;
        page = page_of_option;
        return *this;
    }
    /// The line of the summary, at this place of it, 1 the first: what `show_setting` prints.
    constexpr QuixOption& summary(int at, void (*show_setting)(const Agent&)) {
        place = at;
        show = show_setting;
        return *this;
    }
    /// The same for a number: label, number, and a remark where it is the default.
    constexpr QuixOption& summary(int at, const char* text_before, int32_t usual,
                                  const char* remark_on_usual) {
        place = at;
        label = text_before;
        default_number = usual;
        remark = remark_on_usual;
        return *this;
    }

    const char* name;
    QuixOptionValue value;
    bool Agent::*flag = nullptr;
    bool setting = true;
    int32_t Agent::*number = nullptr;
    float Agent::*seconds = nullptr;
    char* Agent::*text = nullptr;
    int (*handle)(Step&) = nullptr;
    int32_t least = INT32_MIN;
    int32_t most = INT32_MAX;
    const char* refusal = nullptr;

    QuixOptionPage page = QuixOptionPage::kNone;
    const char* description = nullptr;
    const char* value_name = nullptr;
    const char* note = nullptr;
    std::string_view lines;

    int place = 0; // 0: not in the summary
    void (*show)(const Agent&) = nullptr;
    const char* label = nullptr;
    int32_t default_number = 0;
    const char* remark = nullptr;
};

/// `text` with the conversion in it, if any, replaced by a number.
std::string QuixOption_fill(const char* text, const std::string& number);

/// Seconds, stored also when the text is not a number of at least zero; false then.
bool QuixOption_toSeconds(const char* text, float& out);

/// Stores the value that a row reads into its field; a result of the parser.
template <typename Agent>
int QuixOption_store(const QuixOption<Agent>& option, QuixOptionStep<Agent>& step) {
    Agent& agent = step.agent;
    const auto refuse = [&](const std::string& shown) {
        agent.output().put(QuixOption_fill(option.refusal, shown));
        return QUIX_AGENT_PARSE_ERROR;
    };
    if (option.flag != nullptr)
        agent.*option.flag = option.setting;
    if (option.text != nullptr)
        QuixAgent_replaceString(agent.*option.text, step.text);
    if (option.seconds != nullptr && !QuixOption_toSeconds(step.text, agent.*option.seconds))
        return refuse(std::to_string(agent.*option.seconds));
    if (option.number != nullptr) {
        long read = step.number;
        if (option.value == QuixOptionValue::kInteger)
            read = std::strtol(step.text, nullptr, 0);
        if (option.refusal == nullptr)
            read = std::clamp<long>(read, option.least, option.most);
        step.number = static_cast<int32_t>(read);
        agent.*option.number = step.number;
        if (step.number < option.least || step.number > option.most)
            return refuse(std::to_string(step.number));
    }
    return QUIX_AGENT_PARSE_CONSUMED;
}

/// Appends a copy of the value to a list of at most `most`. In messages the list is one of `kind`s, of which
/// there may be `most_told`.
template <typename Agent>
int QuixOption_append(QuixOptionStep<Agent>& step, char** list, int32_t& count, int32_t most,
                      const char* kind, int32_t most_told) {
    if (count >= most) {
        step.agent.output().print("Number of %ss exceeded. Maximum is %d\n", kind, most_told);
        return QUIX_AGENT_PARSE_ERROR;
    }
    if (step.text[0] == '-') {
        --*step.index;
        step.agent.output().print("Missing or invalid %s '%s' following the %s option\n", kind, step.text,
                                  step.argv[*step.index]);
        return QUIX_AGENT_PARSE_ERROR;
    }
    list[count++] = DDS_String_dup(step.text);
    return QUIX_AGENT_PARSE_CONSUMED;
}

/// Handles the argument at *index with the first option of the table whose name begins with it.
template <typename Agent, size_t Count>
int QuixOption_parse(const QuixOption<Agent> (&table)[Count], Agent& agent, int* index, const char** argv,
                     int argc) {
    for (const QuixOption<Agent>& option : table) {
        QuixOptionStep<Agent> step{agent, index, argv, nullptr, 0};
        const bool is_number = option.value == QuixOptionValue::kNumber;
        const bool is_text = !is_number && option.value != QuixOptionValue::kNone;
        // A number stands in its field even when something follows it that makes it none.
        int* const number = option.number != nullptr ? &(agent.*option.number) : &step.number;
        int result = QuixAgent::tryParseArgument(agent.output(), index, argv, argc, option.name,
                                                 is_text ? &step.text : nullptr, is_number ? number : nullptr,
                                                 option.value == QuixOptionValue::kOptionalText);
        if (result == QUIX_AGENT_PARSE_UNRECOGNIZED)
            continue;
        step.number = *number;
        if (result == QUIX_AGENT_PARSE_CONSUMED)
            result = QuixOption_store(option, step);
        if (result == QUIX_AGENT_PARSE_CONSUMED && option.handle != nullptr)
            result = option.handle(step);
        return result;
    }
    return QUIX_AGENT_PARSE_UNRECOGNIZED;
}

/// Prints the entries of a page.
template <typename Agent, size_t Count>
void QuixOption_printPage(const QuixOption<Agent> (&table)[Count], Agent& agent, QuixOptionPage page) {
    for (const QuixOption<Agent>& option : table) {
        if (option.page != page)
            continue;
        std::string note = option.note != nullptr ? option.note : "";
        if (option.number != nullptr)
            note = QuixOption_fill(note.c_str(), std::to_string(agent.*option.number));
        // Names stand without their dash here.
        agent.printOption(option.name + 1, option.description, option.value_name,
                          option.note != nullptr ? note.c_str() : nullptr);
        for (std::string_view rest = option.lines; !rest.empty();) {
            const size_t end = std::min(rest.find('\n'), rest.size());
            agent.addToOption(std::string(rest.substr(0, end)).c_str());
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
}

/// Prints the lines of the summary.
template <typename Agent, size_t Count>
void QuixOption_printSummary(const QuixOption<Agent> (&table)[Count], const Agent& agent) {
    for (int place = 1; place <= static_cast<int>(Count); ++place) {
        for (const QuixOption<Agent>& option : table) {
            if (option.place != place)
                continue;
            if (option.show != nullptr) {
                option.show(agent);
            } else {
                const int32_t number = agent.*option.number;
                agent.output().print("    %s: %d %s\n", option.label, number,
                                     number == option.default_number ? option.remark : "");
            }
        }
    }
}
