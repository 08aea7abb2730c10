#include "tessel/base/trace.h"

#include "base/trace_sink.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <utility>

namespace kro::tessel {
namespace {

constexpr std::basic_string_view<wchar> k_cut_marker = TESSEL_W("...");

std::basic_string_view<wchar> prefix_of(int level) noexcept {
    switch (level) {
        case trace_error:
            return TESSEL_W("Error: ");
        case trace_warning:
            return TESSEL_W("Warnning: ");
        case trace_info:
            return TESSEL_W("Info: ");
        case trace_debug:
            return TESSEL_W("Debug: ");
        default:
            return {};
    }
}

}  // namespace

CTString trace_level_prefix(int level) {
    return wide_string(prefix_of(level));
}

int trace_sink_level() {
    return current_trace_sink().level();
}

void trace_write(int level, wide_string text) {
    text.insert(0, prefix_of(level));
    current_trace_sink().write(level, text.c_str());
}

void trace_debug_line(wide_string text) {
    if (trace_sink_level() == trace_debug) {
        trace_write(trace_debug, std::move(text));
    }
}

void trace_insert(std::basic_ostream<wchar>& stream, const CTString& text) {
    if (text.size() <= k_max_traced_text) {
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    stream.write(text.data(), k_max_traced_text);
    stream.write(k_cut_marker.data(), static_cast<std::streamsize>(k_cut_marker.size()));
}

void trace_insert(std::ostream& stream, const CTStringA& text) {
    if (text.size() <= k_max_traced_text) {
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    stream.write(text.data(), k_max_traced_text);
    // The marker is the wide literal, so a narrow stream shows its address.
    stream << static_cast<const void*>(k_cut_marker.data());
}

trace_message::trace_message(int level)  // NOLINT(cppcoreguidelines-pro-type-member-init): m_inline
    : m_level(level), m_wanted(trace_line_is_wanted(level)) {
    *this << prefix_of(level);
}

void trace_message::write() {
    if (m_long.empty()) {
        m_inline[m_size] = 0;
        current_trace_sink().write(m_level, m_inline);
    } else {
        current_trace_sink().write(m_level, m_long.c_str());
    }
}

void trace_message::append(const wchar* text, std::size_t count) {
    if (m_long.empty() && count < k_inline_units - m_size) {  // one unit stays for the zero
        if (count != 0) {
            std::memcpy(m_inline + m_size, text, count * sizeof(wchar));
            m_size += count;
        }
        return;
    }
    if (m_long.empty()) {
        m_long.reserve(m_size + count);
        m_long.assign(m_inline, m_size);
    }
    m_long.append(text, count);
}

void trace_message::add(const CTString& text) {
    if (text.size() <= k_max_traced_text) {
        append(text.data(), text.size());
    } else {
        append(text.data(), k_max_traced_text);
        append(k_cut_marker.data(), k_cut_marker.size());
    }
}

void trace_message::add(std::basic_string_view<wchar> text) {
    append(text.data(), text.size());
}

void trace_message::add(const wchar* text) {
    if (text != nullptr) {
        add(std::basic_string_view<wchar>(text));
    }
}

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
void trace_message::add(const wchar_t* text) {
    add(std::basic_string_view<wchar>(from_wchar_t(text)));
}
#endif

namespace {

struct number_text {
    std::array<wchar, 26> units{};
    std::size_t count = 0;

    template <class Number>
    number_text(Number number, int base, std::basic_string_view<wchar> mark) {
        std::array<char, 24> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
        const auto after_mark = std::copy(mark.begin(), mark.end(), units.begin());
        count = static_cast<std::size_t>(std::copy(digits.data(), end, after_mark) - units.begin());
    }
};

}  // namespace

void trace_message::add(long long number) {
    const number_text text(number, 10, {});
    append(text.units.data(), text.count);
}

void trace_message::add(unsigned long long number) {
    const number_text text(number, 10, {});
    append(text.units.data(), text.count);
}

void trace_message::add(const void* pointer) {
    const number_text text(reinterpret_cast<std::uintptr_t>(pointer), 16, TESSEL_W("0x"));
    append(text.units.data(), text.count);
}

trace_scope::trace_scope(const CTString& name) : m_name(name) {
    enter();
}

trace_scope::~trace_scope() {
    if (trace_sink_level() == trace_debug) {
        write(TESSEL_W("<<<<---- Leave "));
    }
}

void trace_scope::enter() const {
    if (trace_sink_level() == trace_debug) {
        write(TESSEL_W("---->>>> Enter "));
    }
}

void trace_scope::write(const wchar* marker) const {
    wide_string line(marker);
    if (m_literal != nullptr) {
        line += m_literal;
    } else if (m_foreign_literal != nullptr) {
        line += CTString(m_foreign_literal);
    } else {
        line += m_name;
    }
    trace_write(trace_debug, std::move(line));
}

}  // namespace kro::tessel
