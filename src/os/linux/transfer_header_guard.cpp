#include "os/linux/transfer_header_guard.h"

namespace kro::tessel::os {
namespace {

bool library_remembers_headers() noexcept {
    static const bool does = curl_version_info(CURLVERSION_NOW)->version_num < 0x080101;
    return does;
}

}  // namespace

void header_guard::attach(CURL* easy) noexcept {
    m_easy = easy;
    curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, on_debug);
    curl_easy_setopt(easy, CURLOPT_DEBUGDATA, this);
}

void header_guard::begin() noexcept {
    listen(false);
    m_is_needed = m_has_served && library_remembers_headers();
    m_has_served = true;
    m_lines = 0;
}

void header_guard::follow(std::string_view text) noexcept {
    const bool ends_head = text == "\r\n" || text == "\n";
    m_lines = ends_head ? 0 : m_lines + 1;
    m_is_needed = m_lines < 2;
    listen(m_is_needed);
}

void header_guard::listen(bool on) noexcept {
    if (m_listens != on) {
        m_listens = on;
        curl_easy_setopt(m_easy, CURLOPT_VERBOSE, on ? 1L : 0L);
    }
}

int header_guard::on_debug(CURL* /*easy*/, curl_infotype what, char* data, std::size_t bytes, void* self) {
    const bool is_needed = static_cast<header_guard*>(self)->m_is_needed;
    const bool is_header = is_needed && what == CURLINFO_HEADER_IN && bytes != 0;
    if (is_header && (*data == ' ' || *data == '\t')) {
        *data = '\0';  // without its end it is no header
    }
    return 0;
}

}  // namespace kro::tessel::os
