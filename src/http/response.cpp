#include "tessel/http/response.h"

#include "http/buffer_chain.h"

namespace kro::tessel::http {

http_response::~http_response() {
    reset();
}

void http_response::reset() {
    free_chain(buffer_content);
    buffer_content = nullptr;
    status_code = 0;
}

}  // namespace kro::tessel::http
