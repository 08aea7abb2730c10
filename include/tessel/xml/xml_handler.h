// XML as events: numbered events for the elements at chosen paths, and their texts in strings of the host.
#pragma once

#include <tessel/base/string.h>
#include <tessel/xml/xml_parser.h>

namespace EXPAT_EX {

/// Derive from it, register paths, feed a document:
///
///     struct contacts : EXPAT_EX::CXMLHandler {
///         kro::tessel::CTString name;
///         contacts() {
///             AddNodeEventListener(1, TESSEL_W("/contacts/contact"));
///             AddTextSelecter(TESSEL_W("/contacts/contact/name"), &name);
///         }
///         void OnStartNodeEvent(unsigned int) override { name.clear(); }
///         void OnEndNodeEvent(unsigned int) override { ... }  // name is whole here
///     };
///
/// No tree is built: a document costs what its parser holds, the depth of its elements and what the host
/// keeps. What paths are and when registrations count: see CXMLParser.
///
/// Malformed documents, entities that blow up and documents too large for the memory give 0, nothing worse.
/// External entities and DTDs are never read.
///
/// Inside an event a host may register, call Create (the running parse ends with 0), even destroy the
/// handler; feeding the same handler there gives 0. An exception that leaves an event ends the parse with 0
/// and goes no further.
///
/// Thread: one at a time; different handlers are independent.
class TESSEL_API CXMLHandler {
public:
    /// With a parser, as after Create.
    CXMLHandler();
    /// A copy has the path and the registrations (the same target strings) of the other, a parser of its own
    /// that has parsed nothing, and gets its own events.
    CXMLHandler(const CXMLHandler& other);
    CXMLHandler& operator=(const CXMLHandler& other);

    virtual ~CXMLHandler();
    virtual void OnStartNodeListEvent(unsigned int id);
    virtual void OnEndNodeListEvent(unsigned int id);
    virtual void OnStartNodeEvent(unsigned int id);
    virtual void OnEndNodeEvent(unsigned int id);
    virtual void OnStartAttributeEvent(unsigned int id);
    virtual void OnEndAttributeEvent(unsigned int id);

    /// A new parser in place of the old one. Each parses one document, so call it before the second. Path
    /// and registrations stay. Without memory there is no parser, and parsing gives 0.
    void Create();

    /// Events 'id' when an element at this path starts and ends. One listener fires for an element: of
    /// several with the same path the one with the lowest id (kept). An id that is in use moves to the new
    /// path. The two kinds are independent of each other; node lists come first.
    void AddNodeListEventListener(unsigned int id, const kro::tessel::CTString& path);
    void AddNodeEventListener(unsigned int id, const kro::tessel::CTString& path);

    /// Attribute events 'id', both inside the start of an element at this path that has attributes. Fires
    /// only for ids with at least one AddAttributeTextSelecter; of several the lowest id.
    void AddAttributeEventListener(unsigned int id, const kro::tessel::CTString& path);

    /// Text directly inside elements at this path is appended to *target, untrimmed, blanks between child
    /// elements included. Nothing ever clears it but the host. The first target of a path stays.
    /// target: not owned; must live as long as the handler may parse. Null takes the text nowhere.
    void AddTextSelecter(const kro::tessel::CTString& path, kro::tessel::CTString* target);

    /// Between the attribute events 'id', *target becomes the value of this attribute; an element without it
    /// leaves the target alone. The first target of an id and name stays.
    /// The search looks at names and values alike (kept): in k1="y" y="2", the name y is found as the value
    /// of k1 first, and the target gets what stands behind it, "y"; nothing when that was the last value.
    void AddAttributeTextSelecter(unsigned int id, const kro::tessel::CTString& attribute_name,
                                  kro::tessel::CTString* target);

    /// Each parses a whole document and returns 1, or 0 when it isn't well-formed, the parser has had a
    /// document already, or there is none. Events and texts up to the error stand.
    ///
    /// ParseXML: up to a zero unit. The text reaches the parser as UTF-8; an encoding in its declaration is
    /// obeyed all the same, so one that isn't UTF-8 garbles or fails (kept).
    int ParseXML(kro::tessel::CTString text);
    /// length: in bytes; below 0, the data ends with a zero. Any encoding that the document declares.
    int ParseXmlUtf8(const char* data, int length);
    /// The same for the bytes of a file, which are read as the parser gets to them. 0 without a file.
    int ParseXMLFile(const wchar* path);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    int ParseXMLFile(const wchar_t* path);
#endif

    /// Text for use inside XML: & " ' < > become &amp; &quot; &apos; &lt; &gt;, also those of an entity.
    kro::tessel::CTString XMLEncode(const kro::tessel::CTString& text) const;

private:
    CXMLParser m_parser;
};

}  // namespace EXPAT_EX
