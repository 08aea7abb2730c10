#include "os/html_engine.h"

#include "base/text_conversion.h"
#include "html_arena.h"
#include "html_inner_text.h"
#include "html_nesting.h"
#include "html_reader.h"
#include "thread_kept.h"

#include <gumbo.h>

#include <csetjmp>
#include <cstdint>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_utf8 = 65001;

// One tree at a time, in the arena.
class tree_builder {
public:
    /// markup: lent until the next call. Throws std::bad_alloc.
    const GumboOutput& parse(std::string_view markup) {
        m_arena.reset();
        const GumboOutput* const output = parse_or_null(markup);
        if (output == nullptr) {
            throw std::bad_alloc();
        }
        return *output;
    }

private:
    // The library doesn't look for null: it is left at once then. All that it has is in the arena.
    const GumboOutput* parse_or_null(std::string_view markup) {
        GumboOptions options = kGumboDefaultOptions;
        options.userdata = this;
        options.allocator = [](void* self, std::size_t bytes) {
            void* const taken = static_cast<tree_builder*>(self)->m_arena.take(bytes);
            if (taken == nullptr) {
                std::longjmp(static_cast<tree_builder*>(self)->m_out_of_memory, 1);
            }
            return taken;
        };
        options.deallocator = [](void* /*self*/, void* /*memory*/) {};
        options.max_errors = 0;
        if (setjmp(m_out_of_memory) != 0) {  // NOLINT(cert-err52-cpp): out of a C library
            return nullptr;
        }
        return gumbo_parse_with_options(&options, markup.data(), markup.size());
    }

    html_arena m_arena;
    std::jmp_buf m_out_of_memory;
};

struct read_marks {
    element_marks marks;
    bool continued = false;
};

read_marks marks_of(const GumboElement& element) {
    read_marks read;
    for (unsigned i = 0; i < element.attributes.length; ++i) {
        const auto* const attribute = static_cast<const GumboAttribute*>(element.attributes.data[i]);
        switch (attribute->name[0]) {
            case k_mark_hidden:
                read.marks.hidden = true;
                break;
            case k_mark_open:
                read.marks.open = true;
                break;
            case k_mark_continued:
                read.continued = true;
                break;
            case k_mark_visible:
                read.marks.shows =
                    attribute->value[0] == '1' ? element_marks::visible::yes : element_marks::visible::no;
                break;
            default:
                break;
        }
    }
    return read;
}

bool is_element(const GumboNode& node) {
    return node.type == GUMBO_NODE_ELEMENT;
}

// Walks through a body in the order of the document, with a stack of its own. A wbr ends the piece: what is
// open there stays open.
class body_walk {
public:
    explicit body_walk(inner_text& text) : m_text(text) {}

    void run(const GumboNode& body) {
        m_path.push_back({&body.v.element.children, 0});
        while (!m_path.empty()) {
            place& innermost = m_path.back();
            if (innermost.next == innermost.children->length) {
                m_path.pop_back();
                if (!m_path.empty()) {
                    m_text.leave();
                }
            } else if (!visit(*static_cast<const GumboNode*>(innermost.children->data[innermost.next++]))) {
                return;
            }
        }
    }

private:
    struct place {
        const GumboVector* children;
        unsigned next;
    };

    bool visit(const GumboNode& node) {
        if (node.type == GUMBO_NODE_TEXT || node.type == GUMBO_NODE_WHITESPACE) {
            m_text.text(node.v.text.text);
        } else if (is_element(node)) {
            if (node.v.element.tag == GUMBO_TAG_WBR) {
                return false;
            }
            const read_marks read = marks_of(node.v.element);
            if (read.continued || m_text.enter(node.v.element.tag, read.marks)) {
                m_path.push_back({&node.v.element.children, 0});
            }
        }
        return true;
    }

    inner_text& m_text;
    std::vector<place> m_path;
};

const GumboNode* body_of(const GumboOutput& tree) {
    const GumboVector& children = tree.root->v.element.children;
    for (unsigned i = 0; i < children.length; ++i) {
        const auto* const node = static_cast<const GumboNode*>(children.data[i]);
        if (is_element(*node) && node->v.element.tag == GUMBO_TAG_BODY) {
            return node;
        }
    }
    return nullptr;
}

// The text in UTF-8; false when there is no body.
bool collect(tree_builder& builder, std::string_view markup, std::string& text) {
    inner_text collected;
    html_nesting nesting([&](std::string& piece) {
        const GumboNode* const body = body_of(builder.parse(piece));
        if (body != nullptr) {
            body_walk(collected).run(*body);
        }
    });
    html_reader reader(markup);
    if (!nesting.run(reader)) {
        return false;
    }
    text = collected.take_result();
    if (nesting.has_controls()) {
        html_nesting::restore_controls(text);
    }
    return true;
}

}  // namespace

bool inner_text_of_html(std::basic_string_view<wchar> html, wide_string& text) noexcept try {
    std::string collected;
    const bool has_body = with_kept<tree_builder>(
        [&](tree_builder& builder) { return collect(builder, narrow(k_utf8, html), collected); });
    if (!has_body) {
        return false;
    }
    text = widen(k_utf8, collected);
    return true;
} catch (const std::exception&) {  // no memory, or more than a string can hold
    return false;
}

}  // namespace kro::tessel::os
