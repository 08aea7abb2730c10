// One proxy: where it is and the account for it.
#pragma once

#include <tessel/base/string.h>

#include <cstdint>

namespace kro::tessel::http {

/// What a proxy is for.
enum proxy_type : std::uint32_t {
    proxy_none = 0,   ///< no proxy
    proxy_http = 1,   ///< an HTTP proxy
    proxy_https = 2,  ///< a proxy for HTTPS
};

/// A value record, its fields in the order of the constructor; each has an accessor and a setter. The engine
/// uses the server, port, user and password and never branches on the type;
/// an empty server means "no explicit proxy".
class proxy_info {
public:
    proxy_info() = default;  ///< no proxy
    proxy_info(proxy_type kind, const CTString& name, std::uint16_t number, const CTString& account,
               const CTString& secret)
        : type(kind), server(name), port(number), user(account), password(secret) {}

    const CTString& get_server() const { return server; }
    std::uint16_t get_port() const { return port; }
    const CTString& get_user() const { return user; }
    const CTString& get_password() const { return password; }
    proxy_type get_type() const { return type; }

    void set_server(const CTString& name) { server = name; }
    void set_port(std::uint16_t number) { port = number; }
    void set_user(const CTString& account) { user = account; }
    void set_password(const CTString& secret) { password = secret; }
    void set_type(proxy_type kind) { type = kind; }

    proxy_type type = proxy_none;
    CTString server;  ///< host name or address, without the port
    std::uint16_t port = 0;
    CTString user;      ///< may be empty
    CTString password;  ///< may be empty
};

}  // namespace kro::tessel::http
