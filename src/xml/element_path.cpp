#include "xml/element_path.h"

#include <algorithm>

namespace kro::tessel::xml {
namespace {

const path_match k_nothing;

}  // namespace

void element_path::find_top() {
    if (m_open.empty()) {
        m_top = &m_of_empty_path;
    } else {
        m_top = m_open.back().matched ? &m_matches.back() : &k_nothing;
    }
}

void element_path::reserve(std::size_t units) {
    if (units > m_units.size()) {
        m_units.resize(std::max(units, 2 * m_units.size()));
    }
}

inline void element_path::append(wide_view name) {
    const std::size_t end = m_length + 1 + name.size();
    if (end > m_units.size()) {
        reserve(end);
    }
    m_units[m_length] = k_slash;
    copy_units(name, m_units.data() + m_length + 1);
    m_length = end;
}

inline void element_path::open(const path_index& index, std::size_t begin, path_index::place place) {
    const path_match* const match = place == path_index::k_nowhere ? &k_nothing : &index.match(place);
    const bool matched = match->any;
    m_top = &k_nothing;
    if (matched) {
        m_matches.push_back(*match);
        m_top = &m_matches.back();
    }
    m_open.emplace_back(begin, place, matched);
}

void element_path::push(const path_index& index, wide_view name) {
    const path_index::place parent = place();
    open(index, m_length, parent == path_index::k_nowhere ? parent : index.child(parent, hashed_name(name)));
    append(name);
}

void element_path::push_by_hand(const path_index& index, wide_view name) {
    append(name);
    resolve(index);
}

void element_path::pop() {
    if (m_open.size() > 1) {
        m_length = m_open.back().begin;
        if (m_open.back().matched) {
            m_matches.pop_back();
        }
        m_open.pop_back();
        find_top();
    }
}

void element_path::pop_by_hand(const path_index& index, wide_view name) {
    const std::size_t begin = text().rfind(wide_string(1, k_slash).append(name));
    if (begin != wide_view::npos && begin != 0) {
        m_length = begin;
        resolve(index);
    }
}

void element_path::assign(const path_index& index, wide_view text) {
    m_units.assign(text.begin(), text.end());
    m_length = text.size();
    resolve(index);
}

void element_path::resolve(const path_index& index) {
    m_open.clear();
    m_matches.clear();
    m_of_empty_path = index.match(path_index::k_root);
    find_top();
    std::size_t end = 0;
    for (std::size_t begin = 0; begin < m_length; begin = end) {
        end = std::min(text().find(k_slash, begin + 1), m_length);
        const path_index::place parent = place();
        open(
            index, begin,
            parent == path_index::k_nowhere ? parent : index.walk(parent, text().substr(begin, end - begin)));
    }
}

}  // namespace kro::tessel::xml
