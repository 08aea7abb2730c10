#include "http/connection_cache.h"

#include "os/thread.h"

#include <algorithm>
#include <string>

namespace kro::tessel::http {
namespace {

constexpr std::basic_string_view<wchar> k_agent = TESSEL_W("http.util");

wide_string decimal(std::uint16_t number) {
    const std::string digits = std::to_string(number);
    return wide_string(digits.begin(), digits.end());
}

os::inet_handle open_session(const session_context& context) {
    if (!context.proxy.server.empty()) {
        const CTString proxy = context.proxy.server + TESSEL_W(":") + decimal(context.proxy.port);
        return os::inet().open(os::k_access_proxy, proxy, {}, k_agent, true);
    }
    const auto access = context.preconfig ? os::k_access_preconfigured : os::k_access_direct;
    return os::inet().open(access, {}, {}, k_agent, true);
}

}  // namespace

std::uint32_t connection_cache::ensure_session(const session_context& context, os::inet_callback callback,
                                               os::inet_handle& session) {
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        return os::k_error_inet_shutdown;
    }
    if (m_session == nullptr) {
        m_session = open_session(context);
        if (m_session == nullptr) {
            return os::last_error();
        }
        os::inet().set_callback(m_session, callback);
    }
    session = m_session;
    return 0;
}

os::inet_handle connection_cache::find(const server& key) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_connections.find(key);
    return found == m_connections.end() ? nullptr : found->second;
}

void connection_cache::store(const server& key, os::inet_handle connection) {
    const std::lock_guard lock(m_mutex);
    os::inet_handle& entry = m_connections[key];
    if (entry == nullptr) {
        entry = connection;
    } else if (entry != connection &&
               std::find(m_doubles.begin(), m_doubles.end(), connection) == m_doubles.end()) {
        m_doubles.push_back(connection);
    }
}

void connection_cache::close_all(bool for_good) {
    std::vector<os::inet_handle> handles;
    {
        const std::lock_guard lock(m_mutex);
        m_closed = for_good;
        for (const auto& entry : m_connections) {
            handles.push_back(entry.second);
        }
        handles.insert(handles.end(), m_doubles.begin(), m_doubles.end());
        handles.push_back(m_session);
        m_connections.clear();
        m_doubles.clear();
        m_session = nullptr;
    }
    // Outside the lock: closing delivers notices, and the callback looks servers up.
    for (const os::inet_handle handle : handles) {
        if (handle != nullptr) {
            os::inet().close(handle);
        }
    }
}

}  // namespace kro::tessel::http
