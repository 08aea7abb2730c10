#include "base/text_conversion.h"

#include "os/code_page.h"
#include "os/thread.h"

#include "base/uncleared.h"

#include <limits>
#include <new>
#include <stdexcept>

namespace kro::tessel {
namespace {

// Texts of up to this many units are converted in one pass, by way of the stack.
constexpr std::size_t k_short_units = 512;
constexpr std::size_t k_longest = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t k_error_not_enough_memory = 8;
constexpr std::uint32_t k_error_insufficient_buffer = 122;
constexpr std::uint32_t k_error_arithmetic_overflow = 534;

[[noreturn]] void refuse_length() {
    throw std::length_error("text too long to convert");
}

std::int32_t checked_length(std::size_t length) {
    if (length > k_longest) {
        refuse_length();
    }
    return static_cast<std::int32_t>(length);
}

void throw_last_error() {
    switch (os::last_error()) {
        case k_error_not_enough_memory:
            throw std::bad_alloc();
        case k_error_arithmetic_overflow:
            refuse_length();
        default:  // an unknown page: the caller learns it from the empty result
            break;
    }
}

// Most texts need no more room than they have units or bytes; whoever needs more is measured first.
template <class String, class Convert>
String converted_long(std::int32_t length, Convert convert) {
    String text;
    const std::uint32_t error_before = os::last_error();
    std::int32_t units = 0;
    append_uncleared(text, static_cast<std::size_t>(length), [&](auto* out) {
        units = convert(out, length);
        return static_cast<std::size_t>(units);
    });
    if (units == 0 && os::last_error() == k_error_insufficient_buffer) {
        os::set_last_error(error_before);
        units = convert(nullptr, 0);
        text.resize(static_cast<std::size_t>(units));
        if (units != 0) {
            convert(text.data(), units);
        }
    }
    if (units == 0) {
        throw_last_error();
    }
    return text;
}

// convert(out, capacity): the conversion's result.
template <class String, std::size_t k_units_each, class Convert>
String converted(std::int32_t length, Convert convert) {
    if (length == 0) {
        return {};
    }
    if (static_cast<std::size_t>(length) > k_short_units) {
        return converted_long<String>(length, convert);
    }
    typename String::value_type on_stack[k_short_units * k_units_each];
    const std::int32_t units = convert(on_stack, static_cast<std::int32_t>(std::size(on_stack)));
    if (units == 0) {
        throw_last_error();
    }
    return String(on_stack, static_cast<std::size_t>(units));
}

// Asked for once: two passes over a text must not see different pages.
std::uint32_t resolved(std::uint32_t page) {
    return page == os::k_code_page_ansi ? os::code_pages().ansi_code_page() : page;
}

}  // namespace

wide_string widen(std::uint32_t page, std::string_view bytes) {
    const std::int32_t length = checked_length(bytes.size());
    const std::uint32_t number = resolved(page);
    return converted<wide_string, 1>(length, [&](wchar* out, std::int32_t capacity) {
        return os::code_pages().to_wide(number, 0, bytes.data(), length, out, capacity);
    });
}

std::string narrow(std::uint32_t page, std::basic_string_view<wchar> text) {
    const std::int32_t length = checked_length(text.size());
    const std::uint32_t number = resolved(page);
    return converted<std::string, 3>(length, [&](char* out, std::int32_t capacity) {
        return os::code_pages().to_narrow(number, 0, text.data(), length, out, capacity, nullptr, nullptr);
    });
}

}  // namespace kro::tessel
