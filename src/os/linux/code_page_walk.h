// What all conversions share: the result, and the loop that keeps a conversion inside its output.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace kro::tessel::os {

enum class conversion_end {
    done,
    output_full,  ///< what fitted has been written
    invalid,      ///< strict conversions only: stopped at the first invalid character
};

struct conversion_result {
    std::size_t written = 0;  ///< units, or the units needed when only the length was asked for
    conversion_end end = conversion_end::done;
    bool used_default = false;  ///< a replacement that is no best fit was made
};

/// Runs a walk over a source, writing into `out`, or only counting when `capacity` is 0.
///
/// A walk converts without looking at the room: `walk(from, soft_end, end, out)` converts the characters
/// that begin before `soft_end` (it may look up to `end`), advances `out` and returns where it stopped. For
/// n source units before `soft_end` it writes at most n * Walk::k_units_each + k_slack units. It sets
/// `stopped` and returns early at an invalid character when it is strict.
template <class Walk, class In, class Out>
class bounded_conversion {
public:
    bounded_conversion(Walk& walk, const In* from, const In* end) : m_walk(walk), m_from(from), m_end(end) {}

    conversion_result run(Out* out, std::size_t capacity) {
        conversion_result result;
        result.written = capacity == 0 ? count() : write(out, capacity);
        result.used_default = m_walk.used_default;
        if (m_walk.stopped) {
            result.end = conversion_end::invalid;
        } else if (m_from != m_end) {
            result.end = conversion_end::output_full;
        }
        return result;
    }

private:
    static constexpr std::size_t k_slack = 8;
    static constexpr std::size_t k_scratch_units = 2048;

    std::size_t left() const { return static_cast<std::size_t>(m_end - m_from); }

    // Counting is converting to nowhere: so it can't disagree with the conversion.
    std::size_t count() {
        Out scratch[k_scratch_units];  // NOLINT: only written
        std::size_t written = 0;
        while (m_from != m_end && !m_walk.stopped) {
            const std::size_t step = std::min(left(), (k_scratch_units - k_slack) / Walk::k_units_each);
            Out* out = scratch;
            m_from = m_walk(m_from, m_from + step, m_end, out);
            written += static_cast<std::size_t>(out - scratch);
        }
        return written;
    }

    std::size_t write(Out* const first, std::size_t capacity) {
        Out* out = first;
        Out* const out_end = first + capacity;
        while (m_from != m_end && !m_walk.stopped) {
            const auto room = static_cast<std::size_t>(out_end - out);
            if (room < k_slack + Walk::k_units_each) {
                break;
            }
            const std::size_t step = std::min(left(), (room - k_slack) / Walk::k_units_each);
            m_from = m_walk(m_from, m_from + step, m_end, out);
        }
        return static_cast<std::size_t>(write_last(out, out_end) - first);
    }

    // Near the end of the output: a character at a time, each only if it fits.
    Out* write_last(Out* out, Out* out_end) {
        while (m_from != m_end && !m_walk.stopped) {
            Out character[k_slack];
            Out* character_end = character;
            const bool used_default = m_walk.used_default;
            const In* const next = m_walk(m_from, m_from + 1, m_end, character_end);
            const auto units = character_end - character;
            if (units > out_end - out) {
                m_walk.used_default = used_default;
                break;
            }
            out = std::copy(character, character_end, out);
            m_from = next;
        }
        return out;
    }

    Walk& m_walk;
    const In* m_from;
    const In* m_end;
};

template <class Out, class Walk, class In>
conversion_result convert_bounded(Walk& walk, const In* from, std::size_t count, Out* out,
                                  std::size_t capacity) {
    return bounded_conversion<Walk, In, Out>(walk, from, from + count).run(out, capacity);
}

}  // namespace kro::tessel::os
