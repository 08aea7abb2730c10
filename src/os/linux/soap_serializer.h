// Writes a SOAP 1.1 message as it goes, without a tree.
#pragma once

#include "os/soap_toolkit.h"

#include "tessel/base/types.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// Names are qualified by prefixes of our own, each declared on the first element that needs it. Calls out of
/// order fail with k_soap_failure, names and characters that XML can't have with k_soap_invalid_argument;
/// what was written until then is of no use any more.
class message_serializer final : public soap_serializer {
public:
    void init(soap_stream& message) override;
    void start_envelope(soap_text prefix, soap_text encoding_style, soap_text encoding) override;
    void start_body(soap_text encoding_style) override;
    void start_element(soap_text name, soap_text name_space, soap_text encoding_style) override;
    void write_string(soap_text text) override;
    void end_element() override;
    void end_body() override;
    void end_envelope() override;

private:
    enum class place { nowhere, start, envelope, body, after_body, after_envelope };

    // Where the element's qualified name stands in the message, and how many namespaces were known outside.
    struct open_element {
        std::size_t name_at = 0;
        std::size_t name_size = 0;
        std::size_t namespaces = 0;
    };
    struct known_namespace {
        wide_string uri;
        unsigned number = 0;
    };

    void go(place from, place to);
    void finish_tag();
    void write_encoding_style(soap_text style);
    bool find_prefix(soap_text name_space, unsigned& number) const;

    std::string* m_out = nullptr;
    place m_place = place::nowhere;
    bool m_tag_is_open = false;  // the last start tag still lacks its ">"
    std::string m_envelope_prefix;
    std::vector<open_element> m_open;
    std::vector<known_namespace> m_namespaces;
};

}  // namespace kro::tessel::os
