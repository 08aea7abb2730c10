#include "code_page_table_walk.h"

#include "code_page_ascii.h"

namespace kro::tessel::os {
namespace {

constexpr unsigned char byte_at(const char* at) {
    return static_cast<unsigned char>(*at);
}

// Single-byte pages: every byte has a unit.
struct single_byte_walk {
    static constexpr std::size_t k_units_each = 1;
    const code_page_tables& tables;
    bool strict;
    bool stopped = false;
    bool used_default = false;

    const char* operator()(const char* from, const char* soft_end, const char* /*end*/, wchar*& out) {
        wchar* to = out;
        while (soft_end - from >= k_ascii_block && !strict) {
            block(from, to);
            from += k_ascii_block;
            to += k_ascii_block;
        }
        for (; from < soft_end; ++from) {
            if (strict && tables.meaningless[byte_at(from)]) {
                stopped = true;
                break;
            }
            *to++ = tables.single[byte_at(from)];
        }
        out = to;
        return from;
    }

private:
    void block(const char* from, wchar* to) const {
        const __m128i bytes = load_bytes(from);
        if (_mm_movemask_epi8(bytes) == 0 || (tables.latin1_from_a0_on && !has_80_to_9f(bytes))) {
            store_widened(bytes, to);
            return;
        }
        for (std::ptrdiff_t i = 0; i < k_ascii_block; ++i) {
            to[i] = tables.single[byte_at(from + i)];
        }
    }

    static bool has_80_to_9f(__m128i bytes) {
        // As signed numbers these are the lowest.
        return _mm_movemask_epi8(_mm_cmplt_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xA0U)))) != 0;
    }
};

struct double_byte_walk {
    static constexpr std::size_t k_units_each = 1;
    const code_page_tables& tables;
    bool strict;
    bool stopped = false;
    bool used_default = false;

    const char* operator()(const char* from, const char* soft_end, const char* end, wchar*& out) {
        wchar* to = out;
        while (from < soft_end && !stopped) {
            const unsigned char first = byte_at(from);
            if (first < 0x80U && soft_end - from >= k_ascii_block) {
                const unsigned done = widen_ascii_block(from, to);
                from += done;
                to += done;
                continue;
            }
            const std::uint8_t row = tables.lead_row[first];
            if (row == 0) {
                stopped = strict && tables.meaningless[first];
                *to = tables.single[first];
                to += stopped ? 0 : 1;
                from += stopped ? 0 : 1;
                continue;
            }
            const unsigned char second = end - from >= 2 ? byte_at(from + 1) : 0;
            const wchar unit = tables.pairs[(row - 1U) * 256U + second];
            if (unit == 0 && strict) {
                stopped = true;
                break;
            }
            *to++ = unit == 0 ? tables.default_unit : unit;
            from += second == 0 ? 1 : 2;
        }
        out = to;
        return from;
    }
};

class narrowing_walk {
public:
    static constexpr std::size_t k_units_each = 2;
    bool stopped = false;
    bool used_default = false;

    narrowing_walk(const code_page_tables& tables, narrow_options options)
        : m_tables(tables), m_options(options) {}

    const wchar* operator()(const wchar* from, const wchar* soft_end, const wchar* /*end*/, char*& out) {
        char* to = out;
        while (from < soft_end) {
            if (*from < 0x80U && soft_end - from >= k_ascii_block) {
                const unsigned done = narrow_ascii_block(from, to);
                from += done;
                to += done;
                continue;
            }
            std::uint16_t bytes = m_tables.narrow(*from);
            if (bytes == 0 || !m_options.best_fit) {
                bytes = checked(*from, bytes);
            }
            if (bytes > 0xFFU) {
                *to++ = static_cast<char>(bytes >> 8U);
            }
            *to++ = static_cast<char>(bytes & 0xFFU);
            ++from;
        }
        out = to;
        return from;
    }

private:
    std::uint16_t checked(wchar unit, std::uint16_t bytes) {
        const bool exact = bytes == 0 ? unit == 0 : m_options.best_fit || m_tables.widen(bytes) == unit;
        used_default = used_default || !exact;
        return exact ? bytes : m_options.replacement;
    }

    const code_page_tables& m_tables;
    narrow_options m_options;
};

}  // namespace

conversion_result table_to_wide(const code_page_tables& tables, const char* source, std::size_t bytes,
                                bool strict, wchar* out, std::size_t capacity) noexcept {
    if (tables.double_byte) {
        double_byte_walk walk{tables, strict};
        return convert_bounded(walk, source, bytes, out, capacity);
    }
    single_byte_walk walk{tables, strict};
    return convert_bounded(walk, source, bytes, out, capacity);
}

conversion_result wide_to_table(const code_page_tables& tables, const wchar* source, std::size_t units,
                                narrow_options options, char* out, std::size_t capacity) noexcept {
    narrowing_walk walk(tables, options);
    return convert_bounded(walk, source, units, out, capacity);
}

}  // namespace kro::tessel::os
