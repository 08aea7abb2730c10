#include "os/code_page.h"

#include "os/thread.h"

#include "code_page_locale.h"
#include "code_page_table_walk.h"
#include "code_page_tables.h"
#include "code_page_utf8.h"

#include <atomic>
#include <limits>
#include <new>
#include <string>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_error_not_enough_memory = 8;
constexpr std::uint32_t k_error_invalid_parameter = 87;
constexpr std::uint32_t k_error_insufficient_buffer = 122;
constexpr std::uint32_t k_error_arithmetic_overflow = 534;
constexpr std::uint32_t k_error_invalid_flags = 1004;
constexpr std::uint32_t k_error_no_translation = 1113;

// Published flags that ask for what happens anyway: precomposed characters; the default character for what
// isn't composed. Composite characters aren't offered.
constexpr std::uint32_t k_wide_precomposed = 0x1;
constexpr std::uint32_t k_narrow_composition_default = 0x40;

std::int32_t fail(std::uint32_t error) {
    set_last_error(error);
    return 0;
}

std::int32_t outcome(const conversion_result& result) {
    switch (result.end) {
        case conversion_end::invalid:
            return fail(k_error_no_translation);
        case conversion_end::output_full:
            return fail(k_error_insufficient_buffer);
        case conversion_end::done:
            break;
    }
    // Only a length query can ask for more than a caller could pass as capacity.
    const bool countable =
        result.written <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
    return countable ? static_cast<std::int32_t>(result.written) : fail(k_error_arithmetic_overflow);
}

template <class In, class Out>
bool is_valid_call(const In* source, std::int32_t length, const Out* out, std::int32_t capacity) {
    return source != nullptr && length != 0 && capacity >= 0 && (out != nullptr || capacity == 0);
}

template <class Unit>
std::size_t source_length(const Unit* source, std::int32_t length) {
    return length < 0 ? std::char_traits<Unit>::length(source) + 1 : static_cast<std::size_t>(length);
}

std::uint16_t replacement_of(const code_page_tables& tables, const char* text) {
    if (text == nullptr) {
        return '?';
    }
    const std::uint32_t first = static_cast<unsigned char>(text[0]);
    const std::uint32_t second = static_cast<unsigned char>(text[0] == 0 ? 0 : text[1]);
    const bool two_bytes = tables.lead_row[first] != 0 && second != 0;
    return static_cast<std::uint16_t>(two_bytes ? first << 8U | second : first);
}

class table_code_pages final : public code_page_service {
public:
    std::uint32_t ansi_code_page() override {
        std::uint32_t page = m_ansi.load(std::memory_order_relaxed);
        if (page != 0) {
            return page;
        }
        std::uint32_t of_environment = code_page_of_environment();
        if (!is_usable(of_environment)) {
            of_environment = k_code_page_utf8;
        }
        // Whoever comes first decides; a page that the host has set meanwhile stays.
        return m_ansi.compare_exchange_strong(page, of_environment) ? of_environment : page;
    }

    bool set_ansi_code_page(std::uint32_t page) override {
        if (!is_usable(page)) {
            return false;
        }
        m_ansi.store(page, std::memory_order_relaxed);
        return true;
    }

    std::int32_t to_wide(std::uint32_t page, std::uint32_t flags, const char* source,
                         std::int32_t source_bytes, wchar* out, std::int32_t capacity) override {
        if (!is_valid_call(source, source_bytes, out, capacity)) {
            return fail(k_error_invalid_parameter);
        }
        const std::uint32_t number = resolved(page);
        const bool utf8 = number == k_code_page_utf8;
        const code_page_tables* const tables = utf8 ? nullptr : tables_of(number);
        if (!utf8 && tables == nullptr) {
            return 0;
        }
        if ((flags & ~(k_wide_error_on_invalid | (utf8 ? 0U : k_wide_precomposed))) != 0) {
            return fail(k_error_invalid_flags);
        }
        const bool strict = (flags & k_wide_error_on_invalid) != 0;
        const std::size_t bytes = source_length(source, source_bytes);
        const auto room = static_cast<std::size_t>(capacity);
        return outcome(utf8 ? utf8_to_wide(source, bytes, strict, out, room)
                            : table_to_wide(*tables, source, bytes, strict, out, room));
    }

    std::int32_t to_narrow(std::uint32_t page, std::uint32_t flags, const wchar* source,
                           std::int32_t source_units, char* out, std::int32_t capacity,
                           const char* default_char, bool* used_default) override {
        if (!is_valid_call(source, source_units, out, capacity)) {
            return fail(k_error_invalid_parameter);
        }
        const std::uint32_t number = resolved(page);
        const bool utf8 = number == k_code_page_utf8;
        const code_page_tables* const tables = utf8 ? nullptr : tables_of(number);
        if (!utf8 && tables == nullptr) {
            return 0;
        }
        // As published: the one flag is for UTF-8 alone, the others for all pages but it.
        const std::uint32_t known =
            utf8 ? k_narrow_error_on_invalid : k_narrow_no_best_fit | k_narrow_composition_default;
        if ((flags & ~known) != 0) {
            return fail(k_error_invalid_flags);
        }
        const std::size_t units = source_length(source, source_units);
        const auto room = static_cast<std::size_t>(capacity);
        const conversion_result result =
            utf8 ? wide_to_utf8(source, units, (flags & k_narrow_error_on_invalid) != 0, out, room)
                 : wide_to_table(*tables, source, units,
                                 {replacement_of(*tables, default_char), (flags & k_narrow_no_best_fit) == 0},
                                 out, room);
        if (used_default != nullptr) {
            *used_default = result.used_default;
        }
        return outcome(result);
    }

private:
    // Builds the tables: whoever sets a page is going to use it, and learns here that it isn't there.
    static bool is_usable(std::uint32_t page) {
        return page == k_code_page_utf8 || tables_of(page) != nullptr;
    }

    std::uint32_t resolved(std::uint32_t page) { return page == k_code_page_ansi ? ansi_code_page() : page; }

    // Null with the last error set.
    static const code_page_tables* tables_of(std::uint32_t page) {
        try {
            const code_page_tables* const tables = find_code_page_tables(page);
            if (tables == nullptr) {
                fail(k_error_invalid_parameter);
            }
            return tables;
        } catch (const std::bad_alloc&) {
            fail(k_error_not_enough_memory);
            return nullptr;
        }
    }

    std::atomic<std::uint32_t> m_ansi{0};  // 0: not asked for yet
};

}  // namespace

code_page_service& code_pages() {
    // Never destroyed: another thread may convert while the process ends.
    static code_page_service& service = *new table_code_pages;
    return service;
}

}  // namespace kro::tessel::os
