#include "os/linux/inet_handles.h"

#include <iterator>
#include <utility>

namespace kro::tessel::os {
namespace {

// A value is (generation << k_index_bits) | index; the engine above keeps 32 bits of it.
constexpr unsigned k_index_bits = 18;
constexpr std::uint32_t k_max_handles = std::uint32_t{1} << k_index_bits;
constexpr std::uint32_t k_max_generation = (std::uint32_t{1} << (32 - k_index_bits)) - 1;
constexpr std::size_t k_rested_slots = 1024;  // free ones that are kept unused, to make values rare

inet_handle value_of(std::uint32_t index, std::uint32_t generation) noexcept {
    const auto number = static_cast<std::uintptr_t>((generation << k_index_bits) | index);
    return reinterpret_cast<inet_handle>(number);  // NOLINT(performance-no-int-to-ptr)
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
        m_callback_left.notify_all();
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
        m_callback_left.wait(lock, [this] {
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
    const std::lock_guard lock(m_mutex);
    inet_node* const parent = node->m_parent.get();
    if (parent != nullptr && slot_of(parent->m_value) == nullptr) {
        return without_parent;
    }
    std::uint32_t index = 0;
    if (m_free.size() > k_rested_slots || (m_slots.size() == k_max_handles && !m_free.empty())) {
        index = m_free.front();
        m_free.pop_front();
    } else if (m_slots.size() < k_max_handles) {
        index = static_cast<std::uint32_t>(m_slots.size());
        m_slots.emplace_back();
    } else {
        return k_error_inet_out_of_handles;
    }
    slot& place = m_slots[index];
    place.generation = place.generation == k_max_generation ? 1 : place.generation + 1;
    place.node = node;
    node->m_value = value_of(index, place.generation);
    if (parent != nullptr) {
        node->m_older = std::exchange(parent->m_youngest_child, node.get());
        if (node->m_older != nullptr) {
            node->m_older->m_younger = node.get();
        }
    }
    return 0;
}

const handle_table::slot* handle_table::slot_of(inet_handle value) const noexcept {
    const auto number = reinterpret_cast<std::uintptr_t>(value);
    const std::uintptr_t index = number & (k_max_handles - 1);
    if (index >= m_slots.size()) {
        return nullptr;
    }
    const slot& place = m_slots[index];
    return place.node != nullptr && number >> k_index_bits == place.generation ? &place : nullptr;
}

std::shared_ptr<inet_node> handle_table::find(inet_handle value) const {
    const std::lock_guard lock(m_mutex);
    const slot* const place = slot_of(value);
    return place == nullptr ? nullptr : place->node;
}

std::vector<std::shared_ptr<inet_node>> handle_table::take(inet_handle value) {
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
void handle_table::take_below(inet_node& node, std::vector<std::shared_ptr<inet_node>>& taken) {
    while (node.m_youngest_child != nullptr) {
        take_below(*node.m_youngest_child, taken);
    }
    unlink(node);
    const auto index =
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(node.m_value) & (k_max_handles - 1));
    taken.push_back(std::move(m_slots[index].node));
    m_slots[index].node = nullptr;
    m_free.push_back(index);
}

void handle_table::unlink(inet_node& node) noexcept {
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
