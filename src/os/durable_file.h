#pragma once
// Replacing a file so that a crash, a power cut or a full disk leaves either the old or the new file whole.

#include <filesystem>

namespace ory {

// Forces the written file FROM to the disk, then puts it in the place of TO in one step. False (FROM kept)
// when either fails.
bool replaceFileDurably(const std::filesystem::path& FROM, const std::filesystem::path& TO);

} // namespace ory
