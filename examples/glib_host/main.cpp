// A host that already runs a GLib main loop, as every GTK program does: its loop delivers the completion,
// and there is nothing to connect.
#include <tessel/tessel.h>

#include <glib.h>

#include <string_view>

namespace http = kro::tessel::http;

namespace {

GMainLoop* g_loop = nullptr;

gboolean on_tick(void* ticks) {
    ++*static_cast<int*>(ticks);
    return G_SOURCE_CONTINUE;
}

void on_complete(unsigned long /*user_context*/, http::session_context* context) {
    const bool on_loop_thread = g_main_context_is_owner(g_main_context_default()) != FALSE;
    g_print("status %u, %u bytes, %s the loop's thread\n", context->status_code,
            http::get_buffer_content_count(context->content), on_loop_thread ? "on" : "NOT on");
    http::http_session::mgr().remove(context);
    g_main_loop_quit(g_loop);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view url(argc > 1 ? argv[1] : "http://localhost/");
    g_loop = g_main_loop_new(nullptr, FALSE);
    int ticks = 0;
    g_timeout_add(1, on_tick, &ticks);  // the host's own work goes on beside the request

    http::http_init();
    const auto* started = http::invoke2(kro::tessel::wide_string(url.begin(), url.end()), TESSEL_W(""),
                                        TESSEL_W(""), 0, on_complete, 0, http_method_get);
    if (started != nullptr) {
        g_main_loop_run(g_loop);
    }
    g_main_loop_unref(g_loop);
    g_print("%d ticks of the host's own timer meanwhile\n", ticks);
    return started != nullptr ? 0 : 1;
}
