// A network that does nothing but note what is asked of it: the test plays the exchange's events.
#pragma once

#include "os/linux/inet_service.h"
#include "os/linux/transfer.h"

#include <deque>
#include <memory>
#include <utility>

namespace tessel_test {

class scripted_transfer final : public kro::tessel::os::transfer_service {
public:
    struct exchange {
        std::shared_ptr<kro::tessel::os::transfer_sink> sink;
        kro::tessel::os::transfer_request request;
        std::shared_ptr<kro::tessel::os::transfer> which;
        int grants = 0;
        bool cancelled = false;

        // Events, each in a turn of its own.
        void stage(kro::tessel::os::transfer_stage reached) {
            sink->on_stage(request.tag, reached, "10.0.0.1");
            sink->on_turn_end();
        }
        void sent() {
            sink->on_sent(request.tag, 10);
            sink->on_turn_end();
        }
        void headers(const std::string& block) {
            sink->on_headers(request.tag, block + "\r\n");
            sink->on_turn_end();
        }
        kro::tessel::os::data_verdict data(std::string_view bytes) {
            const auto verdict = sink->on_data(request.tag, bytes.data(), bytes.size());
            sink->on_turn_end();
            return verdict;
        }
        void end(std::uint32_t error = 0) {
            sink->on_end(request.tag, error);
            sink->on_turn_end();
        }
    };

    std::shared_ptr<kro::tessel::os::transfer> submit(std::shared_ptr<kro::tessel::os::transfer_sink> sink,
                                                      kro::tessel::os::transfer_request&& request) override {
        if (refuses) {
            return nullptr;
        }
        exchanges.push_back({std::move(sink), std::move(request), std::make_shared<plain>()});
        return exchanges.back().which;
    }
    void grant_window(const std::shared_ptr<kro::tessel::os::transfer>& which) override {
        ++find(which).grants;
    }
    void cancel(const std::shared_ptr<kro::tessel::os::transfer>& which) override {
        find(which).cancelled = true;
    }
    void limits_begin_anew(const std::shared_ptr<kro::tessel::os::transfer>& /*which*/) override {}
    bool wake(std::shared_ptr<kro::tessel::os::transfer_sink> sink) override {
        woken.push_back(std::move(sink));
        return !refuses;
    }
    void set_connection_limit(std::uint32_t count) override { limit = count; }

    exchange& last() { return exchanges.back(); }

    bool refuses = false;
    std::uint32_t limit = 0;
    std::deque<exchange> exchanges;
    std::deque<std::shared_ptr<kro::tessel::os::transfer_sink>> woken;

private:
    class plain final : public kro::tessel::os::transfer {};

    exchange& find(const std::shared_ptr<kro::tessel::os::transfer>& which) {
        for (exchange& one : exchanges) {
            if (one.which == which) {
                return one;
            }
        }
        throw std::logic_error("an exchange that was never submitted");
    }
};

}  // namespace tessel_test
