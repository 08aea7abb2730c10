// The HTTP service beside plain libcurl: requests a second, bytes a second and processor time, in one run
// against one server process. Prints a line a measurement and the ratio of the medians; rounds of the two
// sides alternate, so that a busy machine hits both.
//
//   inet_bench [--rounds N] [--requests N] [--mib N] [--limit N] [name ...]     names: 64 1 10000 known
//   chunked

#include "os/inet.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace os = kro::tessel::os;

// ---- the server: one thread, its own process

constexpr std::size_t k_piece = std::size_t{256} * 1024;

struct peer {
    std::string in;
    std::string head;             // what goes out before the pieces of a body
    std::string_view out;         // what is going out: the head, or one of the server's pieces
    std::uint64_t body_left = 0;  // in pieces of k_piece
    bool chunked = false;
    bool waits_for_room = false;
};

class bench_server {
public:
    bench_server() : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)), m_fill(k_piece, 'x') {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::listen(m_listener, 4096) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            std::abort();
        }
        m_port = ntohs(address.sin_port);
        for (std::size_t done = 0; done < k_piece; done += 16384) {
            m_chunks.append("4000\r\n").append(m_fill, 0, 16384).append("\r\n");
        }
    }

    std::uint16_t port() const { return m_port; }

    [[noreturn]] void run() {
        m_epoll = ::epoll_create1(0);
        watch(m_listener, EPOLL_CTL_ADD, EPOLLIN);
        for (;;) {
            epoll_event events[256];
            const int count = ::epoll_wait(m_epoll, events, 256, -1);
            for (int i = 0; i < count; ++i) {
                handle(events[i].data.fd, events[i].events);
            }
        }
    }

private:
    void watch(int socket, int operation, std::uint32_t events) {
        epoll_event event{};
        event.events = events;
        event.data.fd = socket;
        ::epoll_ctl(m_epoll, operation, socket, &event);
    }

    void handle(int socket, std::uint32_t events) {
        if (socket == m_listener) {
            const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK);
            const int on = 1;
            ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_peers[client] = std::make_unique<peer>();
            watch(client, EPOLL_CTL_ADD, EPOLLIN);
            return;
        }
        peer& one = *m_peers[socket];
        if ((events & EPOLLIN) != 0 && !receive(socket, one)) {
            m_peers.erase(socket);
            ::close(socket);
            return;
        }
        flush(socket, one);
    }

    bool receive(int socket, peer& one) {
        char bytes[65536];
        const ssize_t count = ::recv(socket, bytes, sizeof bytes, 0);
        if (count <= 0) {
            return false;
        }
        one.in.append(bytes, static_cast<std::size_t>(count));
        std::size_t end = 0;
        while ((end = one.in.find("\r\n\r\n")) != std::string::npos) {
            answer(one, one.in.substr(0, one.in.find(' ', 4)));
            one.in.erase(0, end + 4);
        }
        return true;
    }

    void answer(peer& one, const std::string& line) {
        if (line.compare(0, 11, "GET /known/") == 0) {
            one.body_left = std::stoull(line.substr(11));
            one.head += "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(one.body_left) + "\r\n\r\n";
        } else if (line.compare(0, 13, "GET /chunked/") == 0) {
            one.body_left = std::stoull(line.substr(13));
            one.chunked = true;
            one.head += "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        } else {
            one.head += "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100\r\n\r\n";
            one.head.append(m_fill, 0, 100);
        }
        one.out = one.head;
    }

    // Points at what goes out next; false at the end.
    bool refill(peer& one) {
        one.head.clear();
        if (one.body_left != 0) {
            one.body_left -= k_piece;
            one.out = one.chunked ? m_chunks : m_fill;
        } else if (one.chunked) {
            one.chunked = false;
            one.out = "0\r\n\r\n";
        }
        return !one.out.empty();
    }

    void flush(int socket, peer& one) {
        for (;;) {
            if (one.out.empty() && !refill(one)) {
                if (one.waits_for_room) {
                    one.waits_for_room = false;
                    watch(socket, EPOLL_CTL_MOD, EPOLLIN);
                }
                return;
            }
            const ssize_t count = ::send(socket, one.out.data(), one.out.size(), MSG_NOSIGNAL);
            if (count < 0) {
                one.waits_for_room = true;
                watch(socket, EPOLL_CTL_MOD, EPOLLIN | EPOLLOUT);
                return;
            }
            one.out.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    int m_listener;
    int m_epoll = -1;
    std::uint16_t m_port = 0;
    std::string m_fill;    // k_piece bytes of a body
    std::string m_chunks;  // the same in chunks of 16 KiB
    std::map<int, std::unique_ptr<peer>> m_peers;
};

// ---- measuring

// Destinations of bodies, used again by either side: a fresh page costs more than the bytes that it takes.
class body_memory {
public:
    char* take(std::size_t bytes) {
        if (bytes != m_bytes) {
            m_free.clear();
            m_all.clear();
            m_bytes = bytes;
        }
        if (m_free.empty()) {
            m_all.push_back(std::make_unique<char[]>(bytes));
            m_free.push_back(m_all.back().get());
        }
        char* const taken = m_free.back();
        m_free.pop_back();
        return taken;
    }
    void give(char* memory) { m_free.push_back(memory); }

private:
    std::size_t m_bytes = 0;
    std::vector<std::unique_ptr<char[]>> m_all;
    std::vector<char*> m_free;
};

body_memory g_memory;

struct measured {
    double seconds = 0;
    double processor = 0;
};

double processor_seconds() {
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

measured measure(const std::function<void()>& work) {
    const double processor = processor_seconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {took.count(), processor_seconds() - processor};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// ---- plain libcurl: a new easy handle for each request, curl_multi_poll

struct curl_body {
    char* data = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;
};

std::size_t keep_body(char* data, std::size_t size, std::size_t count, void* to) {
    auto& body = *static_cast<curl_body*>(to);
    const std::size_t bytes = size * count;
    if (body.size + bytes > body.capacity) {
        return 0;
    }
    std::memcpy(body.data + body.size, data, bytes);
    body.size += bytes;
    return bytes;
}

class curl_client {
public:
    curl_client() : m_multi(curl_multi_init()) {}
    ~curl_client() { curl_multi_cleanup(m_multi); }
    curl_client(const curl_client&) = delete;
    curl_client& operator=(const curl_client&) = delete;

    void run(const std::string& url, int total, int in_flight, std::size_t body_bytes, long buffer) {
        int started = 0;
        int ended = 0;
        while (started < std::min(in_flight, total)) {
            start(url, body_bytes, buffer);
            ++started;
        }
        while (ended < total) {
            int running = 0;
            curl_multi_perform(m_multi, &running);
            int left = 0;
            while (const CURLMsg* const message = curl_multi_info_read(m_multi, &left)) {
                finish(message, body_bytes);
                ++ended;
                if (started < total) {
                    start(url, body_bytes, buffer);
                    ++started;
                }
            }
            if (ended < total) {
                curl_multi_poll(m_multi, nullptr, 0, 1000, nullptr);
            }
        }
    }

private:
    void start(const std::string& url, std::size_t body_bytes, long buffer) {
        CURL* const easy = curl_easy_init();
        auto* const body = new curl_body;
        body->data = g_memory.take(body_bytes);
        body->capacity = body_bytes;
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keep_body);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, body);
        curl_easy_setopt(easy, CURLOPT_PRIVATE, body);
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        if (buffer != 0) {
            curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, buffer);
        }
        curl_multi_add_handle(m_multi, easy);
    }

    void finish(const CURLMsg* message, std::size_t body_bytes) {
        CURL* const easy = message->easy_handle;
        curl_body* body = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &body);
        if (message->data.result != CURLE_OK || body->size != body_bytes) {
            std::fprintf(stderr, "libcurl: request failed\n");
            std::exit(1);
        }
        curl_multi_remove_handle(m_multi, easy);
        curl_easy_cleanup(easy);
        g_memory.give(body->data);
        delete body;
    }

    CURLM* m_multi;
};

// ---- the service, driven as an engine drives it: notices only post, one other thread takes the steps

class service_client;

struct job {
    service_client* owner = nullptr;
    os::inet_handle request = nullptr;
    enum class step { sending, ending, reading } at = step::sending;
    os::inet_async_result result;
    char* body = nullptr;
    std::size_t capacity = 0;
    std::size_t size = 0;
};

class service_client {
public:
    explicit service_client(std::uint16_t port)
        : m_session(os::inet().open(os::k_access_direct, {}, {}, TESSEL_W("bench"), true)) {
        os::inet().set_callback(m_session, on_notice);
        m_connection = os::inet().connect(m_session, TESSEL_W("127.0.0.1"), port, {}, {}, 0);
    }
    ~service_client() { os::inet().close(m_session); }
    service_client(const service_client&) = delete;
    service_client& operator=(const service_client&) = delete;

    void run(const kro::tessel::wide_string& object, int total, int in_flight, std::size_t body_bytes,
             std::uint32_t piece) {
        m_object = object;
        m_body_bytes = body_bytes;
        m_piece = piece;
        m_started = m_ended = 0;
        m_total = total;
        while (m_started < std::min(in_flight, total)) {
            start();
        }
        while (m_ended < m_total) {
            {
                std::unique_lock lock(m_mutex);
                m_posted.wait(lock, [this] { return !m_queue.empty(); });
                m_taken.swap(m_queue);
            }
            for (job* const one : m_taken) {
                step(*one);
            }
            m_taken.clear();
        }
    }

private:
    static void on_notice(os::inet_handle /*handle*/, std::uintptr_t context, std::uint32_t code,
                          const void* information, std::uint32_t /*length*/) {
        if (code == os::k_notice_request_complete) {
            auto* const one = reinterpret_cast<job*>(context);
            one->result = *static_cast<const os::inet_async_result*>(information);
            one->owner->post(one);
        }
    }

    void post(job* one) {
        bool was_empty = false;
        {
            const std::lock_guard lock(m_mutex);
            was_empty = m_queue.empty();
            m_queue.push_back(one);
        }
        if (was_empty) {
            m_posted.notify_one();
        }
    }

    void start() {
        auto* const one = new job;
        one->owner = this;
        one->capacity = m_body_bytes;
        one->body = g_memory.take(m_body_bytes);
        const auto context = reinterpret_cast<std::uintptr_t>(one);
        one->request =
            os::inet().open_request(m_connection, {}, m_object, os::k_request_keep_connection, context);
        os::inet().send(one->request, {}, nullptr, 0, os::inet_send_mode::begin, context);
        ++m_started;
    }

    void step(job& one) {
        if (one.result.result == 0) {
            fail(one.result.error);
        }
        const auto context = reinterpret_cast<std::uintptr_t>(&one);
        switch (one.at) {
            case job::step::sending:
                one.at = job::step::ending;
                os::inet().end(one.request, context);
                return;
            case job::step::ending:
                one.at = job::step::reading;
                read(one);
                return;
            case job::step::reading:
                one.size += one.result.bytes;
                if (one.result.bytes == 0) {
                    finish(one);
                } else {
                    read(one);
                }
                return;
        }
    }

    void read(job& one) {
        const auto context = reinterpret_cast<std::uintptr_t>(&one);
        char end[16];
        for (;;) {
            const std::size_t room = one.capacity - one.size;
            const bool is_full = room == 0;
            const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(room, m_piece));
            const auto got = is_full ? os::inet().read(one.request, end, sizeof end, context)
                                     : os::inet().read(one.request, one.body + one.size, wanted, context);
            if (got.status.pending()) {
                return;
            }
            if (!got.status.ok()) {
                fail(got.status.error);
            }
            one.size += got.bytes;
            if (got.bytes == 0) {
                finish(one);
                return;
            }
        }
    }

    void finish(job& one) {
        if (one.size != m_body_bytes) {
            fail(0);
        }
        os::inet().close(one.request);
        g_memory.give(one.body);
        delete &one;
        ++m_ended;
        if (m_started < m_total) {
            start();
        }
    }

    [[noreturn]] static void fail(std::uint32_t error) {
        std::fprintf(stderr, "the service: request failed with %u\n", error);
        std::exit(1);
    }

    os::inet_handle m_session;
    os::inet_handle m_connection = nullptr;
    kro::tessel::wide_string m_object;
    std::size_t m_body_bytes = 0;
    std::uint32_t m_piece = 0;
    int m_started = 0;
    int m_ended = 0;
    int m_total = 0;
    std::mutex m_mutex;  // guards m_queue
    std::condition_variable m_posted;
    std::vector<job*> m_queue;
    std::vector<job*> m_taken;
};

// ---- the measurements

struct settings {
    int rounds = 7;
    int requests = 20'000;
    std::size_t mib = 512;
    std::uint16_t port = 0;
};

struct side {
    std::string name;
    std::function<void()> work;
    std::vector<double> seconds;
    std::vector<double> processor;
};

void compare(const settings& how, const std::string& title, double units, const char* unit,
             std::vector<side> sides) {
    for (int round = 0; round < how.rounds; ++round) {
        for (side& one : sides) {
            const measured result = measure(one.work);
            one.seconds.push_back(result.seconds);
            one.processor.push_back(result.processor);
        }
    }
    const double ours = median(sides.front().seconds);
    for (const side& one : sides) {
        const double seconds = median(one.seconds);
        std::printf("%-10s %-24s %10.0f %s/s  %8.2f us of processor a unit   ratio %.3f\n", title.c_str(),
                    one.name.c_str(), units / seconds, unit, median(one.processor) / units * 1e6,
                    seconds / ours);
    }
    std::fflush(stdout);
}

void compare_requests(const settings& how, service_client& service, int in_flight) {
    curl_client plain;
    const int total = in_flight == 1 ? how.requests / 4 : how.requests;
    const std::string url = "http://127.0.0.1:" + std::to_string(how.port) + "/small";
    const int beside = std::min(in_flight, 64);
    compare(how, std::to_string(in_flight), total, "req",
            {{"service", [&] { service.run(TESSEL_W("/small"), total, in_flight, 100, 10239); }, {}, {}},
             {"libcurl, " + std::to_string(beside) + " in flight",
              [&] { plain.run(url, total, beside, 100, 0); },
              {},
              {}},
             {"service, " + std::to_string(beside) + " in flight",
              [&] { service.run(TESSEL_W("/small"), total, beside, 100, 10239); },
              {},
              {}}});
}

void compare_bodies(const settings& how, service_client& service, const std::string& kind) {
    curl_client plain;
    const std::size_t bytes = how.mib << 20U;
    const std::string object = '/' + kind + '/' + std::to_string(bytes);
    const std::string url = "http://127.0.0.1:" + std::to_string(how.port) + object;
    const kro::tessel::wide_string wide(object.begin(), object.end());
    const std::uint32_t piece = kind == "known" ? 0xFFFFFFFFU : 10239;
    compare(how, kind, static_cast<double>(how.mib), "MiB",
            {{"service", [&] { service.run(wide, 1, 1, bytes, piece); }, {}, {}},
             {"libcurl, 16 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 0); }, {}, {}},
             {"libcurl, 512 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 512L * 1024); }, {}, {}}});
}

}  // namespace

int main(int count, char** arguments) {
    settings how;
    std::vector<std::string> names;
    for (int i = 1; i < count; ++i) {
        const std::string word = arguments[i];
        if (word == "--rounds" && i + 1 < count) {
            how.rounds = std::atoi(arguments[++i]);
        } else if (word == "--requests" && i + 1 < count) {
            how.requests = std::atoi(arguments[++i]);
        } else if (word == "--limit" && i + 1 < count) {
            os::inet().set_connection_limit(static_cast<std::uint32_t>(std::atoi(arguments[++i])));
        } else if (word == "--mib" && i + 1 < count) {
            how.mib = static_cast<std::size_t>(std::atoi(arguments[++i]));
        } else {
            names.push_back(word);
        }
    }
    bench_server server;
    how.port = server.port();
    if (::fork() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        server.run();
    }
    const auto wanted = [&names](const std::string& name) {
        return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
    };
    curl_global_init(CURL_GLOBAL_DEFAULT);
    service_client service(how.port);
    for (const int in_flight : {64, 1, 10'000}) {
        if (wanted(std::to_string(in_flight))) {
            compare_requests(how, service, in_flight);
        }
    }
    for (const char* const kind : {"known", "chunked"}) {
        if (wanted(kind)) {
            compare_bodies(how, service, kind);
        }
    }
    return 0;
}
