// Any pattern over any text: the first line is the pattern, the rest the text. No search may take more steps
// than its bound, and what it finds must lie within the text, groups in their order.
#include "regex/pattern.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

using kro::tessel::regex::compile_error;
using kro::tessel::regex::compile_fault;
using kro::tessel::regex::match;
using kro::tessel::regex::pattern;
using kro::tessel::regex::search_result;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool lies_within(std::string_view part, std::string_view whole) {
    return part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t line = input.find('\n');
    const std::string_view text =
        line == std::string_view::npos ? std::string_view() : input.substr(line + 1);
    const std::string_view expression = input.substr(0, line);
    compile_error error;
    const auto compiled = pattern::compile(expression, error);
    require(compiled.has_value() == (error.fault == compile_fault::none));
    if (!compiled) {
        require(error.position <= expression.size());
        return 0;
    }
    match found;
    const search_result result = compiled->search(text, found);
    require(found.steps <= compiled->state_bound(text.size()));
    require((result == search_result::found) == !found.groups.empty());
    for (const auto& group : found.groups) {
        require(!group || lies_within(*group, text));
    }
    return 0;
}
