#include "os/instance.h"

#include <cctype>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace ory {

bool claimSingleInstance(std::string_view name) {
  // The lock lives below HOME, so that tests with their own HOME don't meet each other.
  std::string fileName;
  for (char c : name)
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') fileName += c;
  const char* home = std::getenv("HOME");
  const std::string path = std::string(home && *home ? home : "/tmp") + "/." + fileName + ".lock";
  // The descriptor stays open for the life of the process; the kernel drops the lock at exit.
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    close(fd);
    return false;
  }
  return true;
}

} // namespace ory
