// A document to feed the XML parser with, piece by piece, each written where the parser reads it.
#pragma once

#include "tessel/base/string.h"

#include <cstddef>
#include <memory>
#include <string_view>

namespace kro::tessel::xml {

class document_source {
public:
    virtual ~document_source() = default;

    /// The room that the next piece needs, in bytes.
    /// waiting: how many bytes the parser holds back until it sees the end of what they begin.
    virtual std::size_t room(std::size_t waiting) const = 0;

    /// Writes the next piece. room: what the last call of room() gave.
    /// Returns: its bytes.
    virtual std::size_t fill(char* out, std::size_t room) = 0;

    /// Whether the last piece has been written; it may be an empty one.
    virtual bool at_end() const = 0;
};

/// Bytes in memory, which must stay there.
std::unique_ptr<document_source> source_of_bytes(std::string_view bytes);

/// UTF-16 text up to its first zero, as UTF-8.
std::unique_ptr<document_source> source_of_text(CTString text);

/// The bytes of a file, read as they are needed; null when it can't be opened.
/// path: zero-terminated, may be null.
std::unique_ptr<document_source> source_of_file(const wchar* path);

}  // namespace kro::tessel::xml
