#include "updates/download.h"

#include "base/log.h"
#include "base/paths.h"
#include "os/durable_file.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <pugixml.hpp>

#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace ory {

const std::string_view updateServer = ORY_UPDATE_SERVER;

namespace {

namespace fs = std::filesystem;

constexpr long connectSeconds = 15;
// A transfer slower than one byte a second for this long counts as cut.
constexpr long stalledSeconds = 60;
constexpr long maxRedirects = 5;

struct CurlCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlHandle = std::unique_ptr<CURL, CurlCleanup>;

CurlHandle lf_newHandle() {
  static std::once_flag initialised;
  std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  return CurlHandle(curl_easy_init());
}

std::size_t lf_write(char* data, std::size_t size, std::size_t count, void* out) {
  auto& stream = *static_cast<std::ofstream*>(out);
  stream.write(data, static_cast<std::streamsize>(size * count));
  return stream ? size * count : 0;
}

// The libcurl defaults stay, TLS peer checks among them; what is added keeps a dead server from holding the
// start-up and an error page from passing as the file.
void lf_setOptions(CURL* handle, const std::string& url, std::ofstream& out, char* errorText) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, lf_write);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &out);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText);
  curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectSeconds);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, stalledSeconds);
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle, CURLOPT_MAXREDIRS, maxRedirects);
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
}

// The transfer into part; false, with a log line, when it did not complete.
bool lf_transfer(const std::string& url, const fs::path& part, const fs::path& target) {
  const CurlHandle handle = lf_newHandle();
  if (!handle) return false;
  std::ofstream out(part, std::ios::binary | std::ios::trunc);
  if (!out) {
    logLine(fmt::format("could not open file: {}", part.string()));
    return false;
  }
  char errorText[CURL_ERROR_SIZE] = {};
  lf_setOptions(handle.get(), url, out, errorText);
  const CURLcode code = curl_easy_perform(handle.get());
  out.close();
  if (code == CURLE_OK && out) return true;
  const std::string why = errorText[0] != '\0' ? errorText : curl_easy_strerror(code);
  logLine(fmt::format("\"{}\" => \"{}\" download error: {}", url, target.string(),
                      code == CURLE_OK ? "the file could not be written" : why));
  return false;
}

} // namespace

void logFailedDownload(DownloadOutcome outcome, std::string_view name) {
  if (outcome == DownloadOutcome::notPlaced)
    logLine(fmt::format("writing {} failed?", name));
  else
    logLine(fmt::format("downloading {} failed?", name));
}

void removeIfThere(const fs::path& path) {
  std::error_code ignored;
  fs::remove(path, ignored);
}

bool anyFile(const fs::path& /*path*/) {
  return true;
}

bool isXmlDocument(const fs::path& path) {
  pugi::xml_document document;
  return document.load_file(path.c_str()) &&
         document.find_child([](pugi::xml_node node) { return node.type() == pugi::node_element; });
}

DownloadOutcome downloadFile(const std::string& url, const fs::path& target, FileCheck check) {
  fs::path part = target;
  part += ".part";
  std::error_code error;
  if (target.has_parent_path()) fs::create_directories(target.parent_path(), error);
  if (!lf_transfer(url, part, target)) {
    removeIfThere(part);
    return DownloadOutcome::failed;
  }
  if (!check(part)) {
    logWarning(fmt::format("\"{}\" => \"{}\" is not a valid file, left out", url, target.string()));
    removeIfThere(part);
    return DownloadOutcome::refused;
  }
  if (!replaceFileDurably(part, target)) {
    removeIfThere(part);
    return DownloadOutcome::notPlaced;
  }
  return DownloadOutcome::done;
}

Version fetchVersion(const std::string& url) {
  // One version.json in the working folder: the button "Check version" may ask while the start-up does.
  static std::mutex workingFileLock;
  const std::lock_guard hold(workingFileLock);
  if (downloadFile(url, versionJsonFile, anyFile) != DownloadOutcome::done) {
    logWarning(fmt::format("downloading \"{}\" failed", url));
    return {};
  }
  std::ifstream in(versionJsonFile, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  in.close();
  removeIfThere(versionJsonFile);
  const auto first = text.find_first_not_of(" \t\r\n");
  const auto last = text.find_last_not_of(" \t\r\n");
  text = first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
  try {
    if (text.empty()) throw std::invalid_argument("the file is empty");
    return parseVersion(text);
  } catch (const std::exception& error) {
    logWarning(fmt::format("\"{}\" holds no version: {}", url, error.what()));
    return {};
  }
}

} // namespace ory
