#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/version.h"
#include "updates/download.h"
#include "updates/server_paths.h"
#include "updates/updates.h"
#include "updates/zip_file.h"

#include <fmt/format.h>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t maxInstallerBytes = 1024ull * 1024 * 1024;

// The installer's first entry becomes install_new_version.exe.
bool lf_unpack(const fs::path& zipPath, const fs::path& exe) {
  std::string whyNot;
  const ZipArchive archive = openZip(zipPath, whyNot);
  if (!archive) {
    logLine(fmt::format("could not open {} ({})", zipPath.string(), whyNot));
    return false;
  }
  const int code =
      zipEntryNames(archive).empty() ? zipNoEntry : extractZipEntry(archive, 0, exe, maxInstallerBytes);
  if (code != 0) {
    logLine(fmt::format("extracting error code : {} ({})", code, zipErrorText(code)));
    return false;
  }
  logLine(fmt::format("{} extracted to {}", zipPath.string(), exe.string()));
  return true;
}

bool lf_fetchAndUnpack(std::string_view server, const Version& offered, const fs::path& installPath,
                       const fs::path& exe) {
  // An old installer goes first, so that the file found after a failure is never a stale one.
  std::error_code error;
  fs::remove(exe, error);
  if (error) {
    logLine(fmt::format("could not remove {}: {}", exe.string(), error.message()));
    return false;
  }
  const std::string name = installerName(offered);
  const fs::path zipPath = installPath / name;
  if (downloadFile(serverUrl(server, releasePath, name), zipPath, isZipFile) != DownloadOutcome::done) {
    showMessage(fmt::format("Downloading program installer file version {} failed", versionText(offered)),
                true);
    return false;
  }
  logLine(fmt::format("downloaded {}", name));
  const bool unpacked = lf_unpack(zipPath, exe);
  removeIfThere(zipPath);
  return unpacked;
}

} // namespace

std::string installerName(const Version& version) {
  return fmt::format("setup_{}_v{}.zip", programName, versionText(version));
}

void checkProgram(std::string_view server, const fs::path& installPath) {
  const Version offered = fetchVersion(serverUrl(server, programVersionPath));
  if (offered == Version{}) {
    logWarning("Program Version file not found?");
    return;
  }
  if (!(offered > parseVersion(programVersion))) return;
  const fs::path exe = fs::absolute(installPath / installNewVersionFile);
  if (!lf_fetchAndUnpack(server, offered, installPath, exe)) {
    showMessage("download/extract of the new version failed? Try manually via my website", true);
    return;
  }
  throw UserErrorException(
      99, fmt::format("New version {} available. Exit here, and run as administrator:   \"{}\"",
                      versionText(offered), exe.string()));
}

} // namespace ory
