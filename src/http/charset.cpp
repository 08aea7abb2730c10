#include "http/charset.h"

#include "os/code_page.h"

#include "regex/pattern.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::http {
namespace {

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter | 0x20) : letter;
}

bool equal_without_case(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char one, char other) { return lowered(one) == lowered(other); });
}

const regex::pattern& declaration() {
    // Never destroyed: a response may still be converted while the process ends.
    static const regex::pattern& compiled = *[] {
        regex::compile_error error;
        return new regex::pattern(std::move(*regex::pattern::compile("encoding=\"([\\w\\-]+)\"", error)));
    }();
    return compiled;
}

}  // namespace

const charset_row k_charsets[k_charset_rows] = {
    {0x3801, "", 0, "ar_AE", 1256, "windows-1256"},
    {0x042D, "", 0, "ba_BA", 1252, "windows-1252"},
    {0x0402, "hun", 0, "bg_BG", 1251, "windows-1251"},
    {0x0403, "", 0, "ca_ES", 1252, "windows-1252"},
    {0x0405, "czech", 0, "cz_CZ", 1250, "windows-1250"},
    {0x0406, "danish", 0, "da_DK", 1252, "windows-1252"},
    {0x0407, "german", 0, "de_DE", 1252, "windows-1252"},
    {0x0408, "greek", 0, "el_GR", 1253, "windows-1253"},
    {0x0409, "english", 1, "en_US", 1252, "windows-1252"},
    {0x040A, "spanish", 0, "es_ES_T", 1252, "windows-1252"},
    {0x0901, "spanish", 0, "es_AS", 1252, "windows-1252"},
    {0x0425, "", 0, "et_EE", 1257, "windows-1257"},
    {0x040B, "finnish", 0, "fi_FI", 1252, "windows-1252"},
    {0x040C, "french", 0, "fr_FR", 1252, "windows-1252"},
    {0x0900, "french", 0, "fr_BR", 1252, "windows-1252"},
    {0x0456, "", 0, "gl_ES", 1252, "windows-1252"},
    {0x040D, "", 0, "he_IL", 1255, "windows-1255"},
    {0x040E, "hungarian", 0, "hu_HU", 1250, "windows-1250"},
    {0x0410, "italian", 0, "it_IT", 1252, "windows-1252"},
    {0x0411, "japanese", 0, "jp_JP", 932, "shift_jis"},
    {0x0412, "korean", 0, "ko_KR", 949, "euc-kr"},
    {0x0427, "", 0, "lt_LT", 1257, "windows-1257"},
    {0x0426, "", 0, "lv_LV", 1257, "windows-1257"},
    {0x043A, "mt", 0, "mt_MT", 1254, "windows-1254"},
    {0x0414, "nor", 0, "nb_NO", 1252, "windows-1252"},
    {0x0814, "non", 0, "nn_NO", 1252, "windows-1252"},
    {0x0413, "dutch", 0, "nl_NL", 1252, "windows-1252"},
    {0x0415, "polish", 0, "pl_PL", 1250, "windows-1250"},
    {0x0416, "ptb", 0, "pt_BR", 1252, "windows-1252"},
    {0x0816, "ptg", 0, "pt_PT", 1252, "windows-1252"},
    {0x0418, "", 0, "ro_RO", 1250, "windows-1250"},
    {0x0419, "russian", 0, "ru_RU", 1251, "windows-1251"},
    {0x0424, "slovak", 0, "sl_SI", 1250, "windows-1250"},
    {0x041C, "", 0, "sq_AL", 1252, "windows-1252"},
    {0x041D, "swedish", 0, "sv_SE", 1252, "windows-1252"},
    {0x041F, "turkish", 0, "tr_TR", 1254, "windows-1254"},
    {0x0422, "", 0, "ua_UA", 1251, "windows-1251"},
    {0x0804, "chs", 0, "zh_CN", 936, "gb2312"},
    {0x0404, "cht", 0, "zh_TW", 950, "big5"},
    {0x042A, "", 0, "vi_VN", 1258, "windows-1258"},
    {0, nullptr, 0, nullptr, 0, nullptr},
};

std::uint32_t code_page_of_charset(std::string_view name) {
    if (equal_without_case(name, "UTF-8")) {
        return os::k_code_page_utf8;
    }
    for (const charset_row& row : k_charsets) {
        if (row.charset != nullptr && equal_without_case(name, row.charset)) {
            return row.code_page;
        }
    }
    return os::k_code_page_ansi;
}

std::uint32_t detect_code_page(std::string_view text) {
    regex::match found;
    if (declaration().search(text.substr(0, k_declaration_bytes), found) != regex::search_result::found) {
        return os::k_code_page_ansi;
    }
    // The name holds ASCII only, which is the same in every code page: it needn't be widened first.
    return code_page_of_charset(found.groups[1].value_or(std::string_view()));
}

}  // namespace kro::tessel::http
