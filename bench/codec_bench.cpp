// The coders beside the libraries that a program would otherwise use for them.
#include "support/beside.h"
#include "tessel/codec/aes_string.h"
#include "tessel/codec/base64.h"
#include "tessel/codec/html_text.h"
#include "tessel/codec/url_coding.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <gumbo.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;
using tessel_bench::compare;

std::string random_bytes(std::size_t count) {
    std::mt19937 random(1);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
    return bytes;
}

const unsigned char* bytes_of(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes_of(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

// ---- base64 beside OpenSSL's block functions

void base64_encode(benchmark::State& state) {
    std::string bytes = random_bytes(static_cast<std::size_t>(state.range(0)));
    const int count = static_cast<int>(bytes.size());
    std::string text(bytes.size() / 3 * 4 + 8, '\0');
    compare(
        state, bytes.size(), [&] { EVP_EncodeBlock(bytes_of(text), bytes_of(std::as_const(bytes)), count); },
        [&] { xbase64_encode(bytes.data(), count, text.data(), 0); });
}

void base64_decode(benchmark::State& state) {
    xbase64_init_decode_table();
    std::string bytes = random_bytes(static_cast<std::size_t>(state.range(0)) / 4 * 3);
    std::string text(bytes.size() / 3 * 4, '\0');
    const int count = xbase64_encode(bytes.data(), static_cast<int>(bytes.size()), text.data(), 0);
    compare(
        state, text.size(), [&] { EVP_DecodeBlock(bytes_of(bytes), bytes_of(std::as_const(text)), count); },
        [&] { xbase64_decode(text.data(), count, bytes.data(), 0); });
}

BENCHMARK(base64_encode)->Arg(16 << 20)->Arg(100)->UseManualTime();
BENCHMARK(base64_decode)->Arg(16 << 20)->Arg(100)->UseManualTime();

// ---- URL coding beside libcurl's escape functions

// Prose in no pattern that a processor could learn by heart.
std::string form_text(std::size_t bytes) {
    constexpr const char* k_words[] = {"the ",      "of ",    "Newtown, ", "a ",      "it's ",
                                       "street & ", "house ", "answer: ",  "yes ",    "12 ",
                                       "second ",   "in ",    "(left) ",   "name\r\n"};
    std::mt19937 random(5);
    std::string text = "To: Mrs. Smith, 12 High Street & Newtown";
    while (text.size() < bytes) {
        text += k_words[random() % std::size(k_words)];
    }
    text.resize(bytes);
    return text;
}

void escape_with_curl(const std::string& text) {
    curl_free(curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())));
}

void unescape_with_curl(const std::string& text) {
    int size = 0;
    curl_free(curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &size));
}

CTString widened(const std::string& text) {
    return kro::tessel::wide_string(text.begin(), text.end());
}

void url_encode(benchmark::State& state) {
    const std::string text = form_text(static_cast<std::size_t>(state.range(0)));
    const CTString units = widened(text);
    compare(
        state, text.size(), [&] { escape_with_curl(text); },
        [&] { benchmark::DoNotOptimize(URLEncoder::Encode(units)); });
}

void url_encode_narrow(benchmark::State& state) {
    const CTStringA text = form_text(static_cast<std::size_t>(state.range(0)));
    compare(
        state, text.size(), [&] { escape_with_curl(text); },
        [&] { benchmark::DoNotOptimize(URLEncoder::EncodeA(text)); });
}

void url_decode(benchmark::State& state) {
    const CTStringA text = URLEncoder::EncodeA(form_text(static_cast<std::size_t>(state.range(0))));
    const CTString units = widened(text);
    compare(
        state, text.size(), [&] { unescape_with_curl(text); },
        [&] { benchmark::DoNotOptimize(URLDecoder::Decode(units)); });
}

void url_decode_narrow(benchmark::State& state) {
    const CTStringA text = URLEncoder::EncodeA(form_text(static_cast<std::size_t>(state.range(0))));
    compare(
        state, text.size(), [&] { unescape_with_curl(text); },
        [&] { benchmark::DoNotOptimize(URLDecoder::DecodeA(text)); });
}

BENCHMARK(url_encode)->Arg(1 << 20)->Arg(40)->UseManualTime();
BENCHMARK(url_encode_narrow)->Arg(1 << 20)->Arg(40)->UseManualTime();
BENCHMARK(url_decode)->Arg(1 << 20)->Arg(40)->UseManualTime();
BENCHMARK(url_decode_narrow)->Arg(1 << 20)->Arg(40)->UseManualTime();

// ---- AES strings beside the cipher alone on the same bytes, its context and key kept

class evp_alone {
public:
    explicit evp_alone(bool encrypts) {
        constexpr unsigned char k_key[32] = {1};
        EVP_CipherInit_ex2(m_context.get(), EVP_aes_256_cbc(), k_key, m_vector, encrypts ? 1 : 0, nullptr);
        EVP_CIPHER_CTX_set_padding(m_context.get(), 0);
    }

    void run(std::string& bytes) {
        int done = 0;
        EVP_CipherInit_ex2(m_context.get(), nullptr, nullptr, m_vector, -1, nullptr);
        EVP_CipherUpdate(m_context.get(), bytes_of(bytes), &done, bytes_of(bytes),
                         static_cast<int>(bytes.size()));
    }

private:
    struct closer {
        void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
    };
    std::unique_ptr<EVP_CIPHER_CTX, closer> m_context{EVP_CIPHER_CTX_new()};
    unsigned char m_vector[16] = {};
};

void aes_encrypt(benchmark::State& state) {
    std::string bytes = form_text(static_cast<std::size_t>(state.range(0)));
    const CTString text = widened(bytes);
    CTString digits;
    RZV_AES_Encrypt(text, digits, 1);
    bytes.resize(digits.size() / 2);
    evp_alone evp(true);
    compare(
        state, bytes.size(), [&] { evp.run(bytes); }, [&] { RZV_AES_Encrypt(text, digits, 1); });
}

void aes_decrypt(benchmark::State& state) {
    const CTString text = widened(form_text(static_cast<std::size_t>(state.range(0))));
    CTString digits;
    RZV_AES_Encrypt(text, digits, 1);
    std::string bytes(digits.size() / 2, '\0');
    CTString out;
    evp_alone evp(false);
    compare(
        state, bytes.size(), [&] { evp.run(bytes); }, [&] { RZV_AES_Encrypt(digits, out, 0); });
}

BENCHMARK(aes_encrypt)->Arg(40)->Arg(1 << 10)->Arg(1 << 20)->UseManualTime();
BENCHMARK(aes_decrypt)->Arg(40)->Arg(1 << 10)->Arg(1 << 20)->UseManualTime();

// ---- HTML to text beside gumbo's parse alone, its memory kept

class kept_arena {
public:
    void reset() { m_used = 0; }

    static void* take(void* self, std::size_t bytes) {
        auto& arena = *static_cast<kept_arena*>(self);
        void* const taken = arena.m_memory.data() + arena.m_used;
        arena.m_used += (bytes + 15) / 16 * 16;
        if (arena.m_used > arena.m_memory.size()) {
            std::abort();
        }
        return taken;
    }
    static void give_back(void* /*self*/, void* /*memory*/) {}

private:
    std::vector<char> m_memory = std::vector<char>(std::size_t{64} << 20U);
    std::size_t m_used = 0;
};

// A message as a server sends it: headings, paragraphs with inline markup, lists, a table.
std::string html_document(std::size_t bytes) {
    const std::string prose = form_text(bytes);
    std::string html =
        "<!DOCTYPE html><html><head><title>News</title><style>p { margin: 0 }</style></head><body>";
    for (std::size_t at = 0; html.size() < bytes; at = (at + 900) % (prose.size() - 900)) {
        const auto piece = [&](std::size_t from, std::size_t count) {
            std::string text = prose.substr(at + from, count);
            for (std::size_t mark = text.find('&'); mark != std::string::npos;
                 mark = text.find('&', mark + 1)) {
                text.insert(mark + 1, "amp;");
            }
            return text;
        };
        html += "<h2 class=\"title\">" + piece(0, 40) + "</h2>\n<p id=\"p1\" class=\"text wide\">" +
                piece(40, 200) + "<b>" + piece(240, 20) + "</b> " + piece(260, 150) +
                "<a href=\"http://www.example.com/page?id=17\" target=\"_blank\">" + piece(410, 30) + "</a>" +
                piece(440, 100) + "</p>\n<ul>\n  <li>" + piece(540, 60) + "</li>\n  <li><span>" +
                piece(600, 60) + "</span></li>\n</ul>\n<table border=\"0\"><tr><td align=\"left\">" +
                piece(660, 30) + "</td><td>" + piece(690, 30) + "</td></tr></table><br>\n";
    }
    return html + "</body></html>";
}

void html_text(benchmark::State& state) {
    const std::string html = html_document(static_cast<std::size_t>(state.range(0)));
    const CTString units = widened(html);
    kept_arena arena;
    GumboOptions options = kGumboDefaultOptions;
    options.allocator = &kept_arena::take;
    options.deallocator = &kept_arena::give_back;
    options.userdata = &arena;
    compare(
        state, html.size(),
        [&] {
            arena.reset();
            benchmark::DoNotOptimize(gumbo_parse_with_options(&options, html.data(), html.size()));
        },
        [&] { benchmark::DoNotOptimize(kro::tessel::_gethtml_puretext(units)); });
}

BENCHMARK(html_text)->Arg(200 << 10)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
