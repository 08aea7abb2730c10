// An HTTP service whose answers, and the order, moment and thread of whose completions, are thrown by dice.
#pragma once

#include "http/two_threads.h"
#include "support/scripted_inet.h"

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace tessel_test {

class dice {
public:
    explicit dice(std::uint32_t seed) : m_engine(seed) {}
    std::uint32_t below(std::uint32_t count) { return static_cast<std::uint32_t>(m_engine()) % count; }
    bool one_in(std::uint32_t count) { return below(count) == 0; }
    template <class Value, std::size_t N>
    Value one_of(const Value (&values)[N]) {
        return values[below(N)];
    }

private:
    std::mt19937 m_engine;
};

/// In force while it lives. Keeps its side of the service's contract and notes where the engine breaks its
/// own. What has no dice is as scripted_inet has it.
class simulated_inet final : public scripted_inet {
public:
    simulated_inet(dice& chance, two_threads& threads) : m_chance(chance), m_threads(threads) {}

    /// Completes one of the pending operations, on either thread. False when none is pending.
    bool complete_one();
    /// What a host does while the dialogue is open.
    void (*meanwhile)() = nullptr;
    /// The body that a live request's last response has.
    std::string body_of(handle request) const;
    std::size_t simulated_handles() const { return m_nodes.size(); }
    const std::vector<std::string>& violations() const { return m_violations; }

    handle open(std::uint32_t access, text_view proxy, text_view bypass, text_view agent,
                bool async) override;
    handle connect(handle session, text_view host, std::uint16_t port, text_view user, text_view password,
                   std::uintptr_t context) override;
    handle open_request(handle connection, text_view verb, text_view object, std::uint32_t flags,
                        std::uintptr_t context) override;
    status send(handle request, text_view headers, const void* data, std::uint32_t data_bytes,
                os::inet_send_mode mode, std::uintptr_t context) override;
    status end(handle request, std::uintptr_t context) override;
    read_status read(handle request, void* destination, std::uint32_t capacity,
                     std::uintptr_t context) override;
    status query_number(handle request, std::uint32_t what, std::uint32_t& number) override;
    std::uint32_t dialog(void* parent, handle request, std::uint32_t error, std::uint32_t flags) override;
    status close(handle which) override;

private:
    enum class operation { none, send, end, read };
    struct node {
        handle parent = nullptr;
        std::uintptr_t context = 0;
        operation pending = operation::none;
        bool sent = false;
        bool answered = false;
        void* destination = nullptr;
        std::uint32_t capacity = 0;
        std::uint32_t status_code = 200;
        bool length_known = false;
        bool breaks_off = false;
        std::string body;
        std::size_t taken = 0;
    };

    static status result(std::uint32_t error);
    handle make(handle parent, std::uintptr_t context);
    node* find(handle request, const char* call);
    void complete(handle request, operation what);
    void make_response(node& request);
    std::uint32_t take_body(node& request, void* destination, std::uint32_t capacity);

    dice& m_chance;
    two_threads& m_threads;
    std::map<handle, node> m_nodes;
    std::uintptr_t m_next = 0x1000;
    std::vector<std::string> m_violations;
};

}  // namespace tessel_test
