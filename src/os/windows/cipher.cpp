#include "os/cipher.h"

// bcrypt.h needs the types of the other.
// clang-format off
#include <windows.h>
#include <bcrypt.h>
// clang-format on

#include <algorithm>
#include <cstring>

namespace kro::tessel::os {
namespace {

// The service counts in ULONG; a multiple of the block.
constexpr std::size_t k_most_at_once = std::size_t{1} << 30U;

BCRYPT_ALG_HANDLE open_algorithm() {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_AES_ALGORITHM, nullptr, 0))) {
        return nullptr;
    }
    wchar_t mode[] = BCRYPT_CHAIN_MODE_CBC;
    if (!BCRYPT_SUCCESS(BCryptSetProperty(algorithm, BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode),
                                          sizeof(mode), 0))) {
        BCryptCloseAlgorithmProvider(algorithm, 0);
        return nullptr;
    }
    return algorithm;
}

// Never closed: other threads may encrypt while the process ends.
BCRYPT_ALG_HANDLE algorithm() {
    static const BCRYPT_ALG_HANDLE opened = open_algorithm();
    return opened;
}

// One key a call: the service wipes what it derived when the handle is destroyed.
class key_handle {
public:
    explicit key_handle(const unsigned char* key) {
        if (algorithm() != nullptr &&
            !BCRYPT_SUCCESS(BCryptGenerateSymmetricKey(algorithm(), &m_key, nullptr, 0,
                                                       const_cast<PUCHAR>(key), k_aes256_key, 0))) {
            m_key = nullptr;
        }
    }
    key_handle(const key_handle&) = delete;
    key_handle& operator=(const key_handle&) = delete;
    ~key_handle() {
        if (m_key != nullptr) {
            BCryptDestroyKey(m_key);
        }
    }

    BCRYPT_KEY_HANDLE get() const { return m_key; }

private:
    BCRYPT_KEY_HANDLE m_key = nullptr;
};

}  // namespace

bool aes256_cbc(cipher_direction direction, const unsigned char* key, const unsigned char* vector,
                unsigned char* data, std::size_t bytes) noexcept {
    const key_handle handle(key);
    unsigned char chained[k_aes_block];  // the service moves it on from one piece to the next
    std::memcpy(chained, vector, sizeof(chained));
    const auto run = direction == cipher_direction::encrypt ? &BCryptEncrypt : &BCryptDecrypt;
    while (bytes != 0) {
        const auto count = static_cast<ULONG>(std::min(bytes, k_most_at_once));
        ULONG done = 0;
        if (handle.get() == nullptr ||
            !BCRYPT_SUCCESS(
                run(handle.get(), data, count, nullptr, chained, sizeof(chained), data, count, &done, 0)) ||
            done != count) {
            return false;
        }
        data += count;
        bytes -= count;
    }
    return true;
}

}  // namespace kro::tessel::os
