// What a server or a proxy sends: whatever it is, every request completes, all of its answer can be asked for
// and read, and closing leaves nothing behind.
//
// The first byte says how the request is made; the rest answers its connections, one after the other, parted
// by k_next_answer. Each connection ends behind its answer.
#include "os/inet.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

using namespace kro::tessel;

namespace {

constexpr char k_next_answer = '\x1E';

// Bits of the first byte.
constexpr unsigned k_secure_by_proxy = 1;
constexpr unsigned k_synchronous = 2;
constexpr unsigned k_head = 4;
constexpr unsigned k_account = 8;
constexpr unsigned k_body = 16;
constexpr unsigned k_reset = 32;
constexpr unsigned k_small_reads = 64;
constexpr unsigned k_plain_by_proxy = 128;

class byte_server {
public:
    byte_server() : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::listen(m_listener, 64) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            std::abort();
        }
        m_port = ntohs(address.sin_port);
        std::thread([this] { run(); }).detach();
    }

    std::uint16_t port() const { return m_port; }

    void answer_with(std::string_view bytes, bool reset) {
        const std::lock_guard lock(m_mutex);
        m_answers.clear();
        m_reset = reset;
        while (!bytes.empty()) {
            const std::string_view one = bytes.substr(0, bytes.find(k_next_answer));
            m_answers.emplace_back(one);
            bytes.remove_prefix(one.size() == bytes.size() ? bytes.size() : one.size() + 1);
        }
    }

private:
    void run() {
        for (;;) {
            const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0) {
                serve(client);
                ::close(client);
            }
        }
    }

    void serve(int client) {
        if (!read_head(client)) {
            return;
        }
        std::string answer;
        bool reset = false;
        {
            const std::lock_guard lock(m_mutex);
            reset = m_reset;
            if (!m_answers.empty()) {
                answer = std::move(m_answers.front());
                m_answers.pop_front();
            }
        }
        ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        if (reset) {
            const linger at_once{1, 0};
            ::setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        }
    }

    static bool read_head(int client) {
        std::string head;
        char bytes[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            const ssize_t count = ::recv(client, bytes, sizeof bytes, 0);
            if (count <= 0) {
                return false;
            }
            head.append(bytes, static_cast<std::size_t>(count));
        }
        return true;
    }

    int m_listener;
    std::uint16_t m_port = 0;
    std::mutex m_mutex;  // guards all below
    std::deque<std::string> m_answers;
    bool m_reset = false;
};

byte_server& server() {
    static auto* const only = new byte_server;
    return *only;
}

}  // namespace

// Redirects lead where the bytes say: nothing leaves this process, all of it comes back to its server.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
    static const auto original = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return name == nullptr ? EAI_NONAME : original("127.0.0.1", service, hints, result);
}

extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
    static const auto original = reinterpret_cast<decltype(&connect)>(::dlsym(RTLD_NEXT, "connect"));
    if (address->sa_family != AF_INET) {
        errno = ENETUNREACH;
        return -1;
    }
    auto own = *reinterpret_cast<const sockaddr_in*>(address);
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    own.sin_port = htons(server().port());
    return original(socket, reinterpret_cast<const sockaddr*>(&own), size);
}

namespace {

/// A request whose completions are waited for.
class request {
public:
    explicit request(unsigned how) : m_how(how) {
        const bool by_proxy = (how & (k_secure_by_proxy | k_plain_by_proxy)) != 0;
        m_session = os::inet().open(by_proxy ? os::k_access_proxy : os::k_access_direct,
                                    by_proxy ? TESSEL_W("proxy.test:1") : TESSEL_W(""), {}, {},
                                    (how & k_synchronous) == 0);
        os::inet().set_callback(m_session, on_notice);
        const auto connection = os::inet().connect(m_session, TESSEL_W("server.test"), 0, {}, {}, 0);
        const wchar* const verb = (how & k_head) != 0   ? TESSEL_W("HEAD")
                                  : (how & k_body) != 0 ? TESSEL_W("POST")
                                                        : TESSEL_W("GET");
        const std::uint32_t secure = (how & k_secure_by_proxy) != 0 ? os::k_request_secure : 0;
        m_request = os::inet().open_request(connection, verb, TESSEL_W("/"),
                                            os::k_request_keep_connection | secure, context());
        if ((how & k_account) != 0) {
            const wide_string word = TESSEL_W("word");
            os::inet().set_credentials(m_request, os::inet_credentials::server, &word, &word);
            os::inet().set_credentials(m_request, os::inet_credentials::proxy, &word, &word);
        }
    }
    ~request() { os::inet().close(m_session); }
    request(const request&) = delete;
    request& operator=(const request&) = delete;

    std::uint32_t send() {
        const std::string_view body = (m_how & k_body) != 0 ? "a=b" : "";
        return outcome(os::inet().send(m_request, {}, body.data(), static_cast<std::uint32_t>(body.size()),
                                       os::inet_send_mode::whole, context()));
    }

    void ask() {
        wide_string text;
        for (const std::uint32_t what : {1U, 5U, 18U, 19U, 20U, 21U, 22U, 29U, 33U, 40U, 41U, 43U}) {
            for (std::uint32_t index = 0, last = 0;
                 index < 3 && os::inet().query_text(m_request, what, index, text).ok() && index > last;) {
                last = index;
            }
            std::uint32_t number = 0;
            os::inet().query_number(m_request, what, number);
        }
        os::inet().dialog(nullptr, m_request, 12014, os::k_dialog_filter_for_errors | os::k_dialog_no_ui);
    }

    // To its end or its failure.
    void read() {
        const std::uint32_t piece = (m_how & k_small_reads) != 0 ? 7 : sizeof m_destination;
        for (;;) {
            const os::inet_read_status got = os::inet().read(m_request, m_destination, piece, context());
            const std::uint32_t error = outcome(got.status);
            const std::uint32_t bytes = got.status.pending() ? m_result.bytes : got.bytes;
            if (bytes > piece) {
                std::abort();
            }
            if (error != 0 || bytes == 0) {
                return;
            }
        }
    }

private:
    std::uintptr_t context() const { return reinterpret_cast<std::uintptr_t>(this); }

    static void on_notice(os::inet_handle /*handle*/, std::uintptr_t context, std::uint32_t code,
                          const void* information, std::uint32_t /*length*/) {
        if (code == os::k_notice_request_complete) {
            auto& self = *reinterpret_cast<request*>(context);  // NOLINT(performance-no-int-to-ptr)
            const std::lock_guard lock(self.m_mutex);
            self.m_result = *static_cast<const os::inet_async_result*>(information);
            self.m_is_complete = true;
            self.m_completed.notify_one();
        }
    }

    std::uint32_t outcome(os::inet_status status) {
        if (!status.pending()) {
            return status.error;
        }
        std::unique_lock lock(m_mutex);
        m_completed.wait(lock, [this] { return m_is_complete; });
        m_is_complete = false;
        return m_result.error;
    }

    const unsigned m_how;
    std::mutex m_mutex;  // guards m_result, m_is_complete
    std::condition_variable m_completed;
    bool m_is_complete = false;
    os::inet_async_result m_result;
    os::inet_handle m_session = nullptr;
    os::inet_handle m_request = nullptr;
    char m_destination[10239];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const unsigned how = data[0];
    server().answer_with({reinterpret_cast<const char*>(data) + 1, size - 1}, (how & k_reset) != 0);
    request one(how);
    if (one.send() == 0) {
        one.ask();
        one.read();
    }
    return 0;
}
