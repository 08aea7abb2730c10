// The locale in force: where its strings come from and who hears when it changes.
#pragma once

#include <tessel/base/types.h>

namespace kro::tessel::i18n {

/// The strings of one locale.
class locale_data {
public:
    virtual wide_string get_string(const wide_string& key) = 0;  ///< what a missing key gives is up to it
    virtual ~locale_data() = default;
};

/// Makes the strings of a locale.
class locale_loader {
public:
    /// Returns: new strings, which come back through `unload`; null when the locale can't be loaded.
    virtual locale_data* load(const wide_string& name) = 0;

    /// Destroys what this loader has made.
    virtual void unload(locale_data* data) = 0;
    virtual ~locale_loader() = default;
};

/// Hears around each change of the locale. In its callbacks it may add and remove listeners, itself too; it
/// should not select another locale.
class locale_listener {
public:
    virtual void on_locale_changing() = 0;  ///< before the change takes effect
    virtual void on_locale_changed() = 0;   ///< after it: get_current_locale_name has the new name
    virtual ~locale_listener() = default;
};

// Thread: all of these from one thread only, the user-interface thread. Locale names are told apart unit by
// unit, also by case. Loaders and listeners are not owned: they must live while they are registered.

/// Changes the locale. In this order: the loader of `name`, or the default one, loads; every listener's
/// on_locale_changing; the old strings go back to the loader that is registered for the old name now, else to
/// the default one, else nowhere (keep a locale's loader registered while the locale is in force); every
/// listener's on_locale_changed.
/// Returns: true, also when `name` is in force already, which does nothing; false when there is no loader or
///          it gave nothing, and then nothing has changed.
/// Errors:  an exception of a loader or listener passes; one that comes before the change undoes it, one of
///          the loader that takes the old strings back comes behind it.
TESSEL_API bool select_locale(const wide_string& name);

/// The text of a key in the locale in force; the key itself until the first selection.
TESSEL_API wide_string get_locale_string(const wide_string& key);

/// The name of the last successful selection; empty before it.
TESSEL_API wide_string get_current_locale_name();

/// Sets the loader of a name in place of an earlier one. Null counts as none.
TESSEL_API void register_locale_loader(const wide_string& name, locale_loader* loader);
/// The loader isn't told; a name without one is fine.
TESSEL_API void unregister_locale_loader(const wide_string& name);

/// Sets the loader of all names that have none of their own; null for none.
/// Returns: the one before.
TESSEL_API locale_loader* register_default_locale_loader(locale_loader* loader);

/// Listeners are called in the order of their addresses, each once. One that is removed during a change isn't
/// called any more; one that is added hears from the next round of calls on. Null, one that is there
/// already and one that isn't are fine.
TESSEL_API void add_locale_listener(locale_listener* listener);
TESSEL_API void remove_locale_listener(locale_listener* listener);
TESSEL_API void remove_all_locale_listeners();

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
// For literals of the form L"text".
inline bool select_locale(const wchar_t* name) {
    return select_locale(from_wchar_t(name));
}
inline wide_string get_locale_string(const wchar_t* key) {
    return get_locale_string(from_wchar_t(key));
}
inline void register_locale_loader(const wchar_t* name, locale_loader* loader) {
    register_locale_loader(from_wchar_t(name), loader);
}
inline void unregister_locale_loader(const wchar_t* name) {
    unregister_locale_loader(from_wchar_t(name));
}
#endif

}  // namespace kro::tessel::i18n
