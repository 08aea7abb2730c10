// Tapes: what a host is told during typical exchanges, step by step, as recorded from the system that this
// interface comes from. The exchanges stand here, the tapes in notice_tapes.txt; recording is described
// there.
#include "os/inet_client.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace tessel_test {
namespace {

constexpr std::uint32_t k_usual = os::k_request_keep_connection | os::k_request_no_cookies;
constexpr std::uint32_t k_no_redirect = k_usual | os::k_request_no_auto_redirect;

/// How an exchange departs from "begin, end, read to the end, close".
enum class plan { usual, whole, two_requests, sent_twice, closed_unread, closed_sent, closed_open, refused };

struct exchange {
    const char* name;
    std::vector<std::string>
        answers;  // of the server, one a request; it closes behind one that ends in "<close>"
    const wchar* verb = TESSEL_W("GET");
    const char* body = "";
    plan steps = plan::usual;
    std::uint32_t flags = k_usual;
    const wchar* headers = TESSEL_W("");
};

std::string ok(const std::string& headers, const std::string& body = {}) {
    return "HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body;
}
std::string sized(const std::string& status, const std::string& body, const std::string& headers = {}) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
           "\r\n" + body;
}
std::string to(const std::string& status, const std::string& location) {
    return sized(status, "", "Location: " + location + "\r\n");
}

const std::string k_hello = sized("200 OK", "hello");
const std::string k_chunked = ok("Transfer-Encoding: chunked\r\n", "2\r\nhe\r\n3\r\nllo\r\n0\r\n\r\n");
const std::string k_basic = "WWW-Authenticate: Basic realm=\"r\"\r\n";

const exchange k_exchanges[] = {
    {"get", {k_hello}},
    {"get, in one", {k_hello}, TESSEL_W("GET"), "", plan::whole},
    {"get, no body", {sized("200 OK", "")}},
    {"get, chunked", {k_chunked}},
    {"get, chunked, in one", {k_chunked}, TESSEL_W("GET"), "", plan::whole},
    {"get, chunked, no body", {ok("Transfer-Encoding: chunked\r\n", "0\r\n\r\n")}},
    {"get, chunked, with a trailer", {ok("Transfer-Encoding: chunked\r\n", "2\r\nhe\r\n0\r\nX: y\r\n\r\n")}},
    {"get, to the close", {ok("Connection: close\r\n", "hello<close>")}},
    {"get, HTTP/1.0", {"HTTP/1.0 200 OK\r\n\r\nhello<close>"}},
    {"get, length and close", {sized("200 OK", "hello", "Connection: close\r\n") + "<close>"}},
    {"get, cut short", {ok("Content-Length: 9\r\n", "hello<close>")}},
    {"get, lines that end with LF", {"HTTP/1.1 200 OK\nContent-Length: 2\n\nok"}},
    {"get, no reason", {"HTTP/1.1 200\r\nContent-Length: 2\r\n\r\nok"}},
    {"get, 100 first", {"HTTP/1.1 100 Continue\r\n\r\n" + k_hello}},
    {"get, a header of its own", {k_hello}, TESSEL_W("GET"), "", plan::usual, k_usual, TESSEL_W("X-A: b")},
    {"get, 204", {"HTTP/1.1 204 No Content\r\n\r\n"}},
    {"get, 304", {"HTTP/1.1 304 Not Modified\r\n\r\n"}},
    {"get, 400", {sized("400 Bad Request", "bad")}},
    {"get, 401", {sized("401 Unauthorized", "shut", k_basic)}},
    {"get, 403", {sized("403 Forbidden", "no")}},
    {"get, 404", {sized("404 Not Found", "gone")}},
    {"get, 500", {sized("500 Broken", "oops")}},
    {"get, 503", {sized("503 Later", "", "Retry-After: 5\r\n")}},
    {"head", {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"}, TESSEL_W("HEAD")},
    {"head, 404", {"HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\n\r\n"}, TESSEL_W("HEAD")},
    {"post", {k_hello}, TESSEL_W("POST"), "a=1"},
    {"post, in one", {k_hello}, TESSEL_W("POST"), "a=1", plan::whole},
    {"post, no body", {k_hello}, TESSEL_W("POST")},
    {"post, chunked answer", {k_chunked}, TESSEL_W("POST"), "a=1"},
    {"put, 201", {sized("201 Created", "")}, TESSEL_W("PUT"), "text"},
    {"delete", {sized("200 OK", "")}, TESSEL_W("DELETE")},
    {"options", {sized("200 OK", "", "Allow: GET\r\n")}, TESSEL_W("OPTIONS")},
    {"propfind, 207", {sized("207 Multi-Status", "<x/>")}, TESSEL_W("PROPFIND"), "<y/>"},
    {"redirect, 301", {to("301 Moved", "/b"), k_hello}},
    {"redirect, 302", {to("302 Found", "/b"), k_hello}},
    {"redirect, 302, in one", {to("302 Found", "/b"), k_hello}, TESSEL_W("GET"), "", plan::whole},
    {"redirect, 303 of a post", {to("303 See", "/b"), k_hello}, TESSEL_W("POST"), "a=1"},
    {"redirect, 302 of a post", {to("302 Found", "/b"), k_hello}, TESSEL_W("POST"), "a=1"},
    {"redirect, 302 of a head", {to("302 Found", "/b"), sized("200 OK", "")}, TESSEL_W("HEAD")},
    {"redirect, twice", {to("302 Found", "/b"), to("301 Moved", "c?d"), k_hello}},
    {"redirect, to another directory", {to("302 Found", "../b"), k_hello}},
    {"redirect, with a body", {sized("302 Found", "moved", "Location: /b\r\n"), k_hello}},
    {"redirect, not followed", {to("302 Found", "/b")}, TESSEL_W("GET"), "", plan::usual, k_no_redirect},
    {"redirect, nowhere", {sized("302 Found", "here")}},
    {"two requests", {k_hello, k_chunked}, TESSEL_W("GET"), "", plan::two_requests},
    {"two requests, closed between",
     {ok("Connection: close\r\n", "a<close>"), k_hello},
     TESSEL_W("GET"),
     "",
     plan::two_requests},
    {"sent twice", {k_hello, sized("200 OK", "again")}, TESSEL_W("GET"), "", plan::sent_twice},
    {"closed unread", {k_hello}, TESSEL_W("GET"), "", plan::closed_unread},
    {"closed before the answer", {}, TESSEL_W("GET"), "", plan::closed_sent},
    {"closed at once", {}, TESSEL_W("GET"), "", plan::closed_open},
    {"refused", {}, TESSEL_W("GET"), "", plan::refused},
};

/// Plays the server: answers requests, one after another, on a new connection when the last one was closed.
class player {
public:
    player(test_server& server, const std::vector<std::string>& answers)
        : m_thread([this, &server, &answers] { play(server, answers); }) {}
    ~player() { m_thread.join(); }
    player(const player&) = delete;
    player& operator=(const player&) = delete;

    /// The requests that were answered, a line each with "|" for its line ends.
    std::string asked() {
        const std::lock_guard lock(m_mutex);
        return m_asked;
    }

private:
    void play(test_server& server, const std::vector<std::string>& answers) try {
        for (const std::string& answer : answers) {
            if (!m_connection.is_open()) {
                m_connection = server.accept();
            }
            note(m_connection.read_request());
            const std::size_t end = answer.rfind("<close>");
            m_connection.send(answer.substr(0, end));
            if (end != std::string::npos) {
                m_connection.close();
            }
        }
    } catch (const std::runtime_error&) {  // the tape shows what the client was told
    }

    void note(const std::string& request) {
        const std::lock_guard lock(m_mutex);
        m_asked += "\n    " + one_line(request);
    }

    // The order of headers means nothing.
    static std::string one_line(const std::string& request) {
        std::istringstream text(request);
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.substr(0, line.find('\r')));
        }
        std::sort(lines.begin() + 1, std::find(lines.begin(), lines.end(), std::string()));
        std::string joined = lines[0];
        for (std::size_t i = 1; i < lines.size(); ++i) {
            joined += "|" + lines[i];
        }
        return joined;
    }

    std::mutex m_mutex;  // guards m_asked
    std::string m_asked;
    server_connection m_connection;  // kept open until the client is done
    std::thread m_thread;
};

/// A client that writes down what it is told.
class recorder {
public:
    recorder(const exchange& what, std::uint16_t port) : m_what(what), m_client(os::inet(), port) {}

    std::string record() {
        const int requests = m_what.steps == plan::two_requests ? 2 : 1;
        for (int i = 0; i < requests; ++i) {
            const os::inet_handle request = m_client.request(m_what.verb, TESSEL_W("/dir/a"), m_what.flags);
            step("open");
            steps(request);
            m_client.net.close(request);
            step("close");
        }
        return m_tape;
    }

private:
    void steps(os::inet_handle request) {
        if (m_what.steps == plan::closed_open) {
            return;
        }
        const int sends = m_what.steps == plan::sent_twice ? 2 : 1;
        for (int i = 0; i < sends && send(request); ++i) {
            queries(request);
            if (m_what.steps != plan::closed_unread) {
                read(request);
            }
        }
    }

    // Sends and ends; whether a response is there.
    bool send(os::inet_handle request) {
        const bool whole = m_what.steps == plan::whole;
        const auto size = static_cast<std::uint32_t>(std::char_traits<char>::length(m_what.body));
        const auto mode = whole ? os::inet_send_mode::whole : os::inet_send_mode::begin;
        const bool sent = pending(m_client.net.send(
            request, m_what.headers, size == 0 ? nullptr : m_what.body, size, mode, m_client.log.context()));
        step("send");
        if (!sent || whole || m_what.steps == plan::closed_sent) {
            return sent && whole;
        }
        const bool ended = pending(m_client.net.end(request, m_client.log.context()));
        step("end");
        return ended;
    }

    bool pending(os::inet_status status) {
        EXPECT_TRUE(status.pending()) << m_what.name;
        return m_client.log.wait().result != 0;
    }

    void queries(os::inet_handle request) {
        std::uint32_t length = 0;
        const bool has_length = m_client.net.query_number(request, os::k_query_content_length, length).ok();
        m_tape += " status=" + std::to_string(m_client.status(request)) +
                  " length=" + (has_length ? std::to_string(length) : "none");
    }

    // Which reads wait depends on the network: only bytes and errors are noted.
    void read(os::inet_handle request) {
        std::uint32_t error = 0;
        const std::string body = m_client.body(request, error, 3);
        m_tape += " read=" + body + (error != 0 ? "!" + std::to_string(error) : "");
        m_client.log.clear();
    }

    // Whether a host hears of the end of a connection before its request is closed depends on who is quicker.
    static bool is_end_of_connection(const notice& one) {
        return one.code == os::k_notice_closing_connection || one.code == os::k_notice_connection_closed;
    }

    // The notices since the last step.
    void step(const char* name) {
        m_tape += m_tape.empty() ? name : std::string(" ") + name;
        for (const notice& one : m_client.log.all()) {
            if (is_end_of_connection(one)) {
                continue;
            }
            m_tape += " " + std::to_string(one.code);
            if (one.code == os::k_notice_request_complete) {
                m_tape += "(" + std::to_string(one.result.error) + ")";
            } else if (one.code == os::k_notice_redirect) {
                const std::size_t path = one.text.find(TESSEL_W('/'), 8);
                m_tape += "(" +
                          std::string(one.text.begin() + static_cast<std::ptrdiff_t>(path), one.text.end()) +
                          ")";
            }
        }
        m_client.log.clear();
    }

    const exchange& m_what;
    inet_client m_client;
    std::string m_tape;
};

std::string recorded(const exchange& what) {
    test_server server;
    player playing(server, what.answers);
    if (what.steps == plan::refused) {
        server.stop_listening();
    }
    std::string tape = recorder(what, server.port()).record();
    tape += playing.asked();
    const std::string port = ":" + std::to_string(server.port());
    for (std::size_t at = tape.find(port); at != std::string::npos; at = tape.find(port)) {
        tape.erase(at, port.size());
    }
    return tape;
}

/// The tapes by name.
std::map<std::string, std::string> known_tapes() {
    std::ifstream file(TESSEL_TAPES, std::ios::binary);
    std::map<std::string, std::string> tapes;
    std::string name;
    for (std::string line; std::getline(file, line);) {
        if (line.substr(0, 4) == "    ") {
            tapes[name] += '\n' + line;
        } else if (const std::size_t colon = line.find(": "); line[0] != '#' && colon != std::string::npos) {
            name = line.substr(0, colon);
            tapes[name] = line.substr(colon + 2);
        }
    }
    return tapes;
}

TEST(NoticeTape, PlaysAsRecorded) {
    auto known = known_tapes();
    const char* const recording = std::getenv("TESSEL_RECORD_TAPES");
    std::ofstream file(recording != nullptr ? recording : "", std::ios::binary);
    for (const exchange& one : k_exchanges) {
        const std::string played = recorded(one);
        file << one.name << ": " << played << '\n';
        const auto own = known.find(std::string(one.name) + " @" TESSEL_SYSTEM);
        EXPECT_EQ(own != known.end() ? own->second : known[one.name], played) << one.name;
    }
}

}  // namespace
}  // namespace tessel_test
