#include "os/thread.h"

#include <windows.h>

#include <new>

namespace kro::tessel::os {
namespace {

static_assert(k_wait_signalled == WAIT_OBJECT_0 && k_wait_timeout == WAIT_TIMEOUT && k_infinite == INFINITE);

class kernel_event final : public manual_reset_event {
public:
    kernel_event() : m_handle(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (m_handle == nullptr) {
            throw std::bad_alloc();
        }
    }
    kernel_event(const kernel_event&) = delete;
    kernel_event& operator=(const kernel_event&) = delete;
    ~kernel_event() override { ::CloseHandle(m_handle); }

    void set() override { ::SetEvent(m_handle); }
    void reset() override { ::ResetEvent(m_handle); }
    std::uint32_t wait(std::uint32_t milliseconds) override {
        return ::WaitForSingleObject(m_handle, milliseconds);
    }

private:
    HANDLE m_handle;
};

}  // namespace

std::uint32_t current_thread_id() noexcept {
    return ::GetCurrentThreadId();
}

void* current_thread_handle() noexcept {
    return ::GetCurrentThread();
}

bool process_was_forked() noexcept {
    return false;
}

std::uint32_t tick_count() noexcept {
    return ::GetTickCount();
}

void set_last_error(std::uint32_t error) noexcept {
    ::SetLastError(error);
}
std::uint32_t last_error() noexcept {
    return ::GetLastError();
}

std::shared_ptr<manual_reset_event> make_manual_reset_event() {
    return std::make_shared<kernel_event>();
}

}  // namespace kro::tessel::os
