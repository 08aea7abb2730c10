#include "os/profile.h"

#include "os/code_page.h"
#include "os/file_name.h"
#include "os/thread.h"

#include "profile_lines.h"
#include "upper_case.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

namespace kro::tessel::os {
namespace {

using wide_view = std::basic_string_view<wchar>;

constexpr std::uint32_t k_not_enough_memory = 8;

// Bytes that are read at first, and not a whole window: a key near the beginning shouldn't cost the file.
constexpr std::size_t k_first_read = std::size_t{16} << 10U;
static_assert(k_first_read < k_profile_window);

template <class Unit>
constexpr bool is_ascii(Unit unit) {
    return (static_cast<std::uint32_t>(unit) & ~0x7FU) == 0;
}

/// How the text of a file is to be understood: bytes of a page, or units as they are.
struct encoding {
    std::uint32_t page;

    wide_string text(std::string_view bytes) const {
        wide_string units(bytes.size(), wchar(0));
        const std::int32_t count =
            bytes.empty()
                ? 0
                : code_pages().to_wide(page, 0, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                                       units.data(), static_cast<std::int32_t>(units.size()));
        units.resize(static_cast<std::size_t>(count));
        return units;
    }
    wide_string text(wide_view units) const { return wide_string(units); }
};

/// A name that is looked for.
class wanted_name {
public:
    explicit wanted_name(const wchar* name) {
        const wide_view trimmed = without_blanks(wide_view(name));
        m_is_ascii = true;
        for (const wchar unit : trimmed) {
            m_folded.push_back(upper_case(unit));
            m_is_ascii = m_is_ascii && is_ascii(unit);
        }
    }

    template <class Unit>
    bool equals(std::basic_string_view<Unit> name, const encoding& how) const {
        if (m_is_ascii) {
            return name.size() == m_folded.size() && begins(name);
        }
        const wide_string text = how.text(name);
        return std::equal(text.begin(), text.end(), m_folded.begin(), m_folded.end(),
                          [](wchar left, wchar right) { return upper_case(left) == right; });
    }

    /// Lets sections pass and lines that can have the name as their key. It costs most lines a look at two
    /// units.
    line_filter filter() const {
        line_filter pass;
        if (m_is_ascii && !m_folded.empty()) {
            const char last = static_cast<char>(m_folded.back());
            pass.length = m_folded.size();
            pass.upper = last;
            pass.lower = last >= 'A' && last <= 'Z' ? static_cast<char>(last - 'A' + 'a') : last;
        }
        return pass;
    }

private:
    template <class Unit>
    bool begins_with_same(Unit unit, std::size_t at) const {
        return is_ascii(unit) && upper_case(static_cast<wchar>(unit)) == m_folded[at];
    }

    template <class Unit>
    bool begins(std::basic_string_view<Unit> text) const {
        for (std::size_t at = 0; at < m_folded.size(); ++at) {
            if (!begins_with_same(text[at], at)) {
                return false;
            }
        }
        return true;
    }

    wide_string m_folded;
    bool m_is_ascii = true;
};

/// The search through one file.
template <class Unit>
class look_up {
public:
    look_up(profile_lines<Unit>& lines, encoding how) : m_lines(lines), m_how(how) {}

    /// The value, cut to `longest` units; nothing when there is none.
    std::optional<wide_string> find(const wanted_name& section, const wanted_name& key, std::size_t longest) {
        profile_line<Unit> line;
        bool inside = false;
        const line_filter filter = key.filter();
        while (m_lines.next(line, filter)) {
            if (!line.head.empty() && line.head.front() == Unit('[') && takes_section_name(line)) {
                if (inside) {
                    break;
                }
                inside = section.equals(wide_view(m_section), m_how);
            } else if (inside && is_key(line, key)) {
                return value(line, longest);
            }
        }
        return std::nullopt;
    }

private:
    using view = std::basic_string_view<Unit>;

    static view up_to_zero(view text) { return text.substr(0, text.find(Unit(0))); }
    static bool has_rest(const profile_line<Unit>& line) {
        return line.last_of_rest != 0 && line.head.find(Unit(0)) == view::npos;
    }

    // In UTF-16: in some code pages the bytes of other characters look like brackets.
    bool takes_section_name(const profile_line<Unit>& line) {
        if (has_rest(line) && line.bracket_in_rest) {
            m_section.assign(1, wchar(0));  // far too long: nobody asks for it
            return true;
        }
        m_section = m_how.text(up_to_zero(line.head));
        const std::size_t end = m_section.rfind(wchar(']'));
        if (end == wide_string::npos) {
            return false;
        }
        m_section = without_blanks(wide_view(m_section).substr(1, end - 1));
        return true;
    }

    bool is_key(const profile_line<Unit>& line, const wanted_name& key) const {
        const view text = up_to_zero(line.head);
        if (text.empty() || text.front() == Unit(';')) {
            return false;
        }
        return key.equals(without_blanks_behind(text.substr(0, text.find(Unit('=')))), m_how);
    }

    std::optional<wide_string> value(const profile_line<Unit>& line, std::size_t longest) const {
        view text = up_to_zero(line.head);
        const std::size_t sign = text.find(Unit('='));
        if (sign == view::npos) {
            return std::nullopt;
        }
        const bool goes_on = has_rest(line);
        text = without_blanks_in_front(text.substr(sign + 1));
        text = goes_on ? text : without_blanks_behind(text);
        const bool quoted = !text.empty() && (text.front() == Unit('"') || text.front() == Unit('\''));
        if (quoted && goes_on && line.last_of_rest == text.front()) {
            text.remove_prefix(1);
        } else if (quoted && !goes_on && text.size() > 1 && text.back() == text.front()) {
            text = text.substr(1, text.size() - 2);
        }
        // A unit comes of at most four bytes.
        wide_string units = m_how.text(text.substr(0, 4 * (longest + 1)));
        units.resize(std::min(units.size(), longest));
        return units;
    }

    profile_lines<Unit>& m_lines;
    const encoding m_how;
    wide_string m_section;
};

struct question {
    wanted_name section;
    wanted_name key;
    std::size_t longest;
};

template <class Unit>
std::optional<wide_string> search(profile_file& file, Unit* window, std::size_t begin, std::size_t filled,
                                  bool swapped, encoding how, const question& asked) {
    profile_lines<Unit> lines(file, window, begin, filled, swapped);
    return look_up<Unit>(lines, how).find(asked.section, asked.key, asked.longest);
}

std::optional<wide_string> search_file(profile_file& file, const question& asked) {
    const std::unique_ptr<wchar[]> window(new wchar[k_profile_window / sizeof(wchar)]);
    char* const bytes = reinterpret_cast<char*>(window.get());
    const std::size_t filled = file.read(bytes, k_first_read);
    const std::string_view start(bytes, std::min<std::size_t>(filled, 3));
    const bool little = start.substr(0, 2) == "\xFF\xFE";
    if (little || start.substr(0, 2) == "\xFE\xFF") {
        return search(file, window.get(), 1, filled / sizeof(wchar), !little, {0}, asked);
    }
    if (start == "\xEF\xBB\xBF") {
        return search(file, bytes, start.size(), filled, false, {k_code_page_utf8}, asked);
    }
    return search(file, bytes, 0, filled, false, {k_code_page_ansi}, asked);
}

class linux_profiles final : public profile_service {
public:
    std::uint32_t get_string(const wchar* section, const wchar* key, const wchar* fallback, wchar* out,
                             std::uint32_t capacity, const wchar* file) override {
        if (capacity == 0) {
            set_last_error(0);
            return 0;
        }
        const std::size_t longest = capacity - 1;
        std::optional<wide_string> found;
        std::uint32_t error = 0;
        try {
            profile_file opened(file_name(file));
            error = opened.error();
            if (error == 0) {
                found = search_file(opened, {wanted_name(section), wanted_name(key), longest});
            }
        } catch (const std::bad_alloc&) {
            error = k_not_enough_memory;
        }
        const wide_view instead =
            fallback != nullptr ? without_blanks_behind(wide_view(fallback)) : wide_view();
        const std::size_t units = (found ? wide_view(*found) : instead).copy(out, longest);
        out[units] = 0;
        set_last_error(error);
        return static_cast<std::uint32_t>(units);
    }
};

}  // namespace

profile_service& profiles() {
    static linux_profiles service;
    return service;
}

}  // namespace kro::tessel::os
