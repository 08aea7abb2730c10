// A GLib source whose behaviour is a C++ object.
#pragma once

#include <glib.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace kro::tessel::os {

/// Owns one reference of a source of a context; destroys the source with itself, from any thread. A
/// dispatch that is running then goes on to its end, and `Deliverer` lives until it has.
///
/// Deliverer: bool prepare(int& timeout) noexcept and bool check() noexcept, as GLib's functions of these
///            names, called on the thread that turns the context, like void dispatch() noexcept; nested loops
///            dispatch it again.
///            void destroyed() noexcept, when the source is destroyed, by whoever: the context does it too,
///            when it is freed.
class context_source {
public:
    context_source() = default;
    context_source(context_source&& other) noexcept
        : m_source(std::exchange(other.m_source, nullptr)), m_context(other.m_context) {}
    context_source& operator=(context_source&& other) noexcept {
        std::swap(m_source, other.m_source);
        std::swap(m_context, other.m_context);
        return *this;
    }
    ~context_source() {
        if (m_source != nullptr) {
            g_source_destroy(m_source);
            leave_to_context();
        }
    }

    /// Gives the reference up without destroying the source: its context does, which is being freed.
    void leave_to_context() { g_source_unref(std::exchange(m_source, nullptr)); }

    /// Attaches a source to `context`, null for the process's default one; it sleeps until it is woken.
    template <class Deliverer>
    static context_source attach(std::unique_ptr<Deliverer> deliverer, int priority, const char* name,
                                 GMainContext* context) {
        context_source made;
        made.m_context = context == nullptr ? g_main_context_default() : context;
        made.m_source = g_source_new(&adapter<Deliverer>::s_functions, sizeof(adapter<Deliverer>));
        auto* const kept = deliverer.release();
        reinterpret_cast<adapter<Deliverer>*>(made.m_source)->deliverer = kept;
        g_source_set_callback(made.m_source, nullptr, kept, adapter<Deliverer>::destroyed);
        g_source_set_priority(made.m_source, priority);
        g_source_set_can_recurse(made.m_source, TRUE);
        g_source_set_name(made.m_source, name);
        g_source_attach(made.m_source, made.m_context);
        return made;
    }

    /// Dispatches at a moment of the monotonic clock (microseconds; a past one: at the next turn), or not
    /// until asked again (-1). Any thread; wakes the context's.
    void wake_at(std::int64_t moment) { g_source_set_ready_time(m_source, moment); }

    /// Has the context ask `check` now, or `prepare` before it sleeps. Any thread. Unlike wake_at it takes no
    /// lock of the context, which the woken thread would run into.
    void wake() { g_main_context_wakeup(m_context); }

private:
    template <class Deliverer>
    struct adapter {
        GSource base;
        Deliverer* deliverer;

        static Deliverer& of(GSource* source) { return *reinterpret_cast<adapter*>(source)->deliverer; }
        static gboolean prepare(GSource* source, gint* timeout) {
            return of(source).prepare(*timeout) ? TRUE : FALSE;
        }
        static gboolean check(GSource* source) { return of(source).check() ? TRUE : FALSE; }
        static gboolean dispatch(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
            of(source).dispatch();
            return G_SOURCE_CONTINUE;
        }
        static void destroyed(gpointer deliverer) { static_cast<Deliverer*>(deliverer)->destroyed(); }
        static void finalize(GSource* source) { delete reinterpret_cast<adapter*>(source)->deliverer; }

        static inline GSourceFuncs s_functions{prepare, check, dispatch, finalize, nullptr, nullptr};
    };

    GSource* m_source = nullptr;
    GMainContext* m_context = nullptr;  // lives as long as it has the source
};

}  // namespace kro::tessel::os
