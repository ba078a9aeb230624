#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "liveries/dbase.h"
#include "os/utf.h"
#include "updates/download.h"
#include "updates/server_paths.h"
#include "updates/updates.h"
#include "updates/zip_file.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <vector>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr std::int32_t progressEvery = 300;                     // files between two progress lines
constexpr std::uint64_t maxAirportFileBytes = 64 * 1024 * 1024; // far above any airport's file

std::array<fs::path, 4> lf_archiveFolders() {
  return {archiveFolder, archiveFolder / stockWord, archiveFolder / orbxWord, archiveFolder / thirdpartyWord};
}

// The parts of a zip entry's name, split at either slash; nothing when the name could reach outside the
// folder it is extracted to: absolute, with a drive letter (or any colon), or climbing with "..".
std::optional<std::vector<std::string>> lf_plainParts(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.front() == '\\' || name.find(':') != std::string_view::npos)
    return std::nullopt;
  std::vector<std::string> parts;
  while (!name.empty()) {
    const auto slash = name.find_first_of("/\\");
    const std::string_view part = name.substr(0, slash);
    name = slash == std::string_view::npos ? std::string_view() : name.substr(slash + 1);
    if (part == "..") return std::nullopt;
    if (!part.empty() && part != ".") parts.emplace_back(part);
  }
  if (parts.empty()) return std::nullopt;
  return parts;
}

fs::path lf_joined(const std::vector<std::string>& parts) {
  fs::path path;
  for (const std::string& part : parts)
    path /= utf8ToPath(part);
  return path;
}

// Where an entry goes below airports; nothing, with a warning, for a name that must not be followed.
std::optional<fs::path> lf_target(const std::string& name) {
  const auto parts = lf_plainParts(name);
  if (!parts) {
    logWarning(fmt::format("archive entry \"{}\" refused: its name leads outside {}", name,
                           airportsFolder.string()));
    return std::nullopt;
  }
  if (name.find(thirdpartyWord) == std::string::npos) return airportsFolder / lf_joined(*parts);
  std::string publisher = findPublisher(name);
  if (publisher == "unknown") logWarning(fmt::format("pub {} not found", name));
  const auto publisherParts = lf_plainParts(publisher);
  if (!publisherParts || publisherParts->size() != 1) {
    logWarning(fmt::format("publisher \"{}\" is no folder name, {} goes to unknown", publisher, name));
    publisher = "unknown";
  }
  return archiveFolder / thirdpartyWord / utf8ToPath(publisher) / utf8ToPath(parts->back());
}

// Every airport file of the zip into its place; the number of files written.
std::int32_t lf_extract(const ZipArchive& archive, const fs::path& zipPath) {
  const std::vector<std::string> names = zipEntryNames(archive);
  std::int32_t count = 0;
  for (std::size_t index = 0; index < names.size(); ++index) {
    const std::string& name = names[index];
    if (!name.ends_with(".xml")) continue;
    const std::optional<fs::path> target = lf_target(name);
    if (!target) continue;
    std::error_code error;
    fs::create_directories(target->parent_path(), error);
    if (const int code = extractZipEntry(archive, index, *target, maxAirportFileBytes); code != 0) {
      logWarning(fmt::format("archive entry \"{}\" not extracted: {}", name, zipErrorText(code)));
      continue;
    }
    if (++count % progressEvery == 0)
      showMessage(fmt::format("Extracting {} ...  {} files", zipPath.string(), count), false);
  }
  return count;
}

} // namespace

bool archiveFoldersMissing() {
  for (const fs::path& folder : lf_archiveFolders())
    if (!fs::is_directory(folder)) return true;
  return false;
}

bool checkArchive(std::string_view server) {
  const Version offered = fetchVersion(serverUrl(server, archiveVersionPath));
  if (offered == Version{}) {
    logWarning("No archive version info found at the Trovalyn server?");
    return false;
  }
  const Version installed = versionOrZero(ARCHIVE_VERSION.value);
  if (!(offered > installed) && installed.major != 0 && !archiveFoldersMissing()) return false;
  const std::string version = versionText(offered);
  showMessage(fmt::format("Downloading archive files version {} ...", version), true);
  if (downloadFile(serverUrl(server, archivePayloadPath), archiveZipFile, isZipFile) !=
      DownloadOutcome::done) {
    showMessage(fmt::format("Downloading archive files version {} failed", version), true);
    return false;
  }
  if (!fs::is_directory(airportsFolder)) fs::create_directory(airportsFolder);
  for (const fs::path& folder : lf_archiveFolders())
    if (!fs::is_directory(folder)) fs::create_directory(folder);
  std::string whyNot;
  ZipArchive archive = openZip(archiveZipFile, whyNot);
  if (!archive) {
    logLine(fmt::format("coud not open {} ({})", archiveZipFile.string(), whyNot));
    removeIfThere(archiveZipFile);
    return false;
  }
  const std::int32_t count = lf_extract(archive, archiveZipFile);
  archive.reset();
  showMessage(fmt::format("{} extracted {} files", archiveZipFile.string(), count), true);
  removeIfThere(archiveZipFile);
  ARCHIVE_VERSION.value = version;
  storeText(ARCHIVE_VERSION);
  showMessage(fmt::format("Archive has been updated to version {}", version), true);
  downloadArchiveDocs(server);
  return true;
}

void downloadArchiveDocs(std::string_view server) {
  for (std::string_view name : archiveDocs) {
    const DownloadOutcome outcome =
        downloadFile(serverUrl(server, docsPath, name), docsFolder / name, anyFile);
    if (outcome == DownloadOutcome::done)
      logLine(fmt::format("{} downloaded", name));
    else
      logFailedDownload(outcome, name);
  }
}

} // namespace ory
