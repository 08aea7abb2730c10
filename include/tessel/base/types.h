// The few things that differ between the systems and that every header needs: the export mark, the
// 16-bit character type and its literals. The only header with a system #ifdef.
#pragma once

#include <cstdint>
#include <string>

#if defined(_WIN32)
#if defined(TESSEL_BUILDING)
#define TESSEL_API __declspec(dllexport)
#else
#define TESSEL_API __declspec(dllimport)
#endif
#else
/// Marks a name as part of the interface of the shared library; everything else stays hidden in it.
#define TESSEL_API __attribute__((visibility("default")))
#endif

namespace kro::tessel {

#if defined(_WIN32)
using wchar = wchar_t;
#define TESSEL_W(text) L##text
#else
/// One UTF-16 code unit: the character type of all interface text. `wchar_t` on Windows, where it has
/// 16 bits; `char16_t` on Linux, where `wchar_t` has 32.
using wchar = char16_t;
/// Makes a literal of `wchar`: TESSEL_W("text") is L"text" on Windows and u"text" on Linux.
#define TESSEL_W(text) u##text
/// Defined where `wchar_t` is not the interface's character type. Functions that take zero-terminated
/// wide text then have a twin for `const wchar_t*`, so that a host's L"text" literals compile unchanged.
#define TESSEL_HAS_FOREIGN_WCHAR_T 1
/// Defined where the platform has no `_bstr_t`: tessel/platform/bstr.h then holds one.
#define TESSEL_HAS_OWN_BSTR 1
#endif

/// A standard string of UTF-16 code units.
using wide_string = std::basic_string<wchar>;

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
/// Converts zero-terminated UTF-32 text to UTF-16.
/// text:    a null pointer gives an empty string; a value that is no code point (a surrogate, or above
///          0x10FFFF) becomes U+FFFD.
/// Returns: the text in UTF-16 code units.
inline wide_string from_wchar_t(const wchar_t* text) {
    wide_string units;
    for (; text != nullptr && *text != 0; ++text) {
        const auto point = static_cast<std::uint32_t>(*text);  // NOLINT(bugprone-signed-char-misuse): no char
        if (point > 0x10FFFFU || (point >= 0xD800U && point <= 0xDFFFU)) {
            units.push_back(static_cast<wchar>(0xFFFDU));
        } else if (point < 0x10000U) {
            units.push_back(static_cast<wchar>(point));
        } else {
            units.push_back(static_cast<wchar>(0xD7C0U + (point >> 10U)));
            units.push_back(static_cast<wchar>(0xDC00U + (point & 0x3FFU)));
        }
    }
    return units;
}
#endif

}  // namespace kro::tessel

/// Signatures outside the namespace use it as well.
using kro::tessel::wchar;
