#include "error_text.h"

#include <tessel/tessel.h>

#include "text.h"

#include <fmt/core.h>

namespace command {
namespace {

/// What the person at the shell can do; null where there is nothing to suggest.
const char* hint(std::uint32_t error) {
    switch (error) {
        case 8:
            return "the body doesn't fit into the memory that is free";
        case 87:
            return "a URL needs a scheme and a host, as in http://localhost:8080/; a key's name ends at 255 "
                   "characters";
        case 1015:
        case 1017:
            return "move it away, or name another one in TESSEL_REGISTRY; docs/registry.md tells more";
        case 1223:
            return "nobody was there to ask for credentials";
        case 12002:
            return "the server took too long; try again, or ask whether it is overloaded";
        case 12005:
            return "a URL looks like http://host/path";
        case 12006:
            return "only http:// and https:// are spoken";
        case 12007:
            return "check the spelling of the host name, and the network";
        case 12029:
            return "check host and port, and that the server is running";
        case 12030:
        case 12031:
            return "the server broke the connection off; try again";
        case 12037:
        case 12038:
        case 12045:
        case 12157:
        case 12169:
        case 12170:
            return "the server's certificate isn't one that this system trusts";
        case 12152:
            return "the server closed the connection, or doesn't speak HTTP at this port";
        case 12156:
            return "the server sends every request on to another URL; try the last one yourself";
        default:
            return nullptr;
    }
}

/// Numbers below those of the HTTP service; null for any other.
const char* registry_text(std::uint32_t error) {
    switch (error) {
        case 2:
            return "no such key or value";
        case 3:
            return "the folder of the registry's file can't be made";
        case 5:
            return "access denied";
        case 87:
            return "an argument that can't be right";
        case 112:
            return "the disk is full";
        case 161:
            return "a path of keys that begins with a backslash";
        case 170:
            return "another program has held the registry's file for five seconds";
        case 1011:
            return "the registry's file can't be opened, or there is no place for it";
        case 1015:
            return "the registry's file is damaged";
        case 1016:
            return "the registry's file can't be read or written";
        case 1017:
            return "the registry's file isn't one";
        case 1018:
            return "the key has been deleted";
        case 1305:
            return "a newer version made the registry's file";
        default:
            return nullptr;
    }
}

std::string service_text(std::uint32_t error) {
    if (const char* const text = registry_text(error); text != nullptr) {
        return text;
    }
    std::string text = to_utf8(kro::tessel::http::FormatInetMessage(error));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string describe_error(std::uint32_t error) {
    std::string text = service_text(error);
    if (text.empty()) {
        text = "an error without a text";
    }
    const char* advice = hint(error);
    return advice == nullptr ? fmt::format("{}: {}", error, text)
                             : fmt::format("{}: {} ({})", error, text, advice);
}

bool is_known_error(std::uint32_t error) {
    return !service_text(error).empty();
}

bool is_bad_status(std::uint32_t status) {
    constexpr std::uint32_t k_first_bad_status = 400;
    return status >= k_first_bad_status;
}

std::string describe_status(std::uint32_t status) {
    const bool wants_login = status == 401 || status == 407;
    return fmt::format("the server answered with HTTP status {}{}", status,
                       wants_login ? " (TESSEL_ASKPASS names a program that asks for the login)" : "");
}

}  // namespace command
