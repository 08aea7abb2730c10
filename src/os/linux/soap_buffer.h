// What the toolkit's streams are here: bytes in memory.
#pragma once

#include "os/soap_toolkit.h"

#include <string>

namespace kro::tessel::os {

struct soap_buffer final : soap_stream {
    std::string bytes;
    std::string charset;  ///< of an answer: what the transport says of it, may be empty
};

inline soap_buffer& buffer_of(soap_stream& stream) {
    return static_cast<soap_buffer&>(stream);
}

}  // namespace kro::tessel::os
