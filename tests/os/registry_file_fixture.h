// The registry in files of the tests' own, and processes that write into them and are killed.
#pragma once

#include "os/linux/registry_service.h"
#include "os/registry_calls.h"

#include "support/linux/temp_folder.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>

namespace tessel_test {

namespace fs = std::filesystem;

/// A folder with a store in it that is not there yet.
class RegistryFile : public ::testing::Test {
public:
protected:
    std::string folder() const { return m_folder.path().string(); }
    std::string file() const { return m_folder.file("registry.db"); }
    std::unique_ptr<kro::tessel::os::registry_service> open() const {
        return kro::tessel::os::make_registry(file());
    }

    std::string content() const {
        std::ifstream in(file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void set_content(const std::string& text) const { std::ofstream(file(), std::ios::binary) << text; }

private:
    const temp_folder m_folder;
};

/// The calls that the tests of the file make again and again, on HKEY_CURRENT_USER.
inline std::int32_t write_to(kro::tessel::os::registry_service& registry, const wchar* name,
                             const bytes& data) {
    return registry.set_value(HKEY_CURRENT_USER, name, REG_BINARY, data.data(),
                              static_cast<std::uint32_t>(data.size()));
}
inline std::int32_t read_from(kro::tessel::os::registry_service& registry, const wchar* name, bytes& data) {
    std::uint32_t size = 0;
    std::int32_t status = registry.query_value(HKEY_CURRENT_USER, name, nullptr, nullptr, &size);
    if (status == 0) {
        data.resize(size + 1);
        status = registry.query_value(HKEY_CURRENT_USER, name, nullptr, data.data(), &size);
        data.resize(size);
    }
    return status;
}

/// Numbers that a process and its children see alike.
class shared_counters {
public:
    shared_counters()
        : m_counters(static_cast<std::atomic<std::uint32_t>*>(
              ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~shared_counters() { ::munmap(m_counters, 4096); }
    shared_counters(const shared_counters&) = delete;
    shared_counters& operator=(const shared_counters&) = delete;
    std::atomic<std::uint32_t>& operator[](std::size_t index) const { return m_counters[index]; }

private:
    std::atomic<std::uint32_t>* m_counters;
};

/// Runs `body` in a child, which ends with its result.
template <class Body>
pid_t in_child(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    return child;
}

inline int result_of(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// A value that says by itself whether it is whole: up to a hundred pages, so that a kill can come between
/// them.
inline bytes numbered_value(std::uint32_t number) {
    bytes data(4 + (number * 104729U) % 400000U, static_cast<unsigned char>(number));
    std::memcpy(data.data(), &number, sizeof(number));
    return data;
}

class KilledWriter : public RegistryFile {
protected:
    /// Kills a process `times` times at some moment of its writing, and looks each time whether all that it
    /// was told to be written is there.
    void kill_and_look(int times) {
        std::mt19937 random(20);  // NOLINT(bugprone-random-generator-seed): the moments differ anyway
        for (int round = 0; round < times; ++round) {
            if (round % 16 == 15) {  // the next one dies while it makes a store
                fs::remove(file());
                m_acknowledged[0] = 0;
            }
            const std::uint32_t before = m_acknowledged[0];
            const pid_t writer = in_child([this] { return write_on(); });
            wait_until(before + random() % 4U, std::chrono::microseconds(random() % 2000U));
            ::kill(writer, SIGKILL);
            ASSERT_EQ(result_of(writer), -SIGKILL);
            ASSERT_NO_FATAL_FAILURE(look()) << "round " << round;
        }
    }

private:
    int write_on() {
        const auto registry = open();
        for (std::uint32_t number = m_acknowledged[0] + 1;; ++number) {
            if (write_to(*registry, TESSEL_W("number"), numbered_value(number)) != 0) {
                return 1;
            }
            m_acknowledged[0] = number;
        }
    }

    void wait_until(std::uint32_t number, std::chrono::microseconds more) const {
        while (m_acknowledged[0] < number) {
            std::this_thread::yield();
        }
        const auto until = std::chrono::steady_clock::now() + more;
        while (std::chrono::steady_clock::now() < until) {
        }
    }

    void look() {
        const auto registry = open();
        bytes data;
        const std::int32_t status = read_from(*registry, TESSEL_W("number"), data);
        std::uint32_t found = 0;
        if (status == 0) {
            ASSERT_GE(data.size(), sizeof(found));
            std::memcpy(&found, data.data(), sizeof(found));
            ASSERT_EQ(data, numbered_value(found));
        } else {
            ASSERT_EQ(status, 2);
        }
        const std::uint32_t acknowledged = m_acknowledged[0];
        ASSERT_GE(found, acknowledged);
        ASSERT_LE(found, acknowledged + 1);
        m_acknowledged[0] = found;
    }

    shared_counters m_acknowledged;
};

}  // namespace tessel_test
