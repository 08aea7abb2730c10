// Locales whose texts stand in INI files, one file a locale.
#pragma once

#include <tessel/base/types.h>
#include <tessel/i18n/locale.h>

namespace kro::tessel::i18n {

/// The texts of one INI file: the values of its section "text", by key. Names match without regard to case,
/// blanks and one pair of quotation marks around a value are dropped; the file is UTF-16 or UTF-8 with a byte
/// order mark, else in the ANSI code page (on Windows UTF-8 is read as that, too).
class TESSEL_API inifile_locale_data : public locale_data {
public:
    /// path: kept, not opened.
    explicit inifile_locale_data(const wide_string& path);
    inifile_locale_data(const inifile_locale_data&);
    inifile_locale_data& operator=(const inifile_locale_data&);

    /// Reads the file anew at each call.
    /// Returns: the value, cut to 1,023 units; empty without file, section or key. What is no regular file is
    ///          never waited for.
    /// Thread:  any.
    wide_string get_string(const wide_string& key) override;
    ~inifile_locale_data() override;

private:
    wide_string m_path;
};

/// One loader stands for one file, whatever the name it is asked for: register one for each locale.
class TESSEL_API inifile_locale_loader : public locale_loader {
public:
    /// path: the file's name as it stands, kept, not opened.
    explicit inifile_locale_loader(const wide_string& path);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    explicit inifile_locale_loader(const wchar_t* path) : inifile_locale_loader(from_wchar_t(path)) {}
#endif
    inifile_locale_loader(const inifile_locale_loader&);
    inifile_locale_loader& operator=(const inifile_locale_loader&);

    /// New texts of the file; never null, even when it isn't there. The name isn't used.
    locale_data* load(const wide_string& name) override;

    /// Destroys what such a loader has made; null is fine.
    void unload(locale_data* data) override;
    ~inifile_locale_loader() override;

private:
    wide_string m_path;
};

}  // namespace kro::tessel::i18n
