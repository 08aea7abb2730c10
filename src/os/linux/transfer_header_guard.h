// What keeps a libcurl before 8.1.1 from writing into freed memory for a server.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string_view>

namespace kro::tessel::os {

/// Such a libcurl keeps each handle's latest header, for a line that begins with a blank goes on from it, but
/// forgets to forget it with the response (its issue 11101): the first header of the handle's next response
/// must not begin with a blank. libcurl shows each header to the handle's debug function just before it keeps
/// it, so that function spoils such a line, which has the exchange end like the first one of a new handle.
/// The function is on from a response's first line to its second only: libcurl has much else to tell of.
class header_guard {
public:
    /// A handle that has served nobody yet.
    void attach(CURL* easy) noexcept;
    /// An exchange begins.
    void begin() noexcept;
    /// libcurl has shown a line of a head, with its end, to the header function.
    void line(std::string_view text) noexcept {
        if (m_is_needed) {
            follow(text);
        }
    }

private:
    static int on_debug(CURL* easy, curl_infotype what, char* data, std::size_t bytes, void* self);

    void follow(std::string_view text) noexcept;
    void listen(bool on) noexcept;

    CURL* m_easy = nullptr;
    bool m_has_served = false;
    bool m_is_needed = false;  // no header has been kept yet in this exchange
    bool m_listens = false;
    int m_lines = 0;  // of the head under way; its first isn't kept
};

}  // namespace kro::tessel::os
