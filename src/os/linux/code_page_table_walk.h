// Conversions by the tables of a code page.
#pragma once

#include "code_page_tables.h"
#include "code_page_walk.h"
#include "tessel/base/types.h"

#include <cstddef>
#include <cstdint>

namespace kro::tessel::os {

/// A lead byte takes the byte behind it along even when the two mean nothing, except a zero byte, and
/// becomes one default unit. strict: stop there, and at single bytes without a meaning, instead.
conversion_result table_to_wide(const code_page_tables& tables, const char* source, std::size_t bytes,
                                bool strict, wchar* out, std::size_t capacity) noexcept;

struct narrow_options {
    std::uint16_t replacement = '?';  ///< one byte, or two when above FF
    bool best_fit = true;
};

/// Each unit that the page lacks becomes the replacement; so a surrogate pair becomes two.
conversion_result wide_to_table(const code_page_tables& tables, const wchar* source, std::size_t units,
                                narrow_options options, char* out, std::size_t capacity) noexcept;

}  // namespace kro::tessel::os
