#include "os/linux/proxy_sources.h"

#include <gio/gio.h>
#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gsettingsbackend.h>

#include <cstring>
#include <memory>
#include <string>

namespace kro::tessel::os {
namespace {

struct unref_object {
    void operator()(void* object) const noexcept { g_object_unref(object); }
};
struct unref_schema {
    void operator()(GSettingsSchema* schema) const noexcept { g_settings_schema_unref(schema); }
};
using schema_pointer = std::unique_ptr<GSettingsSchema, unref_schema>;

// The store kept in a file takes changes over when a main loop brings them, and the host may have none: a
// new one reads the file. The others (dconf, memory) always answer with what is there.
std::unique_ptr<GSettingsBackend, unref_object> current_store() {
    std::unique_ptr<GSettingsBackend, unref_object> store(g_settings_backend_get_default());
    if (std::strcmp(G_OBJECT_TYPE_NAME(store.get()), "GKeyfileSettingsBackend") == 0) {
        store.reset(G_SETTINGS_BACKEND(g_object_new(G_OBJECT_TYPE(store.get()), nullptr)));
    }
    return store;
}

/// The keys of one schema; one that isn't there has its type's empty value. GLib itself would abort.
class settings_group {
public:
    settings_group(GSettingsBackend* store, const char* id) {
        GSettingsSchemaSource* const source = g_settings_schema_source_get_default();
        m_schema.reset(source != nullptr ? g_settings_schema_source_lookup(source, id, TRUE) : nullptr);
        if (m_schema != nullptr) {
            m_settings.reset(g_settings_new_full(m_schema.get(), store, nullptr));
        }
    }

    std::string text(const char* key) const {
        const variant value = read(key, G_VARIANT_TYPE_STRING);
        return value != nullptr ? g_variant_get_string(value.get(), nullptr) : "";
    }
    int number(const char* key) const {
        const variant value = read(key, G_VARIANT_TYPE_INT32);
        return value != nullptr ? g_variant_get_int32(value.get()) : 0;
    }
    bool flag(const char* key) const {
        const variant value = read(key, G_VARIANT_TYPE_BOOLEAN);
        return value != nullptr && g_variant_get_boolean(value.get()) != FALSE;
    }
    template <class Visitor>
    void each_text(const char* key, Visitor&& visit) const {
        const variant value = read(key, G_VARIANT_TYPE_STRING_ARRAY);
        for (gsize i = 0; value != nullptr && i < g_variant_n_children(value.get()); ++i) {
            const variant item(g_variant_get_child_value(value.get(), i));
            visit(g_variant_get_string(item.get(), nullptr));
        }
    }

private:
    struct unref_variant {
        void operator()(GVariant* value) const noexcept { g_variant_unref(value); }
    };
    using variant = std::unique_ptr<GVariant, unref_variant>;

    variant read(const char* key, const GVariantType* type) const {
        if (m_settings == nullptr || g_settings_schema_has_key(m_schema.get(), key) == FALSE) {
            return nullptr;
        }
        variant value(g_settings_get_value(m_settings.get(), key));
        return g_variant_is_of_type(value.get(), type) != FALSE ? std::move(value) : nullptr;
    }

    schema_pointer m_schema;
    std::unique_ptr<GSettings, unref_object> m_settings;
};

configured_proxy read_proxy(const settings_group& group) {
    configured_proxy proxy;
    const int port = group.number("port");
    std::string host = lowered(trimmed(group.text("host")));
    if (!host.empty() && port > 0 && port <= 0xFFFF) {
        const bool bare_six = host.find(':') != std::string::npos && host.front() != '[';
        proxy.host = bare_six ? '[' + host + ']' : host;
        proxy.port = static_cast<std::uint16_t>(port);
    }
    return proxy;
}

void read_manual(GSettingsBackend* store, fixed_proxies& fixed) {
    const settings_group http(store, "org.gnome.system.proxy.http");
    fixed.http = read_proxy(http);
    if (http.flag("use-authentication")) {
        fixed.http.account = {http.text("authentication-user"), http.text("authentication-password")};
    }
    fixed.https = read_proxy(settings_group(store, "org.gnome.system.proxy.https"));
    const configured_proxy socks = read_proxy(settings_group(store, "org.gnome.system.proxy.socks"));
    if (socks.named()) {
        fixed.http.left_out = "the proxy socks://" + socks.host + " in the desktop's settings";
        fixed.https.left_out = fixed.http.left_out;
    }
}

}  // namespace

desktop_proxies desktop_proxies_now() {
    desktop_proxies result;
    const auto store = current_store();
    const settings_group proxy(store.get(), "org.gnome.system.proxy");
    const std::string mode = proxy.text("mode");
    if (mode == "auto") {
        result.by_script = true;
        result.script = proxy.text("autoconfig-url");
    } else if (mode == "manual") {
        read_manual(store.get(), result.fixed);
    }
    proxy.each_text("ignore-hosts", [&result](const char* entry) { result.fixed.bypass.add(entry); });
    return result;
}

}  // namespace kro::tessel::os
