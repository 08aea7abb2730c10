// The contract of message windows, kept by the running system's service and by the tests' own.
#include "os/message_window_contract.h"
#include "os/system_services.h"

#include "support/manual_message_windows.h"

namespace {

using namespace tessel_test;

class system_side final : public message_window_side {
public:
    os::message_window_service& service() override { return os::system_message_windows(); }
    std::uint64_t now_ms() override {
        m_passed += static_cast<std::uint32_t>(os::tick_count() - static_cast<std::uint32_t>(m_passed));
        return m_passed;
    }
    void let_pass(std::uint32_t milliseconds) override { os::make_manual_reset_event()->wait(milliseconds); }

private:
    std::uint64_t m_passed = os::tick_count();
};

class manual_side final : public message_window_side {
public:
    os::message_window_service& service() override { return m_windows; }
    std::uint64_t now_ms() override { return m_windows.now(); }
    void let_pass(std::uint32_t milliseconds) override { m_windows.skip(milliseconds); }

private:
    manual_message_windows m_windows;
};

template <class Side>
std::unique_ptr<message_window_side> make_side() {
    return std::make_unique<Side>();
}

INSTANTIATE_TEST_SUITE_P(Services, MessageWindowContract,
                         ::testing::Values(message_window_maker{"system", make_side<system_side>},
                                           message_window_maker{"manual", make_side<manual_side>}),
                         message_window_side_name);

}  // namespace
