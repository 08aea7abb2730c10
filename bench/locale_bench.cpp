// A text from an INI file, and its placeholders. Both sides do the same work in turns; "ratio" is ours over
// the reference's calls a second, by the medians of the processor's time.
#include "tessel/i18n/inifile_locale.h"
#include "tessel/i18n/locale_args.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using kro::tessel::wide_string;
namespace i18n = kro::tessel::i18n;

// Of this thread's processor: the machine may be busy with other work.
double seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <class Reference, class Tessel>
void compare(benchmark::State& state, int calls, Reference reference, Tessel tessel) {
    std::vector<double> theirs;
    std::vector<double> ours;
    while (state.KeepRunning()) {
        double start = seconds();
        for (int call = 0; call < calls; ++call) {
            reference();
        }
        theirs.push_back(seconds() - start);
        start = seconds();
        for (int call = 0; call < calls; ++call) {
            tessel();
        }
        ours.push_back(seconds() - start);
        state.SetIterationTime(ours.back());
    }
    state.counters["reference_us"] = median(theirs) / calls * 1e6;
    state.counters["us"] = median(ours) / calls * 1e6;
    state.counters["ratio"] = median(theirs) / median(ours);
}

class translations {
public:
    translations()
        : m_path(std::filesystem::temp_directory_path() /
                 ("tessel_bench_" + std::to_string(::getpid()) + ".ini")) {
        std::ofstream file(m_path);
        file << "[text]\n";
        for (int key = 0; key < 1000; ++key) {
            file << key_of(key) << "=The text that stands under key number " << key << "\n";
        }
    }
    ~translations() { std::filesystem::remove(m_path); }
    translations(const translations&) = delete;
    translations& operator=(const translations&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    static std::string key_of(int number) { return "window.title." + std::to_string(number); }

private:
    std::filesystem::path m_path;
};

// Read whole and scanned line by line for a key that is spelled exactly so: no sections, case, blanks or
// encodings.
std::string scan(const char* path, std::string_view key) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat about = {};
    ::fstat(file, &about);
    std::string text(static_cast<std::size_t>(about.st_size), '\0');
    if (::read(file, text.data(), text.size()) != about.st_size) {
        std::abort();
    }
    ::close(file);
    const char* const end = text.data() + text.size();
    for (const char* line = text.data(); line < end;) {
        const auto* const found =
            static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
        const char* const line_end = found != nullptr ? found : end;
        const std::string_view whole(line, static_cast<std::size_t>(line_end - line));
        if (whole.size() > key.size() && whole[key.size()] == '=' && whole.substr(0, key.size()) == key) {
            return std::string(whole.substr(key.size() + 1));
        }
        line = line_end + 1;
    }
    return {};
}

void one_of_1000_keys(benchmark::State& state) {
    const translations file;
    const std::string key = translations::key_of(static_cast<int>(state.range(0)));
    const std::string path = file.path().string();
    i18n::inifile_locale_data data(file.path().string<wchar>());
    const wide_string wide_key(key.begin(), key.end());
    if (data.get_string(wide_key).size() != scan(path.c_str(), key).size()) {
        std::abort();
    }
    compare(
        state, 200, [&] { benchmark::DoNotOptimize(scan(path.c_str(), key)); },
        [&] { benchmark::DoNotOptimize(data.get_string(wide_key)); });
}
BENCHMARK(one_of_1000_keys)->Arg(0)->Arg(500)->Arg(999)->UseManualTime();

// What somebody would write for [0] to [9] alone.
wide_string one_pass(const wide_string& text, const std::vector<wide_string>& values) {
    wide_string out;
    out.reserve(text.size() * 2);
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool is_placeholder = text[at] == '[' && at + 2 < text.size() && text[at + 1] >= '0' &&
                                    text[at + 1] <= '9' && text[at + 2] == ']';
        if (is_placeholder) {
            out += values[static_cast<std::size_t>(text[at + 1] - '0')];
            at += 2;
        } else {
            out.push_back(text[at]);
        }
    }
    return out;
}

void ten_placeholders_in_1024_units(benchmark::State& state) {
    std::vector<wide_string> values;
    i18n::locale_index_args args;
    wide_string text;
    for (int index = 0; index < 10; ++index) {
        const std::string digit = std::to_string(index);
        values.emplace_back(TESSEL_W("value number "));
        values.back().append(1, static_cast<wchar>(digit[0]));
        args.insert(values.back());
        text.append(99, TESSEL_W('x')).append(TESSEL_W("[")).append(1, static_cast<wchar>(digit[0]));
        text.append(TESSEL_W("]"));
    }
    text.resize(1024, TESSEL_W('x'));
    if (args.replace_args(text) != one_pass(text, values)) {
        std::abort();
    }
    compare(
        state, 1000, [&] { benchmark::DoNotOptimize(one_pass(text, values)); },
        [&] { benchmark::DoNotOptimize(args.replace_args(text)); });
}
BENCHMARK(ten_placeholders_in_1024_units)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
