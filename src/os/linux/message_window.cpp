#include "os/message_window.h"

#include "os/linux/message_window_loop.h"
#include "os/linux/message_window_place.h"
#include "os/system_services.h"
#include "os/thread.h"

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace kro::tessel::os {
namespace {

/// As many as the system of this interface gives to a process.
constexpr std::size_t k_max_windows = 10'000;

/// Says whether a call succeeded and leaves its number when it didn't.
bool succeeded(std::uint32_t error) {
    if (error != 0) {
        set_last_error(error);
    }
    return error == 0;
}

class glib_message_windows final : public message_window_service, private window_place_owner {
public:
    bool register_class(const wchar* name, window_procedure procedure) override {
        const std::lock_guard lock(m_mutex);
        const bool added = m_classes.emplace(name, procedure).second;
        return succeeded(added ? 0 : k_error_window_class_exists);
    }

    window create(const wchar* class_name, const wchar* title) override {
        const window_procedure procedure = find_class(class_name);
        if (procedure == nullptr) {
            set_last_error(k_error_no_window_class);
            return nullptr;
        }
        window_place* const place = take_empty_place();
        if (place == nullptr) {
            set_last_error(k_error_too_many_objects);
            return nullptr;
        }
        return place->open(procedure, title);
    }

    bool is_window(window target) override {
        return on_place(target, [](window_place& place, std::uint32_t generation) {
                   return place.is_open(generation) ? 0 : k_error_no_window;
               }) == 0;
    }

    bool destroy(window target) override {
        return succeeded(on_place(
            target, [](window_place& place, std::uint32_t generation) { return place.close(generation); }));
    }

    void set_user_data(window target, void* data) override {
        succeeded(on_place(target, [data](window_place& place, std::uint32_t generation) {
            return place.set_user_data(generation, data);
        }));
    }

    void* user_data(window target) override {
        void* data = nullptr;
        succeeded(on_place(target, [&data](window_place& place, std::uint32_t generation) {
            return place.user_data(generation, data);
        }));
        return data;
    }

    bool post(window target, std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam) override {
        try {
            return succeeded(on_place(target, [&](window_place& place, std::uint32_t generation) {
                return place.post(generation, {message, wparam, lparam});
            }));
        } catch (const std::bad_alloc&) {
            return succeeded(k_error_queue_full);
        }
    }

    std::uintptr_t set_timer(window target, std::uintptr_t id, std::uint32_t milliseconds) override {
        try {
            const bool set = succeeded(on_place(target, [&](window_place& place, std::uint32_t generation) {
                return place.set_timer(generation, id, milliseconds);
            }));
            const std::uintptr_t number = id == 0 ? 1 : id;
            return set ? number : 0;
        } catch (const std::bad_alloc&) {
            set_last_error(k_error_too_many_objects);
            return 0;
        }
    }

    bool kill_timer(window target, std::uintptr_t id) override {
        return succeeded(on_place(target, [id](window_place& place, std::uint32_t generation) {
            return place.kill_timer(generation, id);
        }));
    }

    // Hidden windows are never active, and a host's own windows are its toolkit's.
    window dialog_parent() override { return desktop_window(); }

    void run() override { run_loop(); }
    bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds) override {
        return run_loop_until(done, milliseconds);
    }
    void quit() override { quit_loop(); }
    bool pump() override { return pump_loop(); }

    void destroy_all() {
        for (std::size_t index = 0; window_place* const place = place_at(index); ++index) {
            place->close_at_exit();
        }
    }

private:
    void is_empty(window_place& place) noexcept override {
        const std::lock_guard lock(m_mutex);
        m_empty_places.push_back(&place);
    }

    template <class Call>
    std::uint32_t on_place(window target, Call call) {
        const auto id = to_window_id(target);
        window_place* const place = id ? place_at(id->place) : nullptr;
        return place == nullptr ? k_error_no_window : call(*place, id->generation);
    }

    window_place* place_at(std::size_t index) const {
        return index < k_max_windows ? m_places[index].load(std::memory_order_acquire) : nullptr;
    }

    window_procedure find_class(const wchar* name) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_classes.find(name);
        return found == m_classes.end() ? nullptr : found->second;
    }

    window_place* take_empty_place() {
        const std::lock_guard lock(m_mutex);
        if (!m_empty_places.empty()) {
            window_place* const place = m_empty_places.back();
            m_empty_places.pop_back();
            return place;
        }
        if (m_places_made == k_max_windows) {
            return nullptr;
        }
        // Room for its return is made now: is_empty can't fail.
        m_empty_places.reserve(m_places_made + 1);
        auto place = std::make_unique<window_place>(static_cast<window_place_owner&>(*this), m_places_made);
        m_places[m_places_made++].store(place.get(), std::memory_order_release);
        return place.release();
    }

    std::mutex m_mutex;  // guards m_classes, m_empty_places, m_places_made
    std::map<wide_string, window_procedure> m_classes;
    std::vector<window_place*> m_empty_places;
    std::size_t m_places_made = 0;
    std::array<std::atomic<window_place*>, k_max_windows> m_places{};  // filled from the front, for good
};

/// Never destroyed: threads that still run while the process ends find windows gone, not the table.
glib_message_windows& glib_windows() {
    static auto& service = *new glib_message_windows;
    return service;
}

/// When the library is unloaded no loop may go on calling into it.
struct windows_end_with_the_library {
    ~windows_end_with_the_library() {
        if (!process_was_forked()) {
            glib_windows().destroy_all();
        }
    }
};
windows_end_with_the_library g_windows_end_with_the_library;

}  // namespace

message_window_service& system_message_windows() {
    return glib_windows();
}

}  // namespace kro::tessel::os
