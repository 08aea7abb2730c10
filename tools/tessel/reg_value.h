// Values of the registry, as people and programs read and write them.
#pragma once

#include <tessel/tessel.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace command {

struct reg_value {
    unsigned long type = REG_NONE;
    std::vector<unsigned char> data;
};

/// The value of that name; 0, or the status that says why not.
long read_reg_value(const kro::tessel::registry::reg_key& key, const kro::tessel::wide_string& name,
                    reg_value& value);

/// Whether the registry works at all: 0, or the number that says why it doesn't, told at a root.
long registry_status(HKEY root);

/// "REG_SZ"; the number of a type that has no name.
std::string reg_type_name(unsigned long type);

/// Text, a number, a list of texts, or hexadecimal digits where the type or the size asks for no other form.
nlohmann::ordered_json reg_data(const reg_value& value);

/// The same for a person: a line for each text of a list, nothing quoted.
std::string reg_data_text(const reg_value& value);

/// What `--type` names: sz, expand_sz, dword, qword, binary.
const std::vector<std::string>& reg_type_options();

/// The value that a person wrote; none when it isn't one of that type.
std::optional<reg_value> parse_reg_value(const std::string& type, const std::string& text);

}  // namespace command
