#include "tessel/i18n/locale_args.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace kro::tessel::i18n {
namespace {

using wide_view = std::basic_string_view<wchar>;

// A block without the unit is passed over in a few instructions; the compiler uses the widest registers there
// are, since nothing in the loop ends it early.
constexpr std::size_t k_block = 32;

bool block_has(const wchar* block, wchar wanted) {
    unsigned char found = 0;
    for (std::size_t at = 0; at < k_block; ++at) {
        found = static_cast<unsigned char>(found | (block[at] == wanted ? 1U : 0U));
    }
    return found != 0;
}

std::size_t find_unit(wide_view text, wchar wanted, std::size_t from) {
    while (text.size() - from >= k_block && !block_has(text.data() + from, wanted)) {
        from += k_block;
    }
    while (from < text.size() && text[from] != wanted) {
        ++from;
    }
    return from;
}

std::size_t find(wide_view text, wide_view placeholder, std::size_t from) {
    while (text.size() - from >= placeholder.size()) {
        from = find_unit(text, placeholder.front(), from);
        if (text.size() - from < placeholder.size()) {
            break;
        }
        if (std::memcmp(text.data() + from, placeholder.data(), placeholder.size() * sizeof(wchar)) == 0) {
            return from;
        }
        ++from;
    }
    return wide_view::npos;
}

// Replaces into `out`, which is scratch; false, with nothing done, when the placeholder isn't there.
bool replace(const wide_string& text, wide_view placeholder, wide_view value, wide_string& out) {
    std::size_t found = find(text, placeholder, 0);
    if (found == wide_view::npos) {
        return false;
    }
    out.clear();
    std::size_t copied = 0;
    for (; found != wide_view::npos; found = find(text, placeholder, copied)) {
        out.append(text, copied, found - copied).append(value);
        copied = found + placeholder.size();
    }
    out.append(text, copied, wide_string::npos);
    return true;
}

}  // namespace

locale_args::locale_args() = default;
locale_args::locale_args(const locale_args&) = default;
locale_args& locale_args::operator=(const locale_args&) = default;
locale_args::~locale_args() = default;

void locale_args::insert(const wide_string& name, const wide_string& value) {
    if (!name.empty()) {
        m_args.emplace(name, value);
    }
}

void locale_args::remove(const wide_string& name) {
    m_args.erase(name);
}

void locale_args::remove_all() {
    m_args.clear();
}

wide_string locale_args::replace_args(const wide_string& text) const {
    wide_string result = text;
    wide_string scratch;
    for (const auto& [placeholder, value] : m_args) {
        if (replace(result, placeholder, value, scratch)) {
            result.swap(scratch);
        }
    }
    return result;
}

locale_index_args::locale_index_args() = default;
locale_index_args::locale_index_args(const locale_index_args&) = default;
locale_index_args& locale_index_args::operator=(const locale_index_args&) = default;
locale_index_args::~locale_index_args() = default;

void locale_index_args::insert(const wide_string& value) {
    const std::string placeholder = '[' + std::to_string(m_next++) + ']';
    locale_args::insert(wide_string(placeholder.begin(), placeholder.end()), value);
}

void locale_index_args::remove_all() {
    locale_args::remove_all();
    m_next = 0;
}

}  // namespace kro::tessel::i18n
