#include "os/linux/proxy_script_pool.h"

#include "os/linux/descriptor.h"
#include "os/linux/inet_text.h"
#include "os/linux/proxy_helper.h"
#include "os/linux/proxy_script_result.h"
#include "os/linux/signals_blocked.h"
#include "os/thread.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace kro::tessel::os {
namespace {

using namespace proxy_helper_protocol;
using clock = std::chrono::steady_clock;

constexpr std::size_t k_most_helpers = 3;
constexpr std::size_t k_most_questions = 1000;  // that wait; each is another server
constexpr int k_patience_part = 5;              // of a question's time

struct open_question {
    std::string line;
    proxy_script_service::receiver answered;
    std::optional<clock::time_point> deadline;  // from its first turn on
    bool asked_again = false;
};

proxy_script_answer failure(std::string problem) {
    proxy_script_answer answer;
    answer.problem = std::move(problem);
    return answer;
}

// In a line of words: blanks and what isn't ASCII as in URLs.
std::string escaped(std::string_view url) {
    std::string result;
    result.reserve(url.size());
    for (const char c : url) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7F) {
            result += c;
        } else {
            append_escaped(result, c);
        }
    }
    return result;
}

std::string line_of(const proxy_script_question& question) {
    const bool secure = question.port == 443;
    std::string url = (secure ? "https://" : "http://") + escaped(question.host);
    if (!secure && question.port != 80) {
        url += ':' + std::to_string(question.port);
    }
    return std::string(k_ask) + escaped(question.script) + ' ' + url + "/\n";
}

/// A helper with the question that it is busy with.
struct seat {
    std::unique_ptr<proxy_helper> helper = std::make_unique<proxy_helper>();
    std::optional<open_question> question;
    clock::time_point since;  // it has been busy, or has had nothing to do
    bool greeted = false;     // has said whether it can evaluate scripts at all
};

/// The thread that does it all, and what it works on. It may outlive the service, when that is destroyed
/// inside a receiver.
class worker {
public:
    worker(std::string program, proxy_script_limits limits)
        : m_program(std::move(program)), m_limits(limits), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (m_wake.number() < 0) {
            throw std::system_error(errno, std::generic_category());
        }
    }

    void post(open_question question);
    void run();
    void stop() {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
        ::eventfd_write(m_wake.number(), 1);
    }

private:
    void take_posted();
    bool is_stopped() {
        const std::lock_guard lock(m_mutex);
        return m_stopped;
    }
    void hand_out();
    seat* free_seat();
    bool may_start_another() const;
    void hand_over(seat& to);
    void wait_for_something();
    clock::time_point next_due() const;
    void attend_to_helpers();
    bool listen_to(seat& one);
    bool take_line(seat& one, std::string_view line);
    void lose(seat& one);
    bool is_due(seat& one);
    void answer(seat& one, const proxy_script_answer& with);
    void deliver(const open_question& question, const proxy_script_answer& with);

    const std::string m_program;
    const proxy_script_limits m_limits;
    const descriptor m_wake;

    std::mutex m_mutex;  // guards the next two
    std::deque<open_question> m_posted;
    bool m_stopped = false;

    // The thread's own.
    std::deque<open_question> m_waiting;
    std::vector<seat> m_seats;
    clock::time_point m_last_turn;
};

void worker::post(open_question question) {
    const std::lock_guard lock(m_mutex);
    m_posted.push_back(std::move(question));
    ::eventfd_write(m_wake.number(), 1);
}

void worker::run() {
    while (!is_stopped()) {
        try {
            take_posted();
            hand_out();
            wait_for_something();
            attend_to_helpers();
        } catch (const std::exception&) {
            m_waiting.clear();  // no memory: who waits goes on after its time
            m_seats.clear();
        }
    }
    m_seats.clear();
}

void worker::take_posted() {
    std::deque<open_question> refused;
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopped) {
            return;  // what stop() has written is still there for the wait that follows
        }
        eventfd_t count = 0;
        ::eventfd_read(m_wake.number(), &count);
        for (open_question& question : m_posted) {
            const bool fits = question.line.size() <= k_longest_line && m_waiting.size() < k_most_questions;
            (fits ? m_waiting : refused).push_back(std::move(question));
        }
        m_posted.clear();
    }
    for (open_question& question : refused) {
        const bool too_long = question.line.size() > k_longest_line;
        deliver(question, failure(too_long ? "its URL is too long" : "too many questions wait"));
    }
}

void worker::hand_out() {
    while (!m_waiting.empty() && !is_stopped()) {
        seat* free = free_seat();
        if (free == nullptr && may_start_another()) {
            seat another;
            const int error = another.helper->start(m_program, m_limits.question);
            if (error != 0) {
                const open_question question = std::move(m_waiting.front());
                m_waiting.pop_front();
                deliver(question, failure("can't run " + m_program + ": " + std::strerror(error)));
                continue;
            }
            m_seats.push_back(std::move(another));
            free = &m_seats.back();
        }
        if (free == nullptr) {
            break;
        }
        hand_over(*free);
    }
}

seat* worker::free_seat() {
    const auto found =
        std::find_if(m_seats.begin(), m_seats.end(), [](const seat& one) { return !one.question; });
    return found == m_seats.end() ? nullptr : &*found;
}

bool worker::may_start_another() const {
    return m_seats.empty() || (m_seats.size() < k_most_helpers &&
                               clock::now() >= m_last_turn + m_limits.question / k_patience_part);
}

void worker::hand_over(seat& to) {
    m_last_turn = to.since = clock::now();
    to.question = std::move(m_waiting.front());
    m_waiting.pop_front();
    if (!to.question->deadline) {
        to.question->deadline = to.since + m_limits.question;
    }
    to.helper->say(to.question->line);  // if it doesn't take it, it has ended, or will be when time is up
}

clock::time_point worker::next_due() const {
    auto due = clock::time_point::max();
    for (const seat& one : m_seats) {
        due = std::min(due, one.question ? *one.question->deadline : one.since + m_limits.idle);
    }
    if (!m_waiting.empty() && m_seats.size() < k_most_helpers) {
        due = std::min(due, m_last_turn + m_limits.question / k_patience_part);
    }
    return due;
}

void worker::wait_for_something() {
    std::array<pollfd, k_most_helpers + 1> wanted{};
    wanted[0] = {m_wake.number(), POLLIN, 0};
    std::size_t count = 1;
    for (const seat& one : m_seats) {
        wanted[count++] = {one.helper->socket(), POLLIN, 0};
    }
    const auto due = next_due();
    int milliseconds = -1;
    if (due != clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - clock::now());
        milliseconds = static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
    }
    ::poll(wanted.data(), count, milliseconds);
}

void worker::attend_to_helpers() {
    for (std::size_t i = 0; i < m_seats.size();) {
        if (listen_to(m_seats[i]) && !is_due(m_seats[i])) {
            ++i;
        } else {
            m_seats.erase(m_seats.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

// False: this helper is done with.
bool worker::listen_to(seat& one) {
    while (true) {
        std::string line;
        switch (one.helper->hear(line)) {
            case proxy_helper::hearing::nothing_yet:
                return true;
            case proxy_helper::hearing::line:
                if (take_line(one, line)) {
                    break;
                }
                [[fallthrough]];
            case proxy_helper::hearing::broken:
                answer(one, failure("its helper talks nonsense"));
                return false;
            case proxy_helper::hearing::ended:
                lose(one);
                return false;
        }
    }
}

// False: such a line isn't said at this moment.
bool worker::take_line(seat& one, std::string_view line) {
    const bool answered = starts_with(line, k_answer);
    if (one.question && answered) {
        answer(one, parse_script_result(printable(line.substr(k_answer.size()))));
    } else if (one.question && starts_with(line, k_failed)) {
        answer(one, failure(printable(line.substr(k_failed.size()))));
    } else {
        const bool greets = starts_with(line, k_ready) || starts_with(line, k_cannot);
        return greets && !std::exchange(one.greeted, true);
    }
    return true;
}

void worker::lose(seat& one) {
    if (one.question && !one.question->asked_again && clock::now() < *one.question->deadline) {
        one.question->asked_again = true;
        m_waiting.push_front(*std::exchange(one.question, std::nullopt));
    } else {
        answer(one, failure("its helper ended twice"));
    }
}

bool worker::is_due(seat& one) {
    const auto now = clock::now();
    if (!one.question) {
        return now >= one.since + m_limits.idle;
    }
    if (now < *one.question->deadline) {
        return false;
    }
    answer(one, failure("it takes longer than " + std::to_string(m_limits.question.count()) + " ms"));
    return true;
}

void worker::answer(seat& one, const proxy_script_answer& with) {
    if (one.question) {
        const open_question question = *std::exchange(one.question, std::nullopt);
        one.since = clock::now();
        deliver(question, with);
    }
}

// Not to a service that has ended inside the receiver before.
void worker::deliver(const open_question& question, const proxy_script_answer& with) {
    if (!is_stopped()) {
        question.answered(with);
    }
}

class pool final : public proxy_script_service {
public:
    pool(std::string program, proxy_script_limits limits)
        : m_worker(std::make_shared<worker>(std::move(program), limits)) {}
    pool(const pool&) = delete;
    pool& operator=(const pool&) = delete;
    ~pool() override;

    void ask(proxy_script_question question, receiver answered) override;

private:
    const std::shared_ptr<worker> m_worker;
    std::mutex m_mutex;  // guards the thread's making
    std::thread m_thread;
};

pool::~pool() {
    m_worker->stop();
    if (!m_thread.joinable()) {
        return;
    }
    if (m_thread.get_id() == std::this_thread::get_id() || process_was_forked()) {
        m_thread.detach();  // it is inside a receiver, or not in this process at all
    } else {
        m_thread.join();
    }
}

void pool::ask(proxy_script_question question, receiver answered) {
    open_question open;
    open.line = line_of(question);
    open.answered = std::move(answered);
    {
        const std::lock_guard lock(m_mutex);
        if (!m_thread.joinable()) {
            const all_signals_blocked blocked;
            m_thread = std::thread([worker = m_worker] { worker->run(); });
        }
    }
    m_worker->post(std::move(open));
}

}  // namespace

std::unique_ptr<proxy_script_service> make_proxy_script_pool(std::string program,
                                                             proxy_script_limits limits) {
    return std::make_unique<pool>(std::move(program), limits);
}

}  // namespace kro::tessel::os
