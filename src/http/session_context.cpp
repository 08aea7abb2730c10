#include "tessel/http/session_context.h"

#include "os/inet.h"

#include "http/buffer_chain.h"

namespace kro::tessel::http {

session_context::session_context() : buffers() {}

session_context::~session_context() {
    if (request != nullptr) {
        os::inet().close(request);  // from here on nobody writes into the chain or reads the body
    }
    delete[] static_cast<unsigned char*>(data);
    free_chain(content);
}

}  // namespace kro::tessel::http
