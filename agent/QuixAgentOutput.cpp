#include "agent/QuixAgentOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <utility>

int32_t theVerbosity = 1;

namespace {

/// How long one wait for room lasts; keeps_waiting_ is called between two.
constexpr int kWaitMilliseconds = 50;

/// A file, or a device without hardware, as /dev/null.
bool takes_all(int descriptor) {
    constexpr unsigned kMemoryDevices = 1; // as Linux numbers them
    struct stat status {};
    return fstat(descriptor, &status) == 0 &&
           (S_ISREG(status.st_mode) || (S_ISCHR(status.st_mode) && major(status.st_rdev) == kMemoryDevices));
}

bool can_block(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags != -1 && (flags & O_NONBLOCK) == 0;
}

/// The beginning of a text that a pipe takes in one piece. Ends with a line where it can, so that what others
/// write to the same pipe does not stand within a line.
size_t piece_of(std::string_view text, size_t limit) {
    if (text.size() <= limit)
        return text.size();
    const void* const line_end = memrchr(text.data(), '\n', limit); // std::string_view looks at one at a time
    return line_end == nullptr ? limit
                               : static_cast<size_t>(static_cast<const char*>(line_end) - text.data()) + 1;
}

} // namespace

QuixAgentOutput::QuixAgentOutput(int descriptor)
    : descriptor_(descriptor),
      is_terminal_(isatty(descriptor) == 1),
      is_file_(takes_all(descriptor)),
      blocks_(!is_file_ && can_block(descriptor)) {
    open_stream();
}

QuixAgentOutput::QuixAgentOutput(std::string& text) : text_(&text) {
    open_stream();
}

QuixAgentOutput::~QuixAgentOutput() {
    flush();
    if (stream_ != nullptr)
        std::fclose(stream_);
}

void QuixAgentOutput::open_stream() {
    cookie_io_functions_t functions{};
    functions.write = put_from_stream;
    stream_ = fopencookie(this, "w", functions);
    if (stream_ != nullptr)
        std::setvbuf(stream_, nullptr, _IONBF, 0);
}

ssize_t QuixAgentOutput::put_from_stream(void* self, const char* text, size_t length) {
    static_cast<QuixAgentOutput*>(self)->put({text, length});
    return static_cast<ssize_t>(length);
}

void QuixAgentOutput::wait_while(std::function<bool()> keeps_waiting) {
    keeps_waiting_ = std::move(keeps_waiting);
}

QuixAgentOutput::Together::Together(QuixAgentOutput& output) : output_(output) {
    output_.put_mutex_.lock();
    ++output_.together_;
}

QuixAgentOutput::Together::~Together() {
    if (--output_.together_ == 0 && std::exchange(output_.gives_up_, false) && output_.ends_line_)
        output_.append("\n");
    output_.put_mutex_.unlock();
}

void QuixAgentOutput::put(std::string_view text) {
    if (is_closed_ || text.empty())
        return;
    const Together together(*this);
    ends_line_ = text.back() == '\n';
    // Long texts go in pieces: a second copy of them is not needed.
    while (text_ == nullptr && text.size() > kMaxPending && !gives_up_) {
        append(text.substr(0, kMaxPending));
        text.remove_prefix(kMaxPending);
        gives_up_ = !flush();
    }
    if (!gives_up_ && append(text) > kMaxPending)
        flush();
}

/// How much is pending then.
size_t QuixAgentOutput::append(std::string_view text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string& target = text_ != nullptr ? *text_ : pending_;
    target.append(text);
    return pending_.size();
}

void QuixAgentOutput::put_formatted(const char* format, va_list values) {
    char buffer[512];
    va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, values);
    if (length >= 0 && static_cast<size_t>(length) < sizeof buffer) {
        put({buffer, static_cast<size_t>(length)});
    } else if (length >= 0) {
        std::string text(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
        put(text);
    }
    va_end(again);
}

void QuixAgentOutput::print(const char* format, ...) {
    va_list values;
    va_start(values, format);
    put_formatted(format, values);
    va_end(values);
}

bool QuixAgentOutput::fail(const char* format, ...) {
    va_list values;
    va_start(values, format);
    tell_from(1, format, values);
    va_end(values);
    return false;
}

void QuixAgentOutput::progress(const char* format, ...) {
    va_list values;
    va_start(values, format);
    tell_from(2, format, values);
    va_end(values);
}

void QuixAgentOutput::tell_from(int32_t verbosity, const char* format, va_list values) {
    if (theVerbosity < verbosity)
        return;
    put_formatted(format, values);
    flush();
}

bool QuixAgentOutput::has_rest() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return !pending_.empty() || left_ < leaving_.size();
}

bool QuixAgentOutput::look_whether_closed() {
    if (!is_closed_ && text_ == nullptr) {
        pollfd other_end{descriptor_, 0, 0};
        if (poll(&other_end, 1, 0) > 0 && (other_end.revents & (POLLERR | POLLHUP)) != 0)
            is_closed_ = true;
    }
    return is_closed_;
}

bool QuixAgentOutput::flush() {
    if (text_ != nullptr)
        return true;
    std::unique_lock<std::mutex> lock(mutex_);
    // What another thread is writing, or was put meanwhile, comes before what this one put last.
    while (!is_closed_ && (is_writing_ || left_ < leaving_.size() || !pending_.empty())) {
        if (is_writing_) {
            changed_.wait_for(lock, std::chrono::milliseconds(kWaitMilliseconds));
            if (is_writing_ && keeps_waiting_ && !keeps_waiting_()) {
                is_behind_ = true;
                return false;
            }
        } else if (!write_leaving(lock)) {
            return false;
        }
    }
    return !is_closed_;
}

/// Writes what is pending, with the lock given away meanwhile. False when waiting is over before that.
bool QuixAgentOutput::write_leaving(std::unique_lock<std::mutex>& lock) {
    if (left_ == leaving_.size()) {
        leaving_.clear();
        left_ = 0;
        leaving_.swap(pending_);
    }
    is_writing_ = true;
    lock.unlock();
    bool goes_on = true;
    while (goes_on && left_ < leaving_.size()) {
        const ssize_t written = write_some(leaving_.data() + left_, leaving_.size() - left_);
        if (written > 0)
            left_ += static_cast<size_t>(written);
        else
            goes_on = wait_for_room();
    }
    if (is_closed_ || leaving_.size() == left_) {
        leaving_.clear();
        left_ = 0;
        if (leaving_.capacity() > 8 * kMaxPending)
            leaving_.shrink_to_fit();
    }
    lock.lock();
    is_behind_ = !goes_on;
    is_writing_ = false;
    changed_.notify_all();
    return goes_on;
}

/// How much was written, or was lost by an error; 0 when nothing can be written now.
ssize_t QuixAgentOutput::write_some(const char* text, size_t length) {
    if (blocks_) {
        // After poll a write of this size does not wait on a pipe, and hardly ever on a terminal.
        pollfd room{descriptor_, POLLOUT, 0};
        if (poll(&room, 1, 0) == 0)
            return 0;
    }
    if (!is_file_)
        length = piece_of({text, length}, blocks_ && is_terminal_ ? 256 : PIPE_BUF);
    while (true) {
        const ssize_t written = ::write(descriptor_, text, length);
        if (written > 0)
            return written;
        if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return 0;
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && (errno == EPIPE || errno == ECONNRESET || (errno == EIO && is_terminal_))) {
            is_closed_ = true;
        } else {
            int none = 0;
            error_.compare_exchange_strong(none, written < 0 ? errno : ENOSPC);
        }
        return static_cast<ssize_t>(length);
    }
}

bool QuixAgentOutput::wait_for_room() {
    waited_ = true;
    if (keeps_waiting_ && !keeps_waiting_())
        return false;
    pollfd room{descriptor_, POLLOUT, 0};
    poll(&room, 1, kWaitMilliseconds);
    return true;
}
