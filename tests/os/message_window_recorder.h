// A window that records what it is delivered.
#pragma once

#include "os/message_window.h"
#include "os/thread.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace tessel_test {

namespace os = kro::tessel::os;

using delivered = std::pair<std::uint32_t, std::uintptr_t>;  // message and wparam

inline delivered tick(std::uintptr_t id) {
    return {os::k_message_timer, id};
}
inline delivered user_message(std::uintptr_t wparam) {
    return {os::k_message_user, wparam};
}

/// A window that records what it is delivered, and may do something about it.
class recording_window {
public:
    using reaction = std::function<void(recording_window&, delivered)>;

    explicit recording_window(os::message_window_service& service, reaction react = nullptr)
        : m_service(service), m_react(std::move(react)) {
        m_service.register_class(TESSEL_W("recording"), procedure);
        m_handle = m_service.create(TESSEL_W("recording"), TESSEL_W("recording window"));
        m_service.set_user_data(m_handle, this);
    }
    ~recording_window() {
        if (m_service.is_window(m_handle)) {
            m_service.destroy(m_handle);
        }
    }
    recording_window(const recording_window&) = delete;
    recording_window& operator=(const recording_window&) = delete;

    os::window handle() const { return m_handle; }
    bool post(std::uintptr_t wparam, std::intptr_t lparam = 0) {
        return m_service.post(m_handle, os::k_message_user, wparam, lparam);
    }
    std::uintptr_t set_timer(std::uintptr_t id, std::uint32_t milliseconds) {
        return m_service.set_timer(m_handle, id, milliseconds);
    }
    bool kill_timer(std::uintptr_t id) { return m_service.kill_timer(m_handle, id); }
    bool destroy() { return m_service.destroy(m_handle); }

    std::vector<delivered> received;
    std::vector<std::intptr_t> lparams;
    std::uint32_t thread = 0;  ///< of the last delivery

    std::size_t count(const delivered& what) const {
        std::size_t same = 0;
        for (const delivered& one : received) {
            same += one == what ? 1U : 0U;
        }
        return same;
    }

private:
    static std::intptr_t procedure(os::window target, std::uint32_t message, std::uintptr_t wparam,
                                   std::intptr_t lparam) {
        auto* const self = static_cast<recording_window*>(os::message_windows().user_data(target));
        if (self == nullptr) {
            ADD_FAILURE() << "a window that is gone was delivered " << message;
            return 0;
        }
        self->received.emplace_back(message, wparam);
        self->lparams.push_back(lparam);
        self->thread = os::current_thread_id();
        if (self->m_react) {
            self->m_react(*self, {message, wparam});
        }
        return 0;
    }

    os::message_window_service& m_service;
    os::window m_handle = nullptr;
    reaction m_react;
};

}  // namespace tessel_test
