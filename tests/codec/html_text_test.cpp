// Server messages must read as in a browser. The rows are what a current browser answers for innerText; then
// markup that is large, broken or hostile on purpose, where the tree builder alone would take minutes.
#include "tessel/codec/html_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

namespace {

using kro::tessel::_gethtml_puretext;
using kro::tessel::CTString;
using kro::tessel::wide_string;

std::string shown(const CTString& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            continue;
        }
        out +=
            text[i] < 0x80 ? std::string(1, static_cast<char>(text[i])) : "<" + std::to_string(text[i]) + ">";
    }
    return out;
}

std::string text_of(std::string_view html) {
    return shown(_gethtml_puretext(wide_string(html.begin(), html.end())));
}

struct row {
    const char* html;
    const char* text;  // with LF for each line end
};

template <std::size_t k_count>
void expect_texts(const row (&rows)[k_count]) {
    for (const row& one : rows) {
        EXPECT_EQ(text_of(one.html), one.text) << one.html;
    }
}

TEST(HtmlText, BreaksLinesAsBlocksDo) {
    const row rows[] = {
        {"a<p>b</p>c", "a\n\nb\n\nc"},
        {"<div>a<div>b</div></div>c", "a\nb\nc"},
        {"x<br> y <br>", "x\ny\n"},
        {"a<div><br></div>b", "a\n\n\nb"},
        {"a</p>b</br>c", "a\n\nb\nc"},
        {"<ul><li>a<ul><li>b</ul><li>c</ul>", "a\nb\nc"},
        {"a<hr>b<hr>", "a\nb"},
        {"a<fieldset><legend>l</legend>f</fieldset>b", "a\nl\nf\nb"},
        {"<form>a<form>b</form>c", "ab\nc"},
        {"", ""},
    };
    expect_texts(rows);
}

TEST(HtmlText, CollapsesBlanksWhereBrowsersDo) {
    const row rows[] = {
        {" x <b> y</b>\t\n z ", "x y z"},        {"a <img> b<img> ", "a  b"},
        {"a <button> b </button> c", "a b c"},   {"a<input value=x> b <input type=hidden> c", "a b c"},
        {"a&nbsp; <i> b</i>", "a<160> b"},       {"<pre>\n a\n  b </pre>x", " a\n  b \nx"},
        {"<pre><b>\na</b></pre>", "\na"},        {"a<xmp>\n<b>b</xmp>c", "a\n\n<b>b\nc"},
        {"a<plaintext>\nb</b>", "a\n\nb</b>"},   {"x <span style='visibility:hidden'>b</span> c", "x  c"},
        {"a&#0;b&#13;c&#10;d", "a<65533>b c d"},
    };
    expect_texts(rows);
    EXPECT_EQ(shown(_gethtml_puretext(wide_string(TESSEL_W("a\0b"), 3))), "ab");
    EXPECT_EQ(shown(_gethtml_puretext(TESSEL_W("\x01\x0B\x7F\u0080\u009F\u00A0\u00BF"))),
              "\x01\x0B\x7F<128><159><160><191>");
    EXPECT_EQ(_gethtml_puretext(TESSEL_W("\x01\U0010FF0A\U0010FF41\U0010FFE9")),
              CTString(TESSEL_W("\x01\U0010FF0A\U0010FF41\U0010FFE9")));
    EXPECT_EQ(_gethtml_puretext(TESSEL_W("\u4e2d<b>\U0001F600</b>")), CTString(TESSEL_W("\u4e2d\U0001F600")));
}

TEST(HtmlText, SetsCellsAndRowsApart) {
    const row rows[] = {
        {"<table><caption>cap</caption><tr><th>a<td>b<tr><td>c</table>d", "cap\na\tb\nc\nd"},
        {"<table><tr><td><div>a</div><td>b</table>", "a\n\tb"},
        {"<table><thead><tr><td>h</thead><tfoot><tr><td>f</tfoot><tbody><tr><td>b</tbody></table>",
         "h\nf\nb"},
        {"<table><tr hidden><td>a<tr><td>b</table>", "b"},
        {"<table>x<tr><td>a</table>", "x\na"},
        {"<table><tr><td><table><tr><td>x<td>y</table><td>z</table>", "x\ty\n\tz"},
        {"<td>x</td><tr>y", "xy"},
        {"<p>a<table><tr><td>b</table>c", "a\nb\nc"},
        {"<!doctype html><p>a<table><tr><td>b</table>c", "a\n\nb\nc"},
        {"<!DOCTYPE html PUBLIC '-//W3C//DTD HTML 4.01 Transitional//EN'><p>a<table><td>b</table>", "a\nb"},
    };
    expect_texts(rows);
}

TEST(HtmlText, LeavesOutWhatIsNotShown) {
    const row rows[] = {
        {"<title>t</title><style>p{}</style>x<script>y</script><noembed>n</noembed>z", "xz"},
        {"a<p hidden>b</p>c<p style='color:red; DISPLAY : none'>d</p>", "ac"},
        {"<div hidden style='display:block'>shown</div>", "shown"},
        {"<b hidden>x<p>y</b>z", "z"},
        {"<p style='visibility:hidden'>a<i style='visibility:visible'>b</i></p>c", "bc"},
        {"<details><summary>s</summary>no</details><details open><summary>t</summary>yes</details>",
         "s\nt\nyes"},
        {"<dialog>no</dialog>x<dialog open>yes</dialog>", "x\nyes"},
        {"a<video>no</video><textarea>no</textarea><iframe>no</iframe><object data=x>no</object>b", "ab"},
        {"a<object>b</object><applet>c</applet>", "abc"},
        {"<q>a </q> b <q> c</q>", "a  b  c"},
        {"a&#8203;\nb \n&#8203;c&#8203; d", "a<8203>b<8203>c<8203> d"},
        {"<template>x<table><tr><td>y</template>z", "z"},
        {"<ruby>x<rp>(<rt>y<rp>)</ruby>z", "xyz"},
        {"a<select> x <option>b<option>c</select>d", "a\nb\nc\nd"},
        {"a<svg><title>no</title><text>hi</text></svg>b", "a\nhi\nb"},
        {"<frameset><frame></frameset>b", ""},
    };
    expect_texts(rows);
}

TEST(HtmlText, ReadsBrokenMarkupAsBrowsersDo) {
    const row rows[] = {
        {"1 < 2 & 3 > 2 &lt", "1 < 2 & 3 > 2 <"},
        {"&am<b>p;</b> &amp;amp; &notit;", "&amp; &amp; <172>it;"},
        {"<!-- a --!>b<!--->c<!-->d<!-- e", "bcd"},
        {"</div>a</foo>b<?php x ?>c</ x>d</>e", "abcde"},
        {"a<b class=\"x>y\" title='<p>'>b</b", "ab"},
        {"<a><p>x<a>y</a></p></a>z", "xy\n\nz"},
        {"<p>a<b>b<p>c</b>d", "ab\n\ncd"},
        {"a</", "a</"},
    };
    expect_texts(rows);
}

// Large documents are taken in pieces; nothing of that may show.
TEST(HtmlText, IsTheSameInPieces) {
    const std::string part = "<p>a <b>b</b></p><ul><li>x<li style='visibility:visible'>y</ul>";
    const std::string part_text = "a b\n\nx\ny";
    std::string html = "<div><div>";
    std::string text = part_text;
    for (int i = 0; i < 15000; ++i) {
        html += part;
        text += i == 0 ? "" : "\n\n" + part_text;
    }
    EXPECT_TRUE(text_of(html) == text);

    html = "<section><table>";
    text.clear();
    for (int i = 0; i < 30000; ++i) {
        html += "<tr><td><pre>\n\n1</pre><td>2";
        text += (i == 0 ? "" : "\n\n") + std::string("\n1\n\t2");
    }
    EXPECT_TRUE(text_of(html) == text);
}

std::string repeated(const std::string& unit) {
    constexpr std::size_t k_size = std::size_t{512} << 10U;
    std::string text;
    text.reserve(k_size + unit.size());
    while (text.size() < k_size) {
        text += unit;
    }
    return text;
}

TEST(HtmlText, TakesHostileMarkup) {
    std::string attributes = "<div";
    std::string fonts;
    for (int i = 0; i < 60000; ++i) {
        attributes += " a" + std::to_string(i) + "=1";
        fonts += "<font size=" + std::to_string(i % 1000) + ">";
    }
    const auto times = [](int count, const std::string& tag) {
        std::string tags;
        while (count-- != 0) {
            tags += tag;
        }
        return tags;
    };
    const std::string blocks = times(300, "<div>") + times(200, "</u>") + times(300, "</div>");
    const struct {
        const char* what;
        std::string html;
        std::string text;  // at the end, where what was opened before it counts no more
    } rows[] = {
        {"nested", repeated("<div>") + "x", "x"},
        {"misnested", repeated("<i><div></i><ul></div><li></ul>") + "x", "x"},
        {"attributes", attributes + ">x", "x"},
        {"formatting elements around each block", fonts + repeated("<p>") + "x", "x"},
        {"elements moved out of a table", "<table><div>" + repeated("<p>") + "x", "x"},
        {"blocks in a deep stack", repeated("<div>").substr(0, 2555) + repeated("<p>") + "x", "x"},
        {"an attribute without an end", "x" + repeated("<a b=\""), "x"},
        {"end tags that match nothing near", "<y><div>" + repeated("<x hidden></x></y>") + "x", "x"},
        {"inline elements around blocks", "<i hidden>" + repeated(times(200, "<u>") + blocks), ""},
        {"hidden ones around blocks", "<i hidden>" + repeated(times(200, "<u hidden>") + blocks), ""},
    };
    for (const auto& one : rows) {
        const std::string text = text_of(one.html);
        EXPECT_EQ(text.substr(text.size() - std::min(text.size(), one.text.size())), one.text) << one.what;
        EXPECT_LE(text.size(), one.html.size()) << one.what;
    }
}

// A host's global may want a text when the process ends; what its thread has kept is destroyed by then.
struct reads_at_the_end {
    ~reads_at_the_end() { std::_Exit(text_of("<p>a<p>b") == "a\n\nb" ? 7 : 1); }
};

[[noreturn]] void end_with_a_global_that_reads() {
    const std::string first = text_of("a");
    static const reads_at_the_end global;
    std::exit(static_cast<int>(first.size()));
}

TEST(HtmlTextDeathTest, ReadsForGlobalsThatEndWithTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(end_with_a_global_that_reads(), testing::ExitedWithCode(7), "");
}

TEST(HtmlText, WorksOnThreadsAtOnce) {
    std::thread threads[4];
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            for (int run = 0; run < 50; ++run) {
                EXPECT_EQ(text_of("<p>a<table><tr><td>b<td>c</table>"), "a\nb\tc");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
