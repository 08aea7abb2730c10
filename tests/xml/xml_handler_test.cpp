// What documents and hosts can do to a handler beyond the plain rules, which xml_model_test has: encodings,
// documents made to hurt, and events that throw, replace the parser or destroy the handler.
#include "tessel/xml/xml_handler.h"

#include "xml/xml_model.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using namespace std::string_literals;
using namespace tessel_test;

/// The text of the element a, and whether the document was taken.
struct reader : EXPAT_EX::CXMLHandler {
    CTString text;
    reader() { AddTextSelecter(TESSEL_W("/a"), &text); }
    int parse(const std::string& bytes) { return ParseXmlUtf8(bytes.data(), static_cast<int>(bytes.size())); }
};

class temporary_file {
public:
    explicit temporary_file(const std::string& bytes)
        : m_path(std::filesystem::temp_directory_path() /
                 ("tessel_\xC3\xA9_" + std::to_string(std::random_device()()) + ".xml")) {
        std::ofstream(m_path, std::ios::binary) << bytes;
    }
    ~temporary_file() { std::filesystem::remove(m_path); }
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;
    wide_string name() const { return m_path.string<wchar>(); }

private:
    std::filesystem::path m_path;
};

TEST(XmlHandler, ReadsBytesInTheEncodingThatTheyDeclare) {
    const struct {
        const char* what;
        std::string bytes;
        int result;
        wide_string text;
    } rows[] = {
        {"UTF-8 by default", "<a>\xC3\xA9</a>", 1, TESSEL_W("\u00E9")},
        {"declared", "<?xml version='1.0' encoding='iso-8859-1'?><a>\xE9</a>", 1, TESSEL_W("\u00E9")},
        {"UTF-16", "\xFE\xFF\0<\0a\0>\xD8\x3D\xDE\x00\0<\0/\0a\0>"s, 1, TESSEL_W("\U0001F600")},
        {"unpaired in UTF-16", "\xFE\xFF\0<\0a\0>\xDE\x00\0<\0/\0a\0>"s, 0, TESSEL_W("")},
        {"cut UTF-8", "<a>b\xC3", 0, TESSEL_W("b")},
        {"a zero", "<a>b\0</a>"s, 0, TESSEL_W("b")},
        {"an entity", "<!DOCTYPE a [<!ENTITY e 'one'>]><a>&e;&#x1F600;</a>", 1, TESSEL_W("one\U0001F600")},
        {"one of another file", "<!DOCTYPE a [<!ENTITY e SYSTEM '/etc/hostname'>]><a>x&e;</a>", 1,
         TESSEL_W("x")},
        {"nothing", "", 0, TESSEL_W("")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        reader handler;
        EXPECT_EQ(handler.parse(row.bytes), row.result);
        EXPECT_EQ(handler.text, row.text);
        const temporary_file file(row.bytes);
        reader of_file;
        EXPECT_EQ(of_file.ParseXMLFile(file.name().c_str()), row.result);
        EXPECT_EQ(of_file.text, row.text);
    }
}

TEST(XmlHandler, ReadsWideTextAsUtf8WhateverItDeclares) {
    const struct {
        const char* what;
        wide_string document;
        int result;
        wide_string text;
    } rows[] = {
        {"plain", TESSEL_W("<a>\u00E9\U0001F600</a>"), 1, TESSEL_W("\u00E9\U0001F600")},
        {"declared as what it isn't", TESSEL_W("<?xml version='1.0' encoding='iso-8859-1'?><a>\u00E9</a>"), 1,
         TESSEL_W("\u00C3\u00A9")},
        {"declared as it looks", TESSEL_W("<?xml version='1.0' encoding='utf-16'?><a>x</a>"), 0,
         TESSEL_W("")},
        {"up to a zero", TESSEL_W("<a>x</a>\0<"s), 1, TESSEL_W("x")},
        {"unpaired", wide_string(TESSEL_W("<a>")) + wchar(0xD83D) + TESSEL_W("</a>"), 1, TESSEL_W("\uFFFD")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        reader handler;
        EXPECT_EQ(handler.ParseXML(row.document), row.result);
        EXPECT_EQ(handler.text, row.text);
    }
}

TEST(XmlHandler, ParsesOneDocumentWithEachParser) {
    reader handler;
    EXPECT_EQ(handler.ParseXmlUtf8("<a>x</a>rest", -1), 0);
    EXPECT_EQ(handler.ParseXmlUtf8("<a>x</a>", -1), 0);
    handler.Create();
    EXPECT_EQ(handler.ParseXmlUtf8("<a>x</a>rest", 8), 1);
    EXPECT_EQ(handler.ParseXmlUtf8("<a>x</a>", 8), 0);
    handler.Create();
    EXPECT_EQ(handler.ParseXmlUtf8(nullptr, -1), 0);
    EXPECT_EQ(handler.ParseXMLFile(static_cast<const wchar*>(nullptr)), 0);
    EXPECT_EQ(handler.ParseXMLFile(L"/nowhere/at/all"), 0);
    EXPECT_EQ(handler.ParseXMLFile(L"/"), 0);
}

TEST(XmlHandler, EndsInTimeOnDocumentsMadeToHurt) {
    const std::string deep = [] {
        std::string text;
        for (int level = 0; level < 100'000; ++level) {
            text += "<a>";
        }
        return text;
    }();
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 'xxxxxxxxxxxxxxxx'>";
    for (int level = 1; level < 12; ++level) {
        const std::string inner = "&e" + std::to_string(level - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(level) + " '";
        for (int copy = 0; copy < 10; ++copy) {
            bomb += inner;
        }
        bomb += "'>";
    }
    const std::string longest(std::size_t{16} << 20U, 'v');
    const struct {
        const char* what;
        std::string bytes;
        int result;
        std::size_t text;
    } rows[] = {
        {"deep and cut", deep, 0, 0},
        {"an entity that blows up", bomb + "]><a>&e11;</a>", 0, std::size_t{64} << 20U},
        {"a long attribute", "<a x='" + longest + "'/>", 1, 0},
        {"a long text", "<a>" + longest + "</a>", 1, longest.size()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const temporary_file file(row.bytes);  // which comes in pieces, the harder case
        reader handler;
        EXPECT_EQ(handler.ParseXMLFile(file.name().c_str()), row.result);
        EXPECT_LE(handler.text.size(), row.text);
        EXPECT_TRUE(row.result == 0 || handler.text.size() == row.text);
    }
}

/// Does something inside its nth event.
struct acting_handler : logging_handler {
    std::size_t when = 0;
    std::function<void()> action;

    acting_handler() {
        add({xml_registration::node_list, 1, TESSEL_W("/a/b"), 0});
        add({xml_registration::node, 2, TESSEL_W("/a/b"), 0});
        add({xml_registration::attribute, 3, TESSEL_W("/a/b"), 0});
        add({xml_registration::attribute_text, 3, TESSEL_W("x"), 0});
        add({xml_registration::text, 0, TESSEL_W("/a/b"), 1});
    }

    int parse() { return ParseXmlUtf8("<a><b x='1'>one</b><b x='2'>two</b></a>", -1); }

    void event(const char* what, unsigned id) override {
        logging_handler::event(what, id);
        if (log.size() == when && action) {
            action();
        }
    }
};

constexpr std::size_t k_events = 12;  // of its document

TEST(XmlHandler, StopsAtAnExceptionFromAnEvent) {
    for (std::size_t when = 1; when <= k_events; ++when) {
        acting_handler handler;
        handler.when = when;
        handler.action = [] { throw std::runtime_error("from the host"); };
        EXPECT_EQ(handler.parse(), 0);
        EXPECT_EQ(handler.log.size(), when) << "no event after it";
        EXPECT_EQ(handler.parse(), 0);

        reader other;  // nothing is left over
        EXPECT_EQ(other.parse("<a>x</a>"), 1);
    }
}

TEST(XmlHandler, SurvivesWhatAHostDoesInsideAnEvent) {
    for (std::size_t when = 1; when <= k_events; ++when) {
        SCOPED_TRACE(when);
        acting_handler replaces;
        replaces.when = when;
        replaces.action = [&] { replaces.Create(); };
        EXPECT_EQ(replaces.parse(), 0);
        EXPECT_EQ(replaces.log.size(), when);
        replaces.action = nullptr;
        EXPECT_EQ(replaces.parse(), 1);

        acting_handler feeds;
        feeds.when = when;
        feeds.action = [&] { EXPECT_EQ(feeds.parse(), 0); };
        EXPECT_EQ(feeds.parse(), 1);
        EXPECT_EQ(feeds.log.size(), k_events);

        auto assigned = std::make_unique<acting_handler>();
        const EXPAT_EX::CXMLHandler fresh;
        assigned->when = when;
        assigned->action = [&] { static_cast<EXPAT_EX::CXMLHandler&>(*assigned) = fresh; };
        EXPECT_EQ(assigned->parse(), 0);
        EXPECT_EQ(assigned->log.size(), when);

        auto* const destroyed = new acting_handler;
        std::size_t events = 0;
        destroyed->when = when;
        destroyed->action = [&events, destroyed] {
            events = destroyed->log.size();
            const auto own = std::move(destroyed->action);  // of the function that runs
            delete destroyed;
        };
        EXPECT_EQ(destroyed->parse(), 0);
        EXPECT_EQ(events, when);
    }
}

TEST(XmlHandler, CopiesParseByThemselves) {
    acting_handler original;
    EXPECT_EQ(original.parse(), 1);
    acting_handler copy = original;
    copy.log.clear();
    // It goes on behind the first root of the original, with a parser of its own.
    EXPECT_EQ(copy.ParseXmlUtf8("<x/>", -1), 1);
    EXPECT_EQ(copy.parse(), 0) << "used";
    copy.add({xml_registration::node, 2, TESSEL_W("/a/a/b"), 0});
    copy.Create();
    EXPECT_EQ(copy.parse(), 1);
    EXPECT_EQ(copy.log, (std::vector<std::string>{"node+2", "node-2", "node+2", "node-2"}));
    EXPECT_EQ(original.log.size(), k_events) << "no event of the copy";

    reader used;
    EXPECT_EQ(used.parse("<b/>"), 1);
    const EXPAT_EX::CXMLHandler fresh;
    static_cast<EXPAT_EX::CXMLHandler&>(used) = fresh;
    EXPECT_EQ(used.parse("<b/>"), 1) << "a new parser";
}

TEST(XmlParser, FollowsCallsByHandThroughAnyNames) {
    EXPAT_EX::CXMLParser parser;
    logging_handler heard;
    parser.SetXMLHandler(&heard);
    CTString text;
    const auto texts_at = [&](const wchar* path) {
        CTString here;
        EXPAT_EX::CXMLParser copy = parser;
        copy.AddTextSelecter(path, &here);
        copy.OnCharacterData(TESSEL_W("xyz"), 1);
        copy.OnCharacterData(TESSEL_W("xyz"), 0);
        copy.OnCharacterData(nullptr, 3);
        return here == TESSEL_W("x");
    };
    EXPECT_TRUE(texts_at(TESSEL_W("")));
    parser.AddNodeEventListener(7, TESSEL_W("/a/b/c"));
    parser.OnStartElement(TESSEL_W("a"), nullptr);
    parser.OnStartElement(TESSEL_W("b/c"), nullptr);
    EXPECT_TRUE(texts_at(TESSEL_W("/a/b/c")));
    parser.OnStartElement(TESSEL_W("bcd"), nullptr);
    parser.OnEndElement(TESSEL_W("none"));
    EXPECT_TRUE(texts_at(TESSEL_W("/a/b/c/bcd")));
    parser.OnEndElement(TESSEL_W("b"));  // the last "/b" begins the longer name
    EXPECT_TRUE(texts_at(TESSEL_W("/a/b/c")));
    parser.OnEndElement(TESSEL_W("c"));
    EXPECT_TRUE(texts_at(TESSEL_W("/a/b")));
    parser.OnEndElement(TESSEL_W("a"));
    EXPECT_TRUE(texts_at(TESSEL_W("/a/b")));
    EXPECT_EQ(heard.log, (std::vector<std::string>{"node+7", "node-7"}));
}

TEST(XmlHandler, EncodesTheFiveCharactersOnce) {
    const EXPAT_EX::CXMLHandler handler;
    EXPECT_EQ(handler.XMLEncode(TESSEL_W("a<b & 'c'")), TESSEL_W("a&lt;b &amp; &apos;c&apos;"));
    EXPECT_EQ(handler.XMLEncode(TESSEL_W("&lt;\">")), TESSEL_W("&amp;lt;&quot;&gt;"));
    EXPECT_EQ(handler.XMLEncode(TESSEL_W("\u00E9\n")), TESSEL_W("\u00E9\n"));
    const CTString zeros(TESSEL_W("\0<\0"), 3);
    EXPECT_EQ(handler.XMLEncode(zeros), CTString(TESSEL_W("\0&lt;\0"), 6));
    EXPECT_EQ(handler.XMLEncode(CTString()), CTString());
}

}  // namespace
