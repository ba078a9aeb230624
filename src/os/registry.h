#pragma once
// Registry reads. POSIX has no registry: every key is absent there.

#include <optional>
#include <string>
#include <string_view>

namespace ory {

enum class RegistryRoot { localMachine, currentUser };

// True if KEY opens for reading.
bool registryKeyExists(RegistryRoot ROOT, std::string_view KEY);
// A REG_SZ value as UTF-8, or nothing when the key or value is missing.
std::optional<std::string> readRegistryText(RegistryRoot ROOT, std::string_view KEY, std::string_view VALUE);
// A REG_DWORD value, or nothing.
std::optional<unsigned long> readRegistryNumber(RegistryRoot ROOT, std::string_view KEY,
                                                std::string_view VALUE);

} // namespace ory
