// Scripts for proxies through the real helper: what they return, every way in which they fail, and what
// becomes of the helper's process. A script must never hold up anything but its own answer, nor harm the
// host.
#include "os/linux/descriptor.h"
#include "os/linux/proxy_script_pool.h"

#include "support/test_server.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <vector>

namespace tessel_test {
namespace {

namespace os = kro::tessel::os;
using os::proxy_script_answer;
using service = std::unique_ptr<os::proxy_script_service>;
using namespace std::chrono_literals;

constexpr auto k_patience = 60s;
const char* const k_hangs =
    "function FindProxyForURL(url, host) { if (host == 'hang.example') for (;;); return 'DIRECT'; }";

// "http a:1;https b:2;direct", what was left out and the problem behind bars.
std::string shown(const proxy_script_answer& answer) {
    std::string text;
    for (const os::proxy_route& route : answer.routes) {
        const bool secure = route.type == os::proxy_route::kind::https;
        text += text.empty() ? "" : ";";
        text += route.host.empty()
                    ? "direct"
                    : (secure ? "https " : "http ") + route.host + ':' + std::to_string(route.port);
    }
    text += answer.left_out.empty() ? "" : " | " + answer.left_out;
    return answer.problem.empty() ? text : text + "!" + answer.problem;
}

std::future<std::string> ask(const service& scripts, const std::string& script, const std::string& host,
                             std::uint16_t port = 80) {
    const auto answer = std::make_shared<std::promise<std::string>>();
    scripts->ask({script, host, port},
                 [answer](const proxy_script_answer& given) { answer->set_value(shown(given)); });
    return answer->get_future();
}

std::string arrived(std::future<std::string> answer) {
    return answer.wait_for(k_patience) == std::future_status::ready ? answer.get() : "nothing came";
}

std::vector<pid_t> children() {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        std::ifstream file(entry.path() / "stat");
        std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const auto end = stat.rfind(')');  // the name before it may hold anything
        if (end != std::string::npos && std::atoi(stat.c_str() + end + 4) == ::getpid()) {
            found.push_back(std::atoi(name.c_str()));
        }
    }
    return found;
}

pid_t only_child() {
    const std::vector<pid_t> all = children();
    EXPECT_EQ(1U, all.size());
    return all.empty() ? -1 : all.front();
}

// Waits for the end of a process, a child or not.
bool ends(pid_t process) {
    const os::descriptor file(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    pollfd wanted{file.number(), POLLIN, 0};
    return file.number() < 0 || ::poll(&wanted, 1, 60'000) == 1;
}

/// An environment variable that helpers are started with.
class variable {
public:
    variable(const char* name, const char* value) : m_name(name) { ::setenv(name, value, 1); }
    variable(const variable&) = delete;
    variable& operator=(const variable&) = delete;
    ~variable() { ::unsetenv(m_name); }

private:
    const char* const m_name;
};

class Pac : public testing::Test {
public:
    Pac() {
        char name[] = "/tmp/tessel-pac-XXXXXX";
        m_folder = ::mkdtemp(name);
    }
    ~Pac() override { std::filesystem::remove_all(m_folder); }

    std::string file(const std::string& text) {
        std::string path = m_folder + "/" + std::to_string(m_count++) + ".pac";
        std::ofstream(path) << text;
        return path;
    }
    std::string script(const std::string& text) { return "file://" + file(text); }
    // A script whose function has this body.
    std::string function(const std::string& body) {
        return script("function FindProxyForURL(url, host) { " + body + " }");
    }
    std::string program(const std::string& text) {
        std::string path = file("#!/bin/sh\n" + text);
        ::chmod(path.c_str(), 0700);
        return path;
    }

    static service real(os::proxy_script_limits limits = {20s, 60s}) {
        return os::make_proxy_script_pool(TESSEL_HELPER, limits);
    }

private:
    std::string m_folder;
    int m_count = 0;
};

TEST_F(Pac, RoutesAreWhatTheScriptReturns) {
    const service scripts = real();
    const std::string branches = function(
        "if (shExpMatch(host, '*.inner.example')) return 'DIRECT';"
        "return 'PROXY ' + (url == 'https://h.example/' ? 'secure' : url == 'http://h.example:8080/' ? "
        "'other' : 'plain') + ':1';");
    EXPECT_EQ("direct", arrived(ask(scripts, branches, "a.inner.example")));
    EXPECT_EQ("http secure:1", arrived(ask(scripts, branches, "h.example", 443)));
    EXPECT_EQ("http other:1", arrived(ask(scripts, branches, "h.example", 8080)));
    EXPECT_EQ("http plain:1", arrived(ask(scripts, branches, "h.example", 80)));

    const struct {
        const char* what;
        std::string script;
        const char* answer;
    } rows[] = {
        {"several, in order", function("return 'proxy A:1;HTTPS b:2 ; http C; DIRECT;';"),
         "http a:1;https b:2;http c:80;direct"},
        {"no HTTP proxy", function("return 'SOCKS5 s:1080; PROXY p:1; QUIC q:2';"),
         "http p:1 | SOCKS5 s:1080, QUIC q:2"},
        {"no names",
         function("return 'PROXY p:0; PROXY p:99999; PROXY a b:1; PROXY [2001:db8::1]:3; HTTPS';"),
         " | PROXY p:0, PROXY p:99999, PROXY a b:1, PROXY [2001:db8::1]:3, HTTPS!it names no HTTP proxy: "
         "PROXY p:0, "
         "PROXY p:99999, PROXY a b:1, PROXY [2001:db8::1]:3, HTTPS"},
        {"null", function("return null;"), "direct"},
        {"nothing", function("alert(url);"), "!it returned no text: undefined"},
        {"too much", function("return Array(3000).join('x');"), "!it returned 2999 characters"},
        {"a constant of a strict script",
         script("\xEF\xBB\xBF\"use strict\";\nconst FindProxyForURL = () => 'PROXY p:1' // the end"),
         "http p:1"},
        {"Latin-1", function("/* \xE4 */ return 'PROXY p' + '\xE4'.charCodeAt(0) + ':1';"), "http p228:1"},
        {"UTF-8", function("return 'PROXY p' + '\xC3\xA4\xF0\x9F\x98\x80'.length + ':1';"), "http p3:1"},
        {"a MiB",
         script("var long = \"" + std::string(1U << 20U, 'x') +
                "\"; function FindProxyForURL() { return 'PROXY p' + long.length + ':1'; }"),
         "http p1048576:1"},
        {"an error", function("return nothing();"), "!ReferenceError: Can't find variable: nothing"},
        {"an error without a text", function("throw { toString: function () { throw 1; } };"),
         "!an error without a text"},
        {"lines and a terminal's commands", function("throw '\\n\\x1b[2Janswer DIRECT\\n';"),
         "!  [2Janswer DIRECT "},
        {"no script", script("} {"), "!SyntaxError: Parser error"},
        {"recursion without end", function("return FindProxyForURL(url, host);"),
         "!RangeError: Maximum call stack size exceeded."},
        {"a frozen world", script("function FindProxyForURL() { return 'DIRECT'; } Object.freeze(this);"),
         "!the script engine failed"},
#if !defined(__SANITIZE_ADDRESS__)  // whose allocator waits for itself when there is no more memory
        {"more memory than there is",
         function("var all = []; for (;;) all.push(new Uint8Array(1 << 20).fill(7));"),
         "!RangeError: Out of memory"},
#endif
        {"no file", "file:///nonexistent/x.pac",
         "!it can't be fetched: Couldn't open file /nonexistent/x.pac"},
        {"no protocol", "ftp://h.example/x.pac",
         "!it can't be fetched: Protocol \"ftp\" not supported or disabled in libcurl"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.answer, arrived(ask(scripts, row.script, "h.example"))) << row.what;
    }
    EXPECT_EQ(1U, children().size()) << "one helper for all";
}

TEST_F(Pac, IsFetchedOnceAndThroughNoProxy) {
    const variable proxy("http_proxy", "http://127.0.0.1:1");
    test_server server;
    const service scripts = real();
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
    auto first = ask(scripts, base + "/a script.pac", "h.example");
    server_connection connection = server.accept();
    EXPECT_EQ(0U, connection.read_head().find("GET /a%20script.pac HTTP/1.1\r\n"));
    connection.send("HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: /b\r\n\r\n");
    EXPECT_EQ(0U, connection.read_head().find("GET /b HTTP/1.1\r\n"));
    connection.answer("function FindProxyForURL() { return 'PROXY p:1'; }");
    EXPECT_EQ("http p:1", arrived(std::move(first)));
    EXPECT_EQ("http p:1", arrived(ask(scripts, base + "/a script.pac", "i.example")));
    EXPECT_FALSE(server.has_client());

    auto refused = ask(scripts, base + "/none", "h.example");
    connection = server.accept();
    connection.read_head();
    connection.send("HTTP/1.1 404 Not Found\r\nContent-Length: 6\r\n\r\nDIRECT");
    EXPECT_EQ("!it can't be fetched: The requested URL returned error: 404", arrived(std::move(refused)));
    EXPECT_EQ("!it can't be fetched: The requested URL returned error: 404",
              arrived(ask(scripts, base + "/none", "i.example")));
    EXPECT_FALSE(server.has_client()) << "nor is one that couldn't be fetched asked for again at once";

    auto large = ask(scripts, base + "/large", "h.example");
    connection = server.accept();
    connection.read_head();
    connection.send("HTTP/1.1 200 OK\r\n\r\n" + std::string((4U << 20U) + 1, ' '));
    EXPECT_EQ("!it is larger than 4 MiB", arrived(std::move(large)));
}

TEST_F(Pac, AHangingScriptDelaysOnlyItsOwnAnswer) {
    const service scripts = real({3s, 60s});
    const std::string script_url = script(k_hangs);
    auto hanging = ask(scripts, script_url, "hang.example");
    std::vector<std::future<std::string>> others;
    for (const char* const host : {"a.example", "b.example", "c.example"}) {
        others.push_back(ask(scripts, script_url, host));
    }
    for (auto& other : others) {
        EXPECT_EQ("direct", arrived(std::move(other)));
    }
    EXPECT_EQ(std::future_status::timeout, hanging.wait_for(0s)) << "they overtook it";
    EXPECT_EQ("!it takes longer than 3000 ms", arrived(std::move(hanging)));
    EXPECT_EQ("direct", arrived(ask(scripts, script_url, "d.example")));
}

TEST_F(Pac, AScriptThatEatsMemoryEndsItsHelperAndNotTheMachine) {
    const service scripts = real();
    const std::string eats = function(
        "var all = []; for (var i = 0; host == 'eat.example'; ++i) all.push({ text: 'x' + i }); return "
        "'DIRECT';");
    EXPECT_EQ("!its helper ended twice", arrived(ask(scripts, eats, "eat.example")));
    EXPECT_EQ("direct", arrived(ask(scripts, eats, "h.example")));
    rusage most{};
    ::getrusage(RUSAGE_CHILDREN, &most);
    EXPECT_LT(most.ru_maxrss, 400 * 1024) << "KiB";
}

TEST_F(Pac, AQuestionWhoseHelperIsKilledIsPutToAnother) {
    test_server server;
    const service scripts = real();
    auto answer = ask(scripts, "http://127.0.0.1:" + std::to_string(server.port()) + "/", "h.example");
    server_connection first = server.accept();
    const pid_t killed = only_child();
    ::kill(killed, SIGKILL);
    server_connection second = server.accept();
    second.read_head();
    EXPECT_NE(killed, only_child());
    second.answer("function FindProxyForURL() { return 'PROXY p:1'; }");
    EXPECT_EQ("http p:1", arrived(std::move(answer)));
}

TEST_F(Pac, HelpersThatMisbehaveHarmNobody) {
    const struct {
        const char* what;
        std::string program;
        const char* answer;
    } rows[] = {
        {"no program", "/nonexistent/helper", "!can't run /nonexistent/helper: No such file or directory"},
        {"ends at once", program("exit 1"), "!its helper ended twice"},
        {"can't, and says so", program("echo cannot today; read line; echo 'failed because'; read line"),
         "!because"},
        {"garbage", program("head -c 4000 /dev/zero; echo; read line"), "!its helper talks nonsense"},
        {"a line without end", program("exec cat /dev/zero"), "!its helper talks nonsense"},
        {"an answer with strange bytes",
         program("read line; printf 'answer PROXY p:1;PROXY \\377\\033:2\\n'; read line"),
         "http p:1 | PROXY ? :2"},
        {"silence", program("read line; read line"), "!it takes longer than 2000 ms"},
        {"deafness", program("exec 0<&1; kill -STOP $$"), "!it takes longer than 2000 ms"},
    };
    for (const auto& row : rows) {
        const service scripts = os::make_proxy_script_pool(row.program, {2s, 60s});
        EXPECT_EQ(row.answer, arrived(ask(scripts, "file:///x", "h.example"))) << row.what;
    }
    const service twice = os::make_proxy_script_pool(
        program(
            "read line; echo answer DIRECT; echo answer DIRECT; read line; echo answer PROXY p:1; read line"),
        {20s, 60s});
    EXPECT_EQ("direct", arrived(ask(twice, "file:///x", "h.example")));
    EXPECT_NE("http p:1", arrived(ask(twice, "file:///x", "i.example"))) << "an answer that nobody asked for";
    EXPECT_EQ("!its URL is too long", arrived(ask(twice, "file:///" + std::string(9000, 'x'), "h.example")));
}

// Until it is asked, and a while after the last question, there is no process; and none is left behind.
TEST_F(Pac, AHelperLivesAsLongAsItIsNeeded) {
    ::signal(SIGCHLD, SIG_IGN);  // a host's choice, with which nobody can wait for a child
    { const service unasked = real(); }
    EXPECT_TRUE(children().empty());
    const service brief = real({20s, 1ms});
    EXPECT_EQ("direct", arrived(ask(brief, function("return 'DIRECT';"), "h.example")));
    const std::vector<pid_t> idle = children();
    EXPECT_TRUE(std::all_of(idle.begin(), idle.end(), ends)) << "it ends by itself";
    ::signal(SIGCHLD, SIG_DFL);

    int ends_of_pipe[2];
    ASSERT_EQ(0, ::pipe(ends_of_pipe));  // which every program inherits
    service busy = real();
    test_server server;
    ask(busy, "http://127.0.0.1:" + std::to_string(server.port()) + "/", "h.example");
    server.accept().answer(k_hangs);
    const auto inherited = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(ends_of_pipe[0]));
    std::error_code is_gone;  // what it closes meanwhile
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(only_child()) + "/fd")) {
        EXPECT_NE(inherited, std::filesystem::read_symlink(entry, is_gone));
    }
    ask(busy, script(k_hangs), "hang.example");
    busy.reset();  // with a question open, and no receiver comes any more
    EXPECT_TRUE(children().empty()) << "not even dead ones";
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
}

TEST_F(Pac, TheServiceMayEndInsideAReceiver) {
    auto* scripts = real().release();
    std::promise<void> ended;
    scripts->ask({function("return 'DIRECT';"), "h.example", 80}, [&](const proxy_script_answer&) {
        delete scripts;
        ended.set_value();
    });
    ASSERT_EQ(std::future_status::ready, ended.get_future().wait_for(k_patience));
    const std::vector<pid_t> last = children();
    EXPECT_TRUE(std::all_of(last.begin(), last.end(), ends));
}

// Its helper evaluates a script without end and doesn't look at its socket, whose other end, moreover, a copy
// of the host still holds.
TEST_F(Pac, AHelperEndsWithItsHost) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    test_server server;
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
    int copy_lives[2];
    ASSERT_EQ(0, ::pipe(copy_lives));
    const pid_t host = ::fork();
    if (host == 0) {
        const service scripts = real();
        ask(scripts, url, "hang.example");
        char any = 0;
        if (::fork() == 0) {
            ::close(copy_lives[1]);
            ::_exit(::read(copy_lives[0], &any, 1) == 0 ? 0 : 1);
        }
        for (;;) {
            ::pause();
        }
    }
    ::close(copy_lives[0]);
    server_connection connection = server.accept();
    connection.read_head();
    connection.answer(k_hangs);
    EXPECT_TRUE(connection.wait_for_close()) << "it has the script";
    ::kill(host, SIGKILL);
    ::waitpid(host, nullptr, 0);
    const std::vector<pid_t> orphans = children();
    EXPECT_EQ(2U, orphans.size());
    int status = 0;
    const pid_t first = ::wait(&status);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        << "the helper's end, not the copy's: " << first;
    ::close(copy_lives[1]);
    ::wait(&status);
}

}  // namespace
}  // namespace tessel_test
