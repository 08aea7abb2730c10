#include "tessel/xml/xml_parser.h"

#include "xml/event_engine.h"

namespace EXPAT_EX {

using kro::tessel::CTString;
using kro::tessel::xml::event_engine;
using kro::tessel::xml::path_index;
using kro::tessel::xml::wide_view;

CXMLParser::CXMLParser() : m_engine(std::make_shared<event_engine>()) {}

CXMLParser::CXMLParser(const CXMLParser& other) : CXMLParser() {
    *this = other;
}

CXMLParser& CXMLParser::operator=(const CXMLParser& other) {
    if (this != &other) {
        m_engine->copy_tables(*other.m_engine);
        m_engine->set_handler(other.m_engine->handler());
    }
    return *this;
}

CXMLParser::~CXMLParser() {
    m_engine->abandon();
}

void CXMLParser::SetXMLHandler(CXMLHandler* handler) {
    m_engine->set_handler(handler);
}

void CXMLParser::OnPostCreate() {
    m_engine->install_callbacks();
}

void CXMLParser::OnStartElement(const wchar* name, const wchar** attributes) {
    const auto engine = m_engine;  // an event may destroy this
    engine->start_element_by_hand(name != nullptr ? name : wide_view(), attributes);
}

void CXMLParser::OnEndElement(const wchar* name) {
    const auto engine = m_engine;
    engine->end_element_by_hand(name != nullptr ? name : wide_view());
}

void CXMLParser::OnCharacterData(const wchar* text, int length) {
    if (text != nullptr && length >= 1) {
        m_engine->character_data_by_hand({text, static_cast<std::size_t>(length)});
    }
}

void CXMLParser::AddNodeListEventListener(unsigned int id, const CTString& path) {
    m_engine->enroll(
        [=](path_index& index) { index.add_listener(kro::tessel::xml::node_list_listener, id, path); });
}

void CXMLParser::AddNodeEventListener(unsigned int id, const CTString& path) {
    m_engine->enroll(
        [=](path_index& index) { index.add_listener(kro::tessel::xml::node_listener, id, path); });
}

void CXMLParser::AddAttributeEventListener(unsigned int id, const CTString& path) {
    m_engine->enroll(
        [=](path_index& index) { index.add_listener(kro::tessel::xml::attribute_listener, id, path); });
}

void CXMLParser::AddTextSelecter(const CTString& path, CTString* target) {
    m_engine->enroll([=](path_index& index) { index.add_text(path, target); });
}

void CXMLParser::AddAttributeTextSelecter(unsigned int id, const CTString& attribute_name, CTString* target) {
    m_engine->enroll([=](path_index& index) { index.add_attribute_text(id, attribute_name, target); });
}

}  // namespace EXPAT_EX
