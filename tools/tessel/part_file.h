// The file beside the wanted one into which a download goes: FILE.part, and FILE.part.from, which says what
// of. It becomes FILE when it is complete; where the server can go on in the middle it outlives a transfer
// that was broken off.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace command {

class part_file {
public:
    /// url: of what is to be downloaded. A part of another one isn't gone on with.
    part_file(std::string file, const std::string& url);

    /// Bytes that an earlier run has left; 0 when there is nothing to go on with.
    std::uint64_t left_over() const { return m_left_over; }
    /// The entity tag that the server gave to what they are of.
    const std::string& tag() const { return m_tag; }

    /// Opens it empty. tag: to go on with later; empty when that isn't possible.
    bool begin(const std::string& tag);
    /// Opens what an earlier run has left, from its first `offset` bytes on.
    bool go_on(std::uint64_t offset);
    bool write(const void* data, std::size_t size);
    std::uint64_t size() const { return m_size; }

    /// Puts it in the place of the wanted file.
    bool complete();
    /// Closes it, and removes it where it is of no more use. Returns the bytes that are kept.
    std::uint64_t close();
    /// There is nothing to go on with; what lies there stays until `begin`.
    void forget();

    /// Why the last call that returned false did so.
    const std::string& error() const { return m_error; }

private:
    struct file_closer {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    void read_origin();
    bool write_origin();
    bool fail(const std::string& file);
    bool open(const char* mode);
    void remove();

    const std::string m_file, m_part, m_origin;
    const std::string m_url;
    bool m_is_ours = false;  // written in this run
    std::string m_tag;
    std::uint64_t m_left_over = 0;
    std::uint64_t m_size = 0;
    std::unique_ptr<std::FILE, file_closer> m_out;
    std::string m_error;
};

}  // namespace command
