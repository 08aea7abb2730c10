// Run-time values in a localised text: placeholders and what stands for them.
#pragma once

#include <tessel/base/types.h>

#include <map>

namespace kro::tessel::i18n {

/// Arguments by placeholder. A placeholder is any text, exactly as it stands in the localised one: "{user}".
/// Thread: as a standard container.
class TESSEL_API locale_args {
public:
    locale_args();
    locale_args(const locale_args&);
    locale_args& operator=(const locale_args&);
    ~locale_args();

    /// Adds a pair; one that is there already stays as it is. An empty placeholder stands nowhere and is left
    /// out.
    void insert(const wide_string& name, const wide_string& value);
    void remove(const wide_string& name);  ///< a name that isn't there is fine
    void remove_all();

    /// The text with each placeholder replaced, pair by pair in the order of the placeholders' units, the
    /// result of one being the text of the next. So a value that holds a placeholder sorting after its own is
    /// replaced in turn, one sorting before it stays; [10] comes before [2]. Within one pair an inserted
    /// value isn't looked at again.
    wide_string replace_args(const wide_string& text) const;

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    // For literals of the form L"text".
    void insert(const wchar_t* name, const wide_string& value) {
        insert(from_wchar_t(name), value);
    }
    void insert(const wide_string& name, const wchar_t* value) {
        insert(name, from_wchar_t(value));
    }
    void insert(const wchar_t* name, const wchar_t* value) {
        insert(from_wchar_t(name), from_wchar_t(value));
    }
    void remove(const wchar_t* name) {
        remove(from_wchar_t(name));
    }
    wide_string replace_args(const wchar_t* text) const {
        return replace_args(from_wchar_t(text));
    }
#endif

private:
    std::map<wide_string, wide_string> m_args;
};

/// Arguments by position: the first value inserted stands for [0], the next for [1] and so on.
class TESSEL_API locale_index_args : public locale_args {
public:
    locale_index_args();
    locale_index_args(const locale_index_args&);
    locale_index_args& operator=(const locale_index_args&);
    ~locale_index_args();

    using locale_args::insert;
    void insert(const wide_string& value);
    void remove_all();  ///< the next value stands for [0] again

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    void insert(const wchar_t* value) {
        insert(from_wchar_t(value));
    }
#endif

private:
    unsigned m_next = 0;
};

}  // namespace kro::tessel::i18n
