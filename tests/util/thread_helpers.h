// Helpers for the concurrency tests: knowing that another thread is blocked
// without timing anything, and the scale of stress runs under ThreadSanitizer.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/qvtest.h"

namespace qvtest {

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#else
constexpr bool kThreadSanitizer = false;
#endif

inline long current_tid() { return static_cast<long>(syscall(SYS_gettid)); }

// The scheduler state letter of a thread of this process ('R', 'S', ...).
inline char thread_state(long tid) {
    std::string stat = read_file("/proc/self/task/" + std::to_string(tid) + "/stat");
    size_t close = stat.rfind(')');
    if (close == std::string::npos || close + 2 >= stat.size()) return '?';
    return stat[close + 2];
}

// Waits until the thread whose id lands in tid has gone to sleep (blocked
// in the kernel), polling and yielding; no time limit of its own.
inline void wait_until_blocked(const std::atomic<long> &tid) {
    while (tid.load() == 0) std::this_thread::yield();
    while (thread_state(tid.load()) != 'S') std::this_thread::yield();
}

// Threads of this process right now. A sanitizer may start a helper thread
// of its own at the first thread creation: one thread is made and joined
// before the first count, so that counts compare.
inline int task_count() {
    static const bool warmed = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)warmed;
    std::string status = read_file("/proc/self/status");
    size_t at = status.find("Threads:");
    return at == std::string::npos ? -1 : std::stoi(status.substr(at + 8));
}

}  // namespace qvtest
