// An HTTP service that does what a test says: each call's answer, each notice, each thread.
#pragma once

#include "os/inet.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tessel_test {

namespace os = kro::tessel::os;

/// "hello" as gzip.
inline const std::string k_packed_hello(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xcb\x48\xcd\xc9\xc9\x07\x00\x86\xa6\x10\x36\x05\x00\x00\x00",
    25);

/// In force while it lives. Without a script every call succeeds as the system's service would: handles are
/// announced inside the call, sends and ends are pending until the test completes them (of a synchronous
/// session: done), reads are met from `body` at once.
class scripted_inet : public os::inet_service {
public:
    using handle = os::inet_handle;
    using status = os::inet_status;
    using read_status = os::inet_read_status;
    using text_view = std::basic_string_view<wchar>;
    using text = kro::tessel::wide_string;
    static constexpr std::uint32_t k_pending = os::k_error_io_pending;

    scripted_inet();
    ~scripted_inet() override;
    scripted_inet(const scripted_inet&) = delete;
    scripted_inet& operator=(const scripted_inet&) = delete;

    // The script: answers of the next calls of that kind (0, 997 or an error), then the default again.
    std::deque<std::uint32_t> opens, connects, open_requests, sends, ends, reads, dialogs, status_queries;
    // The response. Reads without an entry in `reads` take up to `read_limit` bytes of the body.
    std::uint32_t status_code = 200;
    std::optional<std::uint32_t> content_length;
    std::optional<text> content_encoding;
    std::optional<std::uint32_t> receive_timeout;  ///< none: can't be asked for
    std::string body;
    std::size_t read_limit = SIZE_MAX;
    text proxy_user, proxy_password;  ///< what the dialogue left in the options
    bool announces_inside = true;     ///< notice 60 inside connect and open_request, else by `announce`

    /// Delivers notice 100 of the last request's pending operation, on the calling thread. bytes: of a
    /// pending read, taken from the body.
    void complete(bool result = true, std::uint32_t error = 0, std::uint32_t bytes = 0);
    /// The same for a given request, which may be closed by now.
    void complete_on(handle request, bool result, std::uint32_t error);
    /// Delivers notice 60 for the handle that the last pending connect or open_request makes.
    void announce();
    /// Any notice with the last request's context.
    void notice(std::uint32_t number);

    /// What was called, as "connect host:80 user password", "open_request GET /a?b 8040f000", "send ...".
    std::vector<std::string> calls() const;
    std::size_t count(std::string_view beginning) const;
    handle last_request() const;
    std::size_t open_handles() const;  ///< made and not closed

    handle open(std::uint32_t access, text_view proxy, text_view bypass, text_view agent,
                bool async) override;
    os::inet_callback set_callback(handle session, os::inet_callback callback) override;
    handle connect(handle session, text_view host, std::uint16_t port, text_view user, text_view password,
                   std::uintptr_t context) override;
    handle open_request(handle connection, text_view verb, text_view object, std::uint32_t flags,
                        std::uintptr_t context) override;
    status send(handle request, text_view headers, const void* data, std::uint32_t data_bytes,
                os::inet_send_mode mode, std::uintptr_t context) override;
    status end(handle request, std::uintptr_t context) override;
    read_status read(handle request, void* destination, std::uint32_t capacity,
                     std::uintptr_t context) override;
    read_status available(handle request) override;
    status query_text(handle request, std::uint32_t what, std::uint32_t& index, text& value) override;
    status query_number(handle request, std::uint32_t what, std::uint32_t& number) override;
    status set_timeout(handle of, os::inet_timeout kind, std::uint32_t milliseconds) override;
    status get_timeout(handle of, os::inet_timeout kind, std::uint32_t& milliseconds) override;
    status set_credentials(handle of, os::inet_credentials whose, const text* user,
                           const text* password) override;
    status get_credentials(handle of, os::inet_credentials whose, text& user, text& password) override;
    status set_connection_limit(std::uint32_t count) override;
    std::uint32_t dialog(void* parent, handle request, std::uint32_t error, std::uint32_t flags) override;
    status close(handle which) override;

protected:
    void call_back(handle about, std::uintptr_t context, std::uint32_t number, const void* information,
                   std::uint32_t length = 0) const;

private:
    struct pending_read {
        void* destination = nullptr;
        std::uint32_t capacity = 0;
    };
    struct announcement {
        handle parent = nullptr;
        handle created = nullptr;
        std::uintptr_t context = 0;
    };

    void note(const std::string& call);
    handle make_handle();
    /// The scripted answer of a call, which also becomes the last error.
    std::uint32_t answer(std::deque<std::uint32_t>& script, std::uint32_t otherwise);
    handle answer_creation(std::deque<std::uint32_t>& script, handle parent, std::uintptr_t context);
    std::uint32_t take_body(void* destination, std::uint32_t capacity);

    mutable std::mutex m_mutex;  // guards the members below; the script belongs to the test's thread
    std::vector<std::string> m_calls;
    std::set<handle> m_open;
    std::map<handle, std::uintptr_t> m_contexts;
    std::uintptr_t m_next_handle = 0x100;
    bool m_async = true;  // the last session
    handle m_last_request = nullptr;
    pending_read m_read;
    announcement m_announcement;
    os::inet_callback m_callback = nullptr;
};

}  // namespace tessel_test
