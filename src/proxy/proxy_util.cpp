// The map of servers: what the finder was asked and what it answered.
#include "tessel/proxy/proxy_util.h"

#include "os/code_page.h"
#include "os/thread.h"
#include "os/url.h"

#include "base/text_conversion.h"
#include "proxy/create_proxy_finder.h"
#include "proxy/discovery_wait.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"

#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <utility>

namespace {

using namespace kro::tessel;

constexpr unsigned long k_clients_wait_ms = 10'000;
constexpr unsigned long k_list_units = 1024;

template <class... Parts>
void trace(const Parts&... parts) {
    trace_message message(trace_debug);
    static_cast<void>((message << ... << parts));
}

const wchar* yes_or_no(bool yes) {
    return yes ? TESSEL_W("TRUE") : TESSEL_W("FALSE");
}

// In a copy of the process another thread may hold the lock for ever: nothing is asked there.
bool may_ask(const IProxyFinder* finder) {
    return finder != nullptr && !os::process_was_forked();
}

// Waits for what is left of `limit` since `asked`. False: the wait itself failed.
bool wait_for(os::manual_reset_event& answer, unsigned long limit, std::uint32_t now, std::uint32_t asked,
              bool& completed) {
    std::uint32_t wait = limit >= os::k_infinite ? os::k_infinite : static_cast<std::uint32_t>(limit);
    if (wait != os::k_infinite) {
        wait = proxy::remaining_wait(wait, now, asked);
        trace(TESSEL_W("Request was sent before "), now - asked, TESSEL_W("ms"));
        trace(TESSEL_W("Adjust wait time to "), wait, TESSEL_W("ms"));
    }
    trace(TESSEL_W("Wait the completion of asynchronous call back."));
    const std::uint32_t result = answer.wait(wait);
    completed = result == os::k_wait_signalled;
    trace(completed                      ? TESSEL_W("Wait completed.")
          : result == os::k_wait_timeout ? TESSEL_W("Wait Timeout")
                                         : TESSEL_W("Wait Failed."));
    return completed || result == os::k_wait_timeout;
}

template <class Server>
bool can_be_asked_for(const Server& server) {
    return !server.first.empty() && server.second != 0;
}

wide_string from_utf8(const char* text) {
    return text == nullptr ? wide_string() : widen(os::k_code_page_utf8, text);
}

}  // namespace

// A question to the finder that has not returned yet. The finder may answer it, or cause others, before that;
// there is no entry then. Under the lock.
class CLumProxyUtil::running_query {
public:
    running_query(running_query*& innermost, const server_view& which)
        : server(which), m_innermost(innermost), m_outer(std::exchange(innermost, this)) {}
    running_query(const running_query&) = delete;
    running_query& operator=(const running_query&) = delete;
    ~running_query() { m_innermost = m_outer; }

    static running_query* find(running_query* from, const server_view& server) {
        while (from != nullptr && from->server != server) {
            from = from->m_outer;
        }
        return from;
    }

    const server_view server;
    std::unique_ptr<CTString> early_list;  // the answer that came inside it

private:
    running_query*& m_innermost;
    running_query* const m_outer;
};

CLumProxyUtil::CLumProxyUtil() {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::CLumProxyUtil()"));
    m_finder = CreateProxyFinder(this);
    LoadProxyInfo();
    const std::lock_guard lock(m_lock);
    for (const CLumProxyInfo& account : m_accounts) {
        BookExtProxyAccount(account);
    }
}

CLumProxyUtil::~CLumProxyUtil() {
    release(std::unique_lock(m_lock));  // no query is running with the finder any more
}

// The finder goes first and without the lock: a callback of its that is running may be waiting for it.
void CLumProxyUtil::release(std::unique_lock<std::recursive_mutex> lock) {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::~CLumProxyUtil()"));
    IProxyFinder* const finder = m_finder.exchange(nullptr);
    lock.unlock();
    delete finder;
    lock.lock();
    for (const auto& [server, entry] : m_servers) {
        if (entry.completion != nullptr) {
            entry.completion->set();  // nobody will answer any more
        }
    }
    m_servers.clear();
    m_account_of.clear();
    m_accounts.clear();
}

bool CLumProxyUtil::server_of(const CTString& url, server_view& server) {
    os::url_pieces pieces;
    if (os::crack_url(url, pieces) != 0) {
        return false;
    }
    server = {pieces.host, pieces.port};
    return true;
}

int CLumProxyUtil::GetProxyInfo(const CTString& url, std::list<proxy_info>& routes) {
    PrepareProxyInfo(url);
    int usePreconfig = 0;
    return GetProxyInfo(url, usePreconfig, routes, k_clients_wait_ms);
}

int CLumProxyUtil::GetProxyInfo(const CTString& url, int& usePreconfig, std::list<proxy_info>& routes,
                                unsigned long waitMs) try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::GetProxyInfo()"));
    if (!may_ask(m_finder)) {
        return 0;
    }
    server_view server;
    if (!server_of(url, server) || !can_be_asked_for(server)) {
        return 0;
    }
    std::uint32_t now = 0;
    std::shared_ptr<os::manual_reset_event> completion;  // shared: the entry may forget it meanwhile
    std::uint32_t asked = 0;
    {
        const std::lock_guard lock(m_lock);
        now = os::tick_count();  // not before the question's
        if (const auto found = m_servers.find(server); found != m_servers.end()) {
            completion = found->second.completion;
            asked = found->second.requestTick;
        }
    }
    bool completed = false;
    if (completion != nullptr && !wait_for(*completion, waitMs, now, asked, completed)) {
        return 0;
    }
    return known_routes(server, completed, usePreconfig, routes);
} catch (const std::bad_alloc&) {
    return 0;
}

int CLumProxyUtil::known_routes(const server_view& server, bool completed, int& usePreconfig,
                                std::list<proxy_info>& routes) {
    const std::lock_guard lock(m_lock);
    const auto found = m_servers.find(server);
    if (found == m_servers.end()) {
        trace(TESSEL_W("Failed to find server in map."));
        return 0;
    }
    discovery_entry& entry = found->second;
    usePreconfig = entry.usePreconfig;
    if (completed) {
        entry.completion.reset();
    }
    for (const CLumProxyInfo* account : entry.routes) {
        routes.push_back(*account);
        proxy::trace_proxy(TESSEL_W(""), *account);
    }
    return 1;
}

int CLumProxyUtil::PrepareProxyInfo(const std::vector<CTString>& urls) {
    if (!may_ask(m_finder)) {
        return 0;
    }
    for (const CTString& url : urls) {
        PrepareProxyInfo(url);
    }
    return 1;
}

int CLumProxyUtil::PrepareProxyInfo(const CTString& url) try {
    if (!may_ask(m_finder)) {
        return 0;
    }
    server_view server;
    if (!server_of(url, server)) {
        trace(TESSEL_W("Invalid url"));
        return 0;
    }
    if (!can_be_asked_for(server)) {
        return 0;
    }
    const std::lock_guard lock(m_lock);
    IProxyFinder* const finder = m_finder;  // it may have gone meanwhile
    if (finder == nullptr) {
        return 0;
    }
    if (m_servers.find(server) != m_servers.end()) {
        trace(server.first, TESSEL_W(":"), server.second, TESSEL_W(" is in map"));
        return 0;
    }
    if (running_query::find(m_queries, server) != nullptr) {
        return 0;  // asked by the finder itself
    }
    running_query query(m_queries, server);
    return ask_finder(*finder, query);
} catch (const std::exception&) {
    return 0;
}

int CLumProxyUtil::ask_finder(IProxyFinder& finder, running_query& query) {
    const server_view& server = query.server;
    discovery_entry entry;
    entry.requestTick = os::tick_count();
    const CTString host(server.first.data(), server.first.size());
    wchar list[k_list_units] = {};
    unsigned long capacity = k_list_units;
    int not_preconfigured = 0;
    int asynchronous = 0;
    if (finder.GetProxyInfo(0, host.c_str(), server.second, &not_preconfigured, &asynchronous, list,
                            &capacity) != 0) {
        return 0;
    }
    list[k_list_units - 1] = 0;  // whatever the finder wrote
    entry.usePreconfig = not_preconfigured == 0 ? 1 : 0;
    trace(TESSEL_W("Query proxy info succeeded."));
    trace(TESSEL_W("bAsync: "), yes_or_no(asynchronous != 0));
    trace(TESSEL_W("bIEPreConfig: "), yes_or_no(entry.usePreconfig != 0));
    if (asynchronous != 0) {
        entry.completion = os::make_manual_reset_event();
    } else {
        take_accounts_of_settings();
    }
    take_list(list, entry);
    if (query.early_list != nullptr) {
        take_list(*query.early_list, entry);
        if (entry.completion != nullptr) {
            entry.completion->set();
        }
    }
    m_servers.emplace(server_key(host, server.second), std::move(entry));
    return 1;
}

// Replaces the entry's routes by those of the list.
void CLumProxyUtil::take_list(const CTString& list, discovery_entry& entry) {
    std::list<proxy_info> parsed;
    ParseProxyList(list, parsed);
    entry.routes.clear();
    for (const proxy_info& route : parsed) {
        if (find_account(route) == nullptr) {
            proxy::trace_proxy(TESSEL_W("Add Proxy Info: "), route);
        }
        entry.routes.push_back(add_account(route));
    }
}

CLumProxyInfo* CLumProxyUtil::find_account(const proxy_info& account) const {
    const auto found = m_account_of.find(server_view(account.server, account.port));
    return found == m_account_of.end() ? nullptr : found->second;
}

// The account of this proxy: the one that is known, with its user and password, else this one.
CLumProxyInfo* CLumProxyUtil::add_account(const proxy_info& account) {
    if (CLumProxyInfo* const known = find_account(account)) {
        return known;
    }
    m_accounts.emplace_back(account);
    try {
        m_account_of.emplace(server_key(account.server, account.port), &m_accounts.back());
    } catch (...) {
        m_accounts.pop_back();
        throw;
    }
    return &m_accounts.back();
}

// A list has no room for the accounts that stand beside proxies in the settings; one that is known wins.
void CLumProxyUtil::take_accounts_of_settings() {
    for (const proxy_info& account : proxy::accounts_in_proxy_settings()) {
        const CLumProxyInfo* const known = find_account(account);
        if (known == nullptr || known->user.empty()) {
            UpdateProxyAccount(account);
        }
    }
}

void CLumProxyUtil::OnProxyGetted(const char* server, unsigned short port, const char* proxyList) try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::OnProxyGetted()"));
    trace(TESSEL_W("CLumProxyUtil::OnProxyGetted() wait lock"));
    const std::lock_guard lock(m_lock);
    trace(TESSEL_W("CLumProxyUtil::OnProxyGetted() in lock"));
    const CTString list(from_utf8(proxyList));
    const CTString host(from_utf8(server));
    if (running_query* const query = running_query::find(m_queries, server_view(host, port))) {
        query->early_list = std::make_unique<CTString>(list);
        return;
    }
    answer_arrived(host, port, list);
} catch (const std::exception&) {
    // No memory, or a list of more than 2^31 bytes: who waits goes on after its time.
}

void CLumProxyUtil::answer_arrived(const CTString& server, unsigned short port, const CTString& list) {
    const auto found = m_servers.find(server_view(server, port));
    discovery_entry nobodys;
    discovery_entry& entry = found == m_servers.end() ? nobodys : found->second;
    take_list(list, entry);
    if (entry.completion != nullptr) {
        entry.completion->set();
    }
}

void CLumProxyUtil::UpdateProxyAccount(const proxy_info& account) try {
    const std::lock_guard lock(m_lock);
    CLumProxyInfo* const known = add_account(account);
    known->user = account.user;
    known->password = account.password;
    BookExtProxyAccount(account);
} catch (const std::bad_alloc&) {
    // It stays unknown, and is asked for again.
}

// A query that is still under way has the lock for as long as its finder likes, and for ever where the system
// has ended its thread by now; or it is one that ends the process itself. Everything stays as it is then.
void CLumProxyUtil::release_at_exit() {
    if (os::process_was_forked()) {
        return;  // in a copy the lock may be held for ever
    }
    std::unique_lock lock(m_lock, std::try_to_lock);
    if (lock.owns_lock() && m_queries == nullptr) {
        release(std::move(lock));
    }
}

// Emptied at exit and never freed: another thread may still hold the reference, and then finds nothing.
CLumProxyUtil& GetProxyUtil() {
    static CLumProxyUtil* const util = [] {
        auto* const made = new CLumProxyUtil();
        std::atexit([] { GetProxyUtil().release_at_exit(); });
        return made;
    }();
    return *util;
}
