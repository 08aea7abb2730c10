#include "tessel/i18n/inifile_locale.h"

#include "os/profile.h"

namespace kro::tessel::i18n {
namespace {

constexpr std::uint32_t k_value_room = 1024;  // with the zero at its end: hosts count on 1,023 units

}  // namespace

inifile_locale_data::inifile_locale_data(const wide_string& path) : m_path(path) {}
inifile_locale_data::inifile_locale_data(const inifile_locale_data&) = default;
inifile_locale_data& inifile_locale_data::operator=(const inifile_locale_data&) = default;
inifile_locale_data::~inifile_locale_data() = default;

wide_string inifile_locale_data::get_string(const wide_string& key) {
    wchar value[k_value_room];
    const std::uint32_t units = os::profiles().get_string(TESSEL_W("text"), key.c_str(), TESSEL_W(""), value,
                                                          k_value_room, m_path.c_str());
    return {value, units};
}

inifile_locale_loader::inifile_locale_loader(const wide_string& path) : m_path(path) {}
inifile_locale_loader::inifile_locale_loader(const inifile_locale_loader&) = default;
inifile_locale_loader& inifile_locale_loader::operator=(const inifile_locale_loader&) = default;
inifile_locale_loader::~inifile_locale_loader() = default;

locale_data* inifile_locale_loader::load(const wide_string& /*name*/) {
    return new inifile_locale_data(m_path);
}

void inifile_locale_loader::unload(locale_data* data) {
    delete data;
}

}  // namespace kro::tessel::i18n
