#include "platform/thread.h"

#include <cassert>
#include <csignal>
#include <memory>
#include <system_error>
#include <utility>

namespace meridian {

namespace {

constexpr size_t kLongestName = 15; // longer ones are refused by the system

struct Start {
    std::string name;
    std::function<void()> function;
};

void* run(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->function();
    return nullptr;
}

} // namespace

bool Thread::start(const char* name, std::function<void()> function, std::string& error) {
    assert(!started_);
    auto start =
        std::make_unique<Start>(Start{std::string(name).substr(0, kLongestName), std::move(function)});
    // A new thread inherits the mask, so no signal can reach it before it has blocked them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int result = pthread_create(&handle_, nullptr, run, start.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0) {
        error = "cannot start a thread: " + std::generic_category().message(result);
        return false;
    }
    (void)start.release(); // run owns it now
    started_ = true;
    return true;
}

void Thread::join() {
    if (!started_)
        return;
    pthread_join(handle_, nullptr);
    started_ = false;
}

} // namespace meridian
