// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace kro::tessel::os {

class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int number) noexcept : m_number(number) {}
    descriptor(descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    descriptor(const descriptor&) = delete;
    descriptor& operator=(descriptor&& other) noexcept {
        reset(std::exchange(other.m_number, -1));
        return *this;
    }
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor() { reset(-1); }

    void reset(int number) noexcept {
        if (m_number >= 0) {
            ::close(m_number);
        }
        m_number = number;
    }
    int number() const noexcept { return m_number; }

private:
    int m_number = -1;
};

}  // namespace kro::tessel::os
