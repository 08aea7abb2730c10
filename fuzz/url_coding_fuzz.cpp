// Any units: what was encoded decodes, in both forms, and decoding grows nothing.
#include "tessel/codec/url_coding.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CTStringA bytes(reinterpret_cast<const char*>(data), size);
    const CTString low_units(kro::tessel::wide_string(data, data + size));
    require(URLDecoder::DecodeA(URLEncoder::EncodeA(bytes)) == bytes);
    require(URLDecoder::Decode(URLEncoder::Encode(low_units)) == low_units);
    const CTStringA decoded_bytes = URLDecoder::DecodeA(bytes);
    require(decoded_bytes.size() <= size);
    require(URLDecoder::Decode(low_units) ==
            kro::tessel::wide_string(
                reinterpret_cast<const unsigned char*>(decoded_bytes.data()),
                reinterpret_cast<const unsigned char*>(decoded_bytes.data()) + decoded_bytes.size()));

    kro::tessel::wide_string units(size / sizeof(wchar), 0);
    std::memcpy(units.data(), data, units.size() * sizeof(wchar));
    require(URLDecoder::Decode(units).size() <= units.size());
    require(URLEncoder::Encode(units).find_first_of(URLEncoder::csUnsafeString.c_str() + 4) ==
            CTString::npos);
    return 0;
}
