// On the system's SOAP toolkit, an optional component: its objects are reached by name, as from a script, and
// the answer through the XML document object model.
#include "os/soap_toolkit.h"

#include "os/system_services.h"

#include <msxml2.h>
#include <oleauto.h>
#include <windows.h>

#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

namespace kro::tessel::os {
namespace {

struct toolkit_class {
    CLSID class_id;
    IID interface_id;
};

constexpr toolkit_class k_connector = {
    {0x6205B8C9, 0x75FF, 0x4623, {0xA5, 0x0A, 0x88, 0xE1, 0xF1, 0x4E, 0xAF, 0xF2}},
    {0x09BC1FF4, 0x5711, 0x4B93, {0xB0, 0x1D, 0xDD, 0xD8, 0x26, 0xEB, 0xD3, 0x53}}};
constexpr toolkit_class k_serializer = {
    {0xADE424F3, 0xAA10, 0x471D, {0x8A, 0x0A, 0x68, 0x75, 0x34, 0x55, 0x59, 0x00}},
    {0xADE424F3, 0x0474, 0x4231, {0xAB, 0x31, 0x4A, 0x25, 0x48, 0x97, 0x70, 0x0B}}};
constexpr toolkit_class k_reader = {
    {0xFDE424F3, 0xAA10, 0x471D, {0x8A, 0x0A, 0x68, 0x75, 0xC1, 0x7B, 0x59, 0x14}},
    {0xFDE424F3, 0x0474, 0x4231, {0xAB, 0x31, 0x4A, 0x03, 0x7C, 0x9A, 0x98, 0xBB}}};
constexpr DWORD k_all_contexts = 0x17;

void check(HRESULT result) {
    if (FAILED(result)) {
        throw soap_error{static_cast<std::uint32_t>(result)};
    }
}

// A counted reference to an object.
template <class Interface>
class com_pointer {
public:
    com_pointer() = default;
    com_pointer(com_pointer&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    com_pointer& operator=(com_pointer&& other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~com_pointer() {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }

    Interface* operator->() const {
        if (m_object == nullptr) {
            throw soap_error{k_soap_null_object};
        }
        return m_object;
    }
    Interface* get() const { return m_object; }
    Interface** receive() { return &m_object; }
    void** receive_any() { return reinterpret_cast<void**>(&m_object); }

private:
    Interface* m_object = nullptr;
};

// IXMLDOMNode's published id; MinGW's headers give the interface none.
constexpr GUID k_xml_node_id = {0x2933BF80, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// The value of an argument or a result.
class variant {
public:
    variant() { VariantInit(&m_value); }
    explicit variant(soap_text text) : variant() {
        if (text.size() > std::numeric_limits<UINT>::max() / sizeof(wchar)) {
            throw soap_error{k_soap_no_memory};
        }
        m_value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        if (m_value.bstrVal == nullptr) {
            throw soap_error{k_soap_no_memory};
        }
        m_value.vt = VT_BSTR;
    }
    explicit variant(bool flag) : variant() {
        m_value.vt = VT_BOOL;
        m_value.boolVal = flag ? VARIANT_TRUE : VARIANT_FALSE;
    }
    explicit variant(std::int32_t number) : variant() {
        m_value.vt = VT_I4;
        m_value.lVal = number;
    }
    variant(const variant&) = delete;
    variant& operator=(const variant&) = delete;
    ~variant() { VariantClear(&m_value); }

    VARIANT& value() { return m_value; }

    wide_string text() const {
        return m_value.vt == VT_BSTR && m_value.bstrVal != nullptr
                   ? wide_string(m_value.bstrVal, SysStringLen(m_value.bstrVal))
                   : wide_string();
    }

    com_pointer<IXMLDOMNode> node() const {
        com_pointer<IXMLDOMNode> found;
        const bool holds_one =
            (m_value.vt == VT_DISPATCH || m_value.vt == VT_UNKNOWN) && m_value.punkVal != nullptr;
        if (!holds_one) {
            throw soap_error{k_soap_null_object};
        }
        check(m_value.punkVal->QueryInterface(k_xml_node_id, found.receive_any()));
        return found;
    }

private:
    VARIANT m_value;
};

class text_result {
public:
    text_result() = default;
    text_result(const text_result&) = delete;
    text_result& operator=(const text_result&) = delete;
    ~text_result() { SysFreeString(m_text); }

    BSTR* receive() { return &m_text; }
    wide_string get() const {
        return m_text == nullptr ? wide_string() : wide_string(m_text, SysStringLen(m_text));
    }

private:
    BSTR m_text = nullptr;
};

// One of the toolkit's objects, by the names of its members.
class named_object {
public:
    explicit named_object(const toolkit_class& which) {
        com_pointer<IUnknown> object;
        com_pointer<IUnknown> wanted;
        check(CoCreateInstance(which.class_id, nullptr, k_all_contexts, __uuidof(IUnknown),
                               object.receive_any()));
        check(OleRun(object.get()));
        check(object->QueryInterface(which.interface_id, wanted.receive_any()));
        check(wanted->QueryInterface(__uuidof(IDispatch), m_object.receive_any()));
    }

    using arguments = std::initializer_list<variant*>;

    void call(const wchar* name, arguments with = {}) {
        variant ignored;
        invoke(name, DISPATCH_METHOD, with, &ignored.value());
    }
    /// With an index where there are two arguments.
    void put(const wchar* name, arguments with) { invoke(name, DISPATCH_PROPERTYPUT, with, nullptr); }
    void get(const wchar* name, variant& result) { invoke(name, DISPATCH_PROPERTYGET, {}, &result.value()); }

private:
    void invoke(const wchar* name, WORD how, arguments with, VARIANT* result) {
        DISPID member = 0;
        wide_string own_name = name;
        LPOLESTR names[] = {own_name.data()};
        check(m_object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &member));
        std::vector<VARIANT> backwards;  // lent: the arguments stay their owners'
        for (variant* argument : with) {
            backwards.insert(backwards.begin(), argument->value());
        }
        DISPID put_name = DISPID_PROPERTYPUT;
        DISPPARAMS parameters = {backwards.data(), nullptr, static_cast<UINT>(backwards.size()), 0};
        if (how == DISPATCH_PROPERTYPUT) {
            parameters.rgdispidNamedArgs = &put_name;
            parameters.cNamedArgs = 1;
        }
        EXCEPINFO exception = {};
        const HRESULT ended = m_object->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, how, &parameters,
                                               result, &exception, nullptr);
        SysFreeString(exception.bstrSource);
        SysFreeString(exception.bstrDescription);
        SysFreeString(exception.bstrHelpFile);
        check(ended == DISP_E_EXCEPTION && FAILED(exception.scode) ? exception.scode : ended);
    }

    com_pointer<IDispatch> m_object;
};

class toolkit_stream final : public soap_stream {
public:
    variant stream;
};

variant& stream_of(soap_stream& stream) {
    return static_cast<toolkit_stream&>(stream).stream;
}

class connector final : public soap_connector {
public:
    void set_text(soap_text property, soap_text value) override {
        variant argument(value);
        set(property, argument);
    }
    void set_flag(soap_text property, bool value) override {
        variant argument(value);
        set(property, argument);
    }
    void set_number(soap_text property, std::int32_t value) override {
        variant argument(value);
        set(property, argument);
    }
    void connect() override { m_object.call(L"Connect"); }
    void begin_message() override { m_object.call(L"BeginMessage"); }
    soap_stream& input_stream() override {
        m_object.get(L"InputStream", m_input.stream);
        return m_input;
    }
    void end_message() override { m_object.call(L"EndMessage"); }
    soap_stream& output_stream() override {
        m_object.get(L"OutputStream", m_output.stream);
        return m_output;
    }

private:
    void set(soap_text property, variant& value) {
        variant name(property);
        m_object.put(L"Property", {&name, &value});
    }

    named_object m_object{k_connector};
    toolkit_stream m_input;
    toolkit_stream m_output;
};

class serializer final : public soap_serializer {
public:
    void init(soap_stream& message) override { m_object.call(L"Init", {&stream_of(message)}); }
    void start_envelope(soap_text prefix, soap_text encoding_style, soap_text encoding) override {
        call(L"StartEnvelope", prefix, encoding_style, encoding);
    }
    void start_body(soap_text encoding_style) override { call(L"StartBody", encoding_style); }
    void start_element(soap_text name, soap_text name_space, soap_text encoding_style) override {
        call(L"StartElement", name, name_space, encoding_style);
    }
    void write_string(soap_text text) override { call(L"WriteString", text); }
    void end_element() override { m_object.call(L"EndElement"); }
    void end_body() override { m_object.call(L"EndBody"); }
    void end_envelope() override { m_object.call(L"EndEnvelope"); }

private:
    void call(const wchar* name, soap_text first) {
        variant one(first);
        m_object.call(name, {&one});
    }
    void call(const wchar* name, soap_text first, soap_text second, soap_text third) {
        variant one(first);
        variant two(second);
        variant three(third);
        m_object.call(name, {&one, &two, &three});
    }

    named_object m_object{k_serializer};
};

class nodes final : public soap_nodes {
public:
    explicit nodes(const com_pointer<IXMLDOMNode>& element) {
        check(element->get_childNodes(m_list.receive()));
    }

    std::int32_t length() override {
        long count = 0;
        check(m_list->get_length(&count));
        return static_cast<std::int32_t>(count);
    }
    wide_string first_child_text(std::int32_t node) override {
        com_pointer<IXMLDOMNode> child;
        check(at(node)->get_firstChild(child.receive()));
        return text_of(child);
    }
    wide_string last_child_text(std::int32_t node) override {
        com_pointer<IXMLDOMNode> child;
        check(at(node)->get_lastChild(child.receive()));
        return text_of(child);
    }

private:
    com_pointer<IXMLDOMNode> at(std::int32_t node) const {
        com_pointer<IXMLDOMNode> found;
        check(m_list->get_item(node, found.receive()));
        return found;
    }
    static wide_string text_of(const com_pointer<IXMLDOMNode>& node) {
        text_result text;
        check(node->get_text(text.receive()));
        return text.get();
    }

    com_pointer<IXMLDOMNodeList> m_list;
};

class reader final : public soap_reader {
public:
    void load(soap_stream& answer, soap_text soap_action) override {
        variant action(soap_action);
        m_object.call(L"Load", {&stream_of(answer), &action});
    }
    wide_string document_xml() override {
        variant document;
        m_object.get(L"DOM", document);
        text_result xml;
        check(document.node()->get_xml(xml.receive()));
        return xml.get();
    }
    bool fault(wide_string& code, wide_string& text) override {
        try {
            variant element;
            m_object.get(L"Fault", element);
            static_cast<void>(element.node());
            code = text_property(L"FaultCode");
            text = text_property(L"FaultString");
            return true;
        } catch (const soap_error&) {  // none, or not to be told: the result says that there is no answer
            return false;
        }
    }
    std::unique_ptr<soap_nodes> rpc_result_nodes() override {
        variant result;
        m_object.get(L"RpcResult", result);
        return std::make_unique<nodes>(result.node());
    }

private:
    // A text, or the text of an element.
    wide_string text_property(const wchar* name) {
        variant value;
        m_object.get(name, value);
        if (value.value().vt == VT_BSTR) {
            return value.text();
        }
        text_result text;
        check(value.node()->get_text(text.receive()));
        return text.get();
    }

    named_object m_object{k_reader};
};

class system_toolkit final : public soap_toolkit {
public:
    void initialize_thread() noexcept override { static_cast<void>(CoInitialize(nullptr)); }
    void uninitialize_thread() noexcept override { CoUninitialize(); }
    std::unique_ptr<soap_connector> make_connector() override { return std::make_unique<connector>(); }
    std::unique_ptr<soap_serializer> make_serializer() override { return std::make_unique<serializer>(); }
    std::unique_ptr<soap_reader> make_reader() override { return std::make_unique<reader>(); }
};

}  // namespace

soap_toolkit& system_soap_toolkit() {
    static system_toolkit s_toolkit;
    return s_toolkit;
}

}  // namespace kro::tessel::os
