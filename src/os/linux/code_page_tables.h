// The tables of one code page, built once from ICU's converter.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>
#include <vector>

namespace kro::tessel::os {

struct code_page_tables {
    // Bytes to text. A byte is a lead byte when lead_row isn't 0; then the trail byte's unit stands in row
    // lead_row - 1 of `pairs`, 0 where the pair has no meaning (no pair means U+0000).
    wchar single[256] = {};
    std::uint8_t lead_row[256] = {};
    bool meaningless[256] = {};  ///< single bytes that strict conversions refuse
    std::vector<wchar> pairs;
    wchar default_unit = '?';  ///< for pairs without a meaning
    bool double_byte = false;  ///< has lead bytes
    // The last bytes of many pages stand in the order of Unicode: those from run_first to FF mean their own
    // value + run_distance.
    std::uint8_t run_first = 0xFF;
    std::uint16_t run_distance = 0;

    // Text to bytes, in blocks of 256 units that share their high byte: one byte (up to FF) or two, 0 where
    // the page has nothing, best fit included (only U+0000 means the byte 0).
    std::uint32_t block_start[256] = {};
    std::vector<std::uint16_t> blocks;

    std::uint16_t narrow(wchar unit) const { return blocks[block_start[unit >> 8U] + (unit & 0xFFU)]; }
    /// What the one or two bytes of `narrow` mean.
    wchar widen(std::uint16_t bytes) const {
        if (bytes <= 0xFFU) {
            return single[bytes];
        }
        const std::uint8_t row = lead_row[bytes >> 8U];
        return row == 0 ? wchar(0) : pairs[(row - 1U) * 256U + (bytes & 0xFFU)];
    }
};

/// The tables of a page, built at its first use; null when the page isn't known or its converter is
/// missing from this ICU. They live for ever. May throw std::bad_alloc.
const code_page_tables* find_code_page_tables(std::uint32_t page);

}  // namespace kro::tessel::os
