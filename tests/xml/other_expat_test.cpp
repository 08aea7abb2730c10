// Desktop programs have Expat's 8-bit build in them, often without knowing. It has the names of the 16-bit
// one; whoever calls the wrong one reads every text wrongly.
#include <tessel/tessel.h>

#include <expat.h>
#include <gtest/gtest.h>

#include <string>

namespace {

void XMLCALL on_start(void* names, const XML_Char* name, const XML_Char** /*attributes*/) {
    *static_cast<std::string*>(names) += name;
}

TEST(OtherExpat, LivesBesideOurs) {
    std::string names;
    XML_Parser const parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &names);
    XML_SetStartElementHandler(parser, on_start);
    EXPECT_EQ(XML_Parse(parser, "<one/>", 6, 1), XML_STATUS_OK);
    XML_ParserFree(parser);
    EXPECT_EQ(names, "one");

    kro::tessel::CTString text;
    EXPAT_EX::CXMLHandler handler;
    handler.AddTextSelecter(TESSEL_W("/two"), &text);
    EXPECT_EQ(handler.ParseXmlUtf8("<two>2</two>", -1), 1);
    EXPECT_EQ(text, TESSEL_W("2"));
}

}  // namespace
