#include "os/windows/inet_query.h"

#include "os/thread.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_first_guess = 256;

inet_status status_of(BOOL ok) {
    return {ok != FALSE ? 0 : last_error()};
}

}  // namespace

inet_status query_header_text(HINTERNET request, std::uint32_t what, std::uint32_t& index,
                              wide_string& text) {
    wide_string room(std::max(k_first_guess, text.size() + 1), wchar(0));
    for (;;) {
        std::copy(text.begin(), text.end(), room.begin());  // a custom header's name
        room[text.size()] = 0;
        auto bytes = static_cast<DWORD>(room.size() * sizeof(wchar));
        DWORD next = index;
        const inet_status status = status_of(::HttpQueryInfoW(request, what, room.data(), &bytes, &next));
        if (status.error == k_error_insufficient_buffer && bytes > room.size() * sizeof(wchar)) {
            room.resize(bytes / sizeof(wchar) + 1);
            continue;
        }
        if (status.ok()) {
            text.assign(room, 0, bytes / sizeof(wchar));
            index = next;
        }
        return status;
    }
}

inet_status query_header_number(HINTERNET request, std::uint32_t what, std::uint32_t& number) {
    DWORD value = 0;
    DWORD bytes = sizeof value;
    const inet_status status =
        status_of(::HttpQueryInfoW(request, what | HTTP_QUERY_FLAG_NUMBER, &value, &bytes, nullptr));
    if (status.ok()) {
        number = value;
    }
    return status;
}

inet_status set_option_number(HINTERNET handle, std::uint32_t option, std::uint32_t number) {
    return status_of(::InternetSetOptionW(handle, option, &number, sizeof number));
}

inet_status set_option_text(HINTERNET handle, std::uint32_t option, const wide_string& text) {
    wide_string copy = text;
    return status_of(::InternetSetOptionW(handle, option, copy.data(), static_cast<DWORD>(copy.size() + 1)));
}

inet_status query_option_text(HINTERNET handle, std::uint32_t option, wide_string& text) {
    wide_string room(k_first_guess, wchar(0));
    for (;;) {
        auto length = static_cast<DWORD>(room.size() * sizeof(wchar));
        const inet_status status = status_of(::InternetQueryOptionW(handle, option, room.data(), &length));
        if (status.error == k_error_insufficient_buffer && length > room.size() * sizeof(wchar)) {
            room.resize(length / sizeof(wchar) + 1);
            continue;
        }
        if (status.ok()) {
            text = room.c_str();
        }
        return status;
    }
}

}  // namespace kro::tessel::os
