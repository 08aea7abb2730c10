// Where the store lies, and how its file comes to be.
#pragma once

#include <string>

namespace kro::tessel::os {

/// The file that TESSEL_REGISTRY names, else tessel/registry.db in XDG_DATA_HOME, else in .local/share of the
/// user's home. Empty when the user has no home.
std::string registry_file_name();

/// Whether there is a file. Throws registry_failure for what is there but is no file (5), or can't be looked
/// at.
bool registry_file_exists(const std::string& name);

/// Makes an empty file that only the user can read, and the folders that are missing above it; leaves one
/// that is there already alone. Throws registry_failure.
void make_registry_file(const std::string& name);

}  // namespace kro::tessel::os
