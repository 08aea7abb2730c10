// _bstr_t, the platform's shared text. Where the platform has one this only names it: a program includes
// <comutil.h> there before it takes one.
#pragma once

#include <tessel/base/types.h>

#include <memory>
#include <string_view>
#include <utility>

#if defined(TESSEL_HAS_OWN_BSTR)

/// A text of UTF-16 code units that is never changed once it is made: copies share it by reference count.
///
/// The part of the platform's class that programs use to read a text. A holder without a text differs from
/// one with an empty text in its null pointer only. Thread: distinct holders of one text may be used from
/// different threads at once.
class _bstr_t {  // NOLINT(bugprone-reserved-identifier): as the platform's
public:
    _bstr_t() noexcept = default;
    /// Copies up to the first zero unit; null makes a holder without a text.
    _bstr_t(const wchar* text)  // NOLINT(google-explicit-constructor): as the platform's
        : m_text(text == nullptr ? nullptr : std::make_shared<const kro::tessel::wide_string>(text)) {}
    /// Takes a whole string.
    explicit _bstr_t(kro::tessel::wide_string text)
        : m_text(std::make_shared<const kro::tessel::wide_string>(std::move(text))) {}

    /// The text, ended by a zero unit; null without one. Lives as long as a holder of it.
    operator const wchar*() const noexcept {  // NOLINT(google-explicit-constructor): as the platform's
        return m_text == nullptr ? nullptr : m_text->c_str();
    }
    /// Code units, without the final zero.
    unsigned int length() const noexcept {
        return m_text == nullptr ? 0 : static_cast<unsigned int>(m_text->size());
    }
    /// Whether there is no text.
    bool operator!() const noexcept { return m_text == nullptr; }

    /// Compares units; a holder without a text equals one with an empty text.
    friend bool operator==(const _bstr_t& left, const _bstr_t& right) noexcept {
        return left.view() == right.view();
    }
    friend bool operator!=(const _bstr_t& left, const _bstr_t& right) noexcept { return !(left == right); }
    friend bool operator<(const _bstr_t& left, const _bstr_t& right) noexcept {
        return left.view() < right.view();
    }

private:
    std::basic_string_view<wchar> view() const noexcept {
        return m_text == nullptr ? std::basic_string_view<wchar>() : std::basic_string_view<wchar>(*m_text);
    }

    std::shared_ptr<const kro::tessel::wide_string> m_text;
};

#else

class _bstr_t;  // NOLINT(bugprone-reserved-identifier): as the platform's

#endif
