#include "../certificates.h"

#include <unistd.h>

#include <cstdlib>

namespace command {

std::string trust_certificates_in(const std::string& file) {
    if (::access(file.c_str(), R_OK) != 0) {
        return file + " can't be read";
    }
    ::setenv("SSL_CERT_FILE", file.c_str(), 1);  // what the library asks, as other programs do
    return {};
}

}  // namespace command
