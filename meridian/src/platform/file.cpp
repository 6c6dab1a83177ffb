#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace meridian {

namespace {

std::string message_of(int error) {
    return std::generic_category().message(error);
}

bool read_open_file(int descriptor, size_t max_size, std::string& contents, std::string& error) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        error = message_of(errno);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? "is a directory" : "is not a regular file";
        return false;
    }
    std::string read_so_far;
    char buffer[16384];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            error = message_of(errno);
            return false;
        }
        if (count == 0)
            break;
        read_so_far.append(buffer, static_cast<size_t>(count));
        // Counted here rather than taken from the status: the file may grow meanwhile.
        if (read_so_far.size() > max_size) {
            error = "is larger than " + std::to_string(max_size) + " bytes";
            return false;
        }
    }
    contents = std::move(read_so_far);
    return true;
}

} // namespace

bool read_file(const std::string& path, size_t max_size, std::string& contents, std::string& error) {
    // Without O_NONBLOCK a pipe without a writer would block here, before its kind is known.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        error = message_of(errno);
        return false;
    }
    const bool done = read_open_file(descriptor, max_size, contents, error);
    close(descriptor);
    return done;
}

std::string resolved_path(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    std::string result = resolved == nullptr ? path : resolved;
    std::free(resolved);
    return result;
}

} // namespace meridian
