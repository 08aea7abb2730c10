#include "tessel/i18n/locale.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace kro::tessel::i18n {
namespace {

/// In force until the first selection.
class empty_locale final : public locale_data {
public:
    wide_string get_string(const wide_string& key) override { return key; }
};

class locale_registry {
public:
    /// Never destroyed: a host's own globals may still take leave of it at the end of the process.
    static locale_registry& instance() {
        static auto* const registry = new locale_registry;
        return *registry;
    }

    bool select(const wide_string& name) {
        if (name == m_name) {
            return true;
        }
        locale_loader* const loader = loader_of(name);
        locale_data* const loaded = loader != nullptr ? loader->load(name) : nullptr;
        if (loaded == nullptr) {
            return false;
        }
        const auto give_back = [loader](locale_data* data) { loader->unload(data); };
        std::unique_ptr<locale_data, decltype(give_back)> fresh(loaded, give_back);
        wide_string fresh_name = name;
        call_listeners(&locale_listener::on_locale_changing);
        change_to(fresh.release(), fresh_name);
        call_listeners(&locale_listener::on_locale_changed);
        return true;
    }

    const wide_string& name() const { return m_name; }
    locale_data& data() const { return *m_data; }

    std::map<wide_string, locale_loader*> loaders;
    locale_loader* default_loader = nullptr;
    std::set<locale_listener*, std::less<>> listeners;

private:
    locale_loader* loader_of(const wide_string& name) const {
        const auto own = loaders.find(name);
        return own != loaders.end() && own->second != nullptr ? own->second : default_loader;
    }

    // The old strings go back to whoever is registered now: a loader that has gone isn't asked. They go last,
    // so that a loader that throws leaves the new locale in force, name and all.
    void change_to(locale_data* fresh, wide_string& fresh_name) {
        locale_loader* const loader = loader_of(m_name);
        locale_data* const old = std::exchange(m_data, fresh);
        m_name.swap(fresh_name);
        if (old != &m_empty && loader != nullptr) {
            loader->unload(old);
        }
    }

    // The walk is over those that are there at its beginning and still there at their turn.
    void call_listeners(void (locale_listener::*callback)()) {
        const std::vector<locale_listener*> walk(listeners.begin(), listeners.end());
        for (locale_listener* const listener : walk) {
            if (listeners.count(listener) != 0) {
                (listener->*callback)();
            }
        }
    }

    empty_locale m_empty;
    locale_data* m_data = &m_empty;
    wide_string m_name;
};

locale_registry& registry() {
    return locale_registry::instance();
}

}  // namespace

bool select_locale(const wide_string& name) {
    return registry().select(name);
}

wide_string get_locale_string(const wide_string& key) {
    return registry().data().get_string(key);
}

wide_string get_current_locale_name() {
    return registry().name();
}

void register_locale_loader(const wide_string& name, locale_loader* loader) {
    registry().loaders[name] = loader;
}

void unregister_locale_loader(const wide_string& name) {
    registry().loaders.erase(name);
}

locale_loader* register_default_locale_loader(locale_loader* loader) {
    return std::exchange(registry().default_loader, loader);
}

void add_locale_listener(locale_listener* listener) {
    if (listener != nullptr) {
        registry().listeners.insert(listener);
    }
}

void remove_locale_listener(locale_listener* listener) {
    registry().listeners.erase(listener);
}

void remove_all_locale_listeners() {
    registry().listeners.clear();
}

}  // namespace kro::tessel::i18n
