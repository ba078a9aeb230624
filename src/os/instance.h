#pragma once
// The single-instance guard: a named mutex on Windows, a locked file on POSIX.

#include <string_view>

namespace ory {

// True if this process is the only holder of name; the claim lasts until the process ends.
bool claimSingleInstance(std::string_view name);

} // namespace ory
