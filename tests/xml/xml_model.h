// The rules of the XML events written down as plainly as they are told: ordered tables that are walked for
// every element. Random documents go through it and through the library.
#pragma once

#include "tessel/xml/xml_handler.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace tessel_test {

using kro::tessel::CTString;
using kro::tessel::wide_string;

using text_slots = std::map<unsigned, CTString>;  // targets by number

struct xml_registration {
    enum kind_of : unsigned { node_list, node, attribute, text, attribute_text } kind;
    unsigned id;
    wide_string path;  // the attribute's name for attribute_text
    unsigned target;
};

class xml_model {
public:
    std::vector<std::string> log;
    text_slots texts;
    /// What to register inside the nth event.
    std::map<std::size_t, xml_registration> inside;

    void add(const xml_registration& one) {
        if (one.kind == xml_registration::text) {
            m_texts.emplace(one.path, one.target);
        } else if (one.kind == xml_registration::attribute_text) {
            m_attribute_texts[one.id].emplace(one.path, one.target);
        } else {
            m_listeners[one.kind][one.id] = one.path;
        }
    }

    void start(const wide_string& name, const std::vector<wide_string>& attributes) {
        for (const xml_registration& one : m_waiting) {
            add(one);
        }
        m_waiting.clear();
        m_path += wide_string(1, TESSEL_W('/')) + name;
        m_open.push_back({first(xml_registration::node_list), first(xml_registration::node),
                          m_texts.count(m_path) != 0 ? static_cast<int>(m_texts[m_path]) : -1});
        int listener = -1;
        for (const auto& [id, path] : m_listeners[xml_registration::attribute]) {
            if (listener < 0 && path == m_path && m_attribute_texts.count(id) != 0 && !attributes.empty()) {
                listener = static_cast<int>(id);
            }
        }
        const auto bound = listener < 0 ? std::map<wide_string, unsigned>()
                                        : m_attribute_texts[static_cast<unsigned>(listener)];
        event("list+", m_open.back().node_list);
        event("node+", m_open.back().node);
        event("attribute+", listener);
        for (const auto& [wanted, target] : bound) {
            std::size_t at = 0;
            while (at < attributes.size() && attributes[at] != wanted) {
                ++at;
            }
            if (at < attributes.size()) {
                texts[target] = at + 1 < attributes.size() ? attributes[at + 1] : wide_string();
            }
        }
        event("attribute-", listener);
    }

    void text(const wide_string& run) {
        if (m_open.back().text >= 0) {
            texts[static_cast<unsigned>(m_open.back().text)] += CTString(run);
        }
    }

    void end(const wide_string& name) {
        event("list-", m_open.back().node_list);
        event("node-", m_open.back().node);
        m_open.pop_back();
        const std::size_t at = m_path.rfind(wide_string(1, TESSEL_W('/')) + name);
        if (at != wide_string::npos && at > 0) {
            m_path.resize(at);
        }
    }

    /// The document is over, well or not.
    void finish() {
        m_open.clear();
        for (const xml_registration& one : m_waiting) {
            add(one);
        }
        m_waiting.clear();
    }

private:
    struct open_element {
        int node_list;
        int node;
        int text;
    };

    int first(unsigned kind) const {
        for (const auto& [id, path] : m_listeners[kind]) {
            if (path == m_path) {
                return static_cast<int>(id);
            }
        }
        return -1;
    }

    void event(const char* what, int id) {
        if (id >= 0) {
            log.push_back(what + std::to_string(id));
            const auto one = inside.find(log.size());
            if (one != inside.end()) {
                m_waiting.push_back(one->second);
            }
        }
    }

    wide_string m_path;
    std::map<unsigned, wide_string> m_listeners[3];
    std::map<wide_string, unsigned> m_texts;
    std::map<unsigned, std::map<wide_string, unsigned>> m_attribute_texts;
    std::vector<open_element> m_open;
    std::vector<xml_registration> m_waiting;
};

/// The library's side: logs its events in the same words.
class logging_handler : public EXPAT_EX::CXMLHandler {
public:
    std::vector<std::string> log;
    text_slots texts;
    std::map<std::size_t, xml_registration> inside;

    void add(const xml_registration& one) {
        switch (one.kind) {
            case xml_registration::node_list:
                return AddNodeListEventListener(one.id, one.path);
            case xml_registration::node:
                return AddNodeEventListener(one.id, one.path);
            case xml_registration::attribute:
                return AddAttributeEventListener(one.id, one.path);
            case xml_registration::text:
                return AddTextSelecter(one.path, &texts[one.target]);
            case xml_registration::attribute_text:
                return AddAttributeTextSelecter(one.id, one.path, &texts[one.target]);
        }
    }

    void OnStartNodeListEvent(unsigned int id) override { event("list+", id); }
    void OnEndNodeListEvent(unsigned int id) override { event("list-", id); }
    void OnStartNodeEvent(unsigned int id) override { event("node+", id); }
    void OnEndNodeEvent(unsigned int id) override { event("node-", id); }
    void OnStartAttributeEvent(unsigned int id) override { event("attribute+", id); }
    void OnEndAttributeEvent(unsigned int id) override { event("attribute-", id); }

protected:
    virtual void event(const char* what, unsigned id) {
        log.push_back(what + std::to_string(id));
        const auto one = inside.find(log.size());
        if (one != inside.end()) {
            add(one->second);
        }
    }
};

}  // namespace tessel_test
