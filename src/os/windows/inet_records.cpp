#include "os/windows/inet_records.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::os {
namespace {

bool is_below(const inet_record* record, const inet_record* top) {
    while (record != nullptr && record != top) {
        record = record->parent().get();
    }
    return record != nullptr;
}

}  // namespace

inet_records::pointer inet_records::announce(inet_kind kind, pointer parent, std::uintptr_t context,
                                             bool async) {
    async = parent == nullptr ? async : parent->is_async();
    const std::lock_guard lock(m_mutex);
    ++m_last_id;
    m_last_id += m_last_id == 0 ? 1U : 0U;  // 0 would mean "no notices"
    auto record = std::make_shared<inet_record>(kind, m_last_id, std::move(parent), context, async);
    m_announced.emplace(record->id(), record);
    return record;
}

void inet_records::open(const pointer& record, HINTERNET handle) {
    const std::lock_guard lock(m_mutex);
    record->set_handle(handle);
    m_open.insert_or_assign(handle, record);
}

inet_records::pointer inet_records::announced(std::uintptr_t id) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_announced.find(id);
    return found == m_announced.end() ? nullptr : found->second;
}

void inet_records::forget(std::uintptr_t id) {
    const std::lock_guard lock(m_mutex);
    m_announced.erase(id);
}

inet_records::pointer inet_records::find(inet_handle handle) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_open.find(handle);
    return found == m_open.end() ? nullptr : found->second;
}

inet_records::pointer inet_records::find(inet_handle handle, inet_kind kind) {
    auto record = find(handle);
    return record != nullptr && record->kind() == kind ? record : nullptr;
}

std::vector<inet_records::pointer> inet_records::take(inet_handle handle) {
    const std::lock_guard lock(m_mutex);
    const auto top = m_open.find(handle);
    std::vector<pointer> taken;
    if (top == m_open.end()) {
        return taken;
    }
    // Nothing is below a request, and thousands may be closed one by one.
    if (top->second->kind() == inet_kind::request) {
        taken.push_back(top->second);
        m_open.erase(top);
        return taken;
    }
    for (const auto& [value, record] : m_open) {
        if (is_below(record.get(), top->second.get())) {
            taken.push_back(record);
        }
    }
    for (const pointer& record : taken) {
        m_open.erase(record->handle());
    }
    // Ids rise with age: a child's is above its parent's.
    std::sort(taken.begin(), taken.end(),
              [](const pointer& left, const pointer& right) { return left->id() > right->id(); });
    return taken;
}

}  // namespace kro::tessel::os
