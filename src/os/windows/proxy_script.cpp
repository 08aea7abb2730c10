// Scripts for proxies, evaluated by the system's own service, WinHTTP.
#include "os/proxy_script.h"

#include "os/windows/proxy_names.h"

#include <process.h>
#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Of ntdll, which has it in its library and in no header: whether the process ends and has no other thread.
extern "C" BOOLEAN NTAPI RtlDllShutdownInProgress();

namespace kro::tessel::os {
namespace {

constexpr int k_step_limit_ms = 5000;           // of each step of fetching a script
constexpr std::size_t k_most_questions = 1000;  // that wait; each is another server
constexpr int k_most_threads = 3;               // so many scripts may hang before others wait for them

std::wstring wide(const std::string& text) {
    return {text.begin(), text.end()};  // ASCII, as it stands in a URL
}

std::wstring url_of(const proxy_script_question& question) {
    const bool secure = question.port == 443;
    std::wstring url = (secure ? L"https://" : L"http://") + wide(question.host);
    if (!secure && question.port != 80) {
        url += L':' + std::to_wstring(question.port);
    }
    return url + L'/';
}

/// What the service says of one URL, freed at the end.
class script_decision {
public:
    script_decision(HINTERNET session, const proxy_script_question& question) {
        const std::wstring script = wide(question.script);
        WINHTTP_AUTOPROXY_OPTIONS options{};
        options.dwFlags = script.empty() ? WINHTTP_AUTOPROXY_AUTO_DETECT : WINHTTP_AUTOPROXY_CONFIG_URL;
        options.dwAutoDetectFlags =
            script.empty() ? WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A : 0;
        options.lpszAutoConfigUrl = script.empty() ? nullptr : script.c_str();
        m_error = WinHttpGetProxyForUrl(session, url_of(question).c_str(), &options, &m_info) != FALSE
                      ? ERROR_SUCCESS
                      : GetLastError();
    }
    script_decision(const script_decision&) = delete;
    script_decision& operator=(const script_decision&) = delete;
    ~script_decision() {
        GlobalFree(m_info.lpszProxy);
        GlobalFree(m_info.lpszProxyBypass);
    }

    DWORD error() const { return m_error; }
    bool is_direct() const { return m_info.dwAccessType == WINHTTP_ACCESS_TYPE_NO_PROXY; }
    proxy_text proxies() const { return m_info.lpszProxy == nullptr ? proxy_text() : m_info.lpszProxy; }

private:
    WINHTTP_PROXY_INFO m_info{};
    DWORD m_error = ERROR_SUCCESS;
};

proxy_script_answer answer_of(HINTERNET session, const proxy_script_question& question) {
    const script_decision decision(session, question);
    proxy_script_answer answer;
    if (decision.error() == ERROR_WINHTTP_AUTODETECTION_FAILED) {
        // Most networks have no script to find, and most users have it looked for all the same.
        proxy_decision fixed = read_fixed_proxy_settings(wide(question.host), question.port);
        answer.routes = std::move(fixed.routes);
        answer.left_out = std::move(fixed.left_out);
    } else if (decision.error() != ERROR_SUCCESS) {
        answer.problem = "error " + std::to_string(decision.error()) + " of WinHTTP";
    } else if (decision.is_direct()) {
        answer.routes.emplace_back();
    } else {
        any_entry(decision.proxies(), [&answer](proxy_text entry) {
            const proxy_route route = route_of(entry);
            if (!route.host.empty() && route.port != 0) {
                answer.routes.push_back(route);
            }
            return false;
        });
        answer.problem = answer.routes.empty() ? "it names no HTTP proxy" : "";
    }
    return answer;
}

/// What the threads that ask work on. It outlives the service while the system is still busy with a question:
/// nothing ends that, and nobody waits for it.
class questions {
public:
    void post(proxy_script_question question, proxy_script_service::receiver answered);
    /// Those without an answer yet.
    int open();
    /// One of the threads.
    void ask_them();
    /// Waits for receivers that run on other threads.
    void stop();

private:
    using posted = std::pair<proxy_script_question, proxy_script_service::receiver>;

    bool take(posted& next);
    void deliver(const posted& to, const proxy_script_answer& answer);

    std::mutex m_mutex;  // guards all of it
    std::condition_variable m_changed;
    std::deque<posted> m_posted;
    std::vector<DWORD> m_delivering;  // the threads that are in a receiver
    int m_open = 0;
    bool m_stopped = false;
};

void questions::post(proxy_script_question question, proxy_script_service::receiver answered) {
    const std::lock_guard lock(m_mutex);
    if (m_posted.size() >= k_most_questions) {
        throw std::bad_alloc();
    }
    m_posted.emplace_back(std::move(question), std::move(answered));
    ++m_open;
    m_changed.notify_all();
}

int questions::open() {
    const std::lock_guard lock(m_mutex);
    return m_open;
}

bool questions::take(posted& next) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_stopped || !m_posted.empty(); });
    if (m_stopped) {
        return false;
    }
    next = std::move(m_posted.front());
    m_posted.pop_front();
    return true;
}

void questions::deliver(const posted& to, const proxy_script_answer& answer) {
    {
        const std::lock_guard lock(m_mutex);
        --m_open;
        if (m_stopped) {
            return;
        }
        m_delivering.push_back(GetCurrentThreadId());
    }
    to.second(answer);
    const std::lock_guard lock(m_mutex);
    m_delivering.erase(std::find(m_delivering.begin(), m_delivering.end(), GetCurrentThreadId()));
    m_changed.notify_all();
}

void questions::ask_them() try {
    HINTERNET const session = WinHttpOpen(L"tessel", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                          WINHTTP_NO_PROXY_BYPASS, 0);
    WinHttpSetTimeouts(session, k_step_limit_ms, k_step_limit_ms, k_step_limit_ms, k_step_limit_ms);
    posted next;
    while (take(next)) {
        deliver(next, answer_of(session, next.first));
    }
    WinHttpCloseHandle(session);
} catch (const std::exception&) {
    // No memory: who waits goes on after its time.
}

void questions::stop() {
    if (RtlDllShutdownInProgress() != FALSE) {
        return;  // the system has ended the threads, and what they held stays held
    }
    std::unique_lock lock(m_mutex);
    m_stopped = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] {
        return std::all_of(m_delivering.begin(), m_delivering.end(),
                           [](DWORD thread) { return thread == GetCurrentThreadId(); });
    });
}

unsigned __stdcall run_thread(void* shared) {
    const std::unique_ptr<std::shared_ptr<questions>> mine(static_cast<std::shared_ptr<questions>*>(shared));
    (*mine)->ask_them();
    return 0;
}

// A thread that nobody waits for. Not std::thread: with this compiler's library, one that is detached about
// when it ends may take the next one's arguments along.
void start_thread_for(const std::shared_ptr<questions>& all) {
    auto shared = std::make_unique<std::shared_ptr<questions>>(all);
    const auto thread = ::_beginthreadex(nullptr, 0, run_thread, shared.get(), 0, nullptr);
    if (thread == 0) {
        throw std::system_error(errno, std::generic_category());
    }
    static_cast<void>(shared.release());  // its own now
    CloseHandle(reinterpret_cast<HANDLE>(thread));
}

class winhttp_scripts final : public proxy_script_service {
public:
    winhttp_scripts() = default;
    winhttp_scripts(const winhttp_scripts&) = delete;
    winhttp_scripts& operator=(const winhttp_scripts&) = delete;
    ~winhttp_scripts() override { m_questions->stop(); }

    void ask(proxy_script_question question, receiver answered) override {
        const std::lock_guard lock(m_mutex);
        if (m_threads < k_most_threads && m_threads <= m_questions->open()) {
            stay_loaded();
            start_thread_for(m_questions);
            ++m_threads;
        }
        m_questions->post(std::move(question), std::move(answered));
    }

private:
    // A thread may be in the system when the host lets go of the library.
    static void stay_loaded() {
        static const int k_anything_of_ours = 0;
        HMODULE library = nullptr;
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<const wchar*>(&k_anything_of_ours), &library);
    }

    const std::shared_ptr<questions> m_questions = std::make_shared<questions>();
    std::mutex m_mutex;  // guards the making of threads
    int m_threads = 0;
};

}  // namespace

std::unique_ptr<proxy_script_service> make_proxy_script_service() {
    return std::make_unique<winhttp_scripts>();
}

}  // namespace kro::tessel::os
