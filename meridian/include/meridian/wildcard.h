#pragma once

/// Matches the whole name against a shell pattern: '*', '?', bracket classes and backslash escapes, without
/// flags (POSIX fnmatch with flags 0). False for null arguments. Any thread.
bool QUIXString_matchesWildcard(const char* pattern, const char* name);
