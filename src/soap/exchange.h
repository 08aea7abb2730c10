// What both kinds of exchange share: the toolkit's objects, how failures are told, numbers as text.
#pragma once

#include "os/soap_toolkit.h"

#include "tessel/base/types.h"

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace kro::tessel::soap {

/// The three objects of an exchange, in the order of their making.
struct exchange_objects {
    exchange_objects()
        : connector(os::soap().make_connector()),
          serializer(os::soap().make_serializer()),
          reader(os::soap().make_reader()) {}

    std::unique_ptr<os::soap_connector> connector;
    std::unique_ptr<os::soap_serializer> serializer;
    std::unique_ptr<os::soap_reader> reader;
};

enum class outcome { done, toolkit_error, other_error };

/// Runs an exchange to its end or to its first failure; code: the HRESULT of a toolkit_error.
template <class Exchange>
outcome attempt(Exchange&& exchange, std::uint32_t& code) noexcept {
    try {
        std::forward<Exchange>(exchange)();
        return outcome::done;
    } catch (const os::soap_error& failure) {
        code = failure.code;
    } catch (const std::bad_alloc&) {
        code = os::k_soap_no_memory;
    } catch (...) {
        return outcome::other_error;
    }
    return outcome::toolkit_error;
}

/// Lower-case hexadecimal digits, without a prefix.
inline wide_string hexadecimal(std::uint32_t number) {
    wide_string digits;
    do {
        digits.insert(digits.begin(), TESSEL_W("0123456789abcdef")[number & 0xFU]);
        number >>= 4U;
    } while (number != 0);
    return digits;
}

}  // namespace kro::tessel::soap
