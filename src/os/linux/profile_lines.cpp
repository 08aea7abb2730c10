#include "profile_lines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_file_not_found = 2;
constexpr std::uint32_t k_path_not_found = 3;
constexpr std::uint32_t k_access_denied = 5;

std::uint32_t error_of_opening(const std::string& name) {
    if (errno != ENOENT && errno != ENOTDIR) {
        return k_access_denied;
    }
    const std::size_t slash = name.rfind('/');
    struct stat folder = {};
    const bool folder_is_there =
        slash == std::string::npos || slash == 0 ||
        (::stat(name.substr(0, slash).c_str(), &folder) == 0 && S_ISDIR(folder.st_mode));
    return folder_is_there ? k_file_not_found : k_path_not_found;
}

}  // namespace

profile_file::profile_file(const std::string& name)
    // Opening a pipe without O_NONBLOCK waits for its other side.
    : m_descriptor(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    if (m_descriptor < 0) {
        m_error = error_of_opening(name);
        return;
    }
    struct stat about = {};
    if (::fstat(m_descriptor, &about) != 0 || !S_ISREG(about.st_mode)) {
        m_error = k_access_denied;
    }
    m_left = static_cast<std::uint64_t>(about.st_size);
}

profile_file::~profile_file() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

std::size_t profile_file::read(void* to, std::size_t bytes) {
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, m_left));
    std::size_t filled = 0;
    while (filled < wanted) {
        const ssize_t count = ::read(m_descriptor, static_cast<char*>(to) + filled, wanted - filled);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            m_left = filled;  // it has become shorter
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    m_left -= filled;
    return filled;
}

}  // namespace kro::tessel::os
