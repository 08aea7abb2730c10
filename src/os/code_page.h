// Wide <-> narrow conversion with the results of the Windows functions.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>

namespace kro::tessel::os {

inline constexpr std::uint32_t k_code_page_ansi = 0;
inline constexpr std::uint32_t k_code_page_utf8 = 65001;

// Flags. Without k_wide_error_on_invalid / k_narrow_error_on_invalid invalid input never fails.
inline constexpr std::uint32_t k_wide_error_on_invalid = 0x8;
inline constexpr std::uint32_t k_narrow_no_best_fit = 0x400;
inline constexpr std::uint32_t k_narrow_error_on_invalid = 0x80;

/// Conversion between UTF-16 and a code page. Stateless towards the caller; any thread.
///
/// Both conversions share one calling shape:
///  - a negative length means "up to and including the zero unit", which the result then counts;
///  - capacity 0 asks for the length needed and writes nothing;
///  - the result is the number of units written (or needed), or 0 with the thread's last error set:
///    87 length 0, null source, unknown code page, negative capacity, null output with a capacity;
///    122 the output is too small (what fitted has been written); 1004 unknown flags;
///    1113 invalid input, where the flags ask for an error.
///  - no zero is added behind the result.
/// Invalid input and characters that the page lacks are replaced, as the system's tables replace them:
/// U+FFFD in UTF-8, "?" (or the best fit) towards a narrow page, the page's own default towards UTF-16.
class code_page_service {
public:
    virtual ~code_page_service() = default;

    /// The number that code page 0 stands for.
    virtual std::uint32_t ansi_code_page() = 0;
    /// Changes it; false when the page isn't known.
    virtual bool set_ansi_code_page(std::uint32_t page) = 0;

    /// MultiByteToWideChar. source_bytes and capacity count bytes and UTF-16 units.
    virtual std::int32_t to_wide(std::uint32_t page, std::uint32_t flags, const char* source,
                                 std::int32_t source_bytes, wchar* out, std::int32_t capacity) = 0;

    /// WideCharToMultiByte. default_char: the replacement, null for the page's own. used_default: set to
    /// whether a replacement that is no best fit was made; may be null.
    virtual std::int32_t to_narrow(std::uint32_t page, std::uint32_t flags, const wchar* source,
                                   std::int32_t source_units, char* out, std::int32_t capacity,
                                   const char* default_char, bool* used_default) = 0;
};

code_page_service& code_pages();  ///< the running system's; lives until unload

}  // namespace kro::tessel::os
