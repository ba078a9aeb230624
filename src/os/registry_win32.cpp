#include "os/registry.h"
#include "os/utf.h"

#include <windows.h>

namespace ory {

namespace {
HKEY lf_root(RegistryRoot root) {
  return root == RegistryRoot::localMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}
} // namespace

bool registryKeyExists(RegistryRoot root, std::string_view rawKey) {
  HKEY key{};
  if (RegOpenKeyExW(lf_root(root), utf8ToWide(rawKey).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
    return false;
  RegCloseKey(key);
  return true;
}

std::optional<std::string> readRegistryText(RegistryRoot root, std::string_view rawKey,
                                            std::string_view rawValue) {
  const std::wstring key = utf8ToWide(rawKey);
  const std::wstring value = utf8ToWide(rawValue);
  DWORD bytes = 0;
  if (RegGetValueW(lf_root(root), key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr, nullptr, &bytes) !=
      ERROR_SUCCESS)
    return {};
  std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
  if (RegGetValueW(lf_root(root), key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &bytes) !=
      ERROR_SUCCESS)
    return {};
  text.resize(wcslen(text.c_str()));
  return wideToUtf8(text);
}

std::optional<unsigned long> readRegistryNumber(RegistryRoot root, std::string_view key,
                                                std::string_view value) {
  DWORD number = 0;
  DWORD bytes = sizeof(number);
  if (RegGetValueW(lf_root(root), utf8ToWide(key).c_str(), utf8ToWide(value).c_str(), RRF_RT_REG_DWORD,
                   nullptr, &number, &bytes) != ERROR_SUCCESS)
    return {};
  return number;
}

} // namespace ory
