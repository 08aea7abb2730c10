// What the library and its proxy helper say to each other: lines of printable ASCII over a stream socket.
//
//   helper   ready                once, first; or
//            cannot REASON        it evaluates nothing on this machine
//   library  ask SCRIPT URL       the script's URL and that of the server, without blanks
//   helper   answer RESULT        what the script returned; or
//            failed REASON        one of the two for each "ask"
//
// There is one question at a time, so answers need no number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kro::tessel::os::proxy_helper_protocol {

inline constexpr std::string_view k_ready = "ready";
inline constexpr std::string_view k_cannot = "cannot ";
inline constexpr std::string_view k_ask = "ask ";
inline constexpr std::string_view k_answer = "answer ";
inline constexpr std::string_view k_failed = "failed ";

/// Of a line, its end included. Whoever sends a longer one isn't listened to any more.
inline constexpr std::size_t k_longest_line = 8192;
/// Of a result or a reason.
inline constexpr std::size_t k_longest_text = 2000;

/// Texts of scripts and servers, made fit to stand at the end of a line.
inline std::string printable(std::string_view text) {
    std::string result(text.substr(0, k_longest_text));
    for (char& c : result) {
        const auto byte = static_cast<unsigned char>(c);
        c = byte < ' ' ? ' ' : byte > '~' ? '?' : c;
    }
    return result;
}

inline bool starts_with(std::string_view line, std::string_view word) {
    return line.substr(0, word.size()) == word;
}

}  // namespace kro::tessel::os::proxy_helper_protocol
