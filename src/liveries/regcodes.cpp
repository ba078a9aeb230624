#include "liveries/regcodes.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/text_files.h"
#include "liveries/livery_table.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

namespace ory {

TextMap<std::string_view> regcodeLiveries;
std::vector<std::string_view> specialLiveries;
TextOrderedSet specialRegcodes;
std::vector<std::string> dontUseTitles;
std::vector<std::string> regcodeReport;

namespace {

namespace fs = std::filesystem;

constexpr std::size_t minDontUseTitle = 9; // bytes; shorter lines are noise
const fs::path offlineRegcodesFile = infoFolder / "OfflineRegcodes.txt";

std::string_view lf_plural(std::size_t count) {
  return count > 1 ? "s" : "";
}

bool lf_isTextFile(const fs::directory_entry& entry) {
  if (!entry.is_regular_file()) return false;
  std::string extension = entry.path().extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return std::toupper(c); });
  return extension == ".TXT";
}

// Regular files of the folder, not of its subfolders, in name order so that later files win alike everywhere.
std::vector<fs::path> lf_folderFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    if (it->is_regular_file()) files.push_back(it->path());
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<fs::path> lf_textFiles(const fs::path& folder) {
  std::vector<fs::path> files = lf_folderFiles(folder);
  std::erase_if(files, [](const fs::path& path) { return !lf_isTextFile(fs::directory_entry(path)); });
  return files;
}

void lf_logDontUseCount(std::size_t before, const fs::path& where) {
  const std::size_t added = dontUseTitles.size() - before;
  if (added > 0)
    logLine(
        fmt::format("{} don't use title{} read from files in {}", added, lf_plural(added), pathText(where)));
}

void lf_addDontUse(std::string_view title, std::set<std::string, std::less<>>& seen, const fs::path& file) {
  if (seen.emplace(title).second)
    dontUseTitles.emplace_back(title);
  else
    logWarning(fmt::format("don't use title \"{}\" not unique in file {}", title, pathText(file)));
}

void lf_readDontUseXml() {
  const std::size_t before = dontUseTitles.size();
  const std::string path = pathText(aigRegcodesFile);
  try {
    pugi::xml_document document;
    if (!document.load_file(aigRegcodesFile.c_str())) {
      logWarning(fmt::format("Failed to load regcode file {}", path));
      return;
    }
    std::set<std::string, std::less<>> seen;
    for (const pugi::xml_node livery : document.child("AIG-regcodes").children("livery"))
      if (std::string_view(livery.attribute("reg").as_string()).empty())
        lf_addDontUse(livery.attribute("title").as_string(), seen, aigRegcodesFile);
  } catch (const std::exception& e) {
    logWarning(fmt::format("Error in reading regcode file {}, what: {}", path, e.what()));
  }
  lf_logDontUseCount(before, aigRegcodesFile);
}

void lf_readDontUseText(const fs::path& file) {
  std::vector<std::string> lines;
  if (!gf_readExtTextFileToStringVector(file, lines)) return;
  std::set<std::string, std::less<>> seen;
  for (const std::string& line : lines) {
    const std::vector<std::string_view> fields = splitFields(line, ';');
    if (fields.size() == 1 && line.size() >= minDontUseTitle)
      lf_addDontUse(line, seen, file);
    else if (fields.size() >= 2 && !seen.emplace(fields[0]).second)
      logWarning(fmt::format("title \"{}\" not unique in file {}", fields[0], pathText(file)));
  }
}

void lf_reportCounts(const fs::path& file, const RegcodeCounts& counts) {
  if (counts.added + counts.replaced == 0) return;
  std::string line =
      fmt::format("{}: {} new regcode{} added", pathText(file), counts.added, lf_plural(counts.added));
  if (counts.replaced > 0)
    line += fmt::format(", {} regcode{} replaced", counts.replaced, lf_plural(counts.replaced));
  if (counts.special > 0)
    line += fmt::format(", {} regcode{} defined as special", counts.special, lf_plural(counts.special));
  regcodeReport.push_back(std::move(line));
}

void lf_bindList(std::string_view regcodes, std::string_view title, bool special, const fs::path& file,
                 RegcodeCounts& counts) {
  const std::string source = pathText(file);
  for (const std::string_view regcode : splitTrimmed(regcodes))
    bindRegcode(regcode, title, special, source, counts);
}

void lf_readAigRegcodes() {
  const std::string path = pathText(aigRegcodesFile);
  regcodeReport.push_back("Processing " + path);
  pugi::xml_document document;
  if (!document.load_file(aigRegcodesFile.c_str())) {
    regcodeReport.push_back(fmt::format("{} Failed to load regcode file {}", warningPrefix, path));
    return;
  }
  RegcodeCounts counts;
  for (const pugi::xml_node livery : document.child("AIG-regcodes").children("livery")) {
    const std::string_view title = installedTitle(livery.attribute("title").as_string());
    if (title.empty()) continue;
    lf_bindList(livery.attribute("reg").as_string(), title,
                isTrueText(livery.attribute("special").as_string()), aigRegcodesFile, counts);
  }
  lf_reportCounts(aigRegcodesFile, counts);
}

// title;reg1,reg2 binds (one regcode alone also makes the title special); title;reg1,reg2;# binds as special.
void lf_readRegcodeLine(const std::string& line, const fs::path& file, RegcodeCounts& counts) {
  const std::vector<std::string_view> fields = splitFields(line, ';');
  if (fields.size() == 1) return; // a don't-use title, read before the scan
  if (fields.size() > 3) {
    regcodeReport.push_back(fmt::format("{}{} wrong format: {}", warningPrefix, pathText(file), line));
    logWarning(fmt::format("{} wrong format: {}", pathText(file), line));
    return;
  }
  if (fields.size() == 3 && fields[2] != "#") return;
  const std::string_view title = installedTitle(fields[0]);
  if (title.empty()) return; // shared files serve every collection: silently skipped
  const bool special = fields.size() == 3 || splitTrimmed(fields[1]).size() == 1;
  lf_bindList(fields[1], title, special, file, counts);
}

void lf_readRegcodeText(const fs::path& file) {
  try {
    std::vector<std::string> lines;
    if (!gf_readExtTextFileToStringVector(file, lines)) return;
    RegcodeCounts counts;
    for (const std::string& line : lines)
      if (!line.empty()) lf_readRegcodeLine(line, file, counts);
    lf_reportCounts(file, counts);
  } catch (const std::exception& e) {
    regcodeReport.push_back(fmt::format("{} Error in reading regcode file {}, what: {}", warningPrefix,
                                        pathText(file), e.what()));
  }
}

} // namespace

void readDontUseTitles() {
  dontUseTitles.clear(); // a second scan in the same process reads the files anew
  if (fs::exists(aigRegcodesFile)) lf_readDontUseXml();
  if (lf_folderFiles(myRegcodesFolder).empty()) return;
  const std::size_t before = dontUseTitles.size();
  for (const fs::path& file : lf_textFiles(myRegcodesFolder))
    lf_readDontUseText(file);
  lf_logDontUseCount(before, myRegcodesFolder);
}

void readRegcodeFiles() {
  regcodeReport.clear();
  if (fs::exists(aigRegcodesFile)) lf_readAigRegcodes();
  if (!lf_folderFiles(myRegcodesFolder).empty()) {
    regcodeReport.push_back("Processing files in " + pathText(myRegcodesFolder));
    for (const fs::path& file : lf_textFiles(myRegcodesFolder))
      lf_readRegcodeText(file);
  }
  std::error_code ignored;
  fs::remove(offlineRegcodesFile, ignored);
  if (!regcodeReport.empty()) {
    std::string text;
    for (const std::string& line : regcodeReport)
      text.append(text.empty() ? "" : "\n").append(line);
    if (writeText(text, offlineRegcodesFile))
      logLine(fmt::format("Offline regcode files processed, results can be found in \"{}\"",
                          pathText(offlineRegcodesFile)));
    else
      logWarning(fmt::format("could not write {}", pathText(offlineRegcodesFile)));
  }
  if (!specialLiveries.empty()) logLine(fmt::format("{} special liveries", specialLiveries.size()));
}

void bindRegcode(std::string_view regcode, std::string_view title, bool special, std::string_view source,
                 RegcodeCounts& counts) {
  if (regcode.empty() || regcode.size() > maxRegcodeLength) {
    regcodeReport.push_back(
        fmt::format("{}wrong regcode length \"{}\" in {}", warningPrefix, regcode, source));
    return;
  }
  const auto [place, added] = regcodeLiveries.try_emplace(std::string(regcode), title);
  if (!added && place->second != title) {
    regcodeReport.push_back(
        fmt::format("   regcode {} for \"{}\", instead of for \"{}\"", regcode, title, place->second));
    place->second = title;
    ++counts.replaced;
  } else {
    ++counts.added;
  }
  if (!special) return;
  specialLiveries.push_back(title);
  specialRegcodes.emplace(regcode);
  ++counts.special;
}

void clearRegcodes() {
  regcodeLiveries.clear();
  specialLiveries.clear();
  specialRegcodes.clear();
  dontUseTitles.clear();
  regcodeReport.clear();
}

} // namespace ory
