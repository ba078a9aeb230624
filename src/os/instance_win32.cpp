#include "os/instance.h"
#include "os/utf.h"

#include <windows.h>

namespace ory {

bool claimSingleInstance(std::string_view rawName) {
  // Never released: the system closes the handle at process end.
  const std::wstring name = utf8ToWide(rawName);
  HANDLE mutex = CreateMutexW(nullptr, FALSE, name.c_str());
  return mutex != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
}

} // namespace ory
