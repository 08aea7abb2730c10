// The system's SOAP toolkit: a connector that carries messages, a serializer that writes them, a reader.
//
// Operations are named as the toolkit's own and fail by a soap_error, or by std::bad_alloc. Objects belong to
// the thread that made them.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace kro::tessel::os {

/// Why an operation failed: an HRESULT.
struct soap_error {
    std::uint32_t code = 0;
};

inline constexpr std::uint32_t k_soap_null_object = 0x80004003U;
inline constexpr std::uint32_t k_soap_failure = 0x80004005U;  ///< out of order; an answer that isn't XML
inline constexpr std::uint32_t k_soap_unknown_name = 0x80020006U;
inline constexpr std::uint32_t k_soap_no_memory = 0x8007000EU;
inline constexpr std::uint32_t k_soap_invalid_argument = 0x80070057U;
inline constexpr std::uint32_t k_soap_error_number = 0x80070000U;   ///< and an error number of the system
inline constexpr std::uint32_t k_soap_http_status = 0x80190000U;    ///< and the status
inline constexpr std::uint32_t k_soap_proxy_account = 0x800A13BAU;  ///< the proxy wants credentials

using soap_text = std::basic_string_view<wchar>;

/// One of a connector's streams. Lives as long as the connector; only objects of the same toolkit know what
/// is in it.
class soap_stream {
public:
    virtual ~soap_stream() = default;
};

/// Carries one message to a service and its answer back.
class soap_connector {
public:
    virtual ~soap_connector() = default;

    /// Properties, by name whatever its case:
    ///   EndPointURL, SoapAction          text
    ///   UseProxy                         whether to go through a proxy; false
    ///   ProxyServer, ProxyUser, ProxyPassword  text
    ///   ProxyPort                        number
    ///   Timeout                          milliseconds for the exchange
    virtual void set_text(soap_text property, soap_text value) = 0;
    virtual void set_flag(soap_text property, bool value) = 0;
    virtual void set_number(soap_text property, std::int32_t value) = 0;

    virtual void connect() = 0;
    virtual void begin_message() = 0;
    virtual soap_stream& input_stream() = 0;  ///< takes the message, from begin_message on
    /// Sends the message and receives the answer.
    virtual void end_message() = 0;
    virtual soap_stream& output_stream() = 0;  ///< holds the answer, from end_message on
};

/// Writes a message, piece by piece. Empty prefixes, encoding styles and encodings are the toolkit's choice.
class soap_serializer {
public:
    virtual ~soap_serializer() = default;

    virtual void init(soap_stream& message) = 0;
    virtual void start_envelope(soap_text prefix, soap_text encoding_style, soap_text encoding) = 0;
    virtual void start_body(soap_text encoding_style) = 0;
    /// name: without a prefix. name_space: none when empty.
    virtual void start_element(soap_text name, soap_text name_space, soap_text encoding_style) = 0;
    virtual void write_string(soap_text text) = 0;
    virtual void end_element() = 0;
    virtual void end_body() = 0;
    virtual void end_envelope() = 0;
};

/// The child nodes of an element; blank texts aren't among them.
class soap_nodes {
public:
    virtual ~soap_nodes() = default;

    virtual std::int32_t length() = 0;
    /// All text below the first, or the last, child of a node, without blanks at its ends. k_soap_null_object
    /// for a node without children.
    virtual wide_string first_child_text(std::int32_t node) = 0;
    virtual wide_string last_child_text(std::int32_t node) = 0;
};

/// Reads an answer.
class soap_reader {
public:
    virtual ~soap_reader() = default;

    virtual void load(soap_stream& answer, soap_text soap_action) = 0;
    /// The document as XML text.
    virtual wide_string document_xml() = 0;
    /// Code and text of the fault in the body; false, with both untouched, when there is none.
    virtual bool fault(wide_string& code, wide_string& text) = 0;
    /// The nodes in the RPC result, which is the first element in the first entry of the body.
    /// k_soap_null_object when there is none, as in a fault.
    virtual std::unique_ptr<soap_nodes> rpc_result_nodes() = 0;
};

class soap_toolkit {
public:
    virtual ~soap_toolkit() = default;

    /// CoInitialize(NULL) and CoUninitialize() on the calling thread; nothing where there is no COM.
    virtual void initialize_thread() noexcept = 0;
    virtual void uninitialize_thread() noexcept = 0;

    virtual std::unique_ptr<soap_connector> make_connector() = 0;
    virtual std::unique_ptr<soap_serializer> make_serializer() = 0;
    virtual std::unique_ptr<soap_reader> make_reader() = 0;
};

soap_toolkit& soap();  ///< the one in force; the system's lives until unload
/// Puts another in force, null the system's again. Returns the one that was, null for the system's. Only
/// while nothing runs.
soap_toolkit* replace_soap_toolkit_for_test(soap_toolkit* toolkit);

/// Puts a shorter time-out in force in place of every connector's own, so that tests needn't wait for it; 0
/// ends that. Linux only.
void shorten_soap_timeout_for_test(std::uint32_t milliseconds);

}  // namespace kro::tessel::os
