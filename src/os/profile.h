// One value of an INI file, by section and key.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>

namespace kro::tessel::os {

/// The longest value that is promised whole, in UTF-16 units.
inline constexpr std::uint32_t k_longest_profile_value = 16383;

/// INI files as GetPrivateProfileString reads them. Any thread; nothing is kept from call to call.
///
/// Lines end with CR, LF or both, the last one with the file. A zero ends what counts of its line. "Blanks"
/// are spaces and tabs.
///  - A section begins with "[" as its first character that is no blank; its name is what stands up to the
///    last "]" of the line, without blanks around it. Without "]" it is a line like any other. Only the first
///    section of a name counts, and nothing in front of the first section.
///  - A key is what stands in front of the line's first "=", without blanks around it; the first of a name
///    counts. A line whose first character is ";" is none; there are no other comments.
///  - A value is the rest of the line without blanks around it. Where it then begins and ends with the same
///    quotation mark (" or '), that pair is removed, once. There are no escapes and no continuations.
///  - Names match without regard to case (each character's simple upper case; none becomes an ASCII letter
///    that wasn't one). Names of more than 32,000 bytes, blanks in front of the "=" included, match nothing.
///  - Encoding: UTF-16 with either byte order mark, UTF-8 with its mark, else the ANSI code page.
class profile_service {
public:
    virtual ~profile_service() = default;

    /// GetPrivateProfileStringW.
    /// section, key, file: zero-terminated, not null; blanks around the names are left out. The file's name
    ///           is used as it stands.
    /// fallback: taken, without blanks at its end, when file, section, key or "=" is missing; may be null:
    /// "". out:      room for `capacity` units. What doesn't fit is cut; it always ends with a zero. Returns:
    /// the units written without that zero; with capacity 0 nothing is written. Errors:   a missing file
    /// leaves 2 in the thread's last error, a missing folder 3, what is no file or may
    ///           not be read 5, everything else 0. What is no regular file is never waited for.
    virtual std::uint32_t get_string(const wchar* section, const wchar* key, const wchar* fallback,
                                     wchar* out, std::uint32_t capacity, const wchar* file) = 0;
};

profile_service& profiles();  ///< the running system's; lives until unload

}  // namespace kro::tessel::os
