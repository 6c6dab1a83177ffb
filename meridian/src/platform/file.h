#pragma once

#include <cstddef>
#include <string>

namespace meridian {

/// The whole of a regular file of at most `max_size` bytes. False, `contents` untouched and a reason without
/// the file's name in `error`, for anything else: pipes and devices are refused, since they may never end.
/// Any thread.
bool read_file(const std::string& path, size_t max_size, std::string& contents, std::string& error);

/// The same text for all paths that lead to one file; the path itself where there is no file. Any thread.
std::string resolved_path(const std::string& path);

} // namespace meridian
