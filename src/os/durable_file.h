#pragma once
// Replacing a file so that a crash, a power cut or a full disk leaves either the old or the new file whole.

#include <filesystem>

namespace ory {

// Forces the written file from to the disk, then puts it in the place of to in one step. False (from kept)
// when either fails.
bool replaceFileDurably(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace ory
