#include "meridian/logger.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/log_line.h"
#include "platform/mutex.h"

namespace meridian::log {

std::atomic<DDS_Long> verbosity_mask{kInitialVerbosity};

namespace {

std::atomic<DDS_Long> print_format{kInitialFormat};
std::atomic<bool> is_finalised{false};

class Logger final : public QUIXConfigLogger {
  public:
    // Verbosity and format are atomics beside the object, so that messages need not ask for the instance.
    void set_verbosity_by_mask(DDS_Long mask) override { verbosity_mask = mask; }
    DDS_Long get_verbosity_mask() const override { return verbosity_mask; }
    void set_print_format(DDS_Long format) override { print_format = format; }
    DDS_Long get_print_format() const override { return print_format; }
};

/// All or as much as standard error takes. One that is set not to block and stays full for a while loses the
/// rest: a message is not worth a thread that hangs. As long as it stays full, further messages do not wait.
void write_all(const std::string& line) {
    // Never destroyed: other threads may log while the process ends.
    static Mutex& mutex = *new Mutex();
    static bool is_full = false; // guarded by the mutex
    const MutexLock lock(mutex);
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t written = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (written > 0) {
            done += static_cast<size_t>(written);
            is_full = false;
        } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd wait{STDERR_FILENO, POLLOUT, 0};
            is_full = poll(&wait, 1, is_full ? 0 : 100) <= 0;
            if (is_full)
                return;
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

std::string format_text(const char* format, va_list arguments) {
    char* formatted = nullptr;
    const int length = vasprintf(&formatted, format, arguments);
    if (length < 0)
        return format; // better than nothing
    std::string text(formatted, static_cast<size_t>(length));
    std::free(formatted);
    return text;
}

} // namespace

void write(Level level, const char* module, const char* method, const char* format, ...) {
    const int saved_errno = errno; // callers may log before they look at it
    Message message;
    message.level = level;
    message.wall = wall_now();
    message.monotonic = monotonic_now();
    message.process = getpid();
    message.thread = syscall(SYS_gettid);
    message.module = module;
    message.method = method;
    va_list arguments;
    va_start(arguments, format);
    message.text = format_text(format, arguments);
    va_end(arguments);
    write_all(to_line(message, print_format.load(std::memory_order_relaxed)));
    errno = saved_errno;
}

namespace {

void write_api_error(const char* operation, const char* what, const char* problem) {
    if (is_enabled(Level::error))
        write(Level::error, "api", operation, "%s: %s", problem, what == nullptr ? "(null)" : what);
}

} // namespace

} // namespace meridian::log

QUIXConfigLogger* QUIXConfigLogger::get_instance() {
    using namespace meridian::log;
    static Logger instance;
    if (is_finalised.exchange(false)) {
        verbosity_mask = kInitialVerbosity;
        print_format = kInitialFormat;
    }
    return &instance;
}

DDS_ReturnCode_t QUIXConfigLogger::finalize_instance() {
    std::fflush(stderr);
    // Entities that are deleted later still log, with the settings from before.
    meridian::log::is_finalised = true;
    return DDS_RETCODE_OK;
}

void QUIXLog_badParameter(const char* operation, const char* parameter) {
    meridian::log::write_api_error(operation, parameter, "bad parameter");
}

void QUIXLog_creationFailure(const char* operation, const char* what) {
    meridian::log::write_api_error(operation, what, "failed to create");
}

void QUIXLog_failure(const char* operation, const char* what) {
    meridian::log::write_api_error(operation, what, "failed");
}

void QUIXLog_error(const char* part, const char* text) {
    if (meridian::log::is_enabled(meridian::log::Level::error))
        meridian::log::write(meridian::log::Level::error, "ferret", part, "%s", text);
}

void QUIXLog_print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}
