#include "tessel/platform/timer.h"

#include "os/message_window.h"
#include "os/thread.h"

#include <map>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>

namespace kro::tessel::timer {

using callback = delegate::FastDelegate1<unsigned int>;

constexpr std::uint32_t k_not_enough_memory = 8;

/// The hidden window behind all timers of the process, and who is called for each.
class CTimerWnd {
public:
    static CTimerWnd& instance() {
        static CTimerWnd timers;
        return timers;
    }

    CTimerWnd(const CTimerWnd&) = delete;
    CTimerWnd& operator=(const CTimerWnd&) = delete;

    unsigned int add(unsigned int id, unsigned int elapse, const callback& call) {
        if (!os::message_windows().is_window(m_hwnd) && !create_window()) {
            return 0;
        }
        const auto [place, added] = m_timers->emplace(id, call);
        if (!added) {
            return 0;
        }
        const std::uintptr_t set = os::message_windows().set_timer(m_hwnd, id, elapse);
        if (set == 0) {
            m_timers->erase(place);
        }
        return static_cast<unsigned int>(set);
    }

    void kill(unsigned int id) {
        if (m_hwnd != nullptr) {
            os::message_windows().kill_timer(m_hwnd, id);
        }
        m_timers->erase(id);
    }

private:
    // The service comes first, so that it is still there in the destructor.
    CTimerWnd() { os::message_windows(); }

    ~CTimerWnd() {
        if (os::message_windows().is_window(m_hwnd)) {
            os::message_windows().set_user_data(m_hwnd, nullptr);
            if (!os::message_windows().destroy(m_hwnd)) {
                // Another thread owns it, and may be in a tick while this one ends the process.
                static_cast<void>(m_timers.release());
            }
        }
    }

    bool create_window() {
        // The timers of a window that is gone ended with it.
        m_timers->clear();
        // The type's name is no other class's: it is taken only when an earlier window has registered it.
        const char* const narrow = typeid(CTimerWnd).name();
        const wide_string name(narrow, narrow + std::char_traits<char>::length(narrow));
        os::message_windows().register_class(name.c_str(), procedure);
        m_hwnd = os::message_windows().create(name.c_str(), TESSEL_W("TimerWnd"));
        if (m_hwnd != nullptr) {
            os::message_windows().set_user_data(m_hwnd, this);
        }
        return m_hwnd != nullptr;
    }

    void tick(unsigned int id) const {
        const auto found = m_timers->find(id);
        if (found != m_timers->end()) {
            const callback call = found->second;  // a copy: it may kill its timer
            call(id);
        }
    }

    static std::intptr_t procedure(os::window target, std::uint32_t message, std::uintptr_t wparam,
                                   std::intptr_t /*lparam*/) {
        if (message == os::k_message_timer) {
            const auto* const self = static_cast<const CTimerWnd*>(os::message_windows().user_data(target));
            if (self != nullptr) {
                self->tick(static_cast<unsigned int>(wparam));
            }
        }
        return 0;
    }

    os::window m_hwnd = nullptr;
    std::unique_ptr<std::map<unsigned int, callback>> m_timers =
        std::make_unique<std::map<unsigned int, callback>>();
};

namespace {

// Made with the library, so that it outlives the objects of a host that kill their timers as the process
// ends.
[[maybe_unused]] const CTimerWnd& g_made_at_load = CTimerWnd::instance();

}  // namespace

unsigned int _addtimer(unsigned int id, unsigned int elapse, callback call) {
    try {
        return CTimerWnd::instance().add(id, elapse, call);
    } catch (const std::bad_alloc&) {
        os::set_last_error(k_not_enough_memory);
        return 0;
    }
}

bool _killtimer(unsigned int id) {
    CTimerWnd::instance().kill(id);
    return true;
}

}  // namespace kro::tessel::timer
