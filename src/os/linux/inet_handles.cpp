#include "os/linux/inet_handles.h"

#include <iterator>
#include <utility>

namespace kro::tessel::os {
namespace {

// A value is, from its highest bit, a generation, a place in a shard and the shard's number; the engine above
// keeps 32 bits of it.
constexpr unsigned k_shard_bits = 3;
static_assert(k_thread_shards == 1U << k_shard_bits);
constexpr unsigned k_place_bits = 16;
constexpr std::uint32_t k_max_places = std::uint32_t{1} << k_place_bits;
constexpr std::uint32_t k_max_generation = (std::uint32_t{1} << (32 - k_place_bits - k_shard_bits)) - 1;
constexpr std::size_t k_rested_places = 512;  // free ones that are kept unused, to make values rare

inet_handle value_of(std::uint32_t generation, std::uint32_t place, std::uint32_t shard) noexcept {
    const std::uintptr_t number =
        (generation << (k_place_bits + k_shard_bits)) | (place << k_shard_bits) | shard;
    return reinterpret_cast<inet_handle>(number);  // NOLINT(performance-no-int-to-ptr)
}

std::uintptr_t generation_of(inet_handle value) noexcept {
    return reinterpret_cast<std::uintptr_t>(value) >> (k_place_bits + k_shard_bits);
}

std::uint32_t place_of(inet_handle value) noexcept {
    return (reinterpret_cast<std::uintptr_t>(value) >> k_shard_bits) & (k_max_places - 1);
}

std::uint32_t shard_of(inet_handle value) noexcept {
    return reinterpret_cast<std::uintptr_t>(value) & ((1U << k_shard_bits) - 1);
}

}  // namespace

inet_node::inet_node(handle_kind kind, std::shared_ptr<inet_node> parent, std::uintptr_t context)
    : m_kind(kind),
      m_parent(std::move(parent)),
      m_context(context),
      m_callback(m_parent == nullptr ? nullptr : m_parent->callback()) {
    if (m_parent != nullptr) {
        const std::lock_guard lock(m_parent->m_mutex);
        for (std::size_t i = 0; i < std::size(m_timeouts); ++i) {
            m_timeouts[i] = m_parent->m_timeouts[i];
        }
    }
}

std::optional<std::uint32_t> inet_node::timeout(inet_timeout kind) const {
    const std::lock_guard lock(m_mutex);
    return m_timeouts[static_cast<std::size_t>(kind)];
}

void inet_node::fill_timeouts(const std::atomic<std::uint32_t> (&process)[3]) {
    for (std::size_t i = 0; i < std::size(m_timeouts); ++i) {
        if (!m_timeouts[i]) {
            m_timeouts[i] = process[i].load(std::memory_order_relaxed);
        }
    }
}

void inet_node::set_timeout(inet_timeout kind, std::uint32_t milliseconds) {
    const std::lock_guard lock(m_mutex);
    m_timeouts[static_cast<std::size_t>(kind)] = milliseconds;
}

void inet_node::notify(std::uintptr_t context, std::uint32_t notice, const void* information,
                       std::uint32_t length) {
    const inet_callback call = callback();
    if (call != nullptr && context != 0) {
        call(m_value, context, notice, information, length);
    }
}

void inet_node::enter_callback() noexcept {
    m_callback_thread = std::this_thread::get_id();
    ++m_callback_depth;
}

void inet_node::leave_callback() noexcept {
    if (--m_callback_depth == 0) {
        m_callback_thread = {};
        m_changed.notify_all();
    }
}

void inet_node::begin_creation() {
    if (m_context == 0) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    enter_callback();
}

void inet_node::announce_creation() {
    if (m_context == 0) {
        return;
    }
    const inet_callback call = callback();
    if (call != nullptr) {
        const inet_handle created = m_value;
        call(m_parent->value(), m_context, k_notice_handle_created, &created, sizeof created);
    }
    const std::lock_guard lock(m_mutex);
    leave_callback();
}

void inet_node::close() {
    last_words words;
    {
        std::unique_lock lock(m_mutex);
        m_closed = true;
        words = cease();
        m_changed.wait(lock, [this] {
            return m_callback_depth == 0 || m_callback_thread == std::this_thread::get_id();
        });
    }
    ceased();
    if (words.context != 0) {
        const inet_async_result cancelled{0, k_error_inet_operation_cancelled, 0};
        notify(words.context, k_notice_request_complete, &cancelled, sizeof cancelled);
    }
    if (words.connection_closes) {
        notify(m_context, k_notice_closing_connection, nullptr, 0);
        notify(m_context, k_notice_connection_closed, nullptr, 0);
    }
    const inet_handle closed = m_value;
    notify(m_context, k_notice_handle_closing, &closed, sizeof closed);
}

std::uint32_t handle_table::add(const std::shared_ptr<inet_node>& node, std::uint32_t without_parent) {
    if (node->m_parent != nullptr) {
        const std::uint32_t own = shard_of(node->m_parent->m_value);
        return m_shards[own].add(node, own, without_parent);
    }
    std::uint32_t error = 0;
    const std::uint32_t first = own_shard();
    for (std::uint32_t i = 0; i < k_thread_shards; ++i) {
        const std::uint32_t next = (first + i) % k_thread_shards;
        error = m_shards[next].add(node, next, without_parent);
        if (error == 0) {
            break;
        }
    }
    return error;
}

std::shared_ptr<inet_node> handle_table::find(inet_handle value) const {
    return m_shards[shard_of(value)].find(value);
}

std::vector<std::shared_ptr<inet_node>> handle_table::take(inet_handle value) {
    return m_shards[shard_of(value)].take(value);
}

std::uint32_t handle_table::shard::add(const std::shared_ptr<inet_node>& node, std::uint32_t number,
                                       std::uint32_t without_parent) {
    const std::lock_guard lock(m_mutex);
    inet_node* const parent = node->m_parent.get();
    if (parent != nullptr && slot_of(parent->m_value) == nullptr) {
        return without_parent;
    }
    const auto place = free_place();
    if (!place) {
        return k_error_inet_out_of_handles;
    }
    slot& taken = m_slots[*place];
    taken.generation = taken.generation == k_max_generation ? 1 : taken.generation + 1;
    taken.node = node;
    node->m_value = value_of(taken.generation, *place, number);
    if (parent != nullptr) {
        node->m_older = std::exchange(parent->m_youngest_child, node.get());
        if (node->m_older != nullptr) {
            node->m_older->m_younger = node.get();
        }
    }
    return 0;
}

std::optional<std::uint32_t> handle_table::shard::free_place() {
    const bool is_full = m_slots.size() == k_max_places;
    if (m_free.size() > k_rested_places || (is_full && !m_free.empty())) {
        const std::uint32_t place = m_free.front();
        m_free.pop_front();
        return place;
    }
    if (is_full) {
        return std::nullopt;
    }
    m_slots.emplace_back();
    return static_cast<std::uint32_t>(m_slots.size() - 1);
}

const handle_table::slot* handle_table::shard::slot_of(inet_handle value) const noexcept {
    const std::uintptr_t place = place_of(value);
    if (place >= m_slots.size()) {
        return nullptr;
    }
    const slot& found = m_slots[place];
    return found.node != nullptr && generation_of(value) == found.generation ? &found : nullptr;
}

std::shared_ptr<inet_node> handle_table::shard::find(inet_handle value) const {
    const std::lock_guard lock(m_mutex);
    const slot* const place = slot_of(value);
    return place == nullptr ? nullptr : place->node;
}

std::vector<std::shared_ptr<inet_node>> handle_table::shard::take(inet_handle value) {
    std::vector<std::shared_ptr<inet_node>> taken;
    const std::lock_guard lock(m_mutex);
    const slot* const place = slot_of(value);
    if (place != nullptr) {
        taken.reserve(3);  // mostly a request, its connection and its session
        take_below(*place->node, taken);
    }
    return taken;
}

// NOLINTNEXTLINE(misc-no-recursion): three levels
void handle_table::shard::take_below(inet_node& node, std::vector<std::shared_ptr<inet_node>>& taken) {
    while (node.m_youngest_child != nullptr) {
        take_below(*node.m_youngest_child, taken);
    }
    unlink(node);
    const std::uint32_t place = place_of(node.m_value);
    taken.push_back(std::move(m_slots[place].node));
    m_slots[place].node = nullptr;
    m_free.push_back(place);
}

void handle_table::shard::unlink(inet_node& node) noexcept {
    if (node.m_older != nullptr) {
        node.m_older->m_younger = node.m_younger;
    }
    if (node.m_younger != nullptr) {
        node.m_younger->m_older = node.m_older;
    } else if (node.m_parent != nullptr) {
        node.m_parent->m_youngest_child = node.m_older;
    }
    node.m_older = node.m_younger = nullptr;
}

}  // namespace kro::tessel::os
