// What every HTML engine promises, whatever else its rules for inner text are: the words of the body, in
// order, nothing of what isn't shown, and lines that end in CR LF.
#pragma once

#include "os/html_engine.h"

#include "tessel/base/string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace tessel_test {

using kro::tessel::wide_string;

inline wide_string inner_text_of(const wide_string& html) {
    wide_string text;
    EXPECT_TRUE(kro::tessel::os::inner_text_of_html(html, text));
    return text;
}

// The engines differ in blanks and empty lines.
inline std::vector<wide_string> words_of(const wide_string& text) {
    std::vector<wide_string> words(1);
    for (const wchar unit : text) {
        if (unit != ' ' && unit != '\r' && unit != '\n' && unit != '\t') {
            words.back() += unit;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    return words;
}

TEST(HtmlEngineContract, GivesTheWordsOfTheBody) {
    using words = std::vector<wide_string>;
    const std::pair<const wchar*, words> rows[] = {
        {TESSEL_W("plain text"), {TESSEL_W("plain"), TESSEL_W("text")}},
        {TESSEL_W("a &amp; b &#x4e2d;"), {TESSEL_W("a"), TESSEL_W("&"), TESSEL_W("b"), TESSEL_W("\u4e2d")}},
        {TESSEL_W("<p>one<div>two<br>three"), {TESSEL_W("one"), TESSEL_W("two"), TESSEL_W("three")}},
        {TESSEL_W("<b>in</b>side"), {TESSEL_W("inside")}},
        {TESSEL_W("<html><head><title>t</title><style>p{}</style></head><body>shown</body></html>"),
         {TESSEL_W("shown")}},
        {TESSEL_W("<!-- no -->yes<script>no()</script>"), {TESSEL_W("yes")}},
        {TESSEL_W(" <p> </p> "), {}},
    };
    for (const auto& [html, expected] : rows) {
        EXPECT_EQ(words_of(inner_text_of(html)), expected) << wide_string(html).size();
    }
}

TEST(HtmlEngineContract, EndsLinesInCrLf) {
    const wide_string text = inner_text_of(TESSEL_W("<p>a</p><ul><li>b<li>c</ul>d<br>e<pre>f\ng\r\nh</pre>"));
    EXPECT_EQ(words_of(text).size(), 8U);
    EXPECT_NE(text.find(TESSEL_W("\r\n")), wide_string::npos);
    for (std::size_t i = 0; i < text.size(); ++i) {
        EXPECT_TRUE(text[i] != '\n' || (i > 0 && text[i - 1] == '\r')) << i;
        EXPECT_TRUE(text[i] != '\r' || (i + 1 < text.size() && text[i + 1] == '\n')) << i;
    }
}

}  // namespace tessel_test
