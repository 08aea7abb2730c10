#include "os/linux/inet_errors.h"

#include "os/inet.h"

#include <openssl/x509_vfy.h>

#include <cerrno>

namespace kro::tessel::os {
namespace {

std::uint32_t certificate_error(long verify_result) noexcept {
    switch (verify_result) {
        case X509_V_ERR_CERT_NOT_YET_VALID:
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return k_error_inet_cert_date_invalid;
        case X509_V_OK:
        case X509_V_ERR_UNSPECIFIED:  // libcurl's own comparison of the names said no, before any verdict
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return k_error_inet_cert_cn_invalid;
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_INVALID_CA:
            return k_error_inet_invalid_ca;
        case X509_V_ERR_CERT_REVOKED:
            return k_error_inet_cert_revoked;
        case X509_V_ERR_UNABLE_TO_GET_CRL:
        case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
            return k_error_inet_revocation_check_failed;
        default:
            return k_error_inet_invalid_cert;
    }
}

std::uint32_t broken_connection(long system_error) noexcept {
    const bool reset = system_error == ECONNRESET || system_error == EPIPE;
    return reset ? k_error_inet_connection_reset : k_error_inet_connection_aborted;
}

// HTTP failures by library result; each line is a case that has been produced or that the library names.
std::uint32_t protocol_error(CURLcode code, const failure_facts& facts) noexcept {
    switch (code) {
        case CURLE_URL_MALFORMAT:
            return k_error_inet_invalid_url;
        case CURLE_UNSUPPORTED_PROTOCOL:  // a version of HTTP that is none; only two schemes come this far
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_HTTP3:
        case CURLE_QUIC_CONNECT_ERROR:
        case CURLE_GOT_NOTHING:  // closed before the first byte
        case CURLE_BAD_CONTENT_ENCODING:
            return k_error_http_invalid_server_response;
        case CURLE_PARTIAL_FILE:  // closed before the announced length: what came is the body
            return 0;
        case CURLE_OUT_OF_MEMORY:  // also what the library says beyond its limits: a head of ours of 1 MiB, a
            return facts.is_about_head() ? k_error_http_invalid_server_response  // header line of theirs
                                         : k_error_not_enough_memory;
        case CURLE_REMOTE_ACCESS_DENIED:
        case CURLE_LOGIN_DENIED:
        case CURLE_AUTH_ERROR:
            return k_error_inet_login_failure;
        case CURLE_BAD_FUNCTION_ARGUMENT:  // also of a header line that goes on from none
            return facts.is_about_head() ? k_error_http_invalid_server_response : k_error_invalid_parameter;
        case CURLE_UNKNOWN_OPTION:
            return k_error_invalid_parameter;
        case CURLE_TOO_MANY_REDIRECTS:
            return k_error_http_redirect_failed;
        default:
            return k_error_inet_internal;
    }
}

std::uint32_t tls_error(CURLcode code, const failure_facts& facts) noexcept {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
            return k_error_inet_security_channel;
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CLIENTCERT:
            return k_error_inet_client_cert_needed;
        case CURLE_PEER_FAILED_VERIFICATION:
            return certificate_error(facts.verify_result);
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
            return k_error_inet_invalid_ca;
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
            return k_error_inet_invalid_cert;
        case CURLE_SSL_INVALIDCERTSTATUS:
            return k_error_inet_revocation_check_failed;
        default:
            return protocol_error(code, facts);
    }
}

}  // namespace

std::uint32_t inet_error_of(CURLcode code, const failure_facts& facts) noexcept {
    switch (code) {
        case CURLE_OK:
            return 0;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
            return k_error_inet_name_not_resolved;
        case CURLE_COULDNT_CONNECT:
        case CURLE_INTERFACE_FAILED:
        case CURLE_NO_CONNECTION_AVAILABLE:
        case CURLE_PROXY:
            return k_error_inet_cannot_connect;
        case CURLE_OPERATION_TIMEDOUT:
            return k_error_inet_timeout;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return broken_connection(facts.system_error);
        case CURLE_READ_ERROR:  // the body could not be sent again
        case CURLE_SEND_FAIL_REWIND:
            return k_error_inet_connection_aborted;
        default:
            return tls_error(code, facts);
    }
}

}  // namespace kro::tessel::os
