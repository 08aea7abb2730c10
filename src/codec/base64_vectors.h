// Base64 with vector instructions: the front of a text, as far as whole vectors go.
#pragma once

#include <cstddef>

namespace kro::tessel::codec {

/// Both functions read and write nothing but what belongs to the groups that they handle, each byte of the
/// output at most once, and read each vector before they write its result: decoding in place works.
struct base64_vectors {
    /// Encodes groups of 3 bytes. Returns how many bytes of `from` it took, a multiple of 3.
    std::size_t (*encode)(const unsigned char* from, std::size_t bytes, unsigned char* to);
    /// Decodes groups of 4 characters and stops at the vector that holds one outside the alphabet, padding
    /// included. Returns how many characters it took, a multiple of 4.
    std::size_t (*decode)(const unsigned char* from, std::size_t characters, unsigned char* to);
};

/// The widest that the processor has; its functions take nothing where there are none.
const base64_vectors& best_base64_vectors();

/// For tests: all that the processor has, the widest first, each with its name; ends with a null name.
struct named_base64_vectors {
    const char* name;
    base64_vectors vectors;
};
const named_base64_vectors* all_base64_vectors();

}  // namespace kro::tessel::codec
