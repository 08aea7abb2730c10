// A call that is bound to an object and one of its member functions, held by value.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace kro::tessel::delegate {

/// Calls a function with one argument and no result: a member function on an object, or a free function.
/// The empty delegate calls nothing.
///
///     FastDelegate1<unsigned int> tick(&window, &main_window::on_tick);
///
/// Copying costs a few words and never allocates. The object is only referred to: it must live as long as
/// the delegate may be called. Any class works, whatever it inherits and however; the function may belong to
/// a base class of the object's.
template <class Param>
class FastDelegate1 {
public:
    /// Empty.
    FastDelegate1() noexcept = default;
    FastDelegate1(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor): compares with nullptr

    /// A null object or function gives the empty delegate.
    template <class Object, class Class>
    FastDelegate1(Object* object, void (Class::*function)(Param)) noexcept {
        bind(object, function);
    }
    template <class Object, class Class>
    FastDelegate1(const Object* object, void (Class::*function)(Param) const) noexcept {
        bind(object, function);
    }
    FastDelegate1(void (*function)(Param)) noexcept {  // NOLINT(google-explicit-constructor)
        bind(function);
    }

    /// As constructing it anew.
    template <class Object, class Class>
    void bind(Object* object, void (Class::*function)(Param)) noexcept {
        Class* const part = object;
        set(part, function);
    }
    template <class Object, class Class>
    void bind(const Object* object, void (Class::*function)(Param) const) noexcept {
        const Class* const part = object;
        set(part, function);
    }
    void bind(void (*function)(Param)) noexcept { set(static_cast<void*>(nullptr), function); }
    void clear() noexcept { *this = {}; }

    bool empty() const noexcept { return m_kind == nullptr; }
    bool operator!() const noexcept { return empty(); }
    explicit operator bool() const noexcept { return !empty(); }

    /// Calls the function; does nothing when empty.
    void operator()(Param argument) const {
        if (m_kind != nullptr) {
            m_kind->call(*this, std::forward<Param>(argument));
        }
    }

    /// Equal: both empty, or the same function on the same object.
    friend bool operator==(const FastDelegate1& left, const FastDelegate1& right) noexcept {
        return left.m_kind == right.m_kind && left.m_object == right.m_object &&
               (left.m_kind == nullptr || left.m_kind->same_function(left, right));
    }
    friend bool operator!=(const FastDelegate1& left, const FastDelegate1& right) noexcept {
        return !(left == right);
    }

private:
    struct kind {
        void (*call)(const FastDelegate1& self, Param argument);
        bool (*same_function)(const FastDelegate1& left, const FastDelegate1& right);
    };

    // What is bound, and how it is called: the object's part that the function belongs to, and the function.
    template <class Subject, class Function>
    struct bound {
        static Function function(const FastDelegate1& self) noexcept {
            return *std::launder(reinterpret_cast<const Function*>(self.m_function));
        }
        static void call(const FastDelegate1& self, Param argument) {
            if constexpr (std::is_member_function_pointer_v<Function>) {
                (static_cast<Subject*>(self.m_object)->*function(self))(std::forward<Param>(argument));
            } else {
                function(self)(std::forward<Param>(argument));
            }
        }
        static bool same_function(const FastDelegate1& left, const FastDelegate1& right) noexcept {
            return function(left) == function(right);
        }
        static constexpr kind k_kind{call, same_function};
    };

    template <class Subject, class Function>
    void set(Subject* object, Function function) noexcept {
        static_assert(sizeof(Function) <= sizeof(m_function) && std::is_trivially_copyable_v<Function>);
        clear();
        const bool callable = object != nullptr || !std::is_member_function_pointer_v<Function>;
        if (callable && function != nullptr) {
            m_kind = &bound<Subject, Function>::k_kind;
            m_object = const_cast<std::remove_const_t<Subject>*>(object);
            ::new (static_cast<void*>(m_function)) Function(function);
        }
    }

    // Compilers need up to four words for a pointer to a member function, depending on its class.
    static constexpr std::size_t k_function_words = 4;

    const kind* m_kind = nullptr;
    void* m_object = nullptr;
    alignas(void*) unsigned char m_function[k_function_words * sizeof(void*)] = {};
};

}  // namespace kro::tessel::delegate
