// tessel encode|decode url|base64|aes [TEXT...]: the library's coders on arguments, files and pipes.
#include <tessel/tessel.h>

#include "command.h"
#include "input.h"
#include "text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace command {
namespace {

using kro::tessel::CTString;

using aes_function = int (*)(const CTString&, CTString&, int);

struct code_options {
    std::vector<std::string> texts;
    std::vector<std::string> files;
    bool bytes = false;  // url
    aes_function aes = RZV_AES_Encrypt;
};

using coder = std::string (*)(const std::string& input, const code_options& options);

std::string encode_url(const std::string& input, const code_options& options) {
    return options.bytes ? std::string(URLEncoder::EncodeA(input))
                         : to_utf8(URLEncoder::Encode(from_utf8(input)));
}

std::string decode_url(const std::string& input, const code_options& options) {
    return options.bytes ? std::string(URLDecoder::DecodeA(input))
                         : to_utf8(URLDecoder::Decode(from_utf8(input)));
}

int checked_size(const std::string& bytes) {
    constexpr std::size_t k_largest =
        std::numeric_limits<int>::max() / 4 * 3 - 8;  // its code is still counted
    if (bytes.size() > k_largest) {
        throw std::runtime_error("that is too much for base64");
    }
    return static_cast<int>(bytes.size());
}

std::string encode_base64(const std::string& input, const code_options& /*options*/) {
    std::string bytes = input;
    const int size = checked_size(bytes);
    std::string text(static_cast<std::size_t>(xbase64_calc_encode_buf_size(nullptr, size)), '\0');
    text.resize(static_cast<std::size_t>(xbase64_encode(bytes.data(), size, text.data(), 0)));
    return text;
}

// Line ends, as other programs write them every 76 characters, aren't part of the text.
std::string decode_base64(const std::string& input, const code_options& /*options*/) {
    std::string text;
    std::copy_if(input.begin(), input.end(), std::back_inserter(text),
                 [](char character) { return std::string(" \t\r\n").find(character) == std::string::npos; });
    xbase64_init_decode_table();
    std::string bytes(text.size() / 4 * 3, '\0');
    bytes.resize(static_cast<std::size_t>(xbase64_decode(text.data(), checked_size(text), bytes.data(), 0)));
    return bytes;
}

std::string encode_aes(const std::string& input, const code_options& options) {
    CTString digits;
    if (options.aes(from_utf8(input), digits, 1) != 1) {
        throw std::runtime_error("the text can't be encrypted");
    }
    return to_utf8(digits);
}

std::string decode_aes(const std::string& input, const code_options& options) {
    CTString text;
    if (options.aes(from_utf8(input), text, 0) != 1) {
        throw std::runtime_error("the digits can't be decrypted: their number is no multiple of 16");
    }
    return to_utf8(text);
}

void remove_line_end(std::string& input) {
    for (const char end : {'\n', '\r'}) {
        if (!input.empty() && input.back() == end) {
            input.pop_back();
        }
    }
}

// Arguments give a line each. A file or a pipe is coded as it is, and decoded without its last line end to
// just its bytes, so that what was encoded comes back exactly.
int run_coder(coder code, bool decodes, const code_options& options) {
    for (const std::string& text : options.texts) {
        write_output(code(text, options) + '\n');
    }
    std::vector<std::string> files = options.files;
    if (files.empty() && options.texts.empty()) {
        files.emplace_back("-");
    }
    for (const std::string& file : files) {
        std::string input = read_input(file);
        if (decodes) {
            remove_line_end(input);
        }
        write_output(code(input, options) + (decodes ? "" : "\n"));
    }
    return exit_ok;
}

void add_coder(const cli_verb& verb, const char* name, const char* help, coder code, bool decodes,
               int& exit_code) {
    const auto coding = verb.add_verb(name, help);
    auto options = std::make_shared<code_options>();
    coding.add_option("TEXT", options->texts,
                      "each gives a line; with neither text nor file: standard input");
    coding.add_option("-f,--file", options->files, "a file, - for standard input; may be repeated")
        .one_at_a_time();
    if (name == std::string("url")) {
        coding.add_flag("--bytes", options->bytes, "byte by byte in place of UTF-16 units");
    } else if (name == std::string("aes")) {
        const std::map<std::string, aes_function> keys = {
            {"rzv", RZV_AES_Encrypt}, {"avscan", AVScan_AES_Encrypt}, {"ssoinfo", SSOInfo_AES_Encrypt}};
        coding
            .add_option_function(
                "--key", [options, keys](const std::string& key) { options->aes = keys.at(key); },
                "whose key: rzv (the default), avscan or ssoinfo")
            .one_of({"rzv", "avscan", "ssoinfo"});
    }
    coding.callback([=, &exit_code] { exit_code = run_coder(code, decodes, *options); });
}

}  // namespace

void add_coders(const cli_verb& program, int& exit_code) {
    const auto encode = program.add_verb("encode", "Encode texts, files or standard input");
    encode.require_verb();
    add_coder(encode, "url", "Escape for URLs and forms", encode_url, false, exit_code);
    add_coder(encode, "base64", "Bytes as base64", encode_base64, false, exit_code);
    add_coder(encode, "aes", "Encrypt with a built-in key", encode_aes, false, exit_code);
    const auto decode = program.add_verb("decode", "Decode texts, files or standard input");
    decode.require_verb();
    add_coder(decode, "url", "Unescape", decode_url, true, exit_code);
    add_coder(decode, "base64", "Base64 as bytes", decode_base64, true, exit_code);
    add_coder(decode, "aes", "Decrypt with a built-in key", decode_aes, true, exit_code);
}

}  // namespace command
