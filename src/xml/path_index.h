// Registrations by path, as a tree of names: what an element has is found from its parent's place by one
// look-up, however many registrations there are and however deep it lies.
#pragma once

#include "tessel/base/string.h"
#include "xml/short_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace kro::tessel::xml {

inline constexpr wchar k_slash = TESSEL_W('/');

enum listener_kind : std::uint8_t { node_list_listener, node_listener, attribute_listener, k_listener_kinds };

/// The strings bound to the attributes of one listener, in the order of the names.
struct bound_attributes {
    struct binding {
        CTString name;
        CTString* target;
    };
    unsigned id;
    std::vector<binding> bindings;
};

/// What the elements at one path fire and fill.
struct path_match {
    static constexpr std::uint32_t k_none = 0xFFFFFFFFU;

    bool any = false;  ///< whether there is anything below
    bool has_node_list = false;
    bool has_node = false;
    unsigned node_list_id = 0;
    unsigned node_id = 0;
    std::uint32_t attributes = k_none;  ///< for path_index::attributes
    CTString* text = nullptr;
};

/// A name with its hash.
struct hashed_name {
    explicit hashed_name(wide_view name) : text(name), hash(hash_of(name)) {}
    wide_view text;
    std::uint32_t hash;
};

class path_index {
public:
    using place = std::uint32_t;
    static constexpr place k_root = 0;              ///< the empty path
    static constexpr place k_nowhere = 0xFFFFFFFF;  ///< nothing is registered for this path or below it

    path_index();

    void add_listener(listener_kind kind, unsigned id, wide_view path);
    void add_text(wide_view path, CTString* target);
    void add_attribute_text(unsigned id, const CTString& name, CTString* target);

    /// The place one name further.
    place child(place parent, const hashed_name& name) const;

    /// The place any number of names further, a slash in front of each.
    place walk(place from, wide_view path) const;

    const path_match& match(place at) const { return m_nodes[at].match; }
    const bound_attributes& attributes(std::uint32_t number) const { return m_bound[number]; }

    /// Forgets places that nothing is registered for any more, once they are the most. Places change.
    void tidy();

private:
    struct node {
        place parent = k_nowhere;
        wide_string name;
        path_match match;
        std::array<std::vector<unsigned>, k_listener_kinds> ids;  // ascending
        bool has_text = false;
    };

    struct slot {
        std::uint32_t hash = 0;  // of the name
        place at = k_nowhere;
    };

    template <class Visit>
    static void for_each_name(wide_view path, Visit visit);
    place make_place(wide_view path);
    place make_child(place parent, const hashed_name& name);
    CTString path_of(place at) const;
    std::size_t first_slot(place parent, std::uint32_t hash) const {
        return (hash ^ parent * 0x9E3779B9U) & (m_table.size() - 1);
    }
    void enter(slot entry);
    void refresh(place at);
    void move_listener(listener_kind kind, unsigned id, place to);
    bool is_vacant(const node& one) const;

    std::vector<node> m_nodes;
    std::vector<slot> m_table;  // open addressing, a power of two, at most a quarter full
    std::array<std::map<unsigned, place>, k_listener_kinds> m_listeners;
    std::map<unsigned, std::uint32_t> m_bound_slots;  // by id, into m_bound
    std::vector<bound_attributes> m_bound;
    std::size_t m_vacated = 0;  // listeners that have left a place since the last tidy
};

inline path_index::place path_index::child(place parent, const hashed_name& name) const {
    for (std::size_t at = first_slot(parent, name.hash);; at = (at + 1) & (m_table.size() - 1)) {
        const slot& entry = m_table[at];
        if (entry.at == k_nowhere) {
            return k_nowhere;
        }
        const node& one = m_nodes[entry.at];
        if (entry.hash == name.hash && one.parent == parent && same_units(one.name, name.text)) {
            return entry.at;
        }
    }
}

}  // namespace kro::tessel::xml
