#include "tessel/http/http_client.h"

#include "tessel/http/http_session.h"

#include <new>

namespace kro::tessel::http {

http_session* http_client::open_session() try {
    return new http_session(this);
} catch (const std::bad_alloc&) {
    return nullptr;
}

bool http_client::close_session(http_session* session) {
    delete session;
    return true;
}

}  // namespace kro::tessel::http
