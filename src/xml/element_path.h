// The path of the element being parsed, with what each open element matched when it started.
#pragma once

#include "xml/path_index.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kro::tessel::xml {

class element_path {
public:
    element_path() = default;
    element_path(const element_path&) = delete;
    element_path& operator=(const element_path&) = delete;

    /// An element starts: "/" and its name are appended. A name holds no slash.
    void push(const path_index& index, wide_view name);

    /// The innermost element ends: the path loses it, unless it is the first root.
    void pop();

    /// The same for any name and any order. The path loses everything from the last "/name" on, unless that
    /// is all of it or isn't there.
    void push_by_hand(const path_index& index, wide_view name);
    void pop_by_hand(const path_index& index, wide_view name);

    /// What the innermost open element matched; valid until the next change.
    const path_match& top() const { return *m_top; }

    wide_view text() const { return {m_units.data(), m_length}; }

    /// Sets the path, and what its elements match by the present registrations.
    void assign(const path_index& index, wide_view text);
    void resolve(const path_index& index);

private:
    struct open_element {
        open_element(std::size_t its_begin, path_index::place its_place, bool is_matched)
            : begin(its_begin), place(its_place), matched(is_matched) {}
        std::size_t begin;        // of its "/" in the path
        path_index::place place;  // where its children are looked for
        bool matched;             // whether the last of m_matches is its own
    };

    void append(wide_view name);
    void reserve(std::size_t units);
    void open(const path_index& index, std::size_t begin, path_index::place place);
    void find_top();
    path_index::place place() const { return m_open.empty() ? path_index::k_root : m_open.back().place; }

    std::vector<wchar> m_units;  // the path is the first m_length of them
    std::size_t m_length = 0;
    std::vector<open_element> m_open;
    std::vector<path_match> m_matches;
    path_match m_of_empty_path;
    const path_match* m_top = &m_of_empty_path;
};

}  // namespace kro::tessel::xml
