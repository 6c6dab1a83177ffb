// Steps the wall clock of one process: it shows the system's time and as many seconds more as the first eight
// octets of the file say that CLOCK_STEP names, which a test rewrites at any time. It is preloaded, as no
// system steps the clock for one process.

#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

const volatile int64_t* shared_step() {
    const int file = open(std::getenv("CLOCK_STEP"), O_RDONLY | O_CLOEXEC);
    void* const address = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, file, 0);
    close(file);
    return address == MAP_FAILED ? nullptr : static_cast<const volatile int64_t*>(address);
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    using Function = int (*)(clockid_t, timespec*);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
    static const volatile int64_t* const step = shared_step();
    const int result = original(clock, now);
    if (result == 0 && clock == CLOCK_REALTIME && step != nullptr)
        now->tv_sec += *step;
    return result;
}
