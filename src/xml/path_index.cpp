#include "xml/path_index.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::xml {
namespace {

constexpr std::size_t k_first_table = 16;
constexpr std::size_t k_vacated_before_tidy = 64;

// Whether an element can ever be there: the empty path belongs to the time before the root.
bool is_reachable(wide_view path) {
    return path.empty() || path.front() == k_slash;
}

}  // namespace

path_index::path_index() : m_nodes(1), m_table(k_first_table) {}

template <class Visit>
void path_index::for_each_name(wide_view path, Visit visit) {
    while (!path.empty()) {
        path.remove_prefix(1);  // the slash
        const wide_view name = path.substr(0, path.find(k_slash));
        visit(hashed_name(name));
        path.remove_prefix(name.size());
    }
}

path_index::place path_index::walk(place from, wide_view path) const {
    for_each_name(path,
                  [&](const hashed_name& name) { from = from == k_nowhere ? from : child(from, name); });
    return from;
}

void path_index::enter(slot entry) {
    std::size_t at = first_slot(m_nodes[entry.at].parent, entry.hash);
    while (m_table[at].at != k_nowhere) {
        at = (at + 1) & (m_table.size() - 1);
    }
    m_table[at] = entry;
}

path_index::place path_index::make_child(place parent, const hashed_name& name) {
    const place found = child(parent, name);
    if (found != k_nowhere) {
        return found;
    }
    const auto at = static_cast<place>(m_nodes.size());
    node one;
    one.parent = parent;
    one.name.assign(name.text);
    m_nodes.push_back(std::move(one));
    enter({name.hash, at});
    if (m_nodes.size() * 4 > m_table.size()) {
        const std::vector<slot> before = std::exchange(m_table, std::vector<slot>(m_table.size() * 2));
        for (const slot& entry : before) {
            if (entry.at != k_nowhere) {
                enter(entry);
            }
        }
    }
    return at;
}

path_index::place path_index::make_place(wide_view path) {
    if (!is_reachable(path)) {
        return k_nowhere;
    }
    place at = k_root;
    for_each_name(path, [&](const hashed_name& name) { at = make_child(at, name); });
    return at;
}

// The first registration that counts, worked out when registrations change so that elements needn't.
void path_index::refresh(place at) {
    node& one = m_nodes[at];
    path_match match;
    const auto& lists = one.ids[node_list_listener];
    const auto& nodes = one.ids[node_listener];
    match.has_node_list = !lists.empty();
    match.has_node = !nodes.empty();
    match.node_list_id = lists.empty() ? 0 : lists.front();
    match.node_id = nodes.empty() ? 0 : nodes.front();
    for (const unsigned id : one.ids[attribute_listener]) {
        const auto bound = m_bound_slots.find(id);
        if (bound != m_bound_slots.end()) {
            match.attributes = bound->second;
            break;
        }
    }
    match.text = one.match.text;
    match.any = match.has_node_list || match.has_node || match.attributes != path_match::k_none ||
                match.text != nullptr;
    one.match = match;
}

void path_index::move_listener(listener_kind kind, unsigned id, place to) {
    const auto [entry, added] = m_listeners[kind].emplace(id, to);
    if (!added) {
        const place from = std::exchange(entry->second, to);
        if (from != k_nowhere) {
            auto& ids = m_nodes[from].ids[kind];
            ids.erase(std::find(ids.begin(), ids.end(), id));
            refresh(from);
            ++m_vacated;
        }
    }
    if (to != k_nowhere) {
        auto& ids = m_nodes[to].ids[kind];
        ids.insert(std::lower_bound(ids.begin(), ids.end(), id), id);
        refresh(to);
    }
}

void path_index::add_listener(listener_kind kind, unsigned id, wide_view path) {
    move_listener(kind, id, make_place(path));
}

void path_index::add_text(wide_view path, CTString* target) {
    const place at = make_place(path);
    if (at != k_nowhere && !m_nodes[at].has_text) {
        m_nodes[at].has_text = true;
        m_nodes[at].match.text = target;
        refresh(at);
    }
}

void path_index::add_attribute_text(unsigned id, const CTString& name, CTString* target) {
    const auto [entry, added] = m_bound_slots.emplace(id, static_cast<std::uint32_t>(m_bound.size()));
    if (added) {
        m_bound.push_back({id, {}});
    }
    auto& bindings = m_bound[entry->second].bindings;
    const auto behind = std::lower_bound(
        bindings.begin(), bindings.end(), name,
        [](const bound_attributes::binding& one, const CTString& wanted) { return one.name < wanted; });
    if (behind == bindings.end() || behind->name != name) {
        bindings.insert(behind, {name, target});
    }
    const auto listener = m_listeners[attribute_listener].find(id);
    if (listener != m_listeners[attribute_listener].end() && listener->second != k_nowhere) {
        refresh(listener->second);
    }
}

CTString path_index::path_of(place at) const {
    CTString path;
    for (; at != k_root; at = m_nodes[at].parent) {
        path.insert(0, m_nodes[at].name);
        path.insert(0, 1, k_slash);
    }
    return path;
}

bool path_index::is_vacant(const node& one) const {
    return !one.has_text &&
           std::all_of(std::begin(one.ids), std::end(one.ids), [](const auto& ids) { return ids.empty(); });
}

void path_index::tidy() {
    if (m_vacated < k_vacated_before_tidy || m_vacated * 2 < m_nodes.size()) {
        return;
    }
    path_index fresh;
    fresh.m_bound = m_bound;
    fresh.m_bound_slots = m_bound_slots;
    for (place at = 0; at < m_nodes.size(); ++at) {
        const node& one = m_nodes[at];
        if (is_vacant(one)) {
            continue;
        }
        const CTString path = path_of(at);
        if (one.has_text) {
            fresh.add_text(path, one.match.text);
        }
        for (std::size_t kind = 0; kind < k_listener_kinds; ++kind) {
            for (const unsigned id : one.ids[kind]) {
                fresh.add_listener(static_cast<listener_kind>(kind), id, path);
            }
        }
    }
    *this = std::move(fresh);
}

}  // namespace kro::tessel::xml
