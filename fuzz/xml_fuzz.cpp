// Any bytes as a document, in one piece and in small ones: the same events and texts, each start with its end
// unless the document breaks off.
#include "tessel/xml/xml_handler.h"
#include "xml/document_source.h"
#include "xml/event_engine.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace xml = kro::tessel::xml;
using kro::tessel::CTString;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

class piecewise final : public xml::document_source {
public:
    piecewise(std::string_view bytes, std::size_t piece) : m_rest(bytes), m_piece(piece) {}
    std::size_t room(std::size_t waiting) const override {
        return std::min(m_rest.size(), std::max(waiting, m_piece));
    }
    std::size_t fill(char* out, std::size_t room) override {
        m_rest.copy(out, room);
        m_rest.remove_prefix(room);
        return room;
    }
    bool at_end() const override { return m_rest.empty(); }

private:
    std::string_view m_rest;
    std::size_t m_piece;
};

struct recorder : EXPAT_EX::CXMLHandler {
    std::vector<std::pair<char, unsigned>> log;
    CTString texts[4];
    int depth = 0;

    void OnStartNodeListEvent(unsigned int id) override { opened('L', id); }
    void OnEndNodeListEvent(unsigned int id) override { closed('l', id); }
    void OnStartNodeEvent(unsigned int id) override { opened('N', id); }
    void OnEndNodeEvent(unsigned int id) override { closed('n', id); }
    void OnStartAttributeEvent(unsigned int id) override { opened('A', id); }
    void OnEndAttributeEvent(unsigned int id) override { closed('a', id); }

    void opened(char kind, unsigned id) {
        log.emplace_back(kind, id);
        ++depth;
    }
    void closed(char kind, unsigned id) {
        log.emplace_back(kind, id);
        require(--depth >= 0);
    }
};

bool parse(recorder& heard, std::string_view bytes, std::size_t piece) {
    const auto engine = std::make_shared<xml::event_engine>();
    engine->set_handler(&heard);
    engine->enroll([&heard](xml::path_index& index) {
        index.add_listener(xml::node_list_listener, 1, TESSEL_W("/a"));
        index.add_listener(xml::node_list_listener, 2, TESSEL_W("/a/a"));
        index.add_listener(xml::node_listener, 3, TESSEL_W("/a/a"));
        index.add_listener(xml::attribute_listener, 4, TESSEL_W("/a/b"));
        index.add_attribute_text(4, TESSEL_W("x"), &heard.texts[0]);
        index.add_attribute_text(4, TESSEL_W("y"), &heard.texts[1]);
        index.add_text(TESSEL_W("/a"), &heard.texts[2]);
        index.add_text(TESSEL_W("/a/b"), &heard.texts[3]);
    });
    require(engine->create_parser());
    engine->install_callbacks();
    piecewise source(bytes, piece);
    const bool whole = engine->parse(source);
    require(!whole || heard.depth == 0);
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    recorder in_one;
    recorder in_pieces;
    const bool whole = parse(in_one, bytes, size);
    require(whole == parse(in_pieces, bytes, std::size_t{1} + data[0]));
    require(in_one.log == in_pieces.log);
    // How much of a text comes through in front of a fault in it depends on the pieces.
    require(!whole || std::equal(std::begin(in_one.texts), std::end(in_one.texts), in_pieces.texts));
    return 0;
}
