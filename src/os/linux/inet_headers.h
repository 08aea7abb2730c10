// Header lists: the ones a caller adds to a request, and those of a response.
#pragma once

#include "os/linux/inet_text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

struct header_field {
    std::string name;
    std::string value;
};

/// The headers that a caller has added to a request.
class header_list {
public:
    /// Adds lines of "Name: value", divided by CR, LF or both. Each replaces the first one of its name
    /// and goes to the end; a line without a value only removes. Lines without a colon are skipped.
    void merge(wide_view lines);
    void remove(std::string_view name);
    /// The value, or null.
    const std::string* find(std::string_view name) const noexcept;

    auto begin() const noexcept { return m_fields.begin(); }
    auto end() const noexcept { return m_fields.end(); }

private:
    std::vector<header_field> m_fields;
};

/// The head of a message: its first line and its headers, as received.
class message_head {
public:
    message_head() = default;
    explicit message_head(std::string block);

    bool empty() const noexcept { return m_block.empty(); }
    std::size_t bytes() const noexcept { return m_block.size(); }
    std::string_view first_line() const noexcept;
    std::uint32_t status() const noexcept { return m_status; }  ///< 0 for none
    std::string_view version() const noexcept;                  ///< "HTTP/1.1"
    std::string_view reason() const noexcept;                   ///< "Not Found"

    /// The value of the header `name` (without case), number `index` of several; nothing when absent.
    std::optional<std::string_view> find(std::string_view name, std::uint32_t index = 0) const noexcept;
    /// Whether a comma-separated header has the token (without case).
    bool has_token(std::string_view name, std::string_view token) const noexcept;
    std::optional<std::uint64_t> content_length() const noexcept;

    /// All lines, each with `separator` behind it, and one more at the end.
    std::string joined(std::string_view separator) const;

private:
    template <class Visitor>
    void each_line(Visitor&& visit) const;

    std::string m_block;
    std::uint32_t m_status = 0;
};

/// The whole of `text` as a decimal number; nothing when it is anything else or above `limit`.
std::optional<std::uint64_t> whole_number(std::string_view text, std::uint64_t limit) noexcept;

}  // namespace kro::tessel::os
