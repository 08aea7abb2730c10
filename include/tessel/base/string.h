// CStringT: the string type of the interface, a standard string that may be null-constructed and
// deleted through its virtual destructor.
#pragma once

#include <tessel/base/types.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kro::tessel::stringex {

/// A value string with everything that `std::basic_string<T>` offers.
///
/// Two forms are used: `CStringT<wchar>` for all interface text (UTF-16 code units) and `CStringT<char>`
/// where a narrow interface is offered (text in the ANSI code page, or raw bytes). Lengths and positions
/// count code units. There is no conversion between the two forms: whoever converts names the code page.
///
/// Thread: as the standard string; distinct values may be used from different threads at once.
/// Errors: the standard string's (`std::length_error`, `std::out_of_range`, `std::bad_alloc`).
template <class T = wchar>
class CStringT : public std::basic_string<T> {
public:
    using base_type = std::basic_string<T>;

    CStringT() = default;
    CStringT(const CStringT&) = default;
    CStringT(CStringT&&) noexcept = default;
    /// The only virtual operation, so that a string can be deleted through this type anywhere.
    virtual ~CStringT() = default;

    /// Copies up to the first zero unit; a null pointer gives an empty string.
    CStringT(const T* text) {  // NOLINT(google-explicit-constructor): literals are strings here
        if (text != nullptr) {
            this->assign(text);
        }
    }
    /// Copies `count` units, zeros included; `text` may be null when `count` is 0.
    CStringT(const T* text, std::size_t count) {
        if (count != 0) {
            this->assign(text, count);
        }
    }
    /// Takes the whole string, embedded zero units included.
    CStringT(base_type text) noexcept  // NOLINT(google-explicit-constructor)
        : base_type(std::move(text)) {}

    // The standard string's other ways to be made.

    /// `count` copies of a unit. Any integer type, so that a literal 0 is a count and no null pointer.
    template <class Count, std::enable_if_t<std::is_integral_v<Count>, int> = 0>
    CStringT(Count count, T unit) : base_type(static_cast<std::size_t>(count), unit) {}
    template <class Iterator, class = typename std::iterator_traits<Iterator>::iterator_category>
    CStringT(Iterator first, Iterator last) : base_type(first, last) {}
    CStringT(std::initializer_list<T> units) : base_type(units) {}
    CStringT(const base_type& text, std::size_t position, std::size_t count = base_type::npos)
        : base_type(text, position, count) {}
    explicit CStringT(std::basic_string_view<T> text) : base_type(text) {}

    CStringT& operator=(const CStringT&) = default;
    CStringT& operator=(CStringT&&) noexcept = default;
    /// Replaces the whole content; a null pointer gives an empty string.
    CStringT& operator=(const T* text) {
        if (text == nullptr) {
            this->clear();
        } else {
            this->assign(text);
        }
        return *this;
    }
    /// A unit, and nothing that only converts to one: 0 is a null pointer here.
    template <class Unit, std::enable_if_t<std::is_same_v<Unit, T>, int> = 0>
    CStringT& operator=(Unit unit) {
        this->assign(1, unit);
        return *this;
    }
    CStringT& operator=(std::initializer_list<T> units) {
        this->assign(units);
        return *this;
    }

    using base_type::operator+=;
    CStringT& operator+=(const CStringT& text) {
        this->append(text);
        return *this;
    }
    /// A null pointer appends nothing.
    CStringT& operator+=(const T* text) {
        if (text != nullptr) {
            this->append(text);
        }
        return *this;
    }

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    /// L"text" on a system whose `wchar_t` has 32 bits: converted from UTF-32; wide form only.
    template <class U = T, std::enable_if_t<std::is_same_v<U, wchar>, int> = 0>
    CStringT(const wchar_t* text)  // NOLINT(google-explicit-constructor)
        : base_type(from_wchar_t(text)) {}
    template <class U = T, std::enable_if_t<std::is_same_v<U, wchar>, int> = 0>
    CStringT& operator=(const wchar_t* text) {
        base_type::operator=(from_wchar_t(text));
        return *this;
    }
    template <class U = T, std::enable_if_t<std::is_same_v<U, wchar>, int> = 0>
    CStringT& operator+=(const wchar_t* text) {
        this->append(from_wchar_t(text));
        return *this;
    }
#endif

    // Concatenation yields a CStringT again, whichever side is a standard string or a literal.
    friend CStringT operator+(const CStringT& left, const CStringT& right) {
        return joined(left, right);
    }
    friend CStringT operator+(const CStringT& left, const base_type& right) {
        return joined(left, right);
    }
    friend CStringT operator+(const base_type& left, const CStringT& right) {
        return joined(left, right);
    }
    friend CStringT operator+(const CStringT& left, base_type&& right) {
        return joined(left, right);
    }
    friend CStringT operator+(base_type&& left, const CStringT& right) {
        return joined(left, right);
    }
    friend CStringT operator+(const CStringT& left, const T* right) {
        return joined(left, CStringT(right));
    }
    friend CStringT operator+(const T* left, const CStringT& right) {
        return joined(CStringT(left), right);
    }
    friend CStringT operator+(const CStringT& left, T right) {
        return joined(left, base_type(1, right));
    }
    friend CStringT operator+(T left, const CStringT& right) {
        return joined(base_type(1, left), right);
    }

private:
    static CStringT joined(const base_type& left, const base_type& right) {
        CStringT sum;
        sum.reserve(left.size() + right.size());
        sum.append(left).append(right);
        return sum;
    }
};

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
inline CStringT<wchar> operator+(const CStringT<wchar>& left, const wchar_t* right) {
    return left + from_wchar_t(right);
}
inline CStringT<wchar> operator+(const wchar_t* left, const CStringT<wchar>& right) {
    return from_wchar_t(left) + right;
}
inline bool operator==(const CStringT<wchar>& left, const wchar_t* right) {
    return left.compare(from_wchar_t(right)) == 0;
}
inline bool operator==(const wchar_t* left, const CStringT<wchar>& right) {
    return right == left;
}
inline bool operator!=(const CStringT<wchar>& left, const wchar_t* right) {
    return !(left == right);
}
inline bool operator!=(const wchar_t* left, const CStringT<wchar>& right) {
    return !(right == left);
}
#endif

}  // namespace kro::tessel::stringex

namespace kro::tessel {
/// The wide form, under the name that signatures and trace text use.
using CTString = stringex::CStringT<wchar>;
/// The narrow form.
using CTStringA = stringex::CStringT<char>;
}  // namespace kro::tessel

/// Strings hash as the standard strings that they are.
template <class T>
struct std::hash<kro::tessel::stringex::CStringT<T>> {
    std::size_t operator()(const std::basic_string<T>& text) const noexcept {
        return std::hash<std::basic_string<T>>{}(text);
    }
};
