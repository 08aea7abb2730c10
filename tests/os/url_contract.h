// What every implementation of URL cracking promises. The rows are URLs that users and servers write, above
// all the odd ones: a request to the wrong host or port, or with a password in its path, starts here.
#pragma once

#include "os/inet.h"
#include "os/thread.h"
#include "os/url.h"

#include "tessel/base/string.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace tessel_test {

using kro::tessel::wide_string;
using kro::tessel::os::crack_url;
using kro::tessel::os::url_pieces;
using wide_view = std::basic_string_view<wchar>;

inline std::string printable(wide_view text) {
    std::string out;
    for (const wchar unit : text.substr(0, 100)) {
        const bool shows = unit >= 0x20 && unit < 0x7F;
        out += shows ? std::string(1, static_cast<char>(unit)) : "<" + std::to_string(unit) + ">";
    }
    return out;
}

struct cracked_row {
    const char* what;
    const wchar* url;
    int scheme;
    int port;
    const wchar* host;
    const wchar* user;
    const wchar* password;
    const wchar* path;
    const wchar* extra;
};

inline std::string joined(const std::vector<wide_view>& pieces, int scheme_number, int port) {
    std::string out = std::to_string(scheme_number) + " " + std::to_string(port);
    for (const wide_view piece : pieces) {
        out += " |" + printable(piece) + "|";
    }
    return out;
}

inline void expect_cracked(const cracked_row& row) {
    SCOPED_TRACE(std::string(row.what) + ": " + printable(row.url));
    const wide_view url = row.url;
    const wide_view scheme = url.substr(0, url.find(wchar(':')));
    url_pieces got;
    kro::tessel::os::set_last_error(77);
    ASSERT_EQ(crack_url(url, got), 0U);
    EXPECT_EQ(kro::tessel::os::last_error(), 0U);
    EXPECT_EQ(joined({got.scheme, got.host, got.user, got.password, got.path, got.extra}, got.scheme_number,
                     got.port),
              joined({scheme, row.host, row.user, row.password, row.path, row.extra}, row.scheme, row.port));
}

#define W TESSEL_W
#define NO TESSEL_W("")

TEST(UrlContract, BreaksWebUrlsIntoTheirPieces) {
    const cracked_row rows[] = {
        {"all pieces", W("http://u:p@h:81/p?a@b"), 3, 81, W("h"), W("u"), W("p"), W("/p"), W("?a@b")},
        {"case is kept", W("HTTP://Host.Example/A"), 3, 80, W("Host.Example"), NO, NO, W("/A"), NO},
        {"a port that isn't the scheme's", W("HtTpS://h:80"), 4, 80, W("h"), NO, NO, NO, NO},
        {"query without a path", W("http://h?x=1"), 3, 80, W("h"), NO, NO, NO, W("?x=1")},
        {"a query mark in the fragment", W("http://h/p#f?q"), 3, 80, W("h"), NO, NO, W("/p"), W("#f?q")},
        {"nothing is unescaped", W("http://u%40x:p%3A@h/%41%20?%42#%43"), 3, 80, W("h"), W("u%40x"),
         W("p%3A"), W("/%41%20"), W("?%42#%43")},
        {"any character", W("http://中.com/中文?中"), 3, 80, W("中.com"), NO, NO, W("/中文"), W("?中")},
        {"backslashes are no slashes", W("http://h\\p\\q/r"), 3, 80, W("h\\p\\q"), NO, NO, W("/r"), NO},
        {"a URL in the query", W("http://h/?u=http://x@y:1/"), 3, 80, W("h"), NO, NO, W("/"),
         W("?u=http://x@y:1/")},
        {"a line end behind it", W("http://h/p\r\n"), 3, 80, W("h"), NO, NO, W("/p"), NO},
        {"an unpaired surrogate", TESSEL_W("http://h/\xD800x"), 3, 80, W("h"), NO, NO, TESSEL_W("/\xD800x"),
         NO},
    };
    for (const cracked_row& row : rows) {
        expect_cracked(row);
    }
}

TEST(UrlContract, TakesUserHostAndPortApart) {
    const cracked_row rows[] = {
        {"empty password", W("http://u:@h/p"), 3, 80, W("h"), W("u"), NO, W("/p"), NO},
        {"empty user", W("http://:p@h/p"), 3, 80, W("h"), NO, W("p"), W("/p"), NO},
        {"colon in the user", W("http://u:p:q@h/p"), 3, 80, W("h"), W("u:p"), W("q"), W("/p"), NO},
        {"a mail address as user", W("http://u@x:p@h/p"), 3, 80, W("h"), W("u@x"), W("p"), W("/p"), NO},
        {"largest port, zeros in front", W("http://h:00065535"), 3, 65535, W("h"), NO, NO, NO, NO},
        {"port 0", W("http://h:0/p"), 3, 0, W("h"), NO, NO, W("/p"), NO},
        {"colon without a port", W("http://h:/p"), 3, 80, W("h"), NO, NO, W("/p"), NO},
        {"IPv6", W("http://[::1]/p"), 3, 80, W("[::1]"), NO, NO, W("/p"), NO},
        {"IPv6 with all", W("https://u:p@[fe80::1]:8080/p"), 4, 8080, W("[fe80::1]"), W("u"), W("p"), W("/p"),
         NO},
        {"trailing dot", W("http://h.:80/"), 3, 80, W("h."), NO, NO, W("/"), NO},
    };
    for (const cracked_row& row : rows) {
        expect_cracked(row);
    }
}

TEST(UrlContract, KnowsOtherSchemes) {
    const cracked_row rows[] = {
        {"ftp", W("ftp://u:p@h/p"), 1, 21, W("h"), W("u"), W("p"), W("/p"), NO},
        {"gopher has no port", W("gopher://h/p"), 2, 0, W("h"), NO, NO, W("/p"), NO},
        {"socks", W("socks://h:1080"), 8, 1080, W("h"), NO, NO, NO, NO},
        {"res", W("res://x/y"), 11, 0, W("x"), NO, NO, W("/y"), NO},
        {"unknown", W("foo+1.x-y://h:12/p?x#y"), 0xFFFF, 12, W("h"), NO, NO, W("/p"), W("?x#y")},
        {"unknown, no host", W("fide:///C:/x"), 0xFFFF, 0, NO, NO, NO, W("/C:/x"), NO},
        {"no authority", W("FOO:bar"), 0xFFFF, 0, NO, NO, NO, W("bar"), NO},
        {"mail", W("mailto:a@b?subject=x"), 7, 0, NO, NO, NO, W("a@b"), W("?subject=x")},
        {"news", W("news:abc"), 6, 0, NO, NO, NO, W("abc"), NO},
        {"script", W("JavaScript:f()"), 9, 0, NO, NO, NO, W("f()"), NO},
        {"a scheme isn't known by its beginning", W("h:80"), 0xFFFF, 0, NO, NO, NO, W("80"), NO},
        {"file", W("file:///c:/x/y"), 5, 0, NO, NO, NO, W("/c:/x/y"), NO},
        {"file on a server", W("file://h/s/y"), 5, 0, W("h"), NO, NO, W("/s/y"), NO},
        {"file with a bare drive", W("file://C:/x"), 5, 0, NO, NO, NO, W("C:/x"), NO},
    };
    for (const cracked_row& row : rows) {
        expect_cracked(row);
    }
}

TEST(UrlContract, RefusesWhatIsNoUrlAndTouchesNothing) {
    const struct {
        const char* what;
        const wchar* url;
        std::uint32_t error;
    } rows[] = {
        {"empty", W(""), 12006},
        {"no colon", W("www.h.com/p"), 12006},
        {"empty scheme", W("://h/p"), 12006},
        {"the colon is in the query", W("www.h.com/a?b=http://x/"), 12006},
        {"one slash", W("http:/h/p"), 12005},
        {"backslashes", W("http:\\\\h\\p"), 12005},
        {"no host", W("http:///p"), 12005},
        {"a user without a host", W("http://u:p@/p"), 12005},
        {"letters as port", W("http://h:a"), 12005},
        {"letters behind the port", W("http://h:8a"), 12005},
        {"a sign", W("http://h:-1"), 12005},
        {"a blank before the port", W("http://h: 80"), 12005},
        {"port too large", W("http://h:65536/p"), 12005},
        {"port larger than any number", W("http://h:4294967376/"), 12005},
        {"two ports", W("http://h:80:90/"), 12005},
        {"two colons", W("http://h::80/"), 12005},
        {"open bracket", W("http://[::1/p"), 12005},
        {"text behind the bracket", W("http://[::1]x/p"), 12005},
        {"nothing in brackets", W("http://[]/p"), 12005},
        {"blank in the host", W("http://my host/p"), 12005},
        {"a header in the host", W("http://h\r\nX-Y/p"), 12005},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.what) + ": " + printable(row.url));
        url_pieces pieces;
        pieces.scheme_number = 4711;
        pieces.host = W("kept");
        EXPECT_EQ(crack_url(row.url, pieces), row.error);
        EXPECT_EQ(kro::tessel::os::last_error(), row.error);
        EXPECT_EQ(pieces.scheme_number, 4711);
        EXPECT_TRUE(pieces.host == W("kept") && pieces.scheme.empty() && pieces.path.empty());
    }
}

TEST(UrlContract, EndsAtTheFirstZeroUnit) {
    url_pieces pieces;
    const wide_string url(W("http://h/p\0@x/q"), 15);
    ASSERT_EQ(crack_url(url, pieces), 0U);
    EXPECT_TRUE(pieces.host == W("h") && pieces.path == W("/p") && pieces.user.empty());
    EXPECT_EQ(crack_url(wide_view(), pieces), kro::tessel::os::k_error_inet_unrecognized_scheme);
}

// Quadratic work would take minutes here.
TEST(UrlContract, TakesVeryLongUrls) {
    constexpr std::size_t k_units = 1U << 20U;
    for (const wchar* const unit : {W("x"), W("@"), W("/"), W("?"), W("%")}) {
        wide_string url = W("http://u:p@h/");
        while (url.size() < k_units) {
            url += unit;
        }
        url_pieces pieces;
        ASSERT_EQ(crack_url(url, pieces), 0U);
        EXPECT_TRUE(pieces.host == W("h"));
        EXPECT_EQ(pieces.path.size() + pieces.extra.size(), url.size() - 12);
    }
}

TEST(UrlContract, TakesVeryLongAuthorities) {
    constexpr std::size_t k_units = 1U << 20U;
    const wide_string in_authority = W("http://") + wide_string(k_units, wchar('@')) + W("h:") +
                                     wide_string(k_units, wchar('0')) + W("80/");
    url_pieces pieces;
    ASSERT_EQ(crack_url(in_authority, pieces), 0U);
    EXPECT_EQ(pieces.port, 80);
    EXPECT_EQ(pieces.user.size(), k_units - 1);
}

#undef NO
#undef W

}  // namespace tessel_test
