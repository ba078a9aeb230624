#pragma once
// Registry reads. POSIX has no registry: every key is absent there.

#include <optional>
#include <string>
#include <string_view>

namespace ory {

enum class RegistryRoot { localMachine, currentUser };

// True if key opens for reading.
bool registryKeyExists(RegistryRoot root, std::string_view key);
// A REG_SZ value as UTF-8, or nothing when the key or value is missing.
std::optional<std::string> readRegistryText(RegistryRoot root, std::string_view key, std::string_view value);
// A REG_DWORD value, or nothing.
std::optional<unsigned long> readRegistryNumber(RegistryRoot root, std::string_view key,
                                                std::string_view value);

} // namespace ory
