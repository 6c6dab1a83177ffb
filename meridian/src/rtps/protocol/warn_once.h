#pragma once

// Lets each cause be told once, and a hostile network not invent causes for ever.

#include <string>
#include <unordered_set>

#include "rtps/protocol/events.h"

namespace meridian::rtps {

class WarnOnce {
  public:
    explicit WarnOnce(Events& events) : events_(events) {}

    /// Tells text unless cause was told before.
    void warn(const std::string& cause, const std::string& text) {
        if (told_.size() > kMaxCauses || !told_.insert(cause).second)
            return;
        events_.warning(
            told_.size() > kMaxCauses ? "more problems with discovery; they are not listed any more" : text);
    }
    /// For the few causes that are no other participant's choice.
    void error(const char* cause, const std::string& text) {
        if (told_errors_.insert(cause).second)
            events_.error(text);
    }

  private:
    static constexpr size_t kMaxCauses = 500;
    Events& events_;
    std::unordered_set<std::string> told_;
    std::unordered_set<std::string> told_errors_;
};

} // namespace meridian::rtps
