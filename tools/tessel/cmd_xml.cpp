// tessel xml FILE: texts, attributes and events of a document, by path.
#include <tessel/tessel.h>

#include "command.h"
#include "json_line.h"
#include "text.h"

#include <fmt/core.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

namespace command {
namespace {

using kro::tessel::CTString;

struct xml_options {
    std::string file;
    std::vector<std::string> texts;
    std::vector<std::string> attributes;
    bool events = false;
    bool json = false;
};

/// Writes what it hears of the paths that were asked for. One number stands for one path.
class xml_printer : public EXPAT_EX::CXMLHandler {
public:
    explicit xml_printer(const xml_options& options)
        : m_options(options), m_alone(options.texts.size() + options.attributes.size() == 1) {
        for (const std::string& path : options.texts) {
            add_text(path);
        }
        for (const std::string& attribute : options.attributes) {
            add_attribute(attribute);
        }
    }

    void OnStartNodeListEvent(unsigned int id) override { show_event("OnStartNodeListEvent", id); }
    void OnEndNodeListEvent(unsigned int id) override { show_event("OnEndNodeListEvent", id); }
    void OnStartNodeEvent(unsigned int id) override {
        show_event("OnStartNodeEvent", id);
        m_paths.at(id).text.clear();
    }
    void OnEndNodeEvent(unsigned int id) override {
        const asked_path& path = m_paths.at(id);
        if (path.shows_text) {
            show("text", path.path, "", path.text);
        }
        show_event("OnEndNodeEvent", id);
    }
    void OnStartAttributeEvent(unsigned int id) override {
        show_event("OnStartAttributeEvent", id);
        for (asked_attribute& attribute : m_paths.at(id).attributes) {
            attribute.value = CTString(k_untouched);  // GCC 12 warns wrongly of the assignment of a literal
        }
    }
    void OnEndAttributeEvent(unsigned int id) override {
        const asked_path& path = m_paths.at(id);
        for (const asked_attribute& attribute : path.attributes) {
            if (attribute.value != k_untouched) {
                show("attribute", path.path, attribute.name, attribute.value);
            }
        }
        show_event("OnEndAttributeEvent", id);
    }

private:
    struct asked_attribute {
        std::string name;
        CTString value;
    };
    struct asked_path {
        std::string path;
        CTString text;
        bool shows_text = false;
        std::list<asked_attribute> attributes;  // their values stay where they are
    };

    // No document can hold this character.
    static constexpr const wchar* k_untouched = TESSEL_W("\uFFFF");

    unsigned number_of(const std::string& path) {
        const auto [entry, added] = m_numbers.emplace(path, static_cast<unsigned>(m_numbers.size()));
        if (added) {
            m_paths[entry->second].path = path;
            AddNodeListEventListener(entry->second, from_utf8(path));
            AddNodeEventListener(entry->second, from_utf8(path));
        }
        return entry->second;
    }

    void add_text(const std::string& path) {
        asked_path& asked = m_paths[number_of(path)];
        asked.shows_text = true;
        AddTextSelecter(from_utf8(path), &asked.text);
    }

    // attribute: path@name, checked.
    void add_attribute(const std::string& attribute) {
        const std::size_t sign = attribute.rfind('@');
        const unsigned number = number_of(attribute.substr(0, sign));
        auto& attributes = m_paths[number].attributes;
        attributes.push_back({attribute.substr(sign + 1), CTString()});
        AddAttributeEventListener(number, from_utf8(m_paths[number].path));
        AddAttributeTextSelecter(number, from_utf8(attributes.back().name), &attributes.back().value);
    }

    void show_event(const char* event, unsigned id) const {
        const std::string& path = m_paths.at(id).path;
        if (m_options.events && m_options.json) {
            print_json_line({{"event", event}, {"path", path}});
        } else if (m_options.events) {
            fmt::print("{} {}\n", event, path);
        }
    }

    void show(const char* kind, const std::string& path, const std::string& name,
              const CTString& text) const {
        if (m_options.json) {
            nlohmann::ordered_json line = {{"path", path}, {kind, to_utf8(text)}};
            if (!name.empty()) {
                line = {{"path", path}, {kind, name}, {"value", to_utf8(text)}};
            }
            print_json_line(line);
        } else if (m_alone && !m_options.events) {
            fmt::print("{}\n", to_utf8(text));
        } else {
            fmt::print("{}{}{}\t{}\n", path, name.empty() ? "" : "@", name, to_utf8(text));
        }
    }

    const xml_options& m_options;
    const bool m_alone;
    std::map<std::string, unsigned> m_numbers;
    std::map<unsigned, asked_path> m_paths;
};

bool parse_stdin(xml_printer& printer) {
    const std::string document{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    constexpr std::size_t k_most = 0x7FFFFFFF;
    return document.size() <= k_most &&
           printer.ParseXmlUtf8(document.data(), static_cast<int>(document.size())) == 1;
}

int show_xml(const xml_options& options) {
    const bool from_stdin = options.file == "-";
    // Not by opening it: a pipe can't be opened twice.
    std::error_code ignored;
    if (!from_stdin && !std::filesystem::exists(options.file, ignored)) {
        fmt::print(stderr, "tessel: {}: isn't there\n", options.file);
        return exit_failed;
    }
    xml_printer printer(options);
    const bool parsed =
        from_stdin ? parse_stdin(printer) : printer.ParseXMLFile(from_utf8(options.file).c_str()) == 1;
    if (!parsed) {
        fmt::print(stderr, "tessel: {}: no well-formed XML, or not to be read\n", options.file);
    }
    return parsed ? exit_ok : exit_failed;
}

std::string check_path(const std::string& path) {
    return path.size() > 1 && path[0] == '/' ? "" : "a path begins with /, as in /book/title";
}

std::string check_attribute(const std::string& attribute) {
    const std::size_t sign = attribute.rfind('@');
    return sign != std::string::npos && sign > 1 && sign + 1 < attribute.size() && attribute[0] == '/'
               ? ""
               : "an attribute is a path, @ and a name, as in /book@id";
}

}  // namespace

void add_xml(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("xml", "Show texts, attributes and events of an XML document");
    auto options = std::make_shared<xml_options>();
    verb.add_option("FILE", options->file, "- is standard input").required();
    const auto texts = verb.add_option("--text", options->texts, "the text of each element at this path");
    texts.type_name("PATH").check(check_path).one_at_a_time();
    const auto attributes =
        verb.add_option("--attr", options->attributes, "the attribute of each such element");
    attributes.type_name("PATH@NAME").check(check_attribute).one_at_a_time();
    verb.add_flag("--events", options->events, "the events of these paths as well");
    verb.add_flag("--json", options->json, "as lines of JSON");
    verb.callback([options, &exit_code] {
        if (options->events && options->texts.empty() && options->attributes.empty()) {
            throw usage_error("--events: name the paths with --text or --attr");
        }
        exit_code = show_xml(*options);
    });
}

}  // namespace command
