#include "os/message_window.h"

#include "os/system_services.h"
#include "os/windows/kept_last_error.h"
#include "os/windows/message_window_loop.h"

#include <windows.h>

#include <map>
#include <mutex>

namespace kro::tessel::os {
namespace {

static_assert(k_message_timer == WM_TIMER && k_message_user == WM_USER);
static_assert(k_timer_minimum_ms == USER_TIMER_MINIMUM && k_timer_maximum_ms == USER_TIMER_MAXIMUM);

// Where a window's extra bytes hold its procedure.
constexpr int k_procedure_offset = 0;

window_procedure procedure_of(HWND target) {
    return reinterpret_cast<window_procedure>(  // NOLINT(performance-no-int-to-ptr): it was put there as one
        ::GetWindowLongPtrW(target, k_procedure_offset));
}

// The system sends windows much that nobody asked for; what is posted and the ticks are the procedure's.
LRESULT CALLBACK receive(HWND target, UINT message, WPARAM wparam, LPARAM lparam) {
    const window_procedure procedure =
        message >= k_message_user || message == k_message_timer ? procedure_of(target) : nullptr;
    return procedure != nullptr ? procedure(target, message, wparam, lparam)
                                : ::DefWindowProcW(target, message, wparam, lparam);
}

// Whether a call about a window went well. Its failures have one meaning here and several numbers there: 6
// for a timer of no window, 1400 for others.
bool succeeded(bool ok, window target, std::uint32_t error_of_a_window, kept_last_error& kept) {
    if (!ok) {
        kept.set(::IsWindow(static_cast<HWND>(target)) == FALSE ? k_error_no_window : error_of_a_window);
    }
    return ok;
}

class system_windows final : public message_window_service {
public:
    bool register_class(const wchar* name, window_procedure procedure) override {
        kept_last_error kept;
        const std::lock_guard lock(m_mutex);
        if (!m_classes.emplace(name, procedure).second) {
            kept.set(k_error_window_class_exists);
            return false;
        }
        WNDCLASSW description{};
        description.lpfnWndProc = receive;
        description.cbWndExtra = sizeof(window_procedure);
        description.lpszClassName = name;
        if (::RegisterClassW(&description) == 0) {
            kept.set(last_error());
            m_classes.erase(name);
            return false;
        }
        return true;
    }

    window create(const wchar* class_name, const wchar* title) override {
        kept_last_error kept;
        const window_procedure procedure = find_class(class_name);
        if (procedure == nullptr) {
            kept.set(k_error_no_window_class);
            return nullptr;
        }
        const HWND made = ::CreateWindowExW(0, class_name, title, 0, CW_USEDEFAULT, CW_USEDEFAULT,
                                            CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, nullptr, nullptr);
        if (made == nullptr) {
            kept.set(last_error());
            return nullptr;
        }
        ::SetWindowLongPtrW(made, k_procedure_offset, reinterpret_cast<LONG_PTR>(procedure));
        return made;
    }

    bool is_window(window target) override {
        const kept_last_error kept;
        return ::IsWindow(static_cast<HWND>(target)) != FALSE;
    }

    bool destroy(window target) override {
        kept_last_error kept;
        return succeeded(::DestroyWindow(static_cast<HWND>(target)) != FALSE, target, k_error_not_the_owner,
                         kept);
    }

    void set_user_data(window target, void* data) override {
        kept_last_error kept;
        ::SetWindowLongPtrW(static_cast<HWND>(target), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(data));
        succeeded(::IsWindow(static_cast<HWND>(target)) != FALSE, target, 0, kept);
    }

    void* user_data(window target) override {
        kept_last_error kept;
        const LONG_PTR data = ::GetWindowLongPtrW(static_cast<HWND>(target), GWLP_USERDATA);
        succeeded(data != 0 || ::IsWindow(static_cast<HWND>(target)) != FALSE, target, 0, kept);
        return reinterpret_cast<void*>(data);  // NOLINT(performance-no-int-to-ptr): it was put there as one
    }

    bool post(window target, std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam) override {
        kept_last_error kept;
        // A null window would mean the calling thread.
        const bool posted =
            target != nullptr && ::PostMessageW(static_cast<HWND>(target), message, wparam, lparam) != FALSE;
        return succeeded(posted, target, last_error(), kept);
    }

    std::uintptr_t set_timer(window target, std::uintptr_t id, std::uint32_t milliseconds) override {
        kept_last_error kept;
        // A null window would get a timer of the thread's.
        const std::uintptr_t made =
            target == nullptr ? 0 : ::SetTimer(static_cast<HWND>(target), id, milliseconds, nullptr);
        if (succeeded(made != 0, target, k_error_too_many_objects, kept)) {
            return id == 0 ? 1 : id;
        }
        return 0;
    }

    bool kill_timer(window target, std::uintptr_t id) override {
        kept_last_error kept;
        const bool killed = target != nullptr && ::KillTimer(static_cast<HWND>(target), id) != FALSE;
        return succeeded(killed, target, k_error_unknown_timer, kept);
    }

    window dialog_parent() override {
        const HWND active = ::GetActiveWindow();
        return active != nullptr ? active : ::GetDesktopWindow();
    }

    void run() override { run_loop(); }
    bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds) override {
        return run_loop_until(done, milliseconds);
    }
    void quit() override { quit_loop(); }
    bool pump() override { return pump_loop(); }

private:
    window_procedure find_class(const wchar* name) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_classes.find(name);
        return found == m_classes.end() ? nullptr : found->second;
    }

    std::mutex m_mutex;  // guards m_classes
    std::map<wide_string, window_procedure> m_classes;
};

}  // namespace

message_window_service& system_message_windows() {
    // Never destroyed: threads that still run while the process ends find their windows gone, not the
    // service.
    static auto& service = *new system_windows;
    return service;
}

}  // namespace kro::tessel::os
