#include "tessel/http/method.h"

#include <array>
#include <string_view>

namespace {

constexpr std::array<const wchar*, 25> k_names = {
    TESSEL_W("OPTIONS"),      TESSEL_W("GET"),       TESSEL_W("HEAD"),      TESSEL_W("POST"),
    TESSEL_W("PUT"),          TESSEL_W("DELETE"),    TESSEL_W("TRACE"),     TESSEL_W("BCOPY"),
    TESSEL_W("BDELETE"),      TESSEL_W("BMOVE"),     TESSEL_W("BPROPFIND"), TESSEL_W("BPROPPATCH"),
    TESSEL_W("COPY"),         TESSEL_W("LOCK"),      TESSEL_W("MKCOL"),     TESSEL_W("MOVE"),
    TESSEL_W("NOTIFY"),       TESSEL_W("POLL"),      TESSEL_W("PROPFIND"),  TESSEL_W("PROPPATCH"),
    TESSEL_W("SEARCH"),       TESSEL_W("SUBSCRIBE"), TESSEL_W("UNLOCK"),    TESSEL_W("UNSUBSCRIBE"),
    TESSEL_W("X-MS-ENUMATTS")};

// The names are ASCII: no other letter can match one.
bool equals_without_case(const wchar* text, const wchar* upper_name) {
    for (; *text != 0 && *upper_name != 0; ++text, ++upper_name) {
        const bool lower = *text >= TESSEL_W('a') && *text <= TESSEL_W('z');
        if ((lower ? static_cast<wchar>(*text - 32) : *text) != *upper_name) {
            return false;
        }
    }
    return *text == *upper_name;
}

}  // namespace

const wchar* get_http_method_name(http_method_t method) {
    return k_names[static_cast<std::size_t>(method)];
}

http_method_t get_http_method_by_name(const wchar* name) {
    for (std::size_t row = 0; name != nullptr && row < k_names.size(); ++row) {
        if (equals_without_case(name, k_names[row])) {
            return static_cast<http_method_t>(row);
        }
    }
    return http_method_get;
}
