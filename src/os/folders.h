#pragma once
// Known folders of the user. On POSIX they map below $HOME, so a test isolates itself with its own HOME.

#include <filesystem>

namespace ory {

std::filesystem::path appDataFolder();         // %APPDATA%; POSIX: $HOME/AppData/Roaming
std::filesystem::path documentsFolder();       // the user's documents; POSIX: $HOME/Documents
std::filesystem::path publicDocumentsFolder(); // the public documents; POSIX: $HOME/Public/Documents
std::filesystem::path programDataFolder();     // ProgramData; POSIX: $HOME/ProgramData

} // namespace ory
