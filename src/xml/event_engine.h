// From a document's bytes to a handler's events: Expat below, the path and the registrations beside it.
#pragma once

#include "tessel/xml/xml_handler.h"
#include "xml/document_source.h"
#include "xml/element_path.h"
#include "xml/path_index.h"

#include <functional>
#include <memory>
#include <vector>

struct XML_ParserStruct;

namespace kro::tessel::xml {

class event_engine : public std::enable_shared_from_this<event_engine> {
public:
    event_engine() = default;
    event_engine(const event_engine&) = delete;
    event_engine& operator=(const event_engine&) = delete;

    /// Takes over path and registrations.
    void copy_tables(const event_engine& other);
    EXPAT_EX::CXMLHandler* handler() const { return m_handler; }
    void set_handler(EXPAT_EX::CXMLHandler* handler) { m_handler = handler; }

    /// A new parser, without callbacks; false, and none, without memory. A parse that runs ends with 0.
    bool create_parser();
    void install_callbacks();

    /// The owner goes: nothing of the host is touched any more.
    void abandon();

    /// Feeds the parser and returns whether the document was well-formed and heard to its end.
    bool parse(document_source& document);

    // What Expat tells.
    void start_element(wide_view name, const wchar** attributes);
    void end_element();
    void character_data(wide_view text);

    // The same from elsewhere: names of any kind, in any order.
    void start_element_by_hand(wide_view name, const wchar** attributes);
    void end_element_by_hand(wide_view name);
    void character_data_by_hand(wide_view text);

    using registration = std::function<void(path_index&)>;
    /// Registers something: at once, or before the next element when an event is running.
    void enroll(registration change);

private:
    struct callbacks;
    class firing;

    bool feed(document_source& document);
    void fire_start_of_top(const wchar** attributes);
    void fire_start(path_match what, const wchar** attributes);
    void fire_attributes(const bound_attributes& bound, const wchar** attributes);
    void fire_end(path_match what);
    void apply_pending();
    void catch_up();
    void choose_text();
    void fire_end_of_top();
    bool hears() const { return m_handler != nullptr && !m_over; }

    path_index m_index;
    element_path m_path;
    std::vector<registration> m_pending;  // made inside events
    EXPAT_EX::CXMLHandler* m_handler = nullptr;
    std::shared_ptr<XML_ParserStruct> m_parser;
    unsigned m_events = 0;      // events that are running, one inside the other
    bool m_feeding = false;     // a parse is running
    bool m_over = false;        // nobody is to hear of the rest of the document
    bool m_takes_text = false;  // Expat has a callback for text
    bool m_stale = false;       // m_path doesn't know the latest registrations
};

}  // namespace kro::tessel::xml
