#include "os/folders.h"

#include <windows.h>

#include <shlobj.h>

namespace ory {

namespace {
std::filesystem::path lf_knownFolder(int csidl) {
  wchar_t buffer[MAX_PATH]{};
  if (SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, buffer) != S_OK) return {};
  return std::filesystem::path(buffer);
}
} // namespace

std::filesystem::path appDataFolder() {
  return lf_knownFolder(CSIDL_APPDATA);
}
std::filesystem::path documentsFolder() {
  return lf_knownFolder(CSIDL_PERSONAL);
}
std::filesystem::path publicDocumentsFolder() {
  return lf_knownFolder(CSIDL_COMMON_DOCUMENTS);
}
std::filesystem::path programDataFolder() {
  return lf_knownFolder(CSIDL_COMMON_APPDATA);
}

} // namespace ory
