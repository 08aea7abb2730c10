// Any units as digits or text: the length rule holds, a failure leaves the output, and ASCII text comes back.
#include "tessel/codec/aes_string.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void decrypt(const CTString& digits) {
    CTString out = TESSEL_W("kept");
    const int result = RZV_AES_Encrypt(digits, out, 0);
    require(result == 1 || out == CTString(TESSEL_W("kept")));
    require(out.size() <= std::max<std::size_t>(4, digits.size() * 3 / 2));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    wide_string units(size / sizeof(wchar), 0);
    std::memcpy(units.data(), data, units.size() * sizeof(wchar));
    decrypt(units);

    wide_string text(data, data + size);
    decrypt(text);
    for (wchar& unit : text) {
        unit = static_cast<wchar>(unit % 127 + 1);
    }
    CTString digits;
    CTString back;
    require(SSOInfo_AES_Encrypt(text, digits, 1) == 1 && digits.size() == (size + 15) / 16 * 32);
    require(SSOInfo_AES_Encrypt(digits, back, 0) == 1 && back == text);
    decrypt(digits);
    return 0;
}
