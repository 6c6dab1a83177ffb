#include "meridian/wildcard.h"

#include <fnmatch.h>

bool QUIXString_matchesWildcard(const char* pattern, const char* name) {
    return pattern != nullptr && name != nullptr && fnmatch(pattern, name, 0) == 0;
}
