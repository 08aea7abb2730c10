// Which proxies lead to a server: asked once per server, remembered with their accounts for the life of the
// process.
#pragma once

#include <tessel/base/string.h>
#include <tessel/http/proxy_info.h>
#include <tessel/proxy/proxy_finder.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace kro::tessel::os {
class manual_reset_event;
}

/// The proxy record of the clients. An account is valid when its server isn't empty, its port isn't 0 and its
/// type is 1 or 2.
class CLumProxyInfo : public kro::tessel::http::proxy_info {
public:
    using proxy_info::proxy_info;
    CLumProxyInfo() = default;
    explicit CLumProxyInfo(const proxy_info& record) : proxy_info(record) {}
};

/// Finds the routes to a server and keeps the accounts of proxies.
///
/// Every operation may be called from any thread and none throws: where memory ends, the result is the
/// failure value. In a copy of the process (a fork) queries answer 0. Lines of trace at level 9 show accounts
/// with their passwords, in clear (kept).
class TESSEL_API CLumProxyUtil : public IProxyFinderSink {
public:
    using proxy_info = kro::tessel::http::proxy_info;
    using CTString = kro::tessel::CTString;

    /// Makes the finder (set_proxy_finder_factory in tessel/platform/host.h), loads the accounts of the
    /// registry and makes them known to the finder. Hosts use GetProxyUtil.
    CLumProxyUtil();
    CLumProxyUtil(const CLumProxyUtil&) = delete;
    CLumProxyUtil& operator=(const CLumProxyUtil&) = delete;

    /// The finder's answer for a server: its routes replace those that the entry has, and who waits goes on.
    /// The accounts of new proxies are remembered even if nobody has asked for that server.
    /// server, proxyList: UTF-8, zero-terminated; null counts as empty.
    void OnProxyGetted(const char* server, unsigned short port, const char* proxyList) override;

    /// Asks ShowInputDialog for the account and tells the finder, which so learns that there is none.
    void OnErrorAccount(const wchar* server, unsigned short port) override;

    /// Releases the finder, the entries and the accounts.
    virtual ~CLumProxyUtil();

    /// The routes to a URL's server, in the order to try; a route with an empty server is a direct
    /// connection. Asks the finder unless that server has been asked for, and waits at most 10,000 ms since
    /// the question for an answer that comes later.
    /// routes:  appended to, copies.
    /// Returns: 1 answered, with what is known so far after a time-out, maybe nothing; 0 no finder, no valid
    ///          URL, or the finder failed.
    virtual int GetProxyInfo(const CTString& url, std::list<proxy_info>& routes);

    /// Shows nothing and returns 0, "cancelled": accounts are entered in the authentication dialogue of a
    /// request.
    virtual int ShowInputDialog(CLumProxyInfo& account, const CTString& text);

    /// Remembers an account that was entered or confirmed: every route by that proxy has it from now on, and
    /// the finder is told. The registry is not written: see SaveProxyInfo.
    virtual void UpdateProxyAccount(const proxy_info& account);

    /// As the shorter one, but doesn't ask the finder: only a server that was prepared has an answer.
    /// usePreconfig: out: 1 when the system's own configuration applies to the server.
    /// waitMs:       counted from the finder's question, at least 1 ms; 0xFFFFFFFF waits without limit.
    /// Returns:      1 answered, as above; 0 no finder, no valid URL, or a server that wasn't asked for.
    int GetProxyInfo(const CTString& url, int& usePreconfig, std::list<proxy_info>& routes,
                     unsigned long waitMs);

    /// Asks the finder for the servers of these URLs, so that a later query needn't wait. Returns 0 without a
    /// finder, else 1.
    int PrepareProxyInfo(const std::vector<CTString>& urls);
    /// The same for one. Returns 1 when the finder was asked; 0 for a server that has been asked for, an
    /// invalid URL or a finder that failed (a later call asks again).
    int PrepareProxyInfo(const CTString& url);

    /// Reads a list of routes, items separated by ";": "DIRECT" or "DIRECT:0" (exactly so, without blanks),
    /// else scheme=host:port with the scheme "http" or "https" and blanks anywhere. Items of another form are
    /// dropped. Of a port the low 16 bits count.
    /// routes:  appended to.
    /// Returns: 1.
    int ParseProxyList(const CTString& text, std::list<proxy_info>& routes);
    /// Reads one item. Returns 1 when it was understood, else 0 with `route` untouched.
    int ParseProxyItem(const CTString& item, proxy_info& route);

    /// Adds the accounts of the registry, HKEY_CURRENT_USER\Software\Halvik\Bremora\proxy, to those in
    /// memory. A subkey that can't be opened ends it (kept). Returns 1 when there is such a key, else 0.
    int LoadProxyInfo();
    /// Writes one account to the registry, where LoadProxyInfo finds it. The password stands there as plain
    /// text. An empty user or password leaves an older one in place. Returns 1, or 0 when the registry
    /// refuses.
    int SaveProxyInfo(const proxy_info& account);
    /// Tells the finder of an account; in the user name every "/" becomes "\". False for an account that
    /// isn't valid or has no user or no password, and when the finder doesn't take it.
    bool BookExtProxyAccount(const proxy_info& account);

private:
    friend CLumProxyUtil& GetProxyUtil();

    struct discovery_entry {
        std::vector<CLumProxyInfo*> routes;  // into m_accounts: a learned account is seen by every entry
        std::shared_ptr<kro::tessel::os::manual_reset_event> completion;  // while an answer is outstanding
        int usePreconfig = 0;
        std::uint32_t requestTick = 0;  // ms, wraps
    };
    using server_key = std::pair<CTString, std::uint16_t>;
    using server_view = std::pair<std::basic_string_view<wchar>, std::uint16_t>;
    struct server_order {
        using is_transparent = void;
        template <class Left, class Right>
        bool operator()(const Left& left, const Right& right) const {
            return server_view(left.first, left.second) < server_view(right.first, right.second);
        }
    };

    class running_query;

    static bool server_of(const CTString& url, server_view& server);
    int ask_finder(IProxyFinder& finder, running_query& query);
    int known_routes(const server_view& server, bool completed, int& usePreconfig,
                     std::list<proxy_info>& routes);
    CLumProxyInfo* find_account(const proxy_info& account) const;
    CLumProxyInfo* add_account(const proxy_info& account);
    void take_list(const CTString& list, discovery_entry& entry);
    void take_accounts_of_settings();
    void answer_arrived(const CTString& server, unsigned short port, const CTString& list);
    void release(std::unique_lock<std::recursive_mutex> lock);
    void release_at_exit();

    std::list<CLumProxyInfo> m_accounts;
    std::map<server_key, discovery_entry, server_order> m_servers;
    std::atomic<IProxyFinder*> m_finder{
        nullptr};  // used under the lock, but for the answers to its own questions
    std::recursive_mutex
        m_lock;  // guards the maps, the entries and the accounts; a finder may answer inside a query
    std::map<server_key, CLumProxyInfo*, server_order> m_account_of;
    running_query* m_queries = nullptr;  // those of the finder that are running, the innermost first
};

/// The one of the process, made on the first call and emptied at exit; afterwards it has no finder. An exit
/// during a query leaves it as it is: it never waits for a finder.
TESSEL_API CLumProxyUtil& GetProxyUtil();
