#pragma once

// Lets each cause be told once, and a hostile network not invent causes for ever.

#include <string>
#include <unordered_set>

#include "platform/seeded_hash.h"
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

    /// For what others cause; only the first few are told.
    void error_of_others(const std::string& cause, const std::string& text) {
        if (told_errors_.size() > kMaxErrors || !told_errors_.insert(cause).second)
            return;
        events_.error(told_errors_.size() > kMaxErrors
                          ? "more of others is not seen; it is not listed any more"
                          : text);
    }

  private:
    static constexpr size_t kMaxCauses = 500;
    static constexpr size_t kMaxErrors = 20;
    Events& events_;
    std::unordered_set<std::string, SeededHash> told_;
    std::unordered_set<std::string, SeededHash> told_errors_;
};

} // namespace meridian::rtps
