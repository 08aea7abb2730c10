#include "tessel/xml/xml_handler.h"

#include "xml/document_source.h"
#include "xml/event_engine.h"

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace EXPAT_EX {

using namespace kro::tessel::xml;
using kro::tessel::CTString;

namespace {

wide_view entity_of(wchar unit) {
    switch (unit) {
        case TESSEL_W('&'):
            return TESSEL_W("&amp;");
        case TESSEL_W('"'):
            return TESSEL_W("&quot;");
        case TESSEL_W('\''):
            return TESSEL_W("&apos;");
        case TESSEL_W('<'):
            return TESSEL_W("&lt;");
        case TESSEL_W('>'):
            return TESSEL_W("&gt;");
        default:
            return {};
    }
}

template <class MakeSource>
int parse(event_engine& engine, MakeSource make_source) {
    try {
        const std::unique_ptr<document_source> source = make_source();
        return source != nullptr && engine.parse(*source) ? 1 : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

}  // namespace

CXMLHandler::CXMLHandler() {
    m_parser.SetXMLHandler(this);
    Create();
}

CXMLHandler::CXMLHandler(const CXMLHandler& other) : m_parser(other.m_parser) {
    m_parser.SetXMLHandler(this);
    Create();
}

CXMLHandler& CXMLHandler::operator=(const CXMLHandler& other) {
    if (this != &other) {
        m_parser = other.m_parser;
        m_parser.SetXMLHandler(this);
        Create();
    }
    return *this;
}

CXMLHandler::~CXMLHandler() = default;
void CXMLHandler::OnStartNodeListEvent(unsigned int /*id*/) {}
void CXMLHandler::OnEndNodeListEvent(unsigned int /*id*/) {}
void CXMLHandler::OnStartNodeEvent(unsigned int /*id*/) {}
void CXMLHandler::OnEndNodeEvent(unsigned int /*id*/) {}
void CXMLHandler::OnStartAttributeEvent(unsigned int /*id*/) {}
void CXMLHandler::OnEndAttributeEvent(unsigned int /*id*/) {}

void CXMLHandler::Create() {
    if (m_parser.m_engine->create_parser()) {
        m_parser.OnPostCreate();
    }
}

void CXMLHandler::AddNodeListEventListener(unsigned int id, const CTString& path) {
    m_parser.AddNodeListEventListener(id, path);
}

void CXMLHandler::AddNodeEventListener(unsigned int id, const CTString& path) {
    m_parser.AddNodeEventListener(id, path);
}

void CXMLHandler::AddAttributeEventListener(unsigned int id, const CTString& path) {
    m_parser.AddAttributeEventListener(id, path);
}

void CXMLHandler::AddTextSelecter(const CTString& path, CTString* target) {
    m_parser.AddTextSelecter(path, target);
}

void CXMLHandler::AddAttributeTextSelecter(unsigned int id, const CTString& attribute_name,
                                           CTString* target) {
    m_parser.AddAttributeTextSelecter(id, attribute_name, target);
}

int CXMLHandler::ParseXML(CTString text) {
    return parse(*m_parser.m_engine, [&] { return source_of_text(std::move(text)); });
}

int CXMLHandler::ParseXmlUtf8(const char* data, int length) {
    if (data == nullptr) {
        return 0;
    }
    const std::size_t bytes = length < 0 ? std::strlen(data) : static_cast<std::size_t>(length);
    return parse(*m_parser.m_engine, [&] { return source_of_bytes({data, bytes}); });
}

int CXMLHandler::ParseXMLFile(const wchar* path) {
    return parse(*m_parser.m_engine, [&] { return source_of_file(path); });
}

#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
int CXMLHandler::ParseXMLFile(const wchar_t* path) {
    return ParseXMLFile(kro::tessel::from_wchar_t(path).c_str());
}
#endif

CTString CXMLHandler::XMLEncode(const CTString& text) const {
    CTString encoded;
    encoded.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const wide_view entity = entity_of(text[at]);
        if (!entity.empty()) {
            encoded.append(text, copied, at - copied).append(entity);
            copied = at + 1;
        }
    }
    encoded.append(text, copied, CTString::npos);
    return encoded;
}

}  // namespace EXPAT_EX
