#include "reg_value.h"

#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

namespace command {

using kro::tessel::wide_string;

namespace {

constexpr long k_more_data = 234;

struct type_name {
    unsigned long type;
    const char* name;
    const char* option;  // null: can't be written here
};

constexpr type_name k_types[] = {
    {REG_NONE, "REG_NONE", nullptr},
    {REG_SZ, "REG_SZ", "sz"},
    {REG_EXPAND_SZ, "REG_EXPAND_SZ", "expand_sz"},
    {REG_BINARY, "REG_BINARY", "binary"},
    {REG_DWORD, "REG_DWORD", "dword"},
    {REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN", nullptr},
    {REG_LINK, "REG_LINK", nullptr},
    {REG_MULTI_SZ, "REG_MULTI_SZ", nullptr},
    {REG_QWORD, "REG_QWORD", "qword"},
};

wide_string units_of(const std::vector<unsigned char>& data) {
    wide_string units(data.size() / sizeof(wchar), wchar{});
    if (!units.empty()) {
        std::memcpy(units.data(), data.data(), units.size() * sizeof(wchar));
    }
    return units;
}

std::vector<std::string> texts_of(const std::vector<unsigned char>& data) {
    const wide_string units = units_of(data);
    std::vector<std::string> texts;
    for (std::size_t at = 0; at < units.size() && units[at] != 0;) {
        const std::size_t end = std::min(units.find(wchar{}, at), units.size());
        texts.push_back(to_utf8(units.substr(at, end - at)));
        at = end + 1;
    }
    return texts;
}

/// The bytes' number, the lowest byte first.
std::uint64_t number_of(const std::vector<unsigned char>& data) {
    std::uint64_t number = 0;
    for (auto byte = data.rbegin(); byte != data.rend(); ++byte) {
        number = number << 8U | *byte;
    }
    return number;
}

bool is_number(const reg_value& value) {
    return (value.type == REG_DWORD && value.data.size() == sizeof(std::uint32_t)) ||
           (value.type == REG_QWORD && value.data.size() == sizeof(std::uint64_t));
}

std::string hexadecimal(const std::vector<unsigned char>& data) {
    return fmt::format("{:02x}", fmt::join(data, ""));
}

/// Digits in base 10, or 16 behind "0x".
template <class Number>
std::optional<std::vector<unsigned char>> parse_number(const std::string& text) {
    const bool hex = text.rfind("0x", 0) == 0;
    const char* const begin = text.data() + (hex ? 2 : 0);
    const char* const end = text.data() + text.size();
    Number number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    std::vector<unsigned char> data(sizeof(number));
    std::memcpy(data.data(), &number, sizeof(number));
    return data;
}

std::optional<std::vector<unsigned char>> parse_digits(const std::string& text) {
    std::vector<unsigned char> data(text.size() / 2);
    for (std::size_t i = 0; i < data.size(); ++i) {
        const char* const pair = text.data() + i * 2;
        const auto [stop, error] = std::from_chars(pair, pair + 2, data[i], 16);
        if (error != std::errc() || stop != pair + 2) {
            return std::nullopt;
        }
    }
    return text.size() % 2 == 0 ? std::optional(data) : std::nullopt;
}

std::vector<unsigned char> text_data(const std::string& text) {
    const kro::tessel::CTString units = from_utf8(text);
    const auto* const first = reinterpret_cast<const unsigned char*>(units.c_str());
    return {first, first + (units.size() + 1) * sizeof(wchar)};
}

std::optional<std::vector<unsigned char>> parse_data(unsigned long type, const std::string& text) {
    switch (type) {
        case REG_DWORD:
            return parse_number<std::uint32_t>(text);
        case REG_QWORD:
            return parse_number<std::uint64_t>(text);
        case REG_BINARY:
            return parse_digits(text);
        default:
            return text_data(text);
    }
}

}  // namespace

long read_reg_value(const kro::tessel::registry::reg_key& key, const wide_string& name, reg_value& value) {
    unsigned long size = 0;
    long status = key.read_value(name, &value.type, nullptr, &size);
    while (status == 0) {
        value.data.resize(size + 1);  // never null
        status = key.read_value(name, &value.type, value.data.data(), &size);
        if (status == 0) {
            value.data.resize(size);
            return 0;
        }
        status = status == k_more_data ? 0 : status;  // it has grown since
    }
    return status;
}

long registry_status(HKEY root) {
    constexpr long k_not_found = 2;
    const long status = kro::tessel::registry::reg_key(root).read_value({}, nullptr, nullptr, nullptr);
    return status == k_not_found ? 0 : status;
}

std::string reg_type_name(unsigned long type) {
    const auto* const found = std::find_if(std::begin(k_types), std::end(k_types),
                                           [type](const type_name& one) { return one.type == type; });
    return found == std::end(k_types) ? fmt::format("{}", type) : found->name;
}

nlohmann::ordered_json reg_data(const reg_value& value) {
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
        const wide_string units = units_of(value.data);
        return to_utf8(units.substr(0, units.find(wchar{})));
    }
    if (value.type == REG_MULTI_SZ) {
        return texts_of(value.data);
    }
    if (is_number(value)) {
        return number_of(value.data);
    }
    return hexadecimal(value.data);
}

std::string reg_data_text(const reg_value& value) {
    const nlohmann::ordered_json data = reg_data(value);
    if (data.is_array()) {
        return fmt::format("{}", fmt::join(texts_of(value.data), "\n"));
    }
    return data.is_string() ? data.get<std::string>() : data.dump();
}

const std::vector<std::string>& reg_type_options() {
    static const std::vector<std::string> options = [] {
        std::vector<std::string> names;
        for (const type_name& one : k_types) {
            if (one.option != nullptr) {
                names.emplace_back(one.option);
            }
        }
        return names;
    }();
    return options;
}

std::optional<reg_value> parse_reg_value(const std::string& type, const std::string& text) {
    for (const type_name& one : k_types) {
        if (one.option != nullptr && type == one.option) {
            auto data = parse_data(one.type, text);
            return data ? std::optional(reg_value{one.type, std::move(*data)}) : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace command
