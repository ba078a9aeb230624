#pragma once
// The liveries folders the simulator itself knows: add-on packages listed in add-ons.cfg (whose add-on.xml
// names their SimObjects folders), and the entries of simobjects.cfg that are not the simulator's own.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// A path as written in the simulator's configuration, for this platform (backslashes become separators).
std::filesystem::path configPath(std::string_view text);

// %APPDATA%\Lockheed Martin\Prepar3D v{version}\add-ons.cfg: the SimObjects folders of its packages.
std::vector<std::filesystem::path> addOnPackageFolders(std::int32_t version);
// ProgramData\Lockheed Martin\Prepar3D v{version}\simobjects.cfg: its add-on entries, relative ones below
// installPath.
std::vector<std::filesystem::path> simObjectsCfgFolders(std::int32_t version, std::string_view installPath);

} // namespace ory
