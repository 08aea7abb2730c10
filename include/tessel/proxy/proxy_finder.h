// Proxy discovery: what finds the proxies of a server, and what it tells.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>

/// Receives what a finder learns. Both operations come on any thread, a thread of the finder's own or that of
/// a query that is still running; each returns soon, and none throws.
class IProxyFinderSink {
public:
    /// The proxies of one server, as the answer to a query that said "asynchronous".
    /// server, port: as the query named them; the host as UTF-8.
    /// proxyList:    zero-terminated; see IProxyFinder::GetProxyInfo for what it may hold. Lent.
    virtual void OnProxyGetted(const char* server, unsigned short port, const char* proxyList) = 0;

    /// The finder needs the account of a proxy; it is told by IProxyFinder::SetAccount before the return, on
    /// the same thread, once its maker has it and until its destructor begins.
    /// server: the proxy's host, zero-terminated. Lent.
    virtual void OnErrorAccount(const wchar* server, unsigned short port) = 0;

protected:
    ~IProxyFinderSink() = default;
};

/// Finds proxies. Queries and booked accounts come from any thread, one at a time; SetAccount also while one
/// of them is running on another thread, since it answers a question that may have been asked inside it.
///
/// A finder calls its sink only between its making and the return of its destructor, and waits in the
/// destructor for a call that is running on another thread.
class IProxyFinder {
public:
    /// The proxies of one server.
    ///
    /// first:            always 0.
    /// host:             zero-terminated; lent.
    /// notPreconfigured: out: zero when the system's own configuration applies to this server.
    /// bAsync:           out: non-zero when the answer comes later, once, by IProxyFinderSink::OnProxyGetted;
    ///                   the list is empty then. It may come before this call returns.
    /// buffer, capacity: takes the zero-terminated list; the room in code units on entry. Items are "DIRECT"
    ///                   or scheme=host:port with the scheme http or https, separated by semicolons.
    /// Returns:          0 on success, else an error number: 87 a null argument, 122 no room for the list.
    virtual int GetProxyInfo(int first, const wchar* host, unsigned short port, int* notPreconfigured,
                             int* bAsync, wchar* buffer, unsigned long* capacity) = 0;

    /// Answers IProxyFinderSink::OnErrorAccount. Two nulls: there is no account.
    virtual void SetAccount(const wchar* user, const wchar* password) = 0;

    /// Makes an account known that will be wanted. Returns 0 when the finder keeps it.
    virtual int BookAccount(const wchar* server, unsigned short port, const wchar* user,
                            const wchar* password) = 0;

    virtual ~IProxyFinder() = default;
};

namespace kro::tessel {

/// Makes a finder that reports to `sink`, or null when there can be none. It is deleted by who asked for it.
using proxy_finder_factory = IProxyFinder* (*)(IProxyFinderSink* sink);

/// Why the latest answer of the finder that stands on the system's settings names no proxy and no direct
/// connection, in English: a script that fails, or can't be evaluated on this machine, above all. Empty when
/// it names one. Other finders don't set it. Thread: any. Throws std::bad_alloc.
TESSEL_API CTString last_proxy_problem();

}  // namespace kro::tessel
