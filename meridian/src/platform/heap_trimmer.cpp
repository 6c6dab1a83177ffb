#include "platform/heap_trimmer.h"

#include <malloc.h>

#include <algorithm>

namespace meridian {

void HeapTrimmer::look(std::chrono::nanoseconds now) {
    const size_t used = budget_.used();
    peak_ = std::max(peak_, used);
    if (peak_ - used < kMuch || now - trimmed_at_ < kPause)
        return;
    peak_ = used;
    trimmed_at_ = now;
    malloc_trim(0);
}

} // namespace meridian
