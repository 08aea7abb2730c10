#include "code_page_table_walk.h"

#include "code_page_ascii.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

constexpr unsigned char byte_at(const char* at) {
    return static_cast<unsigned char>(*at);
}

// Single-byte pages: every byte has a unit.
class single_byte_walk {
public:
    static constexpr std::size_t k_units_each = 1;
    bool stopped = false;
    bool used_default = false;

    single_byte_walk(const code_page_tables& tables, bool strict)
        : m_tables(tables),
          m_strict(strict),
          m_run_first(_mm_set1_epi8(static_cast<char>(tables.run_first))),
          m_run_distance(_mm_set1_epi16(static_cast<short>(tables.run_distance))) {}

    const char* operator()(const char* from, const char* soft_end, const char* /*end*/, wchar*& out) {
        wchar* to = out;
        // In steps of four blocks: whether all of a step is ASCII can be foretold by the processor, in
        // running text of any language, and whether all of one block is can't.
        for (; soft_end - from >= k_step && !m_strict; from += k_step, to += k_step) {
            if (!widen_ascii_step(from, to)) {
                step(from, to);
            }
        }
        for (; soft_end - from >= k_ascii_block && !m_strict; from += k_ascii_block, to += k_ascii_block) {
            std::uint64_t others = block(from, to);
            while (others != 0) {
                others = look_up_first(from, to, others);
            }
        }
        for (; from < soft_end; ++from) {
            if (m_strict && m_tables.meaningless[byte_at(from)]) {
                stopped = true;
                break;
            }
            *to++ = m_tables.single[byte_at(from)];
        }
        out = to;
        return from;
    }

private:
    static constexpr std::ptrdiff_t k_step = k_ascii_step;

    // ASCII and the run by calculation, the other bytes from the table.
    void step(const char* from, wchar* to) const {
        std::uint64_t others = 0;
        for (int at = 0; at < k_step; at += k_ascii_block) {
            others |= static_cast<std::uint64_t>(block(from + at, to + at)) << at;
        }
        // Most steps have two of them or fewer. These two are done always, wherever they are: the number of
        // rounds can't be foretold, and a look-up of another byte is right too.
        others = look_up_first(from, to, others);
        others = look_up_first(from, to, others);
        while (others != 0) {
            others = look_up_first(from, to, others);
        }
    }

    // Looks up the first byte of the set, or the last byte of the step when there is none. Returns the
    // others.
    std::uint64_t look_up_first(const char* from, wchar* to, std::uint64_t set) const {
        const int at = __builtin_ctzll(set | std::uint64_t(1) << (k_step - 1));
        to[at] = m_tables.single[byte_at(from + at)];
        return set & (set - 1);
    }

    // Returns which bytes are still to be looked up.
    unsigned block(const char* from, wchar* to) const {
        const __m128i bytes = load_bytes(from);
        // As signed numbers the bytes from 80 on are the lowest ones, in their own order.
        const __m128i before_run = _mm_cmplt_epi8(bytes, m_run_first);
        const auto others = static_cast<unsigned>(_mm_movemask_epi8(before_run));
        if (m_tables.run_distance == 0) {
            store_widened(bytes, to);
            return others;
        }
        const __m128i zero = _mm_setzero_si128();
        const __m128i in_run = _mm_andnot_si128(before_run, _mm_cmplt_epi8(bytes, zero));
        const auto widened = [&](__m128i low_bytes, __m128i run_mask) {
            return _mm_add_epi16(low_bytes, _mm_and_si128(run_mask, m_run_distance));
        };
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                         widened(_mm_unpacklo_epi8(bytes, zero), _mm_unpacklo_epi8(in_run, in_run)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8),
                         widened(_mm_unpackhi_epi8(bytes, zero), _mm_unpackhi_epi8(in_run, in_run)));
        return others;
    }

    const code_page_tables& m_tables;
    bool m_strict;
    __m128i m_run_first;
    __m128i m_run_distance;
};

struct double_byte_walk {
    static constexpr std::size_t k_units_each = 1;
    const code_page_tables& tables;
    bool strict;
    bool stopped = false;
    bool used_default = false;

    const char* operator()(const char* from, const char* soft_end, const char* end, wchar*& out) {
        wchar* to = out;
        while (from < soft_end) {
            const unsigned char first = byte_at(from);
            const std::uint8_t row = tables.lead_row[first];
            if (row == 0) {
                if (strict && tables.meaningless[first]) {
                    stopped = true;
                    break;
                }
                *to++ = tables.single[first];
                ++from;
                // A single ASCII character isn't worth a block.
                if (soft_end - from >= k_ascii_block && (first | byte_at(from)) < 0x80) {
                    const std::ptrdiff_t done = widen_ascii(from, soft_end, to);
                    from += done;
                    to += done;
                }
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

// What both walks towards bytes do with a unit that isn't simply looked up.
class narrowing {
public:
    bool stopped = false;
    bool used_default = false;

    narrowing(const code_page_tables& tables, narrow_options options)
        : m_tables(tables), m_options(options) {}

protected:
    std::uint16_t checked(wchar unit, std::uint16_t bytes) {
        const bool exact = bytes == 0 ? unit == 0 : m_options.best_fit || m_tables.widen(bytes) == unit;
        used_default = used_default || !exact;
        return exact ? bytes : m_options.replacement;
    }

    const code_page_tables& m_tables;
    narrow_options m_options;
};

class single_byte_narrowing : public narrowing {
public:
    using narrowing::narrowing;
    static constexpr std::size_t k_units_each = 1;

    const wchar* operator()(const wchar* from, const wchar* soft_end, const wchar* /*end*/, char*& out) {
        char* to = out;
        while (from < soft_end) {
            if (soft_end - from >= k_block && m_options.best_fit && block(from, to)) {
                from += k_block;
                to += k_block;
                continue;
            }
            const std::ptrdiff_t count = std::min(k_block, soft_end - from);
            for (std::ptrdiff_t i = 0; i < count; ++i, ++from) {
                *to++ = static_cast<char>(checked(*from, m_tables.narrow(*from)));
            }
        }
        out = to;
        return from;
    }

private:
    static constexpr std::ptrdiff_t k_block = k_ascii_block;

    // False when a unit needs a closer look; what has been written doesn't count then.
    bool block(const wchar* from, char* to) const {
        if (narrow_ascii_block(from, to) == k_block) {
            return true;
        }
        const std::uint16_t* const blocks = m_tables.blocks.data();
        std::uint16_t found[k_block];
        for (std::ptrdiff_t i = 0; i < k_block; ++i) {
            found[i] = blocks[m_tables.block_start[from[i] >> 8U] + (from[i] & 0xFFU)];
        }
        return pack_nonzero_block(found, to);
    }
};

// Locals, not members, in the loop: a store of a char may change any member as far as the compiler knows.
class double_byte_narrowing : public narrowing {
public:
    using narrowing::narrowing;
    static constexpr std::size_t k_units_each = 2;

    const wchar* operator()(const wchar* from, const wchar* soft_end, const wchar* /*end*/, char*& out) {
        const std::uint16_t* const blocks = m_tables.blocks.data();
        const std::uint32_t* const block_start = m_tables.block_start;
        const bool best_fit = m_options.best_fit;
        char* to = out;
        while (from < soft_end) {
            const wchar unit = *from;
            std::uint32_t bytes = blocks[block_start[unit >> 8U] + (unit & 0xFFU)];
            if (bytes == 0 || !best_fit) {
                bytes = checked(unit, static_cast<std::uint16_t>(bytes));
            }
            // Both bytes are stored always, only the right number counts.
            const bool two = bytes > 0xFFU;
            to[0] = static_cast<char>(two ? bytes >> 8U : bytes);
            to[1] = static_cast<char>(bytes & 0xFFU);
            to += two ? 2 : 1;
            ++from;
            // A single ASCII character isn't worth a block.
            if (unit < 0x80U && soft_end - from >= k_ascii_block && *from < 0x80U) {
                const std::ptrdiff_t done = narrow_ascii(from, soft_end, to);
                from += done;
                to += done;
            }
        }
        out = to;
        return from;
    }
};

}  // namespace

conversion_result table_to_wide(const code_page_tables& tables, const char* source, std::size_t bytes,
                                bool strict, wchar* out, std::size_t capacity) noexcept {
    if (tables.double_byte) {
        double_byte_walk walk{tables, strict};
        return convert_bounded(walk, source, bytes, out, capacity);
    }
    single_byte_walk walk(tables, strict);
    return convert_bounded(walk, source, bytes, out, capacity);
}

conversion_result wide_to_table(const code_page_tables& tables, const wchar* source, std::size_t units,
                                narrow_options options, char* out, std::size_t capacity) noexcept {
    if (tables.double_byte) {
        double_byte_narrowing walk(tables, options);
        return convert_bounded(walk, source, units, out, capacity);
    }
    single_byte_narrowing walk(tables, options);
    return convert_bounded(walk, source, units, out, capacity);
}

}  // namespace kro::tessel::os
