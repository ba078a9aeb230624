#include "os/registry.h"

namespace ory {

bool registryKeyExists(RegistryRoot, std::string_view) {
  return false;
}
std::optional<std::string> readRegistryText(RegistryRoot, std::string_view, std::string_view) {
  return {};
}
std::optional<unsigned long> readRegistryNumber(RegistryRoot, std::string_view, std::string_view) {
  return {};
}

} // namespace ory
