// The trace facility: leveled lines, messages composed from text and numbers, and traced scopes.
// Where the lines go is the host's choice (tessel/platform/host.h, set_trace_sink).
//
// Every function may be called from any thread at once and takes no lock of the library's. The host's
// sink is called on the thread that traces.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

namespace kro::tessel {

/// Levels, with gaps: sinks filter by these values.
enum trace_level : int {
    trace_error = 0,    ///< prefix "Error: "
    trace_warning = 3,  ///< prefix "Warnning: " (kept: hosts match their logs on this spelling)
    trace_info = 6,     ///< prefix "Info: "
    trace_debug = 9,    ///< prefix "Debug: "
};

/// Longest CStringT, in code units, that reaches a message uncut.
inline constexpr std::size_t k_max_traced_text = 2000;

/// The prefix of a level; an empty string for every value that is none of the four levels.
TESSEL_API CTString trace_level_prefix(int level);

/// The level that the sink in force asks for.
TESSEL_API int trace_sink_level();

/// Hands the level's prefix and `text`, joined, to the sink, whatever the sink's level is. No line end
/// is added.
TESSEL_API void trace_write(int level, wide_string text);

/// As trace_write at level 9, but only when the sink's level is exactly 9; otherwise it costs one call.
/// The pointer forms copy nothing unless the line is written.
TESSEL_API void trace_debug_line(wide_string text);
inline void trace_debug_line(const wchar* text) {
    if (trace_sink_level() == trace_debug) {
        trace_write(trace_debug, CTString(text));
    }
}
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
inline void trace_debug_line(const wchar_t* text) {
    if (trace_sink_level() == trace_debug) {
        trace_write(trace_debug, from_wchar_t(text));
    }
}
#endif

/// Inserts a string into a stream, cut to its first 2000 code units when it is longer. A cut is marked:
/// the wide form by "...", the narrow form by the address of that wide literal, as the stream formats
/// pointers (kept: only the cut is relied upon).
TESSEL_API void trace_insert(std::basic_ostream<wchar>& stream, const CTString& text);
TESSEL_API void trace_insert(std::ostream& stream, const CTStringA& text);

/// A message that is composed part by part and written once, when it is destroyed, whatever the sink's
/// level is:
///
///     trace_message(trace_debug) << TESSEL_W("[app] status ") << code;
///
/// CStringT parts are cut as trace_insert cuts them, all other text goes in whole; integers are written
/// in decimal, pointers as 0x and lower-case hexadecimal digits (the value only: nothing is followed).
class TESSEL_API trace_message {
public:
    explicit trace_message(int level);
    trace_message(const trace_message&) = delete;
    trace_message& operator=(const trace_message&) = delete;
    ~trace_message() {
        if (m_wanted) {
            write();
        }
    }

    template <class Part>
    trace_message& operator<<(const Part& part) {
        if (m_wanted) {
            add(part);
        }
        return *this;
    }

private:
    void add(const CTString& text);
    void add(std::basic_string_view<wchar> text);
    void add(const wide_string& text) { add(std::basic_string_view<wchar>(text)); }
    void add(const wchar* text);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    void add(const wchar_t* text);
#endif
    void add(int number) {
        add(static_cast<long long>(number));
    }
    void add(long number) {
        add(static_cast<long long>(number));
    }
    void add(long long number);
    void add(unsigned number) {
        add(static_cast<unsigned long long>(number));
    }
    void add(unsigned long number) {
        add(static_cast<unsigned long long>(number));
    }
    void add(unsigned long long number);
    void add(const void* pointer);
    void add(const char*) = delete;  // narrow text has no code page here: convert it first

    void append(const wchar* text, std::size_t count);
    void write();

    // Most messages fit the inline buffer; a longer one moves to m_long. Either begins with the prefix.
    static constexpr std::size_t k_inline_units = 240;
    const int m_level;
    const bool m_wanted;  // false: the default sink would drop the line, so none is composed
    std::size_t m_size = 0;
    wchar m_inline[k_inline_units];
    wide_string m_long;
};

/// Traces the run of a function: "---->>>> Enter " and the name at construction, "<<<<---- Leave " and
/// the name at destruction, on every way out. Each line is written only when the sink's level is exactly
/// 9 at that moment (equality, not a lower bound: kept).
///
/// A scope made from a literal keeps the pointer, which must outlive it, and allocates nothing when the
/// lines are off; one made from a CStringT keeps a copy.
class TESSEL_API trace_scope {
public:
    explicit trace_scope(const CTString& name);
    template <std::size_t N>
    explicit trace_scope(const wchar (&literal)[N]) : m_literal(literal) {
        enter();
    }
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    template <std::size_t N>
    explicit trace_scope(const wchar_t (&literal)[N]) : m_foreign_literal(literal) {
        enter();
    }
#endif
    trace_scope(const trace_scope&) = delete;
    trace_scope& operator=(const trace_scope&) = delete;
    ~trace_scope();

private:
    void enter() const;
    void write(const wchar* marker) const;

    const wchar* m_literal = nullptr;
    const wchar_t* m_foreign_literal = nullptr;
    CTString m_name;
};

}  // namespace kro::tessel
