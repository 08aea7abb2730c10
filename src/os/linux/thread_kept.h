// An object that a thread keeps from one call to the next, for functions that may be called at any time.
#pragma once

namespace kro::tessel::os {

/// The calling thread's own T, made by the first call. Null once the thread has destroyed it.
template <class T>
T* kept_by_thread() {
    static thread_local bool t_is_gone = false;  // without a destructor: there until the thread's memory goes
    struct keeper {
        T object;
        ~keeper() { t_is_gone = true; }
    };
    if (t_is_gone) {
        return nullptr;
    }
    static thread_local keeper t_keeper;
    return &t_keeper.object;
}

/// Calls use(T&) with the thread's own T or, once the thread has destroyed that, with one for this call
/// alone: destructors of a host's globals run after those of the main thread's objects, and may call us.
/// Returns: what use returns.
template <class T, class Use>
decltype(auto) with_kept(const Use& use) {
    if (T* const kept = kept_by_thread<T>(); kept != nullptr) {
        return use(*kept);
    }
    T for_this_call;
    return use(for_this_call);
}

}  // namespace kro::tessel::os
