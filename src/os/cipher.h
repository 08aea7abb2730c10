// AES-256 in CBC mode over whole buffers.
#pragma once

#include <cstddef>

namespace kro::tessel::os {

inline constexpr std::size_t k_aes_block = 16;
inline constexpr std::size_t k_aes256_key = 32;

enum class cipher_direction { encrypt, decrypt };

/// Encrypts or decrypts whole blocks in place, as FIPS 197 and NIST SP 800-38A define it: nothing is padded,
/// and nothing carries over from one call to the next.
/// key:     k_aes256_key bytes. What is derived from it may be kept for the calling thread's next call; it is
///          wiped when another key comes or the thread ends.
/// vector:  k_aes_block bytes, the initialisation vector.
/// bytes:   a multiple of k_aes_block; 0 does nothing.
/// Returns: false, with the data undefined, when the system's AES can't be used or memory runs out.
/// Thread:  any.
bool aes256_cbc(cipher_direction direction, const unsigned char* key, const unsigned char* vector,
                unsigned char* data, std::size_t bytes) noexcept;

}  // namespace kro::tessel::os
