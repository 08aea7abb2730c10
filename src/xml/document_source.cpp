#include "xml/document_source.h"

#include "os/code_page.h"
#include "os/file_name.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <utility>

namespace kro::tessel::xml {
namespace {

// What is in memory goes in one piece if it can: the parser counts lines between pieces, which costs a tenth
// of its time.
constexpr std::size_t k_longest_piece = std::size_t{256} << 20U;
constexpr std::size_t k_file_piece = std::size_t{32} << 10U;
constexpr std::size_t k_bytes_a_unit = 3;  // in UTF-8, at most

class byte_source final : public document_source {
public:
    explicit byte_source(std::string_view bytes) : m_rest(bytes) {}

    std::size_t room(std::size_t /*waiting*/) const override {
        return std::min(m_rest.size(), k_longest_piece);
    }

    std::size_t fill(char* out, std::size_t room) override {
        m_rest.copy(out, room);
        m_rest.remove_prefix(room);
        return room;
    }

    bool at_end() const override { return m_rest.empty(); }

private:
    std::string_view m_rest;
};

class text_source final : public document_source {
public:
    explicit text_source(CTString text)
        : m_text(std::move(text)), m_rest(wide_view(m_text).substr(0, m_text.find(wchar(0)))) {}

    std::size_t room(std::size_t /*waiting*/) const override { return next_units() * k_bytes_a_unit; }

    std::size_t fill(char* out, std::size_t room) override {
        const std::size_t units = next_units();
        const std::int32_t bytes =
            units == 0 ? 0
                       : os::code_pages().to_narrow(os::k_code_page_utf8, 0, m_rest.data(),
                                                    static_cast<std::int32_t>(units), out,
                                                    static_cast<std::int32_t>(room), nullptr, nullptr);
        m_rest.remove_prefix(units);
        return static_cast<std::size_t>(bytes);
    }

    bool at_end() const override { return m_rest.empty(); }

private:
    using wide_view = std::basic_string_view<wchar>;

    // No pair of surrogates is cut.
    std::size_t next_units() const {
        constexpr std::size_t k_longest = k_longest_piece / k_bytes_a_unit;
        if (m_rest.size() <= k_longest) {
            return m_rest.size();
        }
        const wchar last = m_rest[k_longest - 1];
        return k_longest - (last >= 0xD800 && last <= 0xDBFF ? 1 : 0);
    }

    const CTString m_text;
    wide_view m_rest;
};

class file_source final : public document_source {
public:
    explicit file_source(const std::string& name) : m_stream(name, std::ios::binary) {}
    bool is_open() const { return m_stream.is_open(); }

    // At least as much as waits: an Expat before 2.6 reads what isn't complete from its start with every
    // piece, and a long attribute would cost the square of its length.
    std::size_t room(std::size_t waiting) const override {
        return std::min(std::max(waiting, k_file_piece), k_longest_piece);
    }

    std::size_t fill(char* out, std::size_t room) override {
        m_stream.read(out, static_cast<std::streamsize>(room));
        return static_cast<std::size_t>(m_stream.gcount());
    }

    bool at_end() const override { return !m_stream.good(); }

private:
    std::ifstream m_stream;
};

}  // namespace

std::unique_ptr<document_source> source_of_bytes(std::string_view bytes) {
    return std::make_unique<byte_source>(bytes);
}

std::unique_ptr<document_source> source_of_text(CTString text) {
    return std::make_unique<text_source>(std::move(text));
}

std::unique_ptr<document_source> source_of_file(const wchar* path) {
    if (path == nullptr) {
        return nullptr;
    }
    auto source = std::make_unique<file_source>(os::file_name(path));
    return source->is_open() ? std::move(source) : nullptr;
}

}  // namespace kro::tessel::xml
