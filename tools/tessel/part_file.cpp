#include "part_file.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

namespace command {
namespace {

namespace fs = std::filesystem;

void remove_quietly(const std::string& file) {
    std::error_code ignored;
    fs::remove(file, ignored);
}

// What stands in a file for anybody to read.
std::string without_login(const std::string& url) {
    const std::size_t host = url.find("//");
    const std::size_t path = url.find('/', std::min(host, url.size() - 2) + 2);
    const std::size_t login = url.rfind('@', path);
    return host == std::string::npos || login == std::string::npos || login < host
               ? url
               : url.substr(0, host + 2) + url.substr(login + 1);
}

}  // namespace

part_file::part_file(std::string file, const std::string& url)
    : m_file(std::move(file)),
      m_part(m_file + ".part"),
      m_origin(m_part + ".from"),
      m_url(without_login(url)) {
    read_origin();
}

void part_file::read_origin() {
    std::ifstream in(m_origin);
    std::string url, tag;
    std::error_code missing;
    const auto size = fs::file_size(m_part, missing);
    if (std::getline(in, url) && std::getline(in, tag) && url == m_url && !tag.empty() && !missing) {
        m_tag = tag;
        m_left_over = size;
    }
}

bool part_file::write_origin() {
    if (m_tag.empty()) {
        remove_quietly(m_origin);
        return true;
    }
    std::ofstream out(m_origin, std::ios::trunc);
    out << m_url << '\n' << m_tag << '\n';
    out.close();
    return out.good() || fail(m_origin);
}

bool part_file::begin(const std::string& tag) {
    remove_quietly(m_origin);  // first: it must not stand beside bytes of something else
    m_tag = tag;
    m_size = m_left_over = 0;
    return open("wb") && write_origin();
}

bool part_file::go_on(std::uint64_t offset) {
    std::error_code error;
    m_out.reset();
    fs::resize_file(m_part, offset, error);
    m_size = offset;
    if (error) {
        m_error = fmt::format("{} can't be written: {}", m_part, error.message());
        return false;
    }
    return open("ab");
}

bool part_file::open(const char* mode) {
    m_out.reset(std::fopen(m_part.c_str(), mode));
    m_is_ours = m_is_ours || m_out != nullptr;
    return m_out != nullptr || fail(m_part);
}

bool part_file::write(const void* data, std::size_t size) {
    if (std::fwrite(data, 1, size, m_out.get()) != size) {
        return fail(m_part);
    }
    m_size += size;
    return true;
}

bool part_file::complete() {
    if (m_out != nullptr && std::fclose(m_out.release()) != 0) {
        return fail(m_part);
    }
    std::error_code error;
    fs::rename(m_part, m_file, error);
    if (error) {
        m_error = fmt::format("{} can't be written: {}", m_file, error.message());
        return false;
    }
    remove_quietly(m_origin);
    return true;
}

std::uint64_t part_file::close() {
    m_out.reset();
    if (!m_is_ours) {
        return m_left_over;
    }
    std::error_code missing;
    const auto size = fs::file_size(m_part, missing);
    if (missing || (!m_tag.empty() && size != 0)) {
        return missing ? 0 : size;
    }
    remove();
    return 0;
}

void part_file::forget() {
    m_tag.clear();
    m_left_over = 0;
}

void part_file::remove() {
    remove_quietly(m_origin);
    remove_quietly(m_part);
}

bool part_file::fail(const std::string& file) {
    m_error = fmt::format("{} can't be written: {}", file, std::strerror(errno));
    return false;
}

}  // namespace command
