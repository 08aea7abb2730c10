// What every implementation of the cipher promises: the published vectors, whole buffers, nothing that
// carries over from one call, key or thread to another.
#pragma once

#include "os/cipher.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace tessel_test {

using kro::tessel::os::aes256_cbc;
using kro::tessel::os::cipher_direction;

inline std::string from_hexadecimal(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

inline std::string run_cipher(cipher_direction direction, const std::string& key, const std::string& vector,
                              std::string data) {
    const auto* const key_bytes = reinterpret_cast<const unsigned char*>(key.data());
    const auto* const vector_bytes = reinterpret_cast<const unsigned char*>(vector.data());
    EXPECT_TRUE(aes256_cbc(direction, key_bytes, vector_bytes, reinterpret_cast<unsigned char*>(data.data()),
                           data.size()));
    return data;
}

// NIST SP 800-38A, F.2.5 and F.2.6.
TEST(CipherContract, KeepsThePublishedVectors) {
    const std::string key =
        from_hexadecimal("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    const std::string vector = from_hexadecimal("000102030405060708090a0b0c0d0e0f");
    const std::string plain = from_hexadecimal(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const std::string cipher = from_hexadecimal(
        "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
        "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(run_cipher(cipher_direction::encrypt, key, vector, plain), cipher);
        EXPECT_EQ(run_cipher(cipher_direction::decrypt, key, vector, cipher), plain);
        EXPECT_EQ(run_cipher(cipher_direction::encrypt, key, vector, ""), "");
    }
}

TEST(CipherContract, KeepsCallsKeysAndThreadsApart) {
    const auto round_trips = [](char first) {
        for (int run = 0; run < 200; ++run) {
            const std::string vector(16, static_cast<char>('v' + run % 2));
            const std::string key(32, static_cast<char>(first + run % 3));
            const std::string plain(static_cast<std::size_t>(run % 5) * 16, static_cast<char>(run));
            const std::string cipher = run_cipher(cipher_direction::encrypt, key, vector, plain);
            EXPECT_TRUE(plain.empty() || cipher != plain);
            EXPECT_EQ(run_cipher(cipher_direction::encrypt, key, vector, plain), cipher);
            EXPECT_EQ(run_cipher(cipher_direction::decrypt, key, vector, cipher), plain);
        }
    };
    std::vector<std::thread> threads;
    for (char first = 'a'; first < 'd'; ++first) {
        threads.emplace_back(round_trips, first);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace tessel_test
