// On the system's HTML document object, by way of its markup services.
#include "os/html_engine.h"

#include <mshtml.h>
#include <ocidl.h>
#include <oleauto.h>
#include <windows.h>

#include <exception>
#include <limits>
#include <string>
#include <string_view>

namespace kro::tessel::os {
namespace {

// A counted reference to an object.
template <class Interface>
class com_pointer {
public:
    com_pointer() = default;
    com_pointer(const com_pointer&) = delete;
    com_pointer& operator=(const com_pointer&) = delete;
    ~com_pointer() {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }

    Interface* operator->() const { return m_object; }
    Interface* get() const { return m_object; }
    Interface** receive() { return &m_object; }

    template <class Other>
    bool query(com_pointer<Other>& other) const {
        return succeeded(m_object->QueryInterface(__uuidof(Other), reinterpret_cast<void**>(other.receive())),
                         other.get());
    }

    static bool succeeded(HRESULT result, const void* object) {
        return SUCCEEDED(result) && object != nullptr;
    }

private:
    Interface* m_object = nullptr;
};

class bstr {
public:
    bstr() = default;
    explicit bstr(std::basic_string_view<wchar> text)
        : m_text(text.size() > std::numeric_limits<UINT>::max() / sizeof(wchar)
                     ? nullptr
                     : SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    bstr(const bstr&) = delete;
    bstr& operator=(const bstr&) = delete;
    ~bstr() { SysFreeString(m_text); }

    BSTR get() const { return m_text; }
    BSTR* receive() { return &m_text; }

private:
    BSTR m_text = nullptr;
};

// A new, empty document.
bool create_document(com_pointer<IHTMLDocument2>& document) {
    const HRESULT created =
        CoCreateInstance(__uuidof(HTMLDocument), nullptr, CLSCTX_SERVER, __uuidof(IHTMLDocument2),
                         reinterpret_cast<void**>(document.receive()));
    com_pointer<IPersistStreamInit> storage;
    return com_pointer<IHTMLDocument2>::succeeded(created, document.get()) && document.query(storage) &&
           SUCCEEDED(storage->InitNew());
}

bool parse(const com_pointer<IHTMLDocument2>& document, const bstr& html,
           com_pointer<IHTMLDocument2>& parsed) {
    com_pointer<IMarkupServices> services;
    com_pointer<IMarkupPointer> begin;
    com_pointer<IMarkupPointer> end;
    com_pointer<IMarkupContainer> container;
    return document.query(services) && SUCCEEDED(services->CreateMarkupPointer(begin.receive())) &&
           SUCCEEDED(services->CreateMarkupPointer(end.receive())) &&
           SUCCEEDED(services->ParseString(html.get(), 0, container.receive(), begin.get(), end.get())) &&
           container.get() != nullptr && container.query(parsed);
}

bool read_body(const com_pointer<IHTMLDocument2>& document, bstr& text) {
    com_pointer<IHTMLElement> body;
    return SUCCEEDED(document->get_body(body.receive())) && body.get() != nullptr &&
           SUCCEEDED(body->get_innerText(text.receive())) && text.get() != nullptr;
}

}  // namespace

bool inner_text_of_html(std::basic_string_view<wchar> html, wide_string& text) noexcept try {
    com_pointer<IHTMLDocument2> document;
    com_pointer<IHTMLDocument2> parsed;
    const bstr markup(html);
    bstr inner_text;
    if (markup.get() == nullptr || !create_document(document) || !parse(document, markup, parsed) ||
        !read_body(parsed, inner_text)) {
        return false;
    }
    text.assign(inner_text.get(), SysStringLen(inner_text.get()));
    return true;
} catch (const std::exception&) {  // no memory
    return false;
}

}  // namespace kro::tessel::os
