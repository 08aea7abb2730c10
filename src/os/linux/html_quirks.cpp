#include "html_quirks.h"

#include "html_reader.h"

#include <algorithm>
#include <iterator>

namespace kro::tessel::os {
namespace {

// Beginnings of public identifiers; each stands for all of its family on the standard's list.
constexpr std::string_view k_quirky[] = {
    "+//silmaril//dtd html pro ",
    "-//as//dtd html 3.0 aswedit",
    "-//advasoft ltd//dtd html 3.0 aswedit",
    "-//ietf//dtd html",
    "-//metrius//dtd metrius presentational//",
    "-//microsoft//dtd internet explorer ",
    "-//netscape comm. corp.//dtd ",
    "-//o'reilly and associates//dtd html ",
    "-//sq//dtd html 2.0 hotmetal",
    "-//softquad software//dtd hotmetal pro ",
    "-//softquad//dtd hotmetal pro ",
    "-//spyglass//dtd html 2.0 extended//",
    "-//sun microsystems corp.//dtd hotjava ",
    "-//w3c//dtd html 3",
    "-//w3c//dtd html 4.0 frameset//",
    "-//w3c//dtd html 4.0 transitional//",
    "-//w3c//dtd html experimental ",
    "-//w3c//dtd w3 html//",
    "-//w3o//dtd w3 html ",
    "-//webtechs//dtd mozilla html",
    "-/w3c/dtd html 4.0 transitional/en",
};

// These only without a system identifier.
constexpr std::string_view k_quirky_alone[] = {
    "-//w3c//dtd html 4.01 frameset//",
    "-//w3c//dtd html 4.01 transitional//",
};

constexpr std::string_view k_quirky_system = "http://www.ibm.com/data/dtd/v11/ibmxhtml1-transitional.dtd";

bool begins(std::string_view text, std::string_view lower_case) {
    return equals_ignoring_case(text.substr(0, lower_case.size()), lower_case);
}

template <std::size_t k_count>
bool begins_with_one(std::string_view text, const std::string_view (&beginnings)[k_count]) {
    return std::any_of(std::begin(beginnings), std::end(beginnings),
                       [text](std::string_view beginning) { return begins(text, beginning); });
}

void skip_space(std::string_view& text) {
    while (!text.empty() && is_html_space(text.front())) {
        text.remove_prefix(1);
    }
}

std::string_view take_word(std::string_view& text) {
    skip_space(text);
    std::size_t size = 0;
    while (size < text.size() && !is_html_space(text[size]) && text[size] != '>' && text[size] != '"' &&
           text[size] != '\'') {
        ++size;
    }
    const std::string_view word = text.substr(0, size);
    text.remove_prefix(size);
    return word;
}

// False when there is none.
bool take_quoted(std::string_view& text, std::string_view& quoted) {
    skip_space(text);
    if (text.empty() || (text.front() != '"' && text.front() != '\'')) {
        return false;
    }
    const std::size_t end = std::min(text.find(text.front(), 1), text.size());
    quoted = text.substr(1, end - 1);
    text.remove_prefix(std::min(end + 1, text.size()));
    return true;
}

}  // namespace

bool is_quirky_doctype(std::string_view doctype) {
    constexpr std::size_t k_begin = 9;  // "<!doctype"
    doctype.remove_prefix(std::min(k_begin, doctype.size()));
    if (!equals_ignoring_case(take_word(doctype), "html")) {
        return true;
    }
    const std::string_view keyword = take_word(doctype);
    std::string_view public_id;
    std::string_view system_id;
    bool has_system = false;
    if (equals_ignoring_case(keyword, "public")) {
        if (!take_quoted(doctype, public_id)) {
            return true;
        }
        has_system = take_quoted(doctype, system_id);
    } else if (equals_ignoring_case(keyword, "system")) {
        has_system = take_quoted(doctype, system_id);
        if (!has_system) {
            return true;
        }
    } else if (!keyword.empty()) {
        return true;
    }
    return begins_with_one(public_id, k_quirky) || equals_ignoring_case(public_id, "html") ||
           (!has_system && begins_with_one(public_id, k_quirky_alone)) ||
           equals_ignoring_case(system_id, k_quirky_system);
}

}  // namespace kro::tessel::os
