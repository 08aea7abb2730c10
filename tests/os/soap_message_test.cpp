// Catches: a message that isn't the one XML document that was meant, or isn't XML at all; an answer of an
// unusual form that is read wrongly; a hostile one that crashes, hangs or is taken.
#include "os/linux/soap_answer_screen.h"
#include "os/linux/soap_buffer.h"
#include "os/linux/soap_reader.h"
#include "os/linux/soap_serializer.h"

#include "support/ascii.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

using namespace kro::tessel;
using namespace std::string_literals;
using tessel_test::plain;

namespace {

std::uint32_t code_of(const std::function<void()>& operation) {
    try {
        operation();
        return 0;
    } catch (const os::soap_error& failure) {
        return failure.code;
    }
}

struct message {
    os::soap_buffer buffer;
    os::message_serializer serializer;

    message() {
        serializer.init(buffer);
        serializer.start_envelope({}, {}, {});
        serializer.start_body({});
    }
    std::string finish() {
        serializer.end_body();
        serializer.end_envelope();
        const std::size_t body = buffer.bytes.find("<SOAP-ENV:Body>");
        return buffer.bytes.substr(body + 15, buffer.bytes.rfind("</SOAP-ENV:Body>") - body - 15);
    }
};

// What a reader makes of an answer: its error number, else what `look` gives.
template <class Look>
std::string look_at(std::string answer, Look&& look, std::string charset = {}) {
    os::soap_buffer buffer;
    buffer.bytes = std::move(answer);
    buffer.charset = std::move(charset);
    std::string seen;
    const std::uint32_t code = code_of([&] {
        os::document_reader reader;
        reader.load(buffer, {});
        seen = look(reader);
    });
    char number[16];
    std::snprintf(number, sizeof number, "%08X", static_cast<unsigned>(code));
    return code == 0 ? seen : number;
}

std::string pairs_of(os::document_reader& reader) {
    const auto nodes = reader.rpc_result_nodes();
    std::string pairs;
    for (std::int32_t i = 0; i < nodes->length(); ++i) {
        pairs += plain(nodes->first_child_text(i)) + "=" + plain(nodes->last_child_text(i)) + ";";
    }
    return pairs;
}

std::string xml_of(os::document_reader& reader) {
    return plain(reader.document_xml());
}

std::string envelope(std::string_view body) {
    std::string text =
        R"(<?xml version="1.0"?><e:Envelope xmlns:e="http://schemas.xmlsoap.org/soap/envelope/"><e:Body>)";
    return text.append(body) + "</e:Body></e:Envelope>";
}

std::string repeated(std::string_view text, std::size_t times) {
    std::string all;
    all.reserve(text.size() * times);
    for (std::size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

constexpr std::string_view k_refused = "80004005";

}  // namespace

TEST(SoapMessage, IsOneDocumentWithPrefixesOfItsOwn) {
    message one;
    const os::soap_text urn = TESSEL_W("urn:a&\"b");
    one.serializer.start_element(TESSEL_W("m"), urn, {});
    one.serializer.start_element(TESSEL_W("\u00E9l\u00E9ment"), urn, {});
    one.serializer.write_string(TESSEL_W("<&>\"\r\n\t]]> \u20AC \U0001F600"));
    one.serializer.end_element();
    one.serializer.start_element(TESSEL_W("other"), TESSEL_W("urn:b"), TESSEL_W("STANDARD"));
    one.serializer.start_element(TESSEL_W("none"), {}, {});
    one.serializer.end_element();
    one.serializer.end_element();
    one.serializer.end_element();
    EXPECT_EQ(one.finish(),
              "<SOAPSDK1:m "
              "xmlns:SOAPSDK1=\"urn:a&amp;&quot;b\"><SOAPSDK1:\u00E9l\u00E9ment>&lt;&amp;&gt;\"&#xD;\n\t"
              "]]&gt; \u20AC \U0001F600</SOAPSDK1:\u00E9l\u00E9ment><SOAPSDK2:other xmlns:SOAPSDK2=\"urn:b\" "
              "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><none/></SOAPSDK2:other>"
              "</SOAPSDK1:m>");
    EXPECT_EQ(one.buffer.bytes.rfind(
                  "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?><SOAP-ENV:Envelope "
                  "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>",
                  0),
              0U);
}

TEST(SoapMessage, RefusesWhatXmlCanNotCarryAndWhatIsOutOfOrder) {
    const wide_string names[] = {TESSEL_W(""),    TESSEL_W("a b"),   TESSEL_W("1a"),
                                 TESSEL_W("a:b"), TESSEL_W("-a"),    TESSEL_W("a\u00D7"),
                                 TESSEL_W("<a"),  wide_string(1, 0), wide_string(1, 0xD800)};
    for (const wide_string& name : names) {
        message one;
        EXPECT_EQ(code_of([&] { one.serializer.start_element(name, {}, {}); }), os::k_soap_invalid_argument)
            << plain(name);
    }
    for (const unsigned unit : {0x0U, 0x1U, 0xBU, 0x1FU, 0xD800U, 0xDFFFU, 0xFFFEU, 0xFFFFU}) {
        message one;
        one.serializer.start_element(TESSEL_W("m"), {}, {});
        const wide_string value{TESSEL_W('a'), static_cast<wchar>(unit), TESSEL_W('a')};
        EXPECT_EQ(code_of([&] { one.serializer.write_string(value); }), os::k_soap_invalid_argument) << unit;
    }
    message one;
    EXPECT_EQ(code_of([&] { one.serializer.end_element(); }), os::k_soap_failure);
    EXPECT_EQ(code_of([&] { one.serializer.write_string(TESSEL_W("x")); }), os::k_soap_failure);
    EXPECT_EQ(code_of([&] { one.serializer.end_envelope(); }), os::k_soap_failure);
    one.serializer.start_element(TESSEL_W("m"), {}, {});
    EXPECT_EQ(code_of([&] { one.serializer.end_body(); }), os::k_soap_failure);
}

TEST(SoapAnswer, GivesThePairsOfItsResult) {
    const struct {
        const char* name;
        std::string body, pairs;
    } rows[] = {
        {"as it comes", "<r><x><i><n>a</n><v>1</v></i><i><n>b</n><v/></i></x></r>", "a=1;b=;"},
        {"indented", "\n <r>\n  <x>\n <i>\n\t<n> a </n>\r\n<v>\n1\n</v> </i>\n</x>\n</r>\n", "a=1;"},
        {"CDATA, references and inner elements",
         "<r><x><i><n><![CDATA[<a>]]>&#98;&amp;</n><v>1<w>2</w> 3</v></i></x></r>", "<a>b&=12 3;"},
        {"the second entry and parameter don't count",
         "<r><x/><y><i><n>a</n></i></y></r><s><x><i><n>b</n></i></x></s>", ""},
        {"an item without children", "<r><x><i href='#1'/></x></r>", "80004003"},
        {"no result", "<r/>", "80004003"},
        {"a fault", "<e:Fault><faultcode>e:Server</faultcode></e:Fault>", "80004003"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(look_at(envelope(row.body), pairs_of), row.pairs) << row.name;
    }
    EXPECT_EQ(look_at("<r><x><i><n>a</n></i></x></r>", pairs_of), "80004003") << "no envelope";
}

TEST(SoapAnswer, GivesTheFault) {
    const auto fault = [](os::document_reader& reader) {
        wide_string code;
        wide_string text;
        return reader.fault(code, text) ? plain(code) + "|" + plain(text) : "none";
    };
    EXPECT_EQ(
        look_at(
            envelope("<e:Fault><faultcode>e:Client</faultcode>\n<faultstring> no </faultstring></e:Fault>"),
            fault),
        "e:Client|no");
    EXPECT_EQ(look_at(envelope("<Fault><faultcode>e:Client</faultcode></Fault>"), fault), "none");
}

TEST(SoapAnswer, GivesItsTextAndKnowsItsEncoding) {
    const auto utf16 = [](std::string_view ascii, bool big) {
        std::string bytes;
        for (const char c : ascii) {
            bytes += big ? std::string{'\0', c} : std::string{c, '\0'};
        }
        return bytes;
    };
    // Those that a parser left to itself would know by their first bytes, and that can't be screened.
    std::string utf32;
    for (const char c : std::string_view("<?xml version='1.0'?><a/>")) {
        utf32 += std::string{c, '\0', '\0', '\0'};
    }
    const std::string ebcdic =
        "\x4C\x6F\xA7\x94\x93\x40\xA5\x85\x99\xA2\x89\x96\x95\x7E\x7D\xF1\x4B\xF0\x7D\x6F\x6E\x4C\x81\x61"
        "\x6E";
    const struct {
        const char* name;
        std::string bytes, charset, xml;
    } rows[] = {
        {"UTF-32", utf32, "", std::string(k_refused)},
        {"EBCDIC", ebcdic, "", std::string(k_refused)},
        {"a mark, then another encoding", "\xEF\xBB\xBF" + ebcdic, "", std::string(k_refused)},
        {"a mark that the declaration denies",
         "\xEF\xBB\xBF<?xml version='1.0' encoding='iso-8859-1'?><a>\xC3\xA9</a>", "",
         "<?xml version=\"1.0\"?>\r\n<a>?</a>\r\n"},
        {"blanks go, the rest stays",
         "<?xml version='1.0' encoding='utf-8'?>\n<!--c--> <a b='\"'> <c> x </c>\n<d>\r\n</d></a>", "",
         "<?xml version=\"1.0\"?>\r\n<!--c-->\r\n<a b=\"&quot;\"><c> x </c><d/></a>\r\n"},
        {"standalone", "<?xml version='1.0' standalone='yes'?><a>&lt;&#13;<![CDATA[<]]></a>", "",
         "<?xml version=\"1.0\" standalone=\"yes\"?>\r\n<a>&lt;&#13;<![CDATA[<]]></a>\r\n"},
        {"UTF-8 with a mark", "\xEF\xBB\xBF<a>\xC3\xA9</a>", "iso-8859-1", "<a>?</a>\r\n"},
        {"UTF-16, little", utf16("<?xml version='1.0' encoding='utf-16'?><a/>", false), "utf-8",
         "<?xml version=\"1.0\"?>\r\n<a/>\r\n"},
        {"the transport's character set", "<a>\xE9</a>", "ISO-8859-1", "<a>?</a>\r\n"},
        {"the document's wins", "<?xml version='1.0' encoding='UTF-8'?><a>\xE9</a>", "iso-8859-1",
         std::string(k_refused)},
        {"one that is written in escapes", "<?xml version='1.0' encoding='UTF-7'?><a/>", "",
         std::string(k_refused)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(look_at(row.bytes, xml_of, row.charset), row.xml) << row.name;
    }
}

TEST(SoapAnswer, IsRefusedWithoutAWordToStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(look_at("<?xml version='1.0' encoding='shift_jis'?><a>\xFF\xFE</a>", xml_of), k_refused);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SoapAnswer, OfAHostileKindIsRefusedAtOnce) {
    std::string attributes;
    for (int i = 0; i < 100000; ++i) {
        attributes += " a" + std::to_string(i) + "=''";
    }
    const struct {
        const char* name;
        std::string answer;
    } rows[] = {
        {"empty", ""},
        {"no XML", "HTTP/1.1 418 I'm a teapot"},
        {"cut short", envelope("<r/>").substr(0, 90)},
        {"DOCTYPE", "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>"},
        {"prefixes that nobody declared", "<b:a/>"},
        {"invalid UTF-8", "<a>\xC3(</a>"},
        {"a surrogate alone", "\xFF\xFE<\0a\0>\0\0\xD8<\0/\0a\0>\0"s},
        {"a zero", "<a>\0</a>"s},
        {"100,000 levels", repeated("<a>", 100000) + repeated("</a>", 100000)},
        {"100,000 attributes", "<a" + attributes + "/>"},
        {"two million and more nodes", "<a>" + repeated("<b/>", 2100000) + "</a>"},
        {"too large", "<a>" + std::string(os::k_max_answer_bytes, ' ') + "</a>"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(look_at(row.answer, xml_of), k_refused) << row.name;
    }
    const std::string siblings = envelope("<r><x>" + repeated("<i><n>a</n></i>", 500000) + "</x></r>");
    EXPECT_EQ(look_at(siblings, pairs_of).size(), 2000000U) << "half a million items are many, not hostile";
}
