// The three runs of a session.
#include "http/session_transfer.h"
#include "tessel/base/trace.h"
#include "tessel/http/http_session.h"

namespace kro::tessel::http {

using form = session_transfer::form;
using pace = body_receiver::pace;

std::uint32_t http_session::run() {
    const trace_scope scope(TESSEL_W("http_session::run()"));
    session_transfer transfer(*this);
    return transfer.perform([&transfer] {
        transfer.open_as_set();
        transfer.send_until_settled(form::run);
        transfer.receive(pace::by_chunk);
    });
}

std::uint32_t http_session::runUpload() {
    const trace_scope scope(TESSEL_W("http_session::runUpload()"));
    session_transfer transfer(*this);
    return transfer.perform([&transfer] {
        transfer.open_for_large_body();
        transfer.send_until_settled(form::upload);
        transfer.receive(pace::as_it_comes);
    });
}

std::uint32_t http_session::runDownload() {
    const trace_scope scope(TESSEL_W("http_session::runDownload()"));
    session_transfer transfer(*this);
    return transfer.perform([&transfer] {
        transfer.open_for_large_body();
        transfer.send_regardless(form::bare);
        transfer.receive_regardless(pace::as_it_comes);
    });
}

}  // namespace kro::tessel::http
