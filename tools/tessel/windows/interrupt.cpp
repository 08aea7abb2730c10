#include "../interrupt.h"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <utility>

namespace command {
namespace {

constexpr int k_interrupted_exit_code = 130;

std::mutex g_mutex;  // guards the function, and is held while it runs
std::function<void()> g_stop;
std::atomic<bool> g_interrupted{false};

// On a thread that the system makes for it.
BOOL WINAPI note(DWORD /*event*/) {
    if (g_interrupted.exchange(true)) {
        return FALSE;  // the next handler ends the process
    }
    const std::lock_guard lock(g_mutex);
    if (g_stop) {
        g_stop();
    }
    return TRUE;
}

}  // namespace

interrupt_watch::interrupt_watch(std::function<void()> stop) {
    g_interrupted = false;
    {
        const std::lock_guard lock(g_mutex);
        g_stop = std::move(stop);
    }
    ::SetConsoleCtrlHandler(note, TRUE);
}

interrupt_watch::~interrupt_watch() {
    ::SetConsoleCtrlHandler(note, FALSE);
    const std::lock_guard lock(g_mutex);
    g_stop = nullptr;
}

int interrupt_watch::exit_code() {
    return g_interrupted ? k_interrupted_exit_code : 0;
}

}  // namespace command
