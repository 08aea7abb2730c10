// tessel error NUMBER: the text of an error number of the HTTP service.
#include "command.h"
#include "error_text.h"

#include <fmt/core.h>

#include <cstdint>
#include <cstdio>
#include <memory>

namespace command {

void add_error(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("error", "Show the text of an error number");
    auto number = std::make_shared<std::uint32_t>(0);
    verb.add_option("NUMBER", *number, "as in 12007").required();
    verb.callback([number, &exit_code] {
        const bool known = is_known_error(*number);
        fmt::print(known ? stdout : stderr, "{}\n", describe_error(*number));
        exit_code = known ? exit_ok : exit_failed;
    });
}

}  // namespace command
