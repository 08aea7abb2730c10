#include "os/linux/proxy_helper/script_wrapper.h"

#include "os/linux/proxy_helper/protocol.h"

#include <cstdint>
#include <cstdio>
#include <optional>

namespace kro::tessel::os {
namespace {

using proxy_helper_protocol::k_longest_text;

constexpr std::string_view k_scheme = "http://tessel-";
constexpr std::string_view k_port = ":1";

// The script is a function's body, given as text, so that one that can't even be read only throws, and so
// that its FindProxyForURL isn't ours when it calls itself.
constexpr std::string_view k_before = R"js((function () {
    var everything = this, find = null, problem = "";
    function text(value) {
        try { return String(value); } catch (error) { return "an error without a text"; }
    }
    function outcome(kind, words) {
        var name = "PROXY tessel-" + kind;
        for (var i = 0; i < words.length && i < 2000; ++i) {
            var code = words.charCodeAt(i);
            name += (code > 255 ? "3f" : (code < 16 ? "0" : "") + code.toString(16));
        }
        return name + ":1";
    }
    if (typeof everything.alert === "undefined") { everything.alert = function () {}; }
    try {
        find = new Function(")js";
constexpr std::string_view k_behind =
    R"js(\n;return typeof FindProxyForURL === 'function' ? FindProxyForURL : null")();
        if (find === null) { problem = "it has no FindProxyForURL"; }
    } catch (error) { problem = text(error); }
    everything.FindProxyForURL = function (url, host) {
        if (problem !== "") { return outcome("e", problem); }
        try {
            var result = find(url, host);
            if (result === null) { return outcome("o", "DIRECT"); }
            if (typeof result !== "string") { return outcome("e", "it returned no text: " + typeof result); }
            if (result.length > 2000) { return outcome("e", "it returned " + result.length + " characters"); }
            return outcome("o", result);
        } catch (error) { return outcome("e", text(error)); }
    };
})();
)js";
static_assert(k_longest_text == 2000, "the wrapper cuts there");

// One character of well-formed UTF-8; its bytes are taken off the text.
std::optional<std::uint32_t> take_character(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
    if (size == 0 || size > text.size()) {
        return std::nullopt;
    }
    std::uint32_t character = size == 1 ? lead : lead & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80) {
            return std::nullopt;
        }
        character = (character << 6U) | (next & 0x3FU);
    }
    constexpr std::uint32_t k_least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (character < k_least[size] || character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF)) {
        return std::nullopt;
    }
    text.remove_prefix(size);
    return character;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        if (!take_character(text)) {
            return false;
        }
    }
    return true;
}

void append_unit(std::string& literal, std::uint32_t unit) {
    const bool plain = unit >= ' ' && unit < 0x7F && unit != '"' && unit != '\\';
    if (plain) {
        literal += static_cast<char>(unit);
    } else {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(unit & 0xFFFFU));
        literal += escaped;
    }
}

void append_literal(std::string& literal, std::string_view script) {
    const bool utf8 = is_utf8(script);
    while (!script.empty()) {
        std::uint32_t character = static_cast<unsigned char>(script.front());
        if (utf8) {
            character = take_character(script).value_or('?');
        } else {
            script.remove_prefix(1);
        }
        if (character > 0xFFFF) {
            append_unit(literal, 0xD800 + ((character - 0x10000) >> 10U));
            character = 0xDC00 + (character & 0x3FFU);
        }
        append_unit(literal, character);
    }
}

std::optional<unsigned> digit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned>(c - 'a' + 10);
    }
    return std::nullopt;
}

std::optional<std::string> text_of_digits(std::string_view digits) {
    std::string text;
    text.reserve(digits.size() / 2);
    for (; digits.size() >= 2; digits.remove_prefix(2)) {
        const auto high = digit(digits[0]);
        const auto low = digit(digits[1]);
        if (!high || !low) {
            return std::nullopt;
        }
        text += static_cast<char>(*high * 16 + *low);
    }
    return digits.empty() ? std::optional(text) : std::nullopt;
}

}  // namespace

std::string wrapped_script(std::string_view script) {
    constexpr std::string_view k_mark = "\xEF\xBB\xBF";
    if (proxy_helper_protocol::starts_with(script, k_mark)) {
        script.remove_prefix(k_mark.size());
    }
    std::string whole(k_before);
    whole.reserve(k_before.size() + script.size() + script.size() / 4 + k_behind.size());
    append_literal(whole, script);
    whole += k_behind;
    return whole;
}

script_outcome unwrapped_outcome(std::string_view answer) {
    script_outcome outcome;
    outcome.text = "the script engine failed";
    const std::size_t around = k_scheme.size() + 1 + k_port.size();
    if (answer.size() < around || !proxy_helper_protocol::starts_with(answer, k_scheme) ||
        answer.substr(answer.size() - k_port.size()) != k_port) {
        return outcome;
    }
    if (const auto text = text_of_digits(answer.substr(k_scheme.size() + 1, answer.size() - around))) {
        outcome.text = *text;
        outcome.evaluated = answer[k_scheme.size()] == 'o';
    }
    return outcome;
}

}  // namespace kro::tessel::os
