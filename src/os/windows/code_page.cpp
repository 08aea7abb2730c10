#include "os/code_page.h"

#include "os/thread.h"

#include <windows.h>

#include <atomic>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_code_page_utf7 = 65000;
constexpr std::uint32_t k_error_bad_parameter = 87;

class system_code_pages final : public code_page_service {
public:
    std::uint32_t ansi_code_page() override {
        const std::uint32_t page = m_ansi.load(std::memory_order_relaxed);
        return page != 0 ? page : ::GetACP();
    }

    bool set_ansi_code_page(std::uint32_t page) override {
        if (!is_known(page)) {
            return false;
        }
        m_ansi.store(page, std::memory_order_relaxed);
        return true;
    }

    std::int32_t to_wide(std::uint32_t page, std::uint32_t flags, const char* source,
                         std::int32_t source_bytes, wchar* out, std::int32_t capacity) override {
        page = page == k_code_page_ansi ? ansi_code_page() : page;
        if (!is_known(page)) {
            return refused();
        }
        return ::MultiByteToWideChar(page, flags, source, source_bytes < 0 ? -1 : source_bytes, out,
                                     capacity);
    }

    std::int32_t to_narrow(std::uint32_t page, std::uint32_t flags, const wchar* source,
                           std::int32_t source_units, char* out, std::int32_t capacity,
                           const char* default_char, bool* used_default) override {
        page = page == k_code_page_ansi ? ansi_code_page() : page;
        if (!is_known(page)) {
            return refused();
        }
        BOOL used = FALSE;
        // UTF-8 lacks no character: a default for it has no use, and older systems refuse it.
        const bool may_lack = page != k_code_page_utf8;
        const std::int32_t written = ::WideCharToMultiByte(
            page, flags, source, source_units < 0 ? -1 : source_units, out, capacity,
            may_lack ? default_char : nullptr, may_lack && used_default != nullptr ? &used : nullptr);
        if (used_default != nullptr) {
            *used_default = used != FALSE;
        }
        return written;
    }

private:
    // The numbers that stand for another page (1 to 3) aren't valid to the system either. UTF-7 hides markup
    // from whoever checks the bytes, and no text is sent in it.
    static bool is_known(std::uint32_t page) {
        return page != k_code_page_utf7 && ::IsValidCodePage(page) != FALSE;
    }

    static std::int32_t refused() {
        set_last_error(k_error_bad_parameter);
        return 0;
    }

    std::atomic<std::uint32_t> m_ansi{0};  // 0: the user's
};

}  // namespace

code_page_service& code_pages() {
    // Never destroyed: threads that still run while the process ends go on converting.
    static auto& service = *new system_code_pages;
    return service;
}

}  // namespace kro::tessel::os
