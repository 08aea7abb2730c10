// The HTTP service beside plain libcurl: requests a second, bytes a second and processor time, in one run
// against one server process. Prints a line a measurement and the ratio of the medians.
//
//   inet_bench [--rounds N] [--requests N] [--mib N] [--limit N] [name ...]
//   names: 64 1 10000 servers10 servers1000 known chunked

#include "os/inet.h"

#include "support/bench_server.h"
#include "support/curl_client.h"
#include "support/measuring.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

namespace os = kro::tessel::os;
using namespace tessel_bench;

// ---- the service, driven as an engine drives it: notices only post, one other thread takes the steps

class service_client;

struct job {
    service_client* owner = nullptr;
    os::inet_handle request = nullptr;
    enum class step { sending, ending, reading } at = step::sending;
    os::inet_async_result result;
    std::unique_ptr<char[]> own;
    char* body = nullptr;
    std::size_t capacity = 0;
    std::size_t size = 0;
};

class service_client {
public:
    /// Requests go to the servers in turn.
    explicit service_client(const std::vector<std::uint16_t>& ports)
        : m_session(os::inet().open(os::k_access_direct, {}, {}, TESSEL_W("bench"), true)) {
        os::inet().set_callback(m_session, on_notice);
        m_connections.reserve(ports.size());
        for (const std::uint16_t port : ports) {
            m_connections.push_back(os::inet().connect(m_session, TESSEL_W("127.0.0.1"), port, {}, {}, 0));
        }
    }
    ~service_client() { os::inet().close(m_session); }
    service_client(const service_client&) = delete;
    service_client& operator=(const service_client&) = delete;

    void run(const kro::tessel::wide_string& object, int total, int in_flight, std::size_t body_bytes,
             std::uint32_t piece, char* into = nullptr) {
        m_into = into;
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
            auto* const one = reinterpret_cast<job*>(context);  // NOLINT(performance-no-int-to-ptr)
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
        if (m_into == nullptr) {
            one->own.reset(new char[m_body_bytes]);
        }
        one->body = m_into == nullptr ? one->own.get() : m_into;
        const auto context = reinterpret_cast<std::uintptr_t>(one);
        one->request =
            os::inet().open_request(m_connections[static_cast<std::size_t>(m_started) % m_connections.size()],
                                    {}, m_object, os::k_request_keep_connection, context);
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
    std::vector<os::inet_handle> m_connections;
    kro::tessel::wide_string m_object;
    std::size_t m_body_bytes = 0;
    std::uint32_t m_piece = 0;
    char* m_into = nullptr;
    int m_started = 0;
    int m_ended = 0;
    int m_total = 0;
    std::mutex m_mutex;  // guards m_queue
    std::condition_variable m_posted;
    std::vector<job*> m_queue;
    std::vector<job*> m_taken;
};

// ---- the measurements

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

// 10,000 in flight over so many servers.
void compare_servers(const settings& how, service_client& service, std::size_t servers) {
    service_client spread({how.ports.begin(), how.ports.begin() + static_cast<std::ptrdiff_t>(servers)});
    const auto run = [&how](service_client& by) {
        by.run(TESSEL_W("/small"), how.requests, 10'000, 100, 10239);
    };
    compare(
        how, "servers" + std::to_string(servers), how.requests, "req",
        {{"service", [&] { run(spread); }, {}, {}}, {"service, one server", [&] { run(service); }, {}, {}}});
}

// Into memory that has been written to before: fresh pages cost more than the bytes that arrive in them.
void compare_bodies(const settings& how, service_client& service, const std::string& kind) {
    curl_client plain;
    const std::size_t bytes = how.mib << 20U;
    const std::string object = '/' + kind + '/' + std::to_string(bytes);
    const std::string url = "http://127.0.0.1:" + std::to_string(how.port) + object;
    const kro::tessel::wide_string wide(object.begin(), object.end());
    const auto memory = std::make_unique<char[]>(bytes);
    char* const into = memory.get();
    const std::uint32_t piece = kind == "known" ? 0xFFFFFFFFU : 10239;
    compare(how, kind, static_cast<double>(how.mib), "MiB",
            {{"service", [&] { service.run(wide, 1, 1, bytes, piece, into); }, {}, {}},
             {"libcurl, 16 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 0, into); }, {}, {}},
             {"libcurl, 512 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 512L * 1024, into); }, {}, {}}});
}

}  // namespace

int main(int count, char** arguments) {
    const settings how = settings_of(count, arguments, 1000);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    if (how.limit != 0) {
        os::inet().set_connection_limit(how.limit);
    }
    service_client service({how.port});
    for (const int in_flight : {64, 1, 10'000}) {
        if (how.wants(std::to_string(in_flight))) {
            compare_requests(how, service, in_flight);
        }
    }
    for (const std::size_t servers : {10, 1000}) {
        if (how.wants("servers" + std::to_string(servers))) {
            compare_servers(how, service, servers);
        }
    }
    for (const char* const kind : {"known", "chunked"}) {
        if (how.wants(kind)) {
            compare_bodies(how, service, kind);
        }
    }
    return 0;
}
