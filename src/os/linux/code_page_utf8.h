// UTF-8 <-> UTF-16 with the platform's count of replacements for malformed input.
#pragma once

#include "code_page_walk.h"
#include "tessel/base/types.h"

#include <cstddef>

namespace kro::tessel::os {

/// Each malformed sequence becomes one U+FFFD: a lead byte with the continuation bytes that follow it, up
/// to its length; a second byte that is a continuation but makes the sequence overlong, a surrogate or too
/// large still belongs to it. Every other byte without a meaning stands alone. A byte order mark is kept.
/// strict: stop at the first malformed sequence instead. capacity 0: only count.
conversion_result utf8_to_wide(const char* source, std::size_t bytes, bool strict, wchar* out,
                               std::size_t capacity) noexcept;

/// Unpaired surrogates become EF BF BD each, or stop a strict conversion.
conversion_result wide_to_utf8(const wchar* source, std::size_t units, bool strict, char* out,
                               std::size_t capacity) noexcept;

}  // namespace kro::tessel::os
