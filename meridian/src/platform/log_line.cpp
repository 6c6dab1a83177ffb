#include "platform/log_line.h"

#include <cstdio>
#include <ctime>

#include "meridian/utf8.h"
#include "platform/text.h"

namespace meridian::log {

namespace {

const char* name_of(Level level) {
    switch (level) {
        case Level::fatal:
            return "fatal";
        case Level::error:
            return "error";
        case Level::warning:
            return "warning";
        case Level::local:
            return "local";
        case Level::remote:
            return "remote";
        case Level::all:
            return "all";
    }
    return "unknown";
}

/// Names in messages come from other hosts; nothing of them may end the line or reach the terminal as a
/// command.
void append_escaped(std::string& line, const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const QUIXCharacter character = QUIXCharacter_first(std::string_view(text).substr(i));
        if (text[i] == '\n') {
            line += "\\n";
        } else if (text[i] == '\t') {
            line += "\\t";
        } else if (character.is_control() || character.is_format()) {
            i += character.length - 1;
            line += character.is_control() ? "\\x" : "\\u20"; // all of the latter are U+20NN
            append_hex(line, static_cast<uint8_t>(character.number));
        } else {
            line += text[i];
        }
    }
}

} // namespace

std::string to_line(const Message& message, DDS_Long format) {
    std::string line;
    char field[64];
    const time_t seconds = static_cast<time_t>(message.wall.count() / 1000000000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    if ((format & kFormatDate) != 0) {
        std::strftime(field, sizeof field, "%Y-%m-%d ", &utc);
        line += field;
    }
    if ((format & kFormatTime) != 0) {
        std::snprintf(field, sizeof field, "%02d:%02d:%02d.%03d ", utc.tm_hour, utc.tm_min, utc.tm_sec,
                      static_cast<int>(message.wall.count() / 1000000 % 1000));
        line += field;
    }
    if ((format & kFormatMonotonic) != 0) {
        std::snprintf(field, sizeof field, "%lld.%06lld ",
                      static_cast<long long>(message.monotonic.count() / 1000000000),
                      static_cast<long long>(message.monotonic.count() / 1000 % 1000000));
        line += field;
    }
    const bool with_process = (format & kFormatProcess) != 0;
    const bool with_thread = (format & kFormatThread) != 0;
    if (with_process || with_thread) {
        line += '[';
        if (with_process)
            line += std::to_string(message.process);
        if (with_process && with_thread)
            line += '/';
        if (with_thread)
            line += std::to_string(message.thread);
        line += "] ";
    }
    std::string origin;
    if ((format & kFormatLevel) != 0)
        origin = name_of(message.level);
    for (const char* name : {(format & kFormatModule) != 0 ? message.module : nullptr,
                             (format & kFormatMethod) != 0 ? message.method : nullptr}) {
        if (name == nullptr)
            continue;
        if (!origin.empty())
            origin += ' ';
        origin += name;
    }
    if (!origin.empty()) {
        append_escaped(line, origin);
        line += ": ";
    }
    append_escaped(line, message.text);
    line += '\n';
    return line;
}

} // namespace meridian::log
