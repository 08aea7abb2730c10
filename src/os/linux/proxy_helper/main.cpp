// The program tessel-proxy-helper: evaluates scripts for proxies (PAC) on behalf of one process that uses
// tessel, so that a script that hangs, crashes or eats memory does it here. docs/proxy-discovery.md shows how
// to ask it by hand.
#include "os/linux/proxy_helper/limits.h"
#include "os/linux/proxy_helper/protocol.h"
#include "os/linux/proxy_helper/script_engine.h"
#include "os/linux/proxy_helper/script_source.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace kro::tessel::os;
using namespace kro::tessel::os::proxy_helper_protocol;
using std::chrono::milliseconds;

constexpr milliseconds k_default_limit(5000);
constexpr const char* k_no_engine = "no script engine for libproxy is installed (libproxy1-plugin-webkit)";

/// The library's lines come on standard input, ours go where standard output went: what libraries print there
/// is no line of ours.
class library_line {
public:
    library_line() : m_out(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
        const descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        ::dup2(nowhere.number(), STDOUT_FILENO);
    }

    /// The next line without its end; nothing at the end of the input, or when a line is too long.
    std::optional<std::string> next() {
        while (true) {
            const std::size_t end = m_read.find('\n');
            if (end != std::string::npos) {
                std::string line = m_read.substr(0, end);
                m_read.erase(0, end + 1);
                return line;
            }
            char bytes[k_longest_line];
            const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
            if (count > 0 && m_read.size() < k_longest_line) {
                m_read.append(bytes, static_cast<std::size_t>(count));
            } else if (count >= 0 || errno != EINTR) {
                return std::nullopt;
            }
        }
    }

    bool say(std::string_view word, std::string_view text) const {
        const std::string line = std::string(word) + printable(text) + '\n';
        return ::write(m_out.number(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
    }

private:
    descriptor m_out;
    std::string m_read;
};

class evaluator {
public:
    explicit evaluator(milliseconds limit) : m_limit(limit), m_source(limit * 4 / 5) {}

    /// Whether scripts can be evaluated here.
    bool start() {
        const time_limit no_longer(m_limit + std::chrono::seconds(1));
        m_works = m_engine.works();
        return m_works;
    }

    script_outcome ask(std::string_view question) {
        const time_limit no_longer(m_limit + std::chrono::seconds(1));
        const std::size_t blank = question.find(' ');
        if (!m_works || blank == std::string_view::npos) {
            return {false, m_works ? "a question without a URL" : k_no_engine};
        }
        bool is_new = false;
        const fetched_script& script = m_source.get(std::string(question.substr(0, blank)), is_new);
        if (!script.fetched) {
            return {false, script.text};
        }
        m_is_loaded = is_new ? m_engine.load(script.text) : m_is_loaded;
        if (!m_is_loaded) {
            return {false, "no memory for it"};
        }
        return m_engine.evaluate(std::string(question.substr(blank + 1)));
    }

private:
    const milliseconds m_limit;
    script_engine m_engine;
    script_source m_source;
    bool m_works = false;
    bool m_is_loaded = false;  // the script that was fetched last
};

milliseconds limit_from(int count, char** arguments) {
    long long number = 0;
    const std::string_view text = count > 1 ? arguments[1] : "";
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ec == std::errc() && number > 0 ? milliseconds(number) : k_default_limit;
}

}  // namespace

int main(int argc, char** argv) try {
    end_with_host();
    settle_environment();
    library_line library;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    evaluator scripts(limit_from(argc, argv));
    bool heard = scripts.start() ? library.say(k_ready, "") : library.say(k_cannot, k_no_engine);
    limit_memory();
    while (heard) {
        const std::optional<std::string> line = library.next();
        if (!line || !starts_with(*line, k_ask)) {
            break;
        }
        const script_outcome outcome = scripts.ask(std::string_view(*line).substr(k_ask.size()));
        heard = library.say(outcome.evaluated ? k_answer : k_failed, outcome.text);
    }
    ::_exit(0);  // the script engine's threads and exit handlers have nothing to save
} catch (const std::exception&) {
    ::_exit(1);
}
