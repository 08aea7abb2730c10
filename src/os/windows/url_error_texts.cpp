#include "os/url.h"

#include <windows.h>

#include <map>
#include <mutex>
#include <string>

namespace kro::tessel::os {
namespace {

wide_string text_of_module(std::uint32_t error) {
    const HMODULE service = ::GetModuleHandleW(TESSEL_W("wininet.dll"));
    wchar* text = nullptr;
    constexpr DWORD k_from_module =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD units =
        ::FormatMessageW(k_from_module, service, error, 0, reinterpret_cast<wchar*>(&text), 0, nullptr);
    wide_string copy(text == nullptr ? TESSEL_W("") : text, units);
    ::LocalFree(text);
    return copy;
}

}  // namespace

std::basic_string_view<wchar> inet_error_text(std::uint32_t error) {
    // Kept for good, since callers may keep the views; there are some two hundred numbers.
    static auto& mutex = *new std::mutex;
    static auto& texts = *new std::map<std::uint32_t, wide_string>;
    const std::lock_guard lock(mutex);
    const auto known = texts.find(error);
    if (known != texts.end()) {
        return known->second;
    }
    wide_string text = text_of_module(error);
    return text.empty() ? std::basic_string_view<wchar>()
                        : texts.emplace(error, std::move(text)).first->second;
}

}  // namespace kro::tessel::os
