// Answers, before the XML parser sees them: in UTF-8, and nothing in them that costs it without bounds.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kro::tessel::os {

// What is refused. The parser compares each attribute of a tag with each other, looks for each prefix through
// all namespaces that are declared around it, and takes some 200 bytes a node.
inline constexpr std::size_t k_max_answer_bytes = std::size_t{64} << 20U;
inline constexpr std::size_t k_max_answer_depth = 250;                    // its own limit is 256
inline constexpr std::size_t k_max_answer_nodes = std::size_t{1} << 21U;  // elements and attributes
inline constexpr std::size_t k_max_answer_attributes = 256;               // of one element
inline constexpr std::size_t k_max_open_attributes = 1024;                // of all elements that are open

struct screened_answer {
    std::string bytes;     ///< UTF-8 where `encoding` says so, else as they came; without a byte order mark
    std::string encoding;  ///< what they are in; lower case
    bool needs_no_telling = false;  ///< the parser finds the encoding by itself, and is faster then
};

/// Screens an answer.
/// charset: what the transport says; counts where the document doesn't say it by a mark or its declaration.
/// Throws:  soap_error{k_soap_failure} for a document with a DOCTYPE, in an encoding other than UTF-8, UTF-16
///          and the usual 8-bit and East Asian ones, or beyond a limit. What isn't well-formed may pass.
screened_answer screen_answer(std::string bytes, std::string_view charset);

}  // namespace kro::tessel::os
