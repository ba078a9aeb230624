#include "os/folders.h"

#include <cstdlib>

namespace ory {

namespace {
std::filesystem::path lf_home() {
  const char* home = std::getenv("HOME");
  return home && *home ? std::filesystem::path(home) : std::filesystem::current_path();
}
} // namespace

std::filesystem::path appDataFolder() {
  return lf_home() / "AppData" / "Roaming";
}
std::filesystem::path documentsFolder() {
  return lf_home() / "Documents";
}
std::filesystem::path publicDocumentsFolder() {
  return lf_home() / "Public" / "Documents";
}
std::filesystem::path programDataFolder() {
  return lf_home() / "ProgramData";
}

} // namespace ory
