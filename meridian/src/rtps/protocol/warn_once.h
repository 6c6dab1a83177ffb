#pragma once

// Lets each cause be told once, and a hostile network not invent causes for ever.

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "platform/seeded_hash.h"
#include "rtps/protocol/events.h"
#include "rtps/protocol/times.h"

namespace meridian::rtps {

/// The causes of errors that were told. Participants that share their sockets hear the same, and share these.
struct ToldErrors {
    std::unordered_set<std::string, SeededHash> causes;
    std::unordered_map<std::string, size_t> of_kinds; // how many that others cause, by the words of the cause
    MonotonicTime one_more_at{0};                     // of each kind
};

class WarnOnce {
  public:
    /// told_errors may be null.
    explicit WarnOnce(Events& events, std::shared_ptr<ToldErrors> told_errors = nullptr)
        : events_(events),
          errors_(told_errors != nullptr ? std::move(told_errors) : std::make_shared<ToldErrors>()) {}

    /// Tells text unless cause was told before.
    void warn(const std::string& cause, const std::string& text) {
        if (told_.size() > kMaxCauses || !told_.insert(cause).second)
            return;
        events_.warning(
            told_.size() > kMaxCauses ? "more problems with discovery; they are not listed any more" : text);
    }
    /// For the few causes that are no other participant's choice.
    void error(const char* cause, const std::string& text) {
        if (errors_->causes.insert(cause).second)
            events_.error(text);
    }

    /// For what another causes, whose GUID is the last word of the cause; of each kind a few are told, and
    /// one more for each minute.
    void error_of_others(const std::string& cause, const std::string& text) {
        size_t& count = errors_->of_kinds[cause.substr(0, cause.rfind(' '))];
        if (count > kMaxErrors || !errors_->causes.insert(cause).second)
            return;
        events_.error(++count > kMaxErrors ? text + " (of further ones, one a minute is told)" : text);
    }
    /// Called all the time.
    void on_timer(MonotonicTime now) {
        if (now < errors_->one_more_at)
            return;
        errors_->one_more_at = now + std::chrono::minutes(1);
        for (auto& [kind, count] : errors_->of_kinds)
            count -= std::min<size_t>(count, 1);
        if (errors_->causes.size() > kMaxToldErrors) // after days of this; some are told again
            errors_->causes.clear();
    }

  private:
    static constexpr size_t kMaxCauses = 500;
    static constexpr size_t kMaxErrors = 20;
    static constexpr size_t kMaxToldErrors = 20000;
    Events& events_;
    std::unordered_set<std::string, SeededHash> told_;
    const std::shared_ptr<ToldErrors> errors_;
};

} // namespace meridian::rtps
