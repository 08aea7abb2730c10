#include "tessel/platform/registry.h"

#include "os/registry.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <utility>
#include <vector>

namespace kro::tessel::registry {
namespace {

constexpr std::uint32_t k_enumerated_units = 256;  // the room for names, their final zero included

// The platform counts in 32 bits; `unsigned long` may have more.
constexpr std::uint32_t narrow(unsigned long size) noexcept {
    return static_cast<std::uint32_t>(
        std::min<unsigned long>(size, std::numeric_limits<std::uint32_t>::max()));
}

/// Hands `unsigned long` outputs to a call of the platform and takes its results back, as far as it set them.
class narrow_outputs {
public:
    narrow_outputs(unsigned long* type, unsigned long* size) noexcept
        : m_wide_type(type), m_wide_size(size), m_size(size == nullptr ? 0 : narrow(*size)) {}

    std::uint32_t* type() noexcept { return m_wide_type == nullptr ? nullptr : &m_type; }
    std::uint32_t* size() noexcept { return m_wide_size == nullptr ? nullptr : &m_size; }

    long take(std::int32_t status) const noexcept {
        if (m_wide_type != nullptr && (status == os::k_registry_ok || status == os::k_registry_more_data)) {
            *m_wide_type = m_type;
        }
        if (m_wide_size != nullptr) {
            *m_wide_size = m_size;
        }
        return status;
    }

private:
    unsigned long* m_wide_type;
    unsigned long* m_wide_size;
    std::uint32_t m_type = 0;
    std::uint32_t m_size;
};

// Who has waited for another process once doesn't wait for it again.
HKEY open_or_create(HKEY parent, const wide_string& path, bool create) noexcept {
    HKEY key = nullptr;
    const std::int32_t status = os::registry_keys().open_key(parent, path.c_str(), &key);
    if (create && status != os::k_registry_ok && status != os::k_registry_busy) {
        os::registry_keys().create_key(parent, path.c_str(), &key);
    }
    return key;
}

wide_string text_of(unsigned long type, const std::vector<unsigned char>& data, std::size_t bytes) {
    wide_string text(bytes / sizeof(wchar), wchar{});
    if (bytes >= sizeof(wchar)) {
        std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar));
    }
    if (type == REG_SZ) {
        text.resize(std::min(text.find(wchar{}), text.size()));
    }
    return text;
}

/// Makes an empty wrapper the owner of a handle.
void adopt(reg_key& wrapper, HKEY adopted) noexcept {
    if (adopted == nullptr) {
        return;
    }
    wrapper.count = new (std::nothrow) long(1);
    if (wrapper.count == nullptr) {
        reg_key_deleter::del(adopted);  // it is ours already: without a count it would stay open
        return;
    }
    wrapper.key = adopted;
}

void release(reg_key& wrapper) noexcept {
    if (wrapper.count != nullptr && --*wrapper.count == 0) {
        reg_key_deleter::del(wrapper.key);
        delete wrapper.count;
    }
    wrapper.key = nullptr;
    wrapper.count = nullptr;
}

}  // namespace

void reg_key_deleter::del(HKEY key) noexcept {
    os::registry_keys().close_key(key);
}

reg_key::reg_key(HKEY parent, const wide_string& path, bool create) noexcept {
    adopt(*this, open_or_create(parent, path, create));
}

reg_key::reg_key(HKEY adopted) noexcept {
    adopt(*this, adopted);
}

reg_key::reg_key(const reg_key& other) noexcept : key(other.key), count(other.count) {
    if (count != nullptr) {
        ++*count;
    }
}

reg_key& reg_key::operator=(const reg_key& other) noexcept {
    reg_key shared(other);  // which then ends what this one held
    std::swap(key, shared.key);
    std::swap(count, shared.count);
    return *this;
}

reg_key::~reg_key() {
    release(*this);
}

long reg_key::read_value(const wide_string& name, unsigned long* type, unsigned char* data,
                         unsigned long* size) const noexcept {
    narrow_outputs out(type, size);
    return out.take(os::registry_keys().query_value(key, name.c_str(), out.type(), data, out.size()));
}

long reg_key::write_value(const wide_string& name, unsigned long type, const unsigned char* data,
                          unsigned long size) noexcept {
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        return os::k_registry_out_of_memory;
    }
    return os::registry_keys().set_value(key, name.c_str(), static_cast<std::uint32_t>(type), data,
                                         narrow(size));
}

long reg_key::enum_value(unsigned long index, wide_string& name, unsigned long* type, unsigned char* data,
                         unsigned long* size) const noexcept {
    wchar units[k_enumerated_units];
    std::uint32_t length = k_enumerated_units;
    narrow_outputs out(type, size);
    const long status = out.take(
        os::registry_keys().enum_value(key, narrow(index), units, &length, out.type(), data, out.size()));
    if (status != os::k_registry_ok) {
        return status;
    }
    try {
        name.assign(units, length);
    } catch (const std::exception&) {
        return os::k_registry_out_of_memory;
    }
    return status;
}

bool reg_key::read_value(const wide_string& name, wide_string& out) const noexcept {
    unsigned long type = REG_NONE;
    unsigned long size = 0;
    if (read_value(name, &type, nullptr, &size) != os::k_registry_ok ||
        (type != REG_SZ && type != REG_BINARY)) {
        return false;
    }
    try {
        std::vector<unsigned char> data(size + sizeof(wchar));
        size = static_cast<unsigned long>(data.size());
        if (read_value(name, &type, data.data(), &size) != os::k_registry_ok ||
            (type != REG_SZ && type != REG_BINARY)) {
            return false;  // gone, grown or replaced meanwhile
        }
        out = text_of(type, data, size);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool reg_key::read_value(const wide_string& name, unsigned long& out) const noexcept {
    std::uint32_t number = 0;
    std::uint32_t type = REG_NONE;
    std::uint32_t size = sizeof(number);
    const std::int32_t status = os::registry_keys().query_value(
        key, name.c_str(), &type, reinterpret_cast<unsigned char*>(&number), &size);
    if (status == os::k_registry_ok) {
        out = number;
    }
    return status != os::k_registry_ok && type == REG_DWORD;
}

bool reg_key::write_value(const wide_string& name, const wide_string& value) noexcept {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(value.c_str());
    const std::size_t size = (value.size() + 1) * sizeof(wchar);
    return write_value(name, REG_SZ, bytes, static_cast<unsigned long>(size)) == os::k_registry_ok;
}

bool reg_key::write_value(const wide_string& name, unsigned long value) noexcept {
    const auto number = static_cast<std::uint32_t>(value);
    return write_value(name, REG_DWORD, reinterpret_cast<const unsigned char*>(&number), sizeof(number)) ==
           os::k_registry_ok;
}

bool reg_key::delete_value(const wide_string& name) noexcept {
    return os::registry_keys().delete_value(key, name.c_str()) == os::k_registry_ok;
}

bool reg_key::delete_subkey(const wide_string& name) noexcept {
    return os::registry_keys().delete_key(key, name.c_str()) == os::k_registry_ok;
}

HKEY reg_key::open_subkey(const wide_string& name, bool create) const noexcept {
    return open_or_create(key, name, create);
}

bool reg_key::enum_subkey(unsigned long index, wide_string& name) const noexcept {
    wchar units[k_enumerated_units];
    std::uint32_t length = k_enumerated_units;
    if (os::registry_keys().enum_key(key, narrow(index), units, &length) != os::k_registry_ok) {
        return false;
    }
    try {
        name.assign(units, length);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool reg_key::enum_value(unsigned long index, wide_string& name) const noexcept {
    return enum_value(index, name, nullptr, nullptr, nullptr) == os::k_registry_ok;
}

}  // namespace kro::tessel::registry
