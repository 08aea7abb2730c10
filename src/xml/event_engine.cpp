#include "xml/event_engine.h"

#include "os/memory.h"

#include "xml/expat_wide.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kro::tessel::xml {
namespace {

// Attribute texts end with a zero; names may hold zeros and then equal none of them.
bool equals(const wchar* entry, wide_view name) {
    for (const wchar unit : name) {
        if (unit == 0 || *entry != unit) {
            return false;
        }
        ++entry;
    }
    return *entry == 0;
}

}  // namespace

class event_engine::firing {
public:
    explicit firing(event_engine& engine) : m_engine(engine) { ++m_engine.m_events; }
    ~firing() { --m_engine.m_events; }
    firing(const firing&) = delete;
    firing& operator=(const firing&) = delete;

private:
    event_engine& m_engine;
};

/// Expat is C: an exception must not pass through it.
struct event_engine::callbacks {
    template <class Event>
    static void run(void* user, Event event) noexcept {
        event_engine& engine = *static_cast<event_engine*>(user);
        if (engine.m_over) {
            return;  // Expat may deliver what it had begun when it was stopped
        }
        XML_Parser const parser = engine.m_parser.get();
        try {
            event(engine);
        } catch (...) {
            engine.m_over = true;
        }
        if (engine.m_over) {
            XML_StopParser(parser, XML_FALSE);
        }
    }

    static void XMLCALL start(void* user, const XML_Char* name, const XML_Char** attributes) {
        run(user, [=](event_engine& engine) {
            engine.start_element(reinterpret_cast<const wchar*>(name),
                                 reinterpret_cast<const wchar**>(attributes));
        });
    }
    static void XMLCALL end(void* user, const XML_Char* /*name*/) {
        run(user, [](event_engine& engine) { engine.end_element(); });
    }
    static void XMLCALL text(void* user, const XML_Char* units, int length) {
        run(user, [=](event_engine& engine) {
            engine.character_data({reinterpret_cast<const wchar*>(units), static_cast<std::size_t>(length)});
        });
    }
};

void event_engine::copy_tables(const event_engine& other) {
    m_index = other.m_index;
    m_pending = other.m_pending;
    apply_pending();
    m_path.assign(m_index, other.m_path.text());
    m_stale = false;
}

bool event_engine::create_parser() {
    m_over = m_feeding;
    m_parser.reset();
    XML_Parser const made = XML_ParserCreate_MM(nullptr, nullptr, nullptr);
    if (made != nullptr) {
        m_parser = {made, XML_ParserFree};
        XML_SetUserData(made, this);
    }
    return made != nullptr;
}

void event_engine::install_callbacks() {
    if (m_parser != nullptr) {
        XML_SetStartElementHandler(m_parser.get(), callbacks::start);
        XML_SetEndElementHandler(m_parser.get(), callbacks::end);
        m_takes_text = false;
        choose_text();
    }
}

void event_engine::abandon() {
    m_over = true;
    m_handler = nullptr;
}

bool event_engine::parse(document_source& document) {
    if (m_parser == nullptr || m_feeding) {
        return false;
    }
    // An event may destroy the handler or replace the parser.
    const std::shared_ptr<event_engine> self = shared_from_this();
    const std::shared_ptr<XML_ParserStruct> parser = m_parser;
    bool complete = false;
    m_feeding = true;
    try {
        catch_up();
        choose_text();
        complete = feed(document);
        apply_pending();
    } catch (const std::bad_alloc&) {
        XML_StopParser(parser.get(), XML_FALSE);
    }
    m_feeding = false;
    m_stale = m_stale || !complete;
    const bool heard = !std::exchange(m_over, false);
    return complete && heard;
}

bool event_engine::feed(document_source& document) {
    XML_Parser const parser = m_parser.get();
    std::size_t fed = 0;
    std::size_t waiting = 0;
    for (;;) {
        const std::size_t room = document.room(waiting);
        void* const buffer = XML_GetBuffer(parser, static_cast<int>(std::max<std::size_t>(room, 1)));
        if (buffer == nullptr) {
            return false;
        }
        os::expect_to_fill(buffer, room);
        const std::size_t bytes = document.fill(static_cast<char*>(buffer), room);
        const int last = document.at_end() ? 1 : 0;
        if (XML_ParseBuffer(parser, static_cast<int>(bytes), last) != XML_STATUS_OK) {
            return false;
        }
        if (last != 0) {
            return true;
        }
        fed += bytes;
        const XML_Index used = XML_GetCurrentByteIndex(parser);
        waiting = used < 0 ? 0 : fed - static_cast<std::size_t>(used);
    }
}

void event_engine::start_element(wide_view name, const wchar** attributes) {
    if (!m_pending.empty()) {
        apply_pending();
    }
    m_path.push(m_index, name);
    choose_text();
    fire_start_of_top(attributes);
}

void event_engine::start_element_by_hand(wide_view name, const wchar** attributes) {
    apply_pending();
    m_path.push_by_hand(m_index, name);
    fire_start_of_top(attributes);
}

void event_engine::fire_start_of_top(const wchar** attributes) {
    if (m_path.top().any) {
        fire_start(m_path.top(), attributes);
    }
}

void event_engine::fire_start(path_match what, const wchar** attributes) {
    const firing running(*this);
    if (what.has_node_list && hears()) {
        m_handler->OnStartNodeListEvent(what.node_list_id);
    }
    if (what.has_node && hears()) {
        m_handler->OnStartNodeEvent(what.node_id);
    }
    const bool has_attributes = attributes != nullptr && *attributes != nullptr;
    if (what.attributes != path_match::k_none && has_attributes && !m_over) {
        fire_attributes(m_index.attributes(what.attributes), attributes);
    }
}

void event_engine::fire_attributes(const bound_attributes& bound, const wchar** attributes) {
    if (hears()) {
        m_handler->OnStartAttributeEvent(bound.id);
    }
    if (m_over) {
        return;  // the targets may be gone
    }
    for (const auto& [name, target] : bound.bindings) {
        // Over names and values alike: kept, hosts' documents have been written for it.
        const wchar* const* entry = attributes;
        while (*entry != nullptr && !equals(*entry, name)) {
            ++entry;
        }
        if (*entry != nullptr && target != nullptr) {
            target->clear();
            if (entry[1] != nullptr) {
                target->assign(entry[1]);
            }
        }
    }
    if (hears()) {
        m_handler->OnEndAttributeEvent(bound.id);
    }
}

void event_engine::fire_end_of_top() {
    if (m_path.top().any) {
        fire_end(m_path.top());
    }
}

void event_engine::end_element() {
    fire_end_of_top();
    if (!m_over) {
        m_path.pop();
        choose_text();
    }
}

void event_engine::end_element_by_hand(wide_view name) {
    catch_up();
    fire_end_of_top();
    m_path.pop_by_hand(m_index, name);
}

// Text that nobody wants isn't even converted.
void event_engine::choose_text() {
    const bool wanted = m_path.top().text != nullptr;
    if (wanted != m_takes_text && m_parser != nullptr) {
        m_takes_text = wanted;
        XML_SetCharacterDataHandler(m_parser.get(), wanted ? callbacks::text : nullptr);
    }
}

void event_engine::fire_end(path_match what) {
    const firing running(*this);
    if (what.has_node_list && hears()) {
        m_handler->OnEndNodeListEvent(what.node_list_id);
    }
    if (what.has_node && hears()) {
        m_handler->OnEndNodeEvent(what.node_id);
    }
}

void event_engine::character_data(wide_view text) {
    if (CTString* const target = m_path.top().text; target != nullptr) {
        target->append(text);
    }
}

void event_engine::character_data_by_hand(wide_view text) {
    catch_up();
    character_data(text);
}

void event_engine::enroll(registration change) {
    if (m_events != 0) {
        m_pending.push_back(std::move(change));
        return;
    }
    apply_pending();
    change(m_index);
    m_index.tidy();
    m_stale = true;
}

void event_engine::apply_pending() {
    for (const registration& change : m_pending) {
        change(m_index);
        m_stale = true;
    }
    m_pending.clear();
}

void event_engine::catch_up() {
    if (m_stale) {
        m_path.resolve(m_index);
        m_stale = false;
    }
}

}  // namespace kro::tessel::xml
