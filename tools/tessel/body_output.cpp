#include "body_output.h"

namespace command {

bool write_chain(const kro::tessel::http::_buffer_content* chain, std::FILE* out) {
    for (; chain != nullptr; chain = chain->next) {
        if (std::fwrite(chain->data, 1, chain->size, out) != chain->size) {
            return false;
        }
    }
    return true;
}

}  // namespace command
