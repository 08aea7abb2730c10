// An HTTP service that answers one question: the Content-Encoding of a response. In force while it lives.
#pragma once

#include "os/inet.h"

#include <string>

namespace tessel_test {

class encoding_inet final : public kro::tessel::os::inet_service {
    using handle = kro::tessel::os::inet_handle;
    using status = kro::tessel::os::inet_status;
    using read_status = kro::tessel::os::inet_read_status;
    using text_view = std::basic_string_view<wchar>;
    using text = kro::tessel::wide_string;

    static constexpr status k_refused{kro::tessel::os::k_error_inet_invalid_operation};

public:
    explicit encoding_inet(const wchar* encoding) : m_encoding(encoding) {
        kro::tessel::os::replace_inet_for_test(this);
    }
    ~encoding_inet() override { kro::tessel::os::replace_inet_for_test(nullptr); }
    encoding_inet(const encoding_inet&) = delete;
    encoding_inet& operator=(const encoding_inet&) = delete;

    /// The only request that it knows.
    static handle request() { return reinterpret_cast<handle>(0x1234); }
    /// encoding: null for a response without the header.
    void answer_with(const wchar* encoding) { m_encoding = encoding; }

    status query_text(handle of, std::uint32_t what, std::uint32_t& index, text& value) override {
        if (of != request() || what != kro::tessel::os::k_query_content_encoding || index != 0) {
            return k_refused;
        }
        if (m_encoding == nullptr) {
            return {kro::tessel::os::k_error_http_header_not_found};
        }
        value = m_encoding;
        ++index;
        return {};
    }

    handle open(std::uint32_t, text_view, text_view, text_view, bool) override { return nullptr; }
    kro::tessel::os::inet_callback set_callback(handle, kro::tessel::os::inet_callback) override {
        return nullptr;
    }
    handle connect(handle, text_view, std::uint16_t, text_view, text_view, std::uintptr_t) override {
        return nullptr;
    }
    handle open_request(handle, text_view, text_view, std::uint32_t, std::uintptr_t) override {
        return nullptr;
    }
    status send(handle, text_view, const void*, std::uint32_t, kro::tessel::os::inet_send_mode,
                std::uintptr_t) override {
        return k_refused;
    }
    status end(handle, std::uintptr_t) override { return k_refused; }
    read_status read(handle, void*, std::uint32_t, std::uintptr_t) override { return {k_refused}; }
    read_status available(handle) override { return {k_refused}; }
    status query_number(handle, std::uint32_t, std::uint32_t&) override { return k_refused; }
    status set_timeout(handle, kro::tessel::os::inet_timeout, std::uint32_t) override { return k_refused; }
    status get_timeout(handle, kro::tessel::os::inet_timeout, std::uint32_t&) override { return k_refused; }
    status set_credentials(handle, kro::tessel::os::inet_credentials, const text*, const text*) override {
        return k_refused;
    }
    status get_credentials(handle, kro::tessel::os::inet_credentials, text&, text&) override {
        return k_refused;
    }
    status set_connection_limit(std::uint32_t) override { return k_refused; }
    std::uint32_t dialog(void*, handle, std::uint32_t, std::uint32_t) override { return k_refused.error; }
    status close(handle) override { return k_refused; }

private:
    const wchar* m_encoding;
};

}  // namespace tessel_test
