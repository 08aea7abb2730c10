#include "../interrupt.h"

#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <thread>
#include <utility>

namespace command {
namespace {

constexpr int k_signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int k_first_signal_exit_code = 128;

std::atomic<int> g_signal{0};
sem_t g_wake;
struct sigaction g_before[std::size(k_signals)];
std::thread g_thread;

// A handler and not a mask: programs that ask for passwords would inherit a mask.
void note(int signal) {
    int none = 0;
    if (!g_signal.compare_exchange_strong(none, signal)) {
        ::_exit(k_first_signal_exit_code + signal);
    }
    const int error = errno;
    ::sem_post(&g_wake);
    errno = error;
}

}  // namespace

interrupt_watch::interrupt_watch(std::function<void()> stop) {
    g_signal = 0;
    ::sem_init(&g_wake, 0, 0);
    g_thread = std::thread([stop = std::move(stop)] {
        while (::sem_wait(&g_wake) != 0) {
        }
        if (g_signal != 0) {
            stop();
        }
    });
    struct sigaction noting = {};
    noting.sa_handler = note;
    noting.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < std::size(k_signals); ++i) {
        ::sigaction(k_signals[i], nullptr, &g_before[i]);
        if (g_before[i].sa_handler != SIG_IGN) {  // as under nohup
            ::sigaction(k_signals[i], &noting, nullptr);
        }
    }
}

interrupt_watch::~interrupt_watch() {
    for (std::size_t i = 0; i < std::size(k_signals); ++i) {
        ::sigaction(k_signals[i], &g_before[i], nullptr);
    }
    ::sem_post(&g_wake);
    g_thread.join();
    ::sem_destroy(&g_wake);
}

int interrupt_watch::exit_code() {
    return g_signal == 0 ? 0 : k_first_signal_exit_code + g_signal;
}

}  // namespace command
