// A SOAP toolkit that notes what it is told and answers and fails as a test says.
#pragma once

#include "os/soap_toolkit.h"

#include "support/ascii.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel_test {

namespace os = kro::tessel::os;

/// In force while it lives.
class scripted_soap_toolkit final : public os::soap_toolkit {
public:
    using text = os::soap_text;
    static constexpr std::size_t k_never = SIZE_MAX;

    scripted_soap_toolkit() { os::replace_soap_toolkit_for_test(this); }
    ~scripted_soap_toolkit() override { os::replace_soap_toolkit_for_test(nullptr); }

    // The script.
    std::size_t fails_at = k_never;    ///< which operation, counted from 0 over all that are noted
    std::size_t fails = 1;             ///< how many from there on
    std::uint32_t code = 0x80004005U;  ///< 0: by another exception
    std::vector<std::pair<std::string, std::string>> pairs;
    std::string xml, fault_code, fault_text;

    // What happened.
    std::vector<std::string> log;
    int initialized = 0, uninitialized = 0;

    void note(std::string operation) {
        log.push_back(std::move(operation));
        if (log.size() > fails_at && log.size() <= fails_at + fails) {
            if (code == 0) {
                throw std::runtime_error("scripted");
            }
            throw os::soap_error{code};
        }
    }
    /// The operations on the serializer: "<name" "'text" ">" for start, text and end.
    std::string message() const {
        std::string all;
        for (const std::string& one : log) {
            all += one[0] == '<' || one[0] == '\'' || one[0] == '>' ? one : "";
        }
        return all;
    }

    void initialize_thread() noexcept override { ++initialized; }
    void uninitialize_thread() noexcept override { ++uninitialized; }
    std::unique_ptr<os::soap_connector> make_connector() override {
        note("connector");
        return std::make_unique<connector>(*this);
    }
    std::unique_ptr<os::soap_serializer> make_serializer() override {
        note("serializer");
        return std::make_unique<serializer>(*this);
    }
    std::unique_ptr<os::soap_reader> make_reader() override {
        note("reader");
        return std::make_unique<reader>(*this);
    }

private:
    struct stream final : os::soap_stream {};

    template <class Interface>
    struct part : Interface {
        explicit part(scripted_soap_toolkit& toolkit) : m_toolkit(toolkit) {}
        scripted_soap_toolkit& m_toolkit;
    };

    struct connector final : part<os::soap_connector> {
        using part::part;
        void set_text(text property, text value) override {
            m_toolkit.note(plain(property) + "=" + plain(value));
        }
        void set_flag(text property, bool value) override {
            m_toolkit.note(plain(property) + (value ? "=true" : "=false"));
        }
        void set_number(text property, std::int32_t value) override {
            m_toolkit.note(plain(property) + "=" + std::to_string(value));
        }
        void connect() override { m_toolkit.note("Connect"); }
        void begin_message() override { m_toolkit.note("BeginMessage"); }
        os::soap_stream& input_stream() override { return m_stream; }
        void end_message() override { m_toolkit.note("EndMessage"); }
        os::soap_stream& output_stream() override { return m_stream; }

        stream m_stream;
    };

    struct serializer final : part<os::soap_serializer> {
        using part::part;
        void init(os::soap_stream&) override { m_toolkit.note("Init"); }
        void start_envelope(text prefix, text style, text encoding) override {
            m_toolkit.note("<Envelope" + plain(prefix) + plain(style) + plain(encoding));
        }
        void start_body(text style) override { m_toolkit.note("<Body" + plain(style)); }
        void start_element(text name, text name_space, text style) override {
            m_toolkit.note("<" + plain(name_space) + "|" + plain(name) + plain(style));
        }
        void write_string(text string) override { m_toolkit.note("'" + plain(string)); }
        void end_element() override { m_toolkit.note(">"); }
        void end_body() override { m_toolkit.note(">"); }
        void end_envelope() override { m_toolkit.note(">"); }
    };

    struct reader final : part<os::soap_reader> {
        using part::part;
        void load(os::soap_stream&, text action) override { m_toolkit.note("Load" + plain(action)); }
        kro::tessel::wide_string document_xml() override {
            m_toolkit.note("xml");
            return wide(m_toolkit.xml);
        }
        bool fault(kro::tessel::wide_string& its_code, kro::tessel::wide_string& its_text) override {
            its_code = wide(m_toolkit.fault_code);
            its_text = wide(m_toolkit.fault_text);
            return !m_toolkit.fault_code.empty();
        }
        std::unique_ptr<os::soap_nodes> rpc_result_nodes() override {
            m_toolkit.note("result");
            return std::make_unique<nodes>(m_toolkit);
        }
    };

    struct nodes final : part<os::soap_nodes> {
        using part::part;
        std::int32_t length() override {
            m_toolkit.note("length");
            return static_cast<std::int32_t>(m_toolkit.pairs.size());
        }
        kro::tessel::wide_string first_child_text(std::int32_t node) override {
            m_toolkit.note("first");
            return wide(m_toolkit.pairs.at(static_cast<std::size_t>(node)).first);
        }
        kro::tessel::wide_string last_child_text(std::int32_t node) override {
            m_toolkit.note("last");
            return wide(m_toolkit.pairs.at(static_cast<std::size_t>(node)).second);
        }
    };
};

}  // namespace tessel_test
