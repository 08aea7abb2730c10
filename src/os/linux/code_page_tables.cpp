#include "code_page_tables.h"

#include "code_page_best_fit.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>

namespace kro::tessel::os {
namespace {

// How ICU's table of a page is used. Its one-way mappings ("fallbacks") are the platform's best fit for
// some pages and something else for others.
enum class fallbacks : std::uint32_t { used, unused };

struct page_source {
    std::uint32_t page;
    fallbacks towards_bytes;
    const char* converter;
};

// By number. Only pages whose bytes 00 to 7F are ASCII, and whose characters have one or two bytes.
constexpr page_source k_sources[] = {
    {437, fallbacks::unused, "ibm-437_P100-1995"},    {737, fallbacks::unused, "ibm-737_P100-1997"},
    {775, fallbacks::unused, "ibm-775_P100-1996"},    {850, fallbacks::unused, "ibm-850_P100-1995"},
    {852, fallbacks::unused, "ibm-852_P100-1995"},    {855, fallbacks::unused, "ibm-855_P100-1995"},
    {857, fallbacks::unused, "ibm-857_P100-1995"},    {858, fallbacks::unused, "ibm-858_P100-1997"},
    {860, fallbacks::unused, "ibm-860_P100-1995"},    {861, fallbacks::unused, "ibm-861_P100-1995"},
    {862, fallbacks::unused, "ibm-862_P100-1995"},    {863, fallbacks::unused, "ibm-863_P100-1995"},
    {865, fallbacks::unused, "ibm-865_P100-1995"},    {866, fallbacks::unused, "ibm-866_P100-1995"},
    {869, fallbacks::unused, "ibm-869_P100-1995"},    {874, fallbacks::used, "windows-874-2000"},
    {932, fallbacks::unused, "ibm-943_P15A-2003"},    {936, fallbacks::used, "windows-936-2000"},
    {949, fallbacks::used, "windows-949-2000"},       {950, fallbacks::used, "windows-950-2000"},
    {1250, fallbacks::unused, "ibm-5346_P100-1998"},  {1251, fallbacks::unused, "ibm-5347_P100-1998"},
    {1252, fallbacks::unused, "ibm-5348_P100-1997"},  {1253, fallbacks::unused, "ibm-5349_P100-1998"},
    {1254, fallbacks::unused, "ibm-5350_P100-1998"},  {1255, fallbacks::used, "ibm-9447_P100-2002"},
    {1256, fallbacks::used, "ibm-9448_X100-2005"},    {1257, fallbacks::used, "ibm-9449_P100-2002"},
    {1258, fallbacks::used, "ibm-5354_P100-1998"},    {20866, fallbacks::unused, "ibm-878_P100-1996"},
    {21866, fallbacks::unused, "ibm-1168_P100-2002"}, {28591, fallbacks::unused, "ISO-8859-1"},
    {28592, fallbacks::unused, "ibm-912_P100-1995"},  {28593, fallbacks::unused, "ibm-913_P100-2000"},
    {28594, fallbacks::unused, "ibm-914_P100-1995"},  {28595, fallbacks::unused, "ibm-915_P100-1995"},
    {28596, fallbacks::unused, "ibm-1089_P100-1995"}, {28597, fallbacks::unused, "ibm-9005_X110-2007"},
    {28598, fallbacks::unused, "ibm-5012_P100-1999"}, {28599, fallbacks::unused, "ibm-920_P100-1995"},
    {28603, fallbacks::unused, "ibm-921_P100-1995"},  {28605, fallbacks::unused, "ibm-923_P100-1998"},
};
constexpr std::size_t k_page_count = std::size(k_sources);

struct byte_range {
    std::uint32_t page;
    std::uint8_t first, last;
};
constexpr byte_range k_lead_bytes[] = {
    {932, 0x81, 0x9F}, {932, 0xE0, 0xFC}, {936, 0x81, 0xFE}, {949, 0x81, 0xFE}, {950, 0x81, 0xFE},
};

// Single bytes that the platform gives a number of its own in the private use area, in ascending order.
struct private_bytes {
    std::uint32_t page;
    std::uint8_t first, last;
    wchar unit;
};
constexpr private_bytes k_private_bytes[] = {
    {874, 0xDB, 0xDE, 0xF8C1},  {874, 0xFC, 0xFF, 0xF8C5},  {932, 0xA0, 0xA0, 0xF8F0},
    {932, 0xFD, 0xFF, 0xF8F1},  {936, 0xFF, 0xFF, 0xF8F5},  {949, 0xFF, 0xFF, 0xF8F7},
    {950, 0xFF, 0xFF, 0xF8F8},  {1253, 0xAA, 0xAA, 0xF8F9}, {1253, 0xD2, 0xD2, 0xF8FA},
    {1253, 0xFF, 0xFF, 0xF8FB}, {1255, 0xD9, 0xDF, 0xF88D}, {1255, 0xFB, 0xFC, 0xF894},
    {1255, 0xFF, 0xFF, 0xF896}, {1257, 0xA1, 0xA1, 0xF8FC}, {1257, 0xA5, 0xA5, 0xF8FD},
};

// One-way mappings of ICU's that the platform's tables lack.
struct foreign_units {
    std::uint32_t page;
    wchar first, last;
};
constexpr foreign_units k_foreign_units[] = {
    {932, 0xF86F, 0xF86F},  {936, 0xFFE9, 0xFFEE},  {1253, 0x00AA, 0x00AA},
    {1255, 0x203E, 0x203E}, {1256, 0x203E, 0x203E}, {1257, 0x203E, 0x203E},
};

struct converter_closer {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using converter_pointer = std::unique_ptr<UConverter, converter_closer>;

// Null when this ICU has no such converter.
converter_pointer open_converter(const page_source& source) {
    UErrorCode error = U_ZERO_ERROR;
    converter_pointer converter(ucnv_open(source.converter, &error));
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    // Left out: so each unit of the output belongs to a character that the page has.
    ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_SKIP, nullptr, nullptr, nullptr, &error);
    if (U_FAILURE(error)) {
        return nullptr;
    }
    ucnv_setFallback(converter.get(), static_cast<UBool>(source.towards_bytes == fallbacks::used));
    return converter;
}

// The unit that one or two bytes mean to ICU; 0 for none.
wchar icu_unit(UConverter* converter, const char* bytes, std::ptrdiff_t count) {
    UErrorCode error = U_ZERO_ERROR;
    UChar units[4] = {};
    UChar* target = units;
    ucnv_resetToUnicode(converter);
    ucnv_toUnicode(converter, &target, units + std::size(units), &bytes, bytes + count, nullptr, 1, &error);
    return U_SUCCESS(error) && target - units == 1 ? units[0] : wchar(0);
}

class builder {
public:
    builder(const page_source& source, UConverter* converter)
        : m_source(source), m_converter(converter), m_tables(std::make_unique<code_page_tables>()) {}

    std::unique_ptr<code_page_tables> build() {
        find_lead_bytes();
        read_singles();
        read_pairs();
        std::vector<std::uint16_t> narrow(0x10000, 0);
        read_narrow(narrow);
        remove_foreign_units(narrow);
        add_own_bytes(narrow);
        add_best_fit(m_source.page, narrow);
        store_in_blocks(narrow);
        return std::move(m_tables);
    }

private:
    void find_lead_bytes() {
        std::uint8_t rows = 0;
        for (const byte_range& range : k_lead_bytes) {
            for (unsigned byte = range.first; range.page == m_source.page && byte <= range.last; ++byte) {
                m_tables->lead_row[byte] = ++rows;
            }
        }
        m_tables->double_byte = rows != 0;
        m_tables->default_unit = m_source.page == 932 ? wchar(0x30FB) : wchar('?');
        m_tables->pairs.assign(rows * std::size_t(256), 0);
    }

    void read_singles() {
        for (unsigned byte = 0; byte < 256; ++byte) {
            if (m_tables->lead_row[byte] == 0) {
                m_tables->single[byte] = single_unit(byte);
            }
        }
        find_run();
    }

    void find_run() {
        unsigned first = 0xFF;
        m_tables->run_distance = static_cast<std::uint16_t>(m_tables->single[first] - first);
        while (first > 0x80U && m_tables->single[first - 1] + 1 == m_tables->single[first]) {
            --first;
        }
        m_tables->run_first = static_cast<std::uint8_t>(first);
    }

    wchar single_unit(unsigned byte) {
        // ICU's tables of this origin exchange some control characters among each other.
        if (byte < 0x80U) {
            return static_cast<wchar>(byte);
        }
        for (const private_bytes& row : k_private_bytes) {
            if (row.page == m_source.page && byte >= row.first && byte <= row.last) {
                m_tables->meaningless[byte] = true;
                return static_cast<wchar>(row.unit + (byte - row.first));
            }
        }
        if (m_source.page == 1255 && byte == 0xCAU) {
            return 0x05BA;  // newer than ICU's table
        }
        const char text = static_cast<char>(byte);
        const wchar unit = icu_unit(m_converter, &text, 1);
        if (unit != 0) {
            return unit;
        }
        m_tables->meaningless[byte] = byte >= 0xA0U;
        return byte < 0xA0U ? static_cast<wchar>(byte) : wchar('?');
    }

    void read_pairs() {
        for (unsigned lead = 0; lead < 256; ++lead) {
            const std::uint8_t row = m_tables->lead_row[lead];
            for (unsigned trail = 0x40; row != 0 && trail < 256; ++trail) {
                const char pair[] = {static_cast<char>(lead), static_cast<char>(trail)};
                m_tables->pairs[(row - 1U) * 256U + trail] = icu_unit(m_converter, pair, 2);
            }
        }
    }

    // One call for all of them: the offsets say which unit each byte comes from.
    void read_narrow(std::vector<std::uint16_t>& narrow) {
        std::vector<UChar> units;
        for (std::uint32_t unit = 0x80; unit < 0x10000U; ++unit) {
            if (unit < 0xD800U || unit >= 0xE000U) {
                units.push_back(static_cast<UChar>(unit));
            }
        }
        std::vector<char> bytes(units.size() * 2);
        std::vector<std::int32_t> offsets(bytes.size());
        UErrorCode error = U_ZERO_ERROR;
        char* target = bytes.data();
        const UChar* source = units.data();
        ucnv_fromUnicode(m_converter, &target, bytes.data() + bytes.size(), &source, source + units.size(),
                         offsets.data(), 1, &error);
        const auto written = U_SUCCESS(error) ? static_cast<std::size_t>(target - bytes.data()) : 0;
        for (std::size_t i = 0; i < written; ++i) {
            std::uint16_t& entry = narrow[units[static_cast<std::size_t>(offsets[i])]];
            entry = static_cast<std::uint16_t>(entry << 8U | static_cast<unsigned char>(bytes[i]));
        }
    }

    void remove_foreign_units(std::vector<std::uint16_t>& narrow) const {
        for (const foreign_units& row : k_foreign_units) {
            if (row.page == m_source.page) {
                std::fill(narrow.begin() + row.first, narrow.begin() + row.last + 1, std::uint16_t(0));
            }
        }
    }

    // The bytes whose meaning isn't ICU's have it both ways.
    void add_own_bytes(std::vector<std::uint16_t>& narrow) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            const wchar unit = m_tables->single[byte];
            const bool own = byte < 0x80U || (unit != '?' && m_tables->lead_row[byte] == 0);
            if (own && (byte < 0x80U || narrow[unit] == 0)) {
                narrow[unit] = static_cast<std::uint16_t>(byte);
            }
        }
    }

    void store_in_blocks(const std::vector<std::uint16_t>& narrow) {
        std::vector<std::uint16_t>& blocks = m_tables->blocks;
        blocks.assign(256, 0);  // the block of all the parts of Unicode that the page has nothing of
        for (std::size_t high = 0; high < 256; ++high) {
            const auto first = narrow.begin() + static_cast<std::ptrdiff_t>(high * 256);
            if (std::any_of(first, first + 256, [](std::uint16_t bytes) { return bytes != 0; })) {
                m_tables->block_start[high] = static_cast<std::uint32_t>(blocks.size());
                blocks.insert(blocks.end(), first, first + 256);
            }
        }
    }

    const page_source& m_source;
    UConverter* m_converter;
    std::unique_ptr<code_page_tables> m_tables;
};

const page_source* find_source(std::uint32_t page) {
    const auto* const found = std::lower_bound(
        std::begin(k_sources), std::end(k_sources), page,
        [](const page_source& source, std::uint32_t number) { return source.page < number; });
    return found != std::end(k_sources) && found->page == page ? found : nullptr;
}

// Never freed: another thread may convert while the process ends.
std::atomic<const code_page_tables*> g_built[k_page_count];

}  // namespace

const code_page_tables* find_code_page_tables(std::uint32_t page) {
    const page_source* const source = find_source(page);
    if (source == nullptr) {
        return nullptr;
    }
    auto& built = g_built[source - k_sources];
    const code_page_tables* tables = built.load(std::memory_order_acquire);
    if (tables == nullptr) {
        static std::mutex mutex;  // one build at a time
        const std::lock_guard lock(mutex);
        tables = built.load(std::memory_order_relaxed);
        const converter_pointer converter = tables == nullptr ? open_converter(*source) : nullptr;
        if (converter != nullptr) {
            tables = builder(*source, converter.get()).build().release();
            built.store(tables, std::memory_order_release);
        }
    }
    return tables;
}

}  // namespace kro::tessel::os
