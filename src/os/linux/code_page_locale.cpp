#include "code_page_locale.h"

#include "os/code_page.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>

namespace kro::tessel::os {
namespace {

struct codeset_page {
    std::string_view codeset;  // lower case, letters and digits only
    std::uint32_t page;
};

// A page that holds more than the codeset stands for it where there is none of its own.
constexpr codeset_page k_codesets[] = {
    {"utf8", k_code_page_utf8},
    {"ansix341968", k_code_page_utf8},
    {"usascii", k_code_page_utf8},
    {"iso88591", 28591},
    {"iso88592", 28592},
    {"iso88593", 28593},
    {"iso88594", 28594},
    {"iso88595", 28595},
    {"iso88596", 28596},
    {"iso88597", 28597},
    {"iso88598", 28598},
    {"iso88599", 28599},
    {"iso885911", 874},
    {"iso885913", 28603},
    {"iso885915", 28605},
    {"tis620", 874},
    {"koi8r", 20866},
    {"koi8u", 21866},
    {"euckr", 949},
    {"uhc", 949},
    {"big5", 950},
    {"gb2312", 936},
    {"gbk", 936},
    {"shiftjis", 932},
    {"sjis", 932},
    {"windows31j", 932},
};

std::string bare_name(std::string_view codeset) {
    std::string bare;
    for (const char unit : codeset) {
        if (unit >= 'A' && unit <= 'Z') {
            bare.push_back(static_cast<char>(unit - 'A' + 'a'));
        } else if ((unit >= 'a' && unit <= 'z') || (unit >= '0' && unit <= '9')) {
            bare.push_back(unit);
        }
    }
    return bare;
}

// "cp1251", "windows1251", "ibm850": the number is the page's.
std::uint32_t numbered_page(std::string_view bare) {
    for (const std::string_view prefix : {"cp", "windows", "ibm"}) {
        if (bare.substr(0, prefix.size()) == prefix && bare.size() - prefix.size() <= 5) {
            return static_cast<std::uint32_t>(
                std::strtoul(std::string(bare.substr(prefix.size())).c_str(), nullptr, 10));
        }
    }
    return 0;
}

std::string installed_codeset(const char* locale_name) {
    const locale_t locale = ::newlocale(LC_CTYPE_MASK, locale_name, locale_t{});
    if (locale == locale_t{}) {
        return {};
    }
    std::string codeset = ::nl_langinfo_l(CODESET, locale);
    ::freelocale(locale);
    return codeset;
}

}  // namespace

std::uint32_t code_page_of_codeset(std::string_view codeset) {
    const std::string bare = bare_name(codeset);
    const auto* const found = std::find_if(std::begin(k_codesets), std::end(k_codesets),
                                           [&bare](const codeset_page& row) { return row.codeset == bare; });
    return found != std::end(k_codesets) ? found->page : numbered_page(bare);
}

std::uint32_t code_page_of_locale(const char* name) {
    const std::string_view locale = name;
    if (locale.empty() || locale == "C" || locale == "POSIX") {
        return k_code_page_utf8;
    }
    const std::size_t dot = locale.find('.');
    const std::string_view behind =
        dot == std::string_view::npos ? std::string_view() : locale.substr(dot + 1);
    const std::string_view written = behind.substr(0, behind.find('@'));
    const std::uint32_t page =
        written.empty() ? code_page_of_codeset(installed_codeset(name)) : code_page_of_codeset(written);
    return page == 0 ? k_code_page_utf8 : page;
}

std::uint32_t code_page_of_environment() {
    for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const name = std::getenv(variable);
        if (name != nullptr && *name != '\0') {
            return code_page_of_locale(name);
        }
    }
    return k_code_page_utf8;
}

}  // namespace kro::tessel::os
