// What differs between the systems about the certificates that are trusted.
#pragma once

#include <string>

namespace command {

/// From now on the certificates in this PEM file are trusted in place of the system's. Before the first
/// request. Returns an empty text, or why that isn't possible.
std::string trust_certificates_in(const std::string& file);

}  // namespace command
