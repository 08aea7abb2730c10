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
            return "what answers at this port doesn't speak HTTP";
        case 12156:
            return "the server sends every request on to another URL; try the last one yourself";
        default:
            return nullptr;
    }
}

std::string service_text(std::uint32_t error) {
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
        text = "an error that the HTTP service has no text for";
    }
    const char* advice = hint(error);
    return advice == nullptr ? fmt::format("{}: {}", error, text)
                             : fmt::format("{}: {} ({})", error, text, advice);
}

bool is_known_error(std::uint32_t error) {
    return !service_text(error).empty();
}

}  // namespace command
