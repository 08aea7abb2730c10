#include "registry_file.h"

#include "os/registry.h"

#include "registry_failure.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kro::tessel::os {
namespace {

constexpr mode_t k_folder_mode = 0700;
constexpr mode_t k_file_mode = 0600;
constexpr std::size_t k_user_record_bytes = 16384;

// A program that runs with more rights than its user's doesn't take places from that user's environment.
std::string environment(const char* name) {
    const char* const value = ::secure_getenv(name);
    return value == nullptr ? std::string() : value;
}

bool is_absolute(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

std::string home() {
    std::string folder = environment("HOME");
    if (is_absolute(folder)) {
        return folder;
    }
    std::vector<char> texts(k_user_record_bytes);
    passwd record{};
    passwd* found = nullptr;
    ::getpwuid_r(::geteuid(), &record, texts.data(), texts.size(), &found);
    return found == nullptr || found->pw_dir == nullptr ? std::string() : found->pw_dir;
}

std::string folder_of(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    const std::size_t end = path.find_last_not_of('/', slash);
    return end == std::string::npos ? "/" : path.substr(0, end + 1);
}

// A name that the disk doesn't know yet would take what is in the file with it at a loss of power.
void sync_folder(const std::string& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);  // not every file system can; then there is nothing more to be done
        ::close(descriptor);
    }
}

void make_folders(const std::string& folder) {
    std::vector<std::string> missing;
    struct stat about = {};
    for (std::string at = folder; ::stat(at.c_str(), &about) != 0; at = folder_of(at)) {
        if (errno != ENOENT || at == folder_of(at)) {
            throw failure_of_file(errno);
        }
        missing.push_back(at);
    }
    for (; !missing.empty(); missing.pop_back()) {
        if (::mkdir(missing.back().c_str(), k_folder_mode) == 0) {
            sync_folder(folder_of(missing.back()));
        } else if (errno != EEXIST) {
            throw failure_of_file(errno);
        }
    }
}

}  // namespace

std::string registry_file_name() {
    if (std::string named = environment("TESSEL_REGISTRY"); !named.empty()) {
        std::error_code ignored;  // without a current folder the name stays as it is, and can't be opened
        return std::filesystem::absolute(named, ignored).string();
    }
    std::string data = environment("XDG_DATA_HOME");
    if (!is_absolute(data)) {  // such a value counts as unset
        data = home();
        if (!is_absolute(data)) {
            return {};
        }
        data += "/.local/share";
    }
    return data + "/tessel/registry.db";
}

bool registry_file_exists(const std::string& name) {
    if (name.empty()) {
        throw registry_failure{k_registry_cant_open};
    }
    struct stat about = {};
    if (::stat(name.c_str(), &about) == 0) {
        if (!S_ISREG(about.st_mode)) {  // opening a pipe could wait for its other side
            throw registry_failure{k_registry_access_denied};
        }
        return true;
    }
    if (errno == ENOENT) {
        return false;
    }
    throw failure_of_file(errno);
}

void make_registry_file(const std::string& name) {
    const std::string folder = folder_of(name);
    make_folders(folder);
    // Not left to SQLite, whose files everybody may read unless the umask says otherwise. Only a file that
    // didn't exist is ever opened here: closing one that SQLite has open would end its locks.
    const int descriptor =
        ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, k_file_mode);
    if (descriptor >= 0) {
        ::close(descriptor);
        sync_folder(folder);
    } else if (errno != EEXIST) {
        throw failure_of_file(errno);
    }
}

}  // namespace kro::tessel::os
