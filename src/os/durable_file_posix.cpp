#include "os/durable_file.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace ory {

namespace {

bool lf_sync(const std::filesystem::path& path, int flags) {
  const int handle = ::open(path.c_str(), flags);
  if (handle < 0) return false;
  const bool synced = ::fsync(handle) == 0;
  return ::close(handle) == 0 && synced;
}

} // namespace

bool replaceFileDurably(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (!lf_sync(from, O_RDONLY) || std::rename(from.c_str(), to.c_str()) != 0) return false;
  // The new name lives in the folder: without its sync a power cut may bring back the old name.
  const std::filesystem::path folder = to.parent_path().empty() ? "." : to.parent_path();
  lf_sync(folder, O_RDONLY | O_DIRECTORY);
  return true;
}

} // namespace ory
