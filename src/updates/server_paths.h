#pragma once
// Where the update server keeps each item, below its base address.

#include "base/version.h"

#include <string>
#include <string_view>

namespace ory {

inline constexpr std::string_view programVersionPath = "/downloads/release/version_P3D.json";
inline constexpr std::string_view releasePath = "/downloads/release/"; // + the installer's name
inline constexpr std::string_view regcodesVersionPath = "/downloads/aig/version.json";
inline constexpr std::string_view regcodesPayloadPath = "/downloads/aig/AIG-regcodes.xml";
inline constexpr std::string_view dbaseVersionPath = "/downloads/dbase/version.json";
inline constexpr std::string_view dbasePayloadPath = "/downloads/dbase/dbase.xml";
inline constexpr std::string_view archiveVersionPath = "/downloads/archive/p3d/version.json";
inline constexpr std::string_view archivePayloadPath = "/downloads/archive/p3d/archive.zip";
inline constexpr std::string_view docsPath = "/downloads/docs/"; // + a document's name
inline constexpr std::string_view archiveDocs[] = {"P3D_archive.txt", "P3D_archive.csv"};

// The address of a path on the server, with a file name for the folders above.
std::string serverUrl(std::string_view server, std::string_view path, std::string_view name = {});
// The program installer's name below releasePath: "setup_Trovalyn_P3D_v1.2.3.zip".
std::string installerName(const Version& version);

} // namespace ory
