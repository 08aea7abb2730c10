#include <tessel/tessel.h>

#include <cstdio>
#include <string_view>

namespace http = kro::tessel::http;

void on_complete(unsigned long /*user_context*/, http::session_context* context) {
    const auto text = http::buffer_content_to_string(context->content, false);
    const bool arrived = context->state == http::state_done;
    std::printf("%s: status %u, %zu characters\n", arrived ? "arrived" : "failed", context->status_code,
                text.size());
    http::http_session::mgr().remove(context);
    kro::tessel::message_loop::quit();
}

int main(int argc, char** argv) {
    const std::string_view url(argc > 1 ? argv[1] : "http://localhost/");
    const kro::tessel::CTString wide_url(kro::tessel::wide_string(url.begin(), url.end()));
    if (!http::http_init() ||
        !http::invoke2(wide_url, TESSEL_W(""), TESSEL_W(""), 0, on_complete, 0, http_method_get)) {
        return 1;
    }
    kro::tessel::message_loop::run();  // on_complete is called in here, on this thread
}
