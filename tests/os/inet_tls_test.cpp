// Certificates: which are refused with which number, and what the two flags let through, exactly.
#include "os/inet_client.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>

namespace tessel_test {
namespace {

using testing::ElementsAre;

template <class T, void (*Free)(T*)>
struct freeing {
    void operator()(T* what) const { Free(what); }
};
using certificate = std::unique_ptr<X509, freeing<X509, X509_free>>;
using private_key = std::unique_ptr<EVP_PKEY, freeing<EVP_PKEY, EVP_PKEY_free>>;

private_key new_key() {
    return private_key(EVP_EC_gen("P-256"));
}

void add_extension(X509* to, X509* issuer, int id, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, to, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, id, value);
    X509_add_ext(to, extension, -1);
    X509_EXTENSION_free(extension);
}

/// issuer null: signs itself, as an authority of the name `names`.
certificate new_certificate(EVP_PKEY* key, const char* names, long valid_from, long valid_to, X509* issuer,
                            EVP_PKEY* issuer_key) {
    static std::atomic<long> serial{1};
    certificate made(X509_new());
    X509_set_version(made.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), valid_from);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), valid_to);
    X509_set_pubkey(made.get(), key);
    X509_NAME* const subject = X509_get_subject_name(made.get());
    const auto* const name = reinterpret_cast<const unsigned char*>(issuer == nullptr ? names : "leaf");
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, name, -1, -1, 0);
    X509* const signer = issuer == nullptr ? made.get() : issuer;
    X509_set_issuer_name(made.get(), X509_get_subject_name(signer));
    if (issuer == nullptr) {
        add_extension(made.get(), signer, NID_basic_constraints, "critical,CA:TRUE");
    } else {
        add_extension(made.get(), signer, NID_subject_alt_name, names);
    }
    X509_sign(made.get(), issuer_key, EVP_sha256());
    return made;
}

constexpr long k_day = 24L * 60 * 60;

/// An authority that the program trusts: its certificate is in the file that SSL_CERT_FILE names.
struct authority {
    private_key key = new_key();
    certificate own = new_certificate(key.get(), "trusted authority", -k_day, k_day, nullptr, key.get());

    authority() {
        char path[] = "/tmp/tessel-inet-tls-XXXXXX";
        const int descriptor = ::mkstemp(path);
        std::FILE* const file = ::fdopen(descriptor, "w");
        PEM_write_X509(file, own.get());
        std::fclose(file);
        ::setenv("SSL_CERT_FILE", path, 1);
        m_path = path;
    }
    ~authority() { std::remove(m_path.c_str()); }
    authority(const authority&) = delete;
    authority& operator=(const authority&) = delete;

private:
    std::string m_path;
};

authority& trusted() {
    static authority only;
    return only;
}
[[maybe_unused]] const bool k_trusted_before_the_service_asks = (trusted(), true);

const std::string k_good_answer = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nok";

/// Answers every request with 200, or nothing when the handshake fails. With answers of its own it stands
/// behind a proxy, which it plays too, and gives one on each connection.
class tls_server {
public:
    tls_server(certificate shown, private_key key, std::deque<std::string> answers)
        : m_answers(std::move(answers)),
          m_is_behind_proxy(!m_answers.empty()),
          m_context(SSL_CTX_new(TLS_server_method())),
          m_shown(std::move(shown)),
          m_key(std::move(key)) {
        SSL_CTX_use_certificate(m_context.get(), m_shown.get());
        SSL_CTX_use_PrivateKey(m_context.get(), m_key.get());
        m_thread = std::thread([this] { run(); });
    }
    ~tls_server() {
        m_done = true;
        m_thread.join();
    }
    tls_server(const tls_server&) = delete;
    tls_server& operator=(const tls_server&) = delete;

    std::uint16_t port() const { return m_server.port(); }

private:
    void run() {
        sigset_t pipe;  // OpenSSL writes to clients that have hung up
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        while (!m_done) {
            if (m_server.has_client()) {
                serve(m_server.accept());
            }
            std::this_thread::yield();
        }
    }

    std::string next_answer() {
        std::string next = k_good_answer;
        if (!m_answers.empty()) {
            next = m_answers.front();
            m_answers.pop_front();
        }
        return next;
    }

    void serve(server_connection connection) {
        if (m_is_behind_proxy) {
            connection.read_head();
            connection.send("HTTP/1.1 200 Connection established\r\nX-From: proxy\r\n\r\n");
        }
        const std::unique_ptr<SSL, freeing<SSL, SSL_free>> tls(SSL_new(m_context.get()));
        SSL_set_fd(tls.get(), connection.socket());
        char bytes[4096] = "";
        if (SSL_accept(tls.get()) == 1 && SSL_read(tls.get(), bytes, sizeof bytes - 1) > 0) {
            EXPECT_EQ(nullptr, std::strstr(bytes, "Proxy-Auth")) << "nothing for the server";
            const std::string answer = next_answer();
            SSL_write(tls.get(), answer.data(), static_cast<int>(answer.size()));
            SSL_shutdown(tls.get());
        }
    }

    test_server m_server;
    std::deque<std::string> m_answers;
    const bool m_is_behind_proxy;
    std::unique_ptr<SSL_CTX, freeing<SSL_CTX, SSL_CTX_free>> m_context;
    certificate m_shown;
    private_key m_key;
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

enum class validity { now, past, future };

std::unique_ptr<tls_server> serve(const char* names, validity when, bool by_stranger,
                                  std::deque<std::string> answers = {}) {
    private_key key = new_key();
    private_key stranger_key = new_key();
    const certificate stranger =
        new_certificate(stranger_key.get(), "stranger", -k_day, k_day, nullptr, stranger_key.get());
    const long from = when == validity::future ? k_day : -2 * k_day;
    const long to = when == validity::past ? -k_day : 2 * k_day;
    certificate shown =
        by_stranger ? new_certificate(key.get(), names, from, to, stranger.get(), stranger_key.get())
                    : new_certificate(key.get(), names, from, to, trusted().own.get(), trusted().key.get());
    return std::make_unique<tls_server>(std::move(shown), std::move(key), std::move(answers));
}

constexpr std::uint32_t k_dates = os::k_request_ignore_cert_date_invalid;
constexpr std::uint32_t k_name = os::k_request_ignore_cert_cn_invalid;

std::uint32_t send_secure(std::uint32_t flags, inet_client& client) {
    client.whole(client.request(TESSEL_W("GET"), TESSEL_W("/"), flags | os::k_request_secure));
    return client.log.wait().error;
}

TEST(InetTls, RefusesCertificatesExactlyAsTheFlagsSay) {
    const struct {
        const char* what;
        const char* names;
        validity when;
        bool by_stranger;
        std::uint32_t flags;
        std::uint32_t error;
    } rows[] = {
        {"good", "IP:127.0.0.1", validity::now, false, 0, 0},
        {"expired", "IP:127.0.0.1", validity::past, false, 0, 12037},
        {"expired, dates ignored", "IP:127.0.0.1", validity::past, false, k_dates, 0},
        {"not yet valid", "IP:127.0.0.1", validity::future, false, 0, 12037},
        {"another's name", "DNS:other.test", validity::now, false, 0, 12038},
        {"another's name, dates ignored", "DNS:other.test", validity::now, false, k_dates, 12038},
        {"another's name, ignored", "DNS:other.test", validity::now, false, k_name, 0},
        {"expired, another's name, both ignored", "DNS:other.test", validity::past, false, k_dates | k_name,
         0},
        {"a stranger's, both ignored", "IP:127.0.0.1", validity::now, true, k_dates | k_name, 12045},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto server = serve(row.names, row.when, row.by_stranger);
        inet_client client(os::inet(), server->port());
        EXPECT_EQ(row.error, send_secure(row.flags, client));
        if (row.error != 0) {
            EXPECT_THAT(client.log.codes(), ElementsAre(60, 10, 11, 20, 21, 50, 51, 100));
        }
    }
}

// A connection that was let through on lenient terms must not serve a request that is strict, nor may its TLS
// session be resumed by one.
TEST(InetTls, KeepsLenientConnectionsFromStrictRequests) {
    const auto server = serve("DNS:other.test", validity::past, false);
    inet_client client(os::inet(), server->port());
    for (const auto& strict : {std::pair(k_dates, 12038U), std::pair(k_name, 12037U)}) {
        EXPECT_EQ(0U, send_secure(k_dates | k_name, client));
        EXPECT_EQ(strict.second, send_secure(strict.first, client));
    }
    EXPECT_EQ(0U, send_secure(k_dates | k_name, client));
}

// libcurl answers a challenge that closed the connection on a tunnel of its own making.
TEST(InetTls, WhatAProxySaysToASecondTunnelIsNotTheResponse) {
    const auto server = serve("DNS:other.test", validity::now, false,
                              {"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\nConnection: "
                               "close\r\nContent-Length: 0\r\n\r\n",
                               "HTTP/1.1 404 None\r\nConnection: close\r\nContent-Length: 4\r\n\r\nnone"});
    inet_client client(os::inet(), server->port(), true);
    const kro::tessel::wide_string user = TESSEL_W("me");
    client.net.set_credentials(client.connection, os::inet_credentials::server, &user, &user);
    const auto request = client.request(TESSEL_W("GET"), TESSEL_W("/"), k_name | os::k_request_secure);
    client.net.send(request, TESSEL_W("Proxy-Authorization: Own x"), nullptr, 0, os::inet_send_mode::whole,
                    client.log.context());
    EXPECT_EQ(0U, client.log.wait().error);
    EXPECT_EQ(404U, client.status(request));
    EXPECT_EQ("none", client.body(request));
}

}  // namespace
}  // namespace tessel_test
