#include "os/cipher.h"

#include "os/linux/thread_kept.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace kro::tessel::os {
namespace {

// EVP counts in int; a multiple of the block.
constexpr std::size_t k_most_at_once = std::size_t{1} << 30U;

// Fetching looks through all providers: once. Never freed: other threads may encrypt while the process ends.
const EVP_CIPHER* cipher() {
    static const EVP_CIPHER* const fetched = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    return fetched;
}

using block = std::array<unsigned char, k_aes_block>;

// A thread's context for one direction. The key schedule stays for as long as the key does: making it takes
// as long as some hundred bytes.
//
// The chain stays as well. Setting a vector anew goes through EVP's parameters, which takes longer than a
// short text: instead each text goes on where the one before it ended, as its own vector would have it once
// the first block is combined with the difference of the two.
class keyed_context {
public:
    explicit keyed_context(cipher_direction direction) : m_encrypts(direction == cipher_direction::encrypt) {}
    keyed_context(const keyed_context&) = delete;
    keyed_context& operator=(const keyed_context&) = delete;
    ~keyed_context() {
        EVP_CIPHER_CTX_free(m_context);  // wipes what it holds
        OPENSSL_cleanse(m_key, sizeof(m_key));
    }

    // bytes: at least a block.
    bool run(const unsigned char* key, const unsigned char* vector, unsigned char* data, std::size_t bytes) {
        m_is_keyed = m_is_keyed && std::memcmp(key, m_key, sizeof(m_key)) == 0;
        if (!m_is_keyed && !set_key(key, vector)) {
            return false;
        }
        const block chained = m_chain;
        if (m_encrypts) {
            combine(data, chained, vector);
        } else {
            keep_chain(data, bytes);
        }
        m_is_keyed = update(data, bytes);
        if (m_encrypts) {
            keep_chain(data, bytes);
        } else {
            combine(data, chained, vector);
        }
        return m_is_keyed;
    }

private:
    static void combine(unsigned char* first, const block& chained, const unsigned char* vector) {
        for (std::size_t i = 0; i < k_aes_block; ++i) {
            first[i] = static_cast<unsigned char>(first[i] ^ chained[i] ^ vector[i]);
        }
    }

    // data: encrypted; its last block is what the next one is combined with.
    void keep_chain(const unsigned char* data, std::size_t bytes) {
        std::copy_n(data + bytes - k_aes_block, k_aes_block, m_chain.begin());
    }

    bool update(unsigned char* data, std::size_t bytes) {
        while (bytes != 0) {
            const auto count = static_cast<int>(std::min(bytes, k_most_at_once));
            int done = 0;
            if (EVP_CipherUpdate(m_context, data, &done, data, count) != 1 || done != count) {
                return false;
            }
            data += count;
            bytes -= static_cast<std::size_t>(count);
        }
        return true;
    }

    bool set_key(const unsigned char* key, const unsigned char* vector) {
        if (cipher() == nullptr || (m_context == nullptr && (m_context = EVP_CIPHER_CTX_new()) == nullptr)) {
            return false;
        }
        std::memcpy(m_key, key, sizeof(m_key));
        std::copy_n(vector, k_aes_block, m_chain.begin());
        return EVP_CipherInit_ex2(m_context, cipher(), key, vector, m_encrypts ? 1 : 0, nullptr) == 1 &&
               EVP_CIPHER_CTX_set_padding(m_context, 0) == 1;
    }

    const bool m_encrypts;
    EVP_CIPHER_CTX* m_context = nullptr;
    bool m_is_keyed = false;
    unsigned char m_key[k_aes256_key] = {};
    block m_chain{};  // the last encrypted block
};

struct both_contexts {
    keyed_context encryption{cipher_direction::encrypt};
    keyed_context decryption{cipher_direction::decrypt};
};

}  // namespace

bool aes256_cbc(cipher_direction direction, const unsigned char* key, const unsigned char* vector,
                unsigned char* data, std::size_t bytes) noexcept {
    return bytes == 0 || with_kept<both_contexts>([&](both_contexts& kept) {
               const bool encrypts = direction == cipher_direction::encrypt;
               return (encrypts ? kept.encryption : kept.decryption).run(key, vector, data, bytes);
           });
}

}  // namespace kro::tessel::os
