#pragma once
// Downloads from the update server over HTTP(S) with libcurl. A download goes to a file beside its target and
// takes the target's place only when the transfer is complete and the file passes its check, so a cut
// connection or an error page never replaces a good file.

#include "base/version.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace ory {

// The update server's base address, a setting of the build (ORY_UPDATE_SERVER), without a trailing slash.
extern const std::string_view updateServer;

enum class DownloadOutcome {
  done,
  failed,    // no transfer, or an incomplete one, or an HTTP error status
  refused,   // complete, but the file did not pass its check
  notPlaced, // complete and checked, but it could not take the target's place
};

// True when the downloaded file at path may be used.
using FileCheck = bool (*)(const std::filesystem::path& path);
bool anyFile(const std::filesystem::path& path);
bool isXmlDocument(const std::filesystem::path& path); // parses, and has an element

// GETs url into target; on any outcome but done the target is as it was and nothing is left beside it.
DownloadOutcome downloadFile(const std::string& url, const std::filesystem::path& target, FileCheck check);
// "writing {name} failed?" for a file that could not take its place, else "downloading {name} failed?".
void logFailedDownload(DownloadOutcome outcome, std::string_view name);
// Removes a working file; one that is not there, or can't go, is no fault.
void removeIfThere(const std::filesystem::path& path);
// The version in the version.json at url; zero, with a warning, on any failure.
Version fetchVersion(const std::string& url);

} // namespace ory
