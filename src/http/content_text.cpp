#include "os/inet.h"
#include "os/thread.h"

#include "base/text_pieces.h"
#include "http/charset.h"
#include "tessel/http/buffer_content.h"

#include <new>
#include <stdexcept>

namespace kro::tessel::http {

CTString buffer_content_to_string(const _buffer_content* chunk, bool /*raw*/) {
    if (chunk == nullptr || chunk->data == nullptr) {
        return {};
    }
    const std::string_view bytes(static_cast<const char*>(chunk->data), chunk->size);
    try {
        return widen_in_pieces(detect_code_page(bytes), bytes);
    } catch (const std::bad_alloc&) {
        os::set_last_error(os::k_error_not_enough_memory);
    } catch (const std::length_error&) {  // a 32-bit process: more than a string can hold
        os::set_last_error(os::k_error_not_enough_memory);
    }
    return {};
}

}  // namespace kro::tessel::http
