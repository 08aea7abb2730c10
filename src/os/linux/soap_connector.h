// Carries messages over the HTTP service.
#pragma once

#include "os/linux/soap_buffer.h"
#include "os/linux/soap_post.h"
#include "os/soap_toolkit.h"

#include <string>

namespace kro::tessel::os {

/// Nothing is sent before end_message. Names that aren't a property of that type fail with
/// k_soap_unknown_name, calls out of order with k_soap_failure.
class http_connector final : public soap_connector {
public:
    void set_text(soap_text property, soap_text value) override;
    void set_flag(soap_text property, bool value) override;
    void set_number(soap_text property, std::int32_t value) override;
    void connect() override;
    void begin_message() override;
    soap_stream& input_stream() override;
    void end_message() override;
    soap_stream& output_stream() override;

private:
    enum class phase { unconnected, connected, message, answered };

    void require(phase wanted) const;

    soap_route m_route;
    phase m_phase = phase::unconnected;
    soap_buffer m_message;
    soap_buffer m_answer;
};

}  // namespace kro::tessel::os
