#include "os/durable_file.h"

#include <windows.h>

namespace ory {

namespace {

bool lf_sync(const std::filesystem::path& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  const bool synced = FlushFileBuffers(file) != 0;
  return CloseHandle(file) != 0 && synced;
}

} // namespace

bool replaceFileDurably(const std::filesystem::path& from, const std::filesystem::path& to) {
  return lf_sync(from) &&
         MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

} // namespace ory
