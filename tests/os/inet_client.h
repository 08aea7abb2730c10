// A client of os::inet_service for tests: the notices of one context, and the usual steps of a request.
#pragma once

#include "os/inet.h"

#include "support/test_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tessel_test {

namespace os = kro::tessel::os;

/// One notice, with its information copied.
struct notice {
    os::inet_handle handle = nullptr;
    std::uint32_t code = 0;
    std::uint32_t number = 0;         // of 31 and 41
    os::inet_handle about = nullptr;  // of 60 and 70
    os::inet_async_result result;     // of 100
    kro::tessel::wide_string text;    // of 110
    std::thread::id thread;
};

/// Records the notices of one context: the log's address is the context.
class notice_log {
public:
    std::uintptr_t context() const { return reinterpret_cast<std::uintptr_t>(this); }

    static void callback(os::inet_handle handle, std::uintptr_t context, std::uint32_t code,
                         const void* information, std::uint32_t length) {
        auto* const log = reinterpret_cast<notice_log*>(context);  // NOLINT(performance-no-int-to-ptr)
        log->add(handle, code, information, length);
    }

    /// Waits for the next completion that has not been asked for yet.
    os::inet_async_result wait() {
        std::unique_lock lock(m_mutex);
        const auto come = [this] { return m_completions.size() > m_asked; };
        if (!m_changed.wait_for(lock, std::chrono::seconds(20), come)) {
            ADD_FAILURE() << "no completion came";
            return {0, 0xFFFFFFFFU, 0};
        }
        return m_completions[m_asked++];
    }

    /// Whether a completion that nobody has asked for comes in this time.
    bool completes_within(std::chrono::milliseconds time) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, time, [this] { return m_completions.size() > m_asked; });
    }

    std::vector<notice> all() const {
        const std::lock_guard lock(m_mutex);
        return m_notices;
    }
    std::vector<std::uint32_t> codes() const {
        std::vector<std::uint32_t> result;
        for (const notice& one : all()) {
            result.push_back(one.code);
        }
        return result;
    }
    void clear() {
        const std::lock_guard lock(m_mutex);
        m_notices.clear();
    }

    /// Runs inside the callback, after the notice was recorded.
    std::function<void(const notice&)> on_notice;

private:
    void add(os::inet_handle handle, std::uint32_t code, const void* information, std::uint32_t length) {
        notice one;
        one.handle = handle;
        one.code = code;
        one.thread = std::this_thread::get_id();
        if (code == os::k_notice_request_complete) {
            one.result = *static_cast<const os::inet_async_result*>(information);
        } else if (code == os::k_notice_handle_created || code == os::k_notice_handle_closing) {
            one.about = *static_cast<const os::inet_handle*>(information);
        } else if (code == os::k_notice_request_sent || code == os::k_notice_response_received) {
            one.number = *static_cast<const std::uint32_t*>(information);
        } else if (code == os::k_notice_redirect) {
            one.text = static_cast<const wchar*>(information);
            EXPECT_EQ((one.text.size() + 1) * sizeof(wchar), length);
        }
        {
            const std::lock_guard lock(m_mutex);
            m_notices.push_back(one);
            if (code == os::k_notice_request_complete) {
                m_completions.push_back(one.result);
            }
            m_changed.notify_all();
        }
        if (on_notice) {
            on_notice(one);
        }
    }

    mutable std::mutex m_mutex;  // guards all below
    std::condition_variable m_changed;
    std::vector<notice> m_notices;
    std::vector<os::inet_async_result> m_completions;
    std::size_t m_asked = 0;
};

/// A session and a connection to a test server, closed at the end.
class inet_client {
public:
    inet_client(os::inet_service& service, std::uint16_t port, const wchar* host = TESSEL_W("127.0.0.1"),
                bool async = true)
        : net(service), session(service.open(os::k_access_direct, {}, {}, TESSEL_W("agent/1"), async)) {
        net.set_callback(session, notice_log::callback);
        connection = net.connect(session, host, port, {}, {}, connection_log.context());
        const std::string digits = std::to_string(port);
        m_port_text.assign(digits.begin(), digits.end());
    }
    /// The same by way of a proxy that the test server plays, if `by_proxy`.
    inet_client(os::inet_service& service, std::uint16_t port, bool by_proxy)
        : inet_client(service, port, by_proxy ? TESSEL_W("server.example") : TESSEL_W("127.0.0.1")) {
        if (by_proxy) {
            net.close(session);
            session = net.open(os::k_access_proxy, TESSEL_W("127.0.0.1:") + m_port_text, {},
                               TESSEL_W("agent/1"), true);
            net.set_callback(session, notice_log::callback);
            connection =
                net.connect(session, TESSEL_W("server.example"), 80, {}, {}, connection_log.context());
        }
    }
    ~inet_client() { net.close(session); }
    inet_client(const inet_client&) = delete;
    inet_client& operator=(const inet_client&) = delete;

    os::inet_handle request(const wchar* verb = TESSEL_W("GET"), const wchar* object = TESSEL_W("/"),
                            std::uint32_t flags = os::k_request_keep_connection) {
        return net.open_request(connection, verb, object, flags, log.context());
    }
    /// Sends without headers.
    os::inet_status begin(os::inet_handle handle, std::string_view body = {}) {
        return send(handle, body, os::inet_send_mode::begin);
    }
    os::inet_status whole(os::inet_handle handle, std::string_view body = {}) {
        return send(handle, body, os::inet_send_mode::whole);
    }
    os::inet_handle sent(const wchar* verb = TESSEL_W("GET"), const wchar* object = TESSEL_W("/")) {
        const os::inet_handle handle = request(verb, object);
        EXPECT_TRUE(begin(handle).pending());
        EXPECT_EQ(1U, log.wait().result);
        return handle;
    }
    /// Ends the request; the error of the completion.
    std::uint32_t end(os::inet_handle handle) {
        EXPECT_TRUE(net.end(handle, log.context()).pending());
        return log.wait().error;
    }
    /// Sends on a synchronous handle; the error.
    std::uint32_t exchange(os::inet_handle handle, std::string_view bytes = {}) {
        return whole(handle, bytes).error;
    }
    std::uint32_t status(os::inet_handle handle) {
        std::uint32_t number = 12345;
        EXPECT_TRUE(net.query_number(handle, os::k_query_status_code, number).ok());
        return number;
    }
    /// Reads to the end with reads of `piece` bytes. error: of the failed read, 0 at a regular end.
    std::string body(os::inet_handle handle, std::uint32_t& error, std::uint32_t piece = 4096) {
        std::string text;
        std::vector<char> buffer(piece);
        for (;;) {
            os::inet_read_status got = net.read(handle, buffer.data(), piece, log.context());
            if (got.status.pending()) {
                const os::inet_async_result result = log.wait();
                got = {{result.error}, result.bytes};
            }
            text.append(buffer.data(), got.bytes);
            error = got.status.error;
            if (error != 0 || got.bytes == 0) {
                return text;
            }
        }
    }
    std::string body(os::inet_handle handle) {
        std::uint32_t error = 0;
        std::string text = body(handle, error);
        EXPECT_EQ(0U, error);
        return text;
    }
    kro::tessel::wide_string port_text() const { return m_port_text; }
    kro::tessel::wide_string text(os::inet_handle handle, std::uint32_t what) {
        std::uint32_t index = 0;
        kro::tessel::wide_string value;
        EXPECT_EQ(0U, net.query_text(handle, what, index, value).error);
        return value;
    }

    os::inet_service& net;
    notice_log connection_log;
    notice_log log;
    os::inet_handle session;
    os::inet_handle connection;

private:
    os::inet_status send(os::inet_handle handle, std::string_view body, os::inet_send_mode mode) {
        return net.send(handle, {}, body.data(), static_cast<std::uint32_t>(body.size()), mode,
                        log.context());
    }

    kro::tessel::wide_string m_port_text;
};

/// A client of the system's service and its server.
class inet_test : public testing::Test {
protected:
    test_server m_server;
    inet_client m_client{os::inet(), m_server.port()};
};

}  // namespace tessel_test
