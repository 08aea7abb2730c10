// The lines of an INI file, in bounded memory whatever the file holds.
#pragma once

#include "os/profile.h"

#include "profile_skip.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace kro::tessel::os {

/// A regular file that is read from its beginning.
class profile_file {
public:
    explicit profile_file(const std::string& name);
    ~profile_file();
    profile_file(const profile_file&) = delete;
    profile_file& operator=(const profile_file&) = delete;

    /// 0, or why the file can't be read: 2, 3, 5.
    std::uint32_t error() const { return m_error; }

    /// Reads until `bytes` are there or the file ends. Returns how many are there.
    std::size_t read(void* to, std::size_t bytes);

private:
    int m_descriptor = -1;
    std::uint32_t m_error = 0;
    std::uint64_t m_left = 0;  // by the size at the beginning, which spares a last read
};

template <class Unit>
std::basic_string_view<Unit> without_blanks_in_front(std::basic_string_view<Unit> text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

template <class Unit>
std::basic_string_view<Unit> without_blanks_behind(std::basic_string_view<Unit> text) {
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

template <class Unit>
std::basic_string_view<Unit> without_blanks(std::basic_string_view<Unit> text) {
    return without_blanks_behind(without_blanks_in_front(text));
}

/// A line, without the blanks in front. Of one that doesn't fit into the window the rest is told only as far
/// as it can matter.
template <class Unit>
struct profile_line {
    std::basic_string_view<Unit> head;
    Unit last_of_rest = 0;         ///< its last unit that is no blank; 0 when there is none
    bool bracket_in_rest = false;  ///< whether it has a "]"; only where last_of_rest isn't 0
};

inline constexpr std::size_t k_profile_window = std::size_t{64} << 10U;  // bytes

template <class Unit>
class profile_lines {
public:
    /// window: k_profile_window bytes, of which `filled` have been read; the lines begin at `begin`.
    profile_lines(profile_file& file, Unit* window, std::size_t begin, std::size_t filled, bool swapped)
        : m_file(file),
          m_window(window),
          m_at(window + begin),
          m_filled(window + filled),
          m_swapped(swapped) {
        swap(m_window, m_filled);
    }

    /// The next line that passes, valid until the next call; false at the end of the file.
    bool next(profile_line<Unit>& line, const line_filter& filter) {
        for (;;) {
            m_at = skip_lines<Unit>(m_at, m_filled, filter);
            while (m_at != m_filled && is_blank(*m_at)) {
                ++m_at;
            }
            const Unit* const end = find_line_end<Unit>(m_at, m_filled);
            if (end != m_filled) {
                line.head = {m_at, static_cast<std::size_t>(end - m_at)};
                line.last_of_rest = 0;
                m_at = end + 1;
                return true;
            }
            if (!refill()) {
                return take_unended(line);
            }
        }
    }

private:
    static constexpr std::size_t k_window_units = k_profile_window / sizeof(Unit);

    // Moves what is left to the front and reads on behind it; false when nothing came.
    bool refill() {
        const std::size_t left = static_cast<std::size_t>(m_filled - m_at);
        std::copy(m_at, static_cast<const Unit*>(m_filled), m_window);
        m_at = m_window;
        m_filled = m_window + left;
        Unit* const before = m_filled;
        m_filled += m_file.read(before, (k_window_units - left) * sizeof(Unit)) / sizeof(Unit);
        swap(before, m_filled);
        return m_filled != before;
    }

    // The file's last line, or one that fills the window.
    bool take_unended(profile_line<Unit>& line) {
        m_long.assign(m_at, static_cast<std::size_t>(m_filled - m_at));
        const bool fills = m_long.size() == k_window_units;
        m_at = m_filled;
        profile_line<Unit> taken;
        if (fills) {
            drop_blanks_behind_sign();
            take_rest(taken);
        }
        taken.head = m_long;
        line = taken;
        return !m_long.empty();
    }

    bool has_bare_sign() const { return !m_long.empty() && m_long.find(Unit('=')) == m_long.size() - 1; }

    void drop_blanks_behind_sign() {
        const std::size_t sign = m_long.find(Unit('='));
        if (sign != m_long.npos && m_long.find_last_not_of(k_blanks) == sign) {
            m_long.resize(sign + 1);
        }
    }

    void take_rest(profile_line<Unit>& line) {
        const Unit* end = m_filled;
        while (end == m_filled && refill()) {
            end = find_line_end<Unit>(m_at, m_filled);
            std::basic_string_view<Unit> piece = {m_at, static_cast<std::size_t>(end - m_at)};
            if (has_bare_sign()) {
                piece = without_blanks_in_front(piece);
            }
            const std::size_t fits = std::min(piece.size(), 2 * k_window_units - m_long.size());
            m_long.append(piece, 0, fits);
            piece.remove_prefix(fits);
            line.bracket_in_rest = line.bracket_in_rest || piece.find(Unit(']')) != piece.npos;
            const auto counting = without_blanks_behind(piece);
            line.last_of_rest = counting.empty() ? line.last_of_rest : counting.back();
            m_at = end;
        }
    }

    void swap(Unit* from, const Unit* end) const {
        if (m_swapped) {
            std::transform(static_cast<const Unit*>(from), end, from, [](Unit unit) {
                const auto value = static_cast<std::make_unsigned_t<Unit>>(unit);
                return static_cast<Unit>(value >> 8U | value << 8U);
            });
        }
    }

    static constexpr Unit k_blanks[] = {Unit(' '), Unit('\t'), Unit(0)};

    profile_file& m_file;
    Unit* const m_window;
    const Unit* m_at;
    Unit* m_filled;
    const bool m_swapped;
    std::basic_string<Unit> m_long;
};

}  // namespace kro::tessel::os
