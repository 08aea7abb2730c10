// Received bodies, written as they are.
#pragma once

#include <tessel/tessel.h>

#include <cstdio>

namespace command {

bool write_chain(const kro::tessel::http::_buffer_content* chain, std::FILE* out);

}  // namespace command
