#include "tessel/codec/aes_string.h"

#include "os/cipher.h"

#include "base/text_conversion.h"
#include "base/text_pieces.h"
#include "base/uncleared.h"
#include "codec/hexadecimal.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace {

using kro::tessel::append_uncleared;
using kro::tessel::CTString;
using kro::tessel::wide_string;
using kro::tessel::codec::read_hexadecimal;
using kro::tessel::codec::write_hexadecimal;
using kro::tessel::os::cipher_direction;
using kro::tessel::os::k_aes_block;
using wide_view = std::basic_string_view<wchar>;

constexpr std::uint32_t k_ansi = 0;

// Must be the one that whoever reads or writes these texts elsewhere uses, an older version of the same
// client above all: another one garbles the first 16 bytes of every text.
constexpr unsigned char k_initialisation_vector[k_aes_block] = {};

// The characters themselves are the keys.
constexpr char k_rzv_key[] = "5 e6UBCRD,LSBQGBCN61HCR6B9DHUu90";
constexpr char k_avscan_key[] = "sSmbhbrEJne8#Dsjrv.f DSSUgld8w1s";
constexpr char k_ssoinfo_key[] = "B9Gp8Ny57SOljH2WyH1S4qp5xo4t1D8n";

constexpr int k_decrypt = 0;
constexpr int k_encrypt = 1;

std::size_t whole_blocks(std::size_t bytes) {
    return (bytes + k_aes_block - 1) / k_aes_block * k_aes_block;
}

bool run_cipher(cipher_direction direction, const char* key, std::string& data) {
    return aes256_cbc(direction, reinterpret_cast<const unsigned char*>(key), k_initialisation_vector,
                      reinterpret_cast<unsigned char*>(data.data()), data.size());
}

void cut_at_zero(std::string& bytes) {
    const std::size_t zero = bytes.find('\0');
    if (zero != std::string::npos) {
        bytes.resize(zero);
    }
}

void append_digits(std::string_view bytes, wide_string& digits) {
    append_uncleared(digits, 2 * bytes.size(), [bytes](wchar* to) {
        write_hexadecimal(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), to);
        return 2 * bytes.size();
    });
}

bool encrypt(wide_view text, int flag, const char* key, wide_string& digits) {
    std::string bytes = kro::tessel::narrow(k_ansi, text);
    cut_at_zero(bytes);
    bytes.resize(whole_blocks(bytes.size()));
    if (!run_cipher(flag == k_encrypt ? cipher_direction::encrypt : cipher_direction::decrypt, key, bytes)) {
        return false;
    }
    append_digits(bytes, digits);
    return true;
}

// The bytes that digits stand for, with room for the rest of their last block.
struct cipher_text {
    std::string blocks;
    std::size_t count = 0;
};

// False when a character is no digit, or there are not whole halves of blocks.
bool read_digits(wide_view digits, cipher_text& cipher) {
    bool all_read = false;
    cipher.count = digits.size() / 2;
    cipher.blocks.clear();
    append_uncleared(cipher.blocks, cipher.count, [&](char* to) {
        all_read = read_hexadecimal(digits.data(), cipher.count, reinterpret_cast<unsigned char*>(to));
        return cipher.count;
    });
    cipher.blocks.resize(whole_blocks(cipher.count));
    return digits.size() % k_aes_block == 0 && all_read;
}

// It is the bytes in the ANSI code page that count: other characters may have more than one, or a digit as
// their best fit.
bool read_any(wide_view text, cipher_text& cipher) {
    std::string bytes = kro::tessel::narrow(k_ansi, text);
    cut_at_zero(bytes);
    if (bytes.size() % k_aes_block != 0) {
        return false;
    }
    read_digits(wide_string(bytes.begin(), bytes.end()), cipher);
    return true;
}

bool decrypt(wide_view digits, const char* key, wide_string& text) {
    cipher_text cipher;
    if (!(read_digits(digits, cipher) || read_any(digits, cipher)) ||
        !run_cipher(cipher_direction::decrypt, key, cipher.blocks)) {
        return false;
    }
    cipher.blocks.resize(cipher.count);
    cut_at_zero(cipher.blocks);
    text = kro::tessel::widen_in_pieces(k_ansi, cipher.blocks);
    return true;
}

int aes_string_crypt(const CTString& in, CTString& out, int flag, const char* key) noexcept try {
    wide_string result;
    const bool done = flag == k_decrypt ? decrypt(in, key, result) : encrypt(in, flag, key, result);
    if (done) {
        out = CTString(std::move(result));
    }
    return done ? 1 : 0;
} catch (const std::exception&) {  // no memory, or more than a string can hold
    return 0;
}

}  // namespace

int RZV_AES_Encrypt(const CTString& in, CTString& out, int flag) {
    return aes_string_crypt(in, out, flag, k_rzv_key);
}

int AVScan_AES_Encrypt(const CTString& in, CTString& out, int flag) {
    return aes_string_crypt(in, out, flag, k_avscan_key);
}

int SSOInfo_AES_Encrypt(const CTString& in, CTString& out, int flag) {
    return aes_string_crypt(in, out, flag, k_ssoinfo_key);
}
