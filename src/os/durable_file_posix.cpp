#include "os/durable_file.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace ory {

namespace {

bool lf_sync(const std::filesystem::path& PATH, int FLAGS) {
  const int handle = ::open(PATH.c_str(), FLAGS);
  if (handle < 0) return false;
  const bool synced = ::fsync(handle) == 0;
  return ::close(handle) == 0 && synced;
}

} // namespace

bool replaceFileDurably(const std::filesystem::path& FROM, const std::filesystem::path& TO) {
  if (!lf_sync(FROM, O_RDONLY) || std::rename(FROM.c_str(), TO.c_str()) != 0) return false;
  // The new name lives in the folder: without its sync a power cut may bring back the old name.
  const std::filesystem::path folder = TO.parent_path().empty() ? "." : TO.parent_path();
  lf_sync(folder, O_RDONLY | O_DIRECTORY);
  return true;
}

} // namespace ory
