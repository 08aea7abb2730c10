// Code pages against ICU's converters. The converter of the reference stays open and keeps its state, which
// is the fastest way to use it.
#include "os/code_page.h"

#include "support/beside.h"

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

using kro::tessel::os::code_pages;
using tessel_bench::compare;

struct closer {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using converter_pointer = std::unique_ptr<UConverter, closer>;

converter_pointer open_converter(const char* name) {
    UErrorCode error = U_ZERO_ERROR;
    converter_pointer converter(ucnv_open(name, &error));
    if (U_FAILURE(error)) {
        std::abort();
    }
    return converter;
}

// Sentences as they are written in the languages of the pages.
constexpr std::u16string_view k_ascii = u"The quick brown fox jumps over the lazy dog, 12 times a day. ";
constexpr std::u16string_view k_german =
    u"Zwölf Boxkämpfer jagen Viktor quer über den großen Sylter Deich – für 5 €, täglich. ";
constexpr std::u16string_view k_russian = u"Съешь же ещё этих мягких французских булок, да выпей чаю. ";
constexpr std::u16string_view k_japanese =
    u"いろはにほへと散りぬるを、我が世たれぞ常ならむ。有為の奥山 No.1 今日越えて。";
constexpr std::u16string_view k_chinese =
    u"天地玄黄，宇宙洪荒。日月盈昃，辰宿列张。寒来暑往，秋收冬藏 (2021)。";

std::u16string repeated(std::u16string_view sentence, std::size_t units) {
    std::u16string text;
    while (text.size() < units) {
        text += sentence;
    }
    text.resize(units);
    return text;
}

std::string to_bytes(std::uint32_t page, const std::u16string& text) {
    std::string bytes(text.size() * 3, '\0');
    const std::int32_t count =
        code_pages().to_narrow(page, 0, text.data(), static_cast<std::int32_t>(text.size()), bytes.data(),
                               static_cast<std::int32_t>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

void to_text(benchmark::State& state, std::uint32_t page, const char* reference,
             std::u16string_view sentence) {
    const std::string bytes = to_bytes(page, repeated(sentence, static_cast<std::size_t>(state.range(0))));
    const auto count = static_cast<std::int32_t>(bytes.size());
    const converter_pointer converter = open_converter(reference);
    std::u16string out(bytes.size() + 16, u'\0');
    compare(
        state, bytes.size(),
        [&] {
            UErrorCode error = U_ZERO_ERROR;
            UChar* target = out.data();
            const char* source = bytes.data();
            ucnv_toUnicode(converter.get(), &target, target + out.size(), &source, source + bytes.size(),
                           nullptr, 1, &error);
            benchmark::DoNotOptimize(target);
        },
        [&] {
            benchmark::DoNotOptimize(code_pages().to_wide(page, 0, bytes.data(), count, out.data(),
                                                          static_cast<std::int32_t>(out.size())));
        });
}

void to_page(benchmark::State& state, std::uint32_t page, const char* reference,
             std::u16string_view sentence) {
    const std::u16string text = repeated(sentence, static_cast<std::size_t>(state.range(0)));
    const auto count = static_cast<std::int32_t>(text.size());
    const converter_pointer converter = open_converter(reference);
    std::string out(text.size() * 3 + 16, '\0');
    compare(
        state, text.size() * 2,
        [&] {
            UErrorCode error = U_ZERO_ERROR;
            char* target = out.data();
            const UChar* source = text.data();
            ucnv_fromUnicode(converter.get(), &target, target + out.size(), &source, source + text.size(),
                             nullptr, 1, &error);
            benchmark::DoNotOptimize(target);
        },
        [&] {
            benchmark::DoNotOptimize(code_pages().to_narrow(page, 0, text.data(), count, out.data(),
                                                            static_cast<std::int32_t>(out.size()), nullptr,
                                                            nullptr));
        });
}

#define TESSEL_PAIR(direction, name, page, reference, sentence) \
    BENCHMARK_CAPTURE(direction, name, page, reference, sentence)->Arg(1 << 16)->Arg(60)->UseManualTime()
#define TESSEL_BOTH_WAYS(name, page, reference, sentence)  \
    TESSEL_PAIR(to_text, name, page, reference, sentence); \
    TESSEL_PAIR(to_page, name, page, reference, sentence)

TESSEL_BOTH_WAYS(ascii_1252, 1252, "ibm-5348_P100-1997", k_ascii);
TESSEL_BOTH_WAYS(ascii_932, 932, "ibm-943_P15A-2003", k_ascii);
TESSEL_BOTH_WAYS(ascii_utf8, 65001, "UTF-8", k_ascii);
TESSEL_BOTH_WAYS(german_1252, 1252, "ibm-5348_P100-1997", k_german);
TESSEL_BOTH_WAYS(russian_1251, 1251, "ibm-5347_P100-1998", k_russian);
TESSEL_BOTH_WAYS(japanese_932, 932, "ibm-943_P15A-2003", k_japanese);
TESSEL_BOTH_WAYS(chinese_936, 936, "windows-936-2000", k_chinese);
TESSEL_BOTH_WAYS(german_utf8, 65001, "UTF-8", k_german);
TESSEL_BOTH_WAYS(russian_utf8, 65001, "UTF-8", k_russian);
TESSEL_BOTH_WAYS(japanese_utf8, 65001, "UTF-8", k_japanese);

}  // namespace

BENCHMARK_MAIN();
