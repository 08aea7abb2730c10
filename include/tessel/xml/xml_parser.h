// The path of the element being parsed, and what is registered for which path.
#pragma once

#include <tessel/base/string.h>

#include <memory>

namespace kro::tessel::xml {
class event_engine;
}

namespace EXPAT_EX {

class CXMLHandler;

/// Follows a document element by element and fires a handler's numbered events. A CXMLHandler brings one
/// along, makes its parser and feeds it; hosts seldom need this class by itself.
///
/// Paths: each open element adds "/" and its name as written, prefix included: element b in the root a has
/// the path /a/b. Paths match as a whole and exactly; there are no wildcards.
///
/// The first root stays in the path when it ends (kept: hosts rely on it). A handler that parses a second
/// document finds its elements below that root: after <a/>, the document <a><b/></a> has /a/a and /a/a/b.
///
/// A registration made inside an event counts from the next element on; elements that are open then keep
/// what they matched when they started, so that each start event has its end event.
///
/// Thread: one at a time. Events run inside the call that feeds the parser.
class TESSEL_API CXMLParser {
public:
    /// Empty path and tables, no parser, no handler.
    CXMLParser();
    /// Copies take path, registrations and handler, but no parser.
    CXMLParser(const CXMLParser& other);
    CXMLParser& operator=(const CXMLParser& other);
    virtual ~CXMLParser();

    /// Who gets the events; not owned, may be null.
    void SetXMLHandler(CXMLHandler* handler);

    /// Makes the parser, where there is one, call the three operations below.
    void OnPostCreate();

    /// An element starts. In this order, where something is registered for its path: the start event of the
    /// node list, of the node, and, when it has attributes, both attribute events around the bound texts.
    /// name:       zero-terminated.
    /// attributes: name, value, name, value ..., then a null pointer; may be null.
    void OnStartElement(const wchar* name, const wchar** attributes);

    /// An element ends: the end events of its node list and node; then the path loses everything from the
    /// last "/name" on, unless that would leave it empty or it isn't there.
    void OnEndElement(const wchar* name);

    /// Appends a run of text to the string bound to the current path. length: in units; nothing below 1.
    void OnCharacterData(const wchar* text, int length);

    // What CXMLHandler offers under the same names, which see.
    void AddNodeListEventListener(unsigned int id, const kro::tessel::CTString& path);
    void AddNodeEventListener(unsigned int id, const kro::tessel::CTString& path);
    void AddAttributeEventListener(unsigned int id, const kro::tessel::CTString& path);
    void AddTextSelecter(const kro::tessel::CTString& path, kro::tessel::CTString* target);
    void AddAttributeTextSelecter(unsigned int id, const kro::tessel::CTString& attribute_name,
                                  kro::tessel::CTString* target);

private:
    friend class CXMLHandler;

    std::shared_ptr<kro::tessel::xml::event_engine> m_engine;
};

}  // namespace EXPAT_EX
