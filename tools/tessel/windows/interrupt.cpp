#include "../interrupt.h"

#include <atomic>
#include <csignal>
#include <mutex>
#include <utility>

namespace command {
namespace {

constexpr int k_interrupted_exit_code = 130;

std::mutex g_mutex;  // guards the function, and is held while it runs
std::function<void()> g_stop;
std::atomic<bool> g_interrupted{false};

// On a thread that the system makes for it. Before that the runtime has put the default action back in force,
// so that the next interrupt ends the process.
void note(int /*signal*/) {
    g_interrupted = true;
    const std::lock_guard lock(g_mutex);
    if (g_stop) {
        g_stop();
    }
}

}  // namespace

interrupt_watch::interrupt_watch(std::function<void()> stop) {
    g_interrupted = false;
    {
        const std::lock_guard lock(g_mutex);
        g_stop = std::move(stop);
    }
    std::signal(SIGINT, note);
    std::signal(SIGBREAK, note);
}

interrupt_watch::~interrupt_watch() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGBREAK, SIG_DFL);
    const std::lock_guard lock(g_mutex);
    g_stop = nullptr;
}

int interrupt_watch::exit_code() {
    return g_interrupted ? k_interrupted_exit_code : 0;
}

}  // namespace command
