#include "liveries/aircraft_cfg.h"

#include "base/log.h"
#include "base/text_files.h"
#include "base/text_hash.h"
#include "liveries/cfg_lines.h"
#include "liveries/dbase.h"
#include "liveries/fixes.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <span>
#include <unordered_set>

namespace ory {

ScanReport invalidAirlinesReport;
ScanReport invalidModelsReport;
ScanReport fixesReport;
ScanReport invalidFilesReport;
ScanReport incompleteSectionsReport;
ScanReport noSectionFilesReport;

namespace {

namespace fs = std::filesystem;

using TextViewSet = std::unordered_set<std::string_view, TextHash, std::equal_to<>>;

std::mutex lf_titlesLock;
TextSet lf_titles;                       // every title given to a record in this scan
TextViewSet lf_dontUse;                  // views of dontUseTitles, complete before the workers start
constexpr std::int32_t noNumber = 10000; // a header whose number can't be read
constexpr std::size_t maxRegcodeBytes = 12;

enum class Form { standard, ivao };

enum class Kind : char { other, folder, file };

// What the sections of one file share.
struct File {
  Form form;
  std::uint32_t folderIndex;
  fs::path path;
  std::string text; // the path for messages
  fs::path folder;
  std::string type;
  std::optional<TextMap<Kind>> listing; // the folder's entries by lower-case name, read on first need
};

struct Keys {
  std::string_view title;
  std::string codes; // blanks around the tokens removed
  std::string types;
  std::string_view atcId;
  std::string_view model;
  std::string_view sim;
  std::string_view texture;
};

std::string lf_lowerAscii(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

fs::path lf_pathOf(std::string_view utf8) {
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

// Win32 drops trailing dots and blanks of a name: "model." is the folder "model", as the simulator finds it.
std::string_view lf_win32Name(std::string_view name) {
  while (!name.empty() && (name.back() == '.' || name.back() == ' '))
    name.remove_suffix(1);
  return name;
}

const TextMap<Kind>& lf_listing(File& file) {
  if (file.listing) return *file.listing;
  file.listing.emplace();
  std::error_code error;
  for (fs::directory_iterator it(file.folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    const Kind kind = it->is_directory(ignored)      ? Kind::folder
                      : it->is_regular_file(ignored) ? Kind::file
                                                     : Kind::other;
    file.listing->emplace(lf_lowerAscii(pathText(it->path().filename())), kind);
  }
  return *file.listing;
}

// Whether name below the file's folder is a folder (or a file), ignoring letter case as Windows does. One
// listing of the folder serves all sections of a file; a name with a path in it asks the file system.
bool lf_exists(File& file, std::string_view rawName, Kind kind) {
  const std::string_view name = lf_win32Name(rawName);
  if (name.find_first_of("\\/") == std::string_view::npos) {
    const TextMap<Kind>& listing = lf_listing(file);
    if (const auto it = listing.find(lf_lowerAscii(name)); it != listing.end()) return it->second == kind;
  }
  std::string relative(name);
  std::replace(relative.begin(), relative.end(), '\\', '/');
  std::error_code error;
  const fs::file_status status = fs::status(file.folder / lf_pathOf(relative), error);
  return kind == Kind::folder ? fs::is_directory(status) : fs::is_regular_file(status);
}

bool lf_isManufacturer(std::string_view code) {
  return std::find(manufacturerCodes.begin(), manufacturerCodes.end(), code) != manufacturerCodes.end();
}

// The program's own codes for generic and private liveries are airlines whatever the database lists.
bool lf_isLiveryAirline(std::string_view code) {
  return code == "ZZZ" || code == "PVT" || isValidAirline(code);
}

// "a , b" -> "a,b"; empty tokens stay, so that they are reported.
std::string lf_withoutBlanks(std::string_view list) {
  std::string joined;
  for (const std::string_view token : splitFields(list, ',')) {
    if (token.data() != list.data()) joined += ',';
    joined += trimBlanks(token);
  }
  return joined;
}

// An add-on's comment behind a path value ("model=long //clean,long") is no part of the name.
std::string_view lf_withoutComment(std::string_view value) {
  return trimBlanks(value.substr(0, value.find("//")));
}

std::string lf_validOrFixedModel(std::string_view code, const std::string& fileText) {
  if (isValidModel(code)) return std::string(code);
  if (const auto fix = modelFixes.find(code); fix != modelFixes.end()) {
    fixesReport.add(fmt::format("Fix: {} found in {} changed into {}", code, fileText, fix->second));
    return fix->second;
  }
  invalidModelsReport.add(fmt::format("{:16} in {}", code, fileText));
  return {};
}

// The number text of a section header; a header whose number can't be read counts as 10000.
std::optional<std::string_view> lf_headerNumber(std::string_view line) {
  if (line.starts_with("//")) return std::nullopt;
  if (const auto digits = fltsimHeaderDigits(line)) return digits;
  if (line.find("[fltsim.") != std::string_view::npos || line.find("[FLTSIM.") != std::string_view::npos)
    return "10000";
  return std::nullopt;
}

enum class Numbers { invalid, none, fine };

// Sections must be numbered 0, 1, 2 ... without gaps, or the simulator reads none of them.
Numbers lf_checkNumbers(const File& file, const std::vector<std::string>& lines) {
  std::vector<std::int32_t> numbers;
  for (const std::string& line : lines) {
    const auto text = lf_headerNumber(line);
    if (!text) continue;
    std::int32_t number = 0;
    const auto [end, status] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (status != std::errc() || end != text->data() + text->size()) {
      const std::string reason = fmt::format("fltsim num {} incorrect", *text);
      logWarning(reason);
      invalidFilesReport.add(file.text + " contains " + reason);
      return Numbers::invalid;
    }
    numbers.push_back(number);
  }
  if (numbers.empty()) {
    noSectionFilesReport.add(file.text);
    return Numbers::none;
  }
  std::sort(numbers.begin(), numbers.end());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (numbers[i] == static_cast<std::int32_t>(i)) continue;
    const std::string reason = numbers[i] == noNumber
                                   ? std::string("a [fltsim.] section without a number")
                                   : fmt::format("non-consecutive [fltsim.x] numbers at .x={}", numbers[i]);
    invalidFilesReport.add(file.text + " contains " + reason);
    return Numbers::invalid;
  }
  return Numbers::fine;
}

// Always false: the section ends.
bool lf_incomplete(const File& file, std::string_view header, std::string_view what) {
  incompleteSectionsReport.add(fmt::format("{} {} {}", file.text, header, what));
  return false;
}

bool lf_secondAtcId(const File& file, std::string_view header) {
  incompleteSectionsReport.add(fmt::format("{}, {}, has more than one atc_id key", file.text, header));
  return false;
}

// The first value of a path key is kept; true when line was one.
bool lf_readPathKey(std::string_view line, Keys& keys) {
  for (const auto& [key, slot] :
       {std::pair{"model", &keys.model}, {"sim", &keys.sim}, {"texture", &keys.texture}})
    if (const auto value = cfgKeyValue(line, key)) {
      if (slot->empty()) *slot = lf_withoutComment(*value);
      return true;
    }
  return false;
}

// False, with a line on the incomplete list, when the section ends on line.
bool lf_readStandardKey(const File& file, std::string_view header, std::string_view line, Keys& keys) {
  if (const auto title = cfgKeyValue(line, "title")) {
    if (!keys.title.empty()) return lf_incomplete(file, header, "has more than one title key");
    keys.title = *title;
    return true;
  }
  if (!keys.codes.empty()) {
    if (line.find("atc_parking_codes") != std::string_view::npos)
      return lf_incomplete(file, header, "has more than one atc_parking_codes key");
  } else if (const auto codes = cfgKeyValue(line, "atc_parking_codes")) {
    keys.codes = lf_withoutBlanks(*codes);
    if (lf_isManufacturer(keys.codes)) keys.codes = "ZZZ";
    return true;
  }
  if (const auto types = cfgKeyValue(line, "atc_parking_types")) {
    if (!keys.types.empty()) return lf_incomplete(file, header, "has more than one atc_parking_types key");
    keys.types = lf_withoutBlanks(*types);
    std::transform(keys.types.begin(), keys.types.end(), keys.types.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return true;
  }
  if (!keys.atcId.empty()) {
    if (line.find("atc_id=") != std::string_view::npos) return lf_secondAtcId(file, header);
  } else if (const auto atcId = cfgKeyValue(line, "atc_id")) {
    keys.atcId = *atcId;
    return true;
  }
  lf_readPathKey(line, keys);
  return true;
}

bool lf_readIvaoKey(const File& file, std::string_view header, std::string_view line, Keys& keys) {
  if (const auto title = cfgKeyValue(line, "title")) {
    if (!keys.title.empty()) return lf_incomplete(file, header, "has more than one title key");
    keys.title = *title;
    return true;
  }
  if (const auto types = cfgKeyValue(line, "atc_parking_types")) {
    if (!keys.types.empty()) return lf_incomplete(file, header, "has more than one atc_parking_types key");
    keys.types = lf_withoutBlanks(*types);
    return true;
  }
  if (!keys.atcId.empty()) {
    if (line.find("atc_id=") != std::string_view::npos) return lf_secondAtcId(file, header);
  } else if (const auto atcId = cfgKeyValue(line, "atc_id")) {
    keys.atcId = *atcId;
    return true;
  }
  lf_readPathKey(line, keys);
  return true;
}

// The model folder, the texture folder and the flight model file must exist, or the simulator can't create
// the livery. The IVAO form tests the flight model before the texture.
bool lf_pathsExist(File& file, std::string_view header, const Keys& keys) {
  struct Need {
    std::string name;
    Kind kind;
  };
  std::array<Need, 3> needs{Need{fmt::format("model.{}", keys.model), Kind::folder},
                            Need{fmt::format("texture.{}", keys.texture), Kind::folder},
                            Need{fmt::format("{}.air", keys.sim), Kind::file}};
  if (file.form == Form::ivao) std::swap(needs[1], needs[2]);
  for (const Need& need : needs)
    if (!lf_exists(file, need.name, need.kind)) {
      incompleteSectionsReport.add(
          fmt::format("{} {} does not exist", pathText(file.folder / lf_pathOf(need.name)), header));
      return false;
    }
  return true;
}

// The section's regcode from atc_id: empty unless there is exactly one sound token.
std::string lf_regcode(const File& file, std::string_view header, const Keys& keys) {
  if (keys.atcId.empty()) return {};
  const bool standard = file.form == Form::standard;
  const std::string_view value = standard ? keys.atcId.substr(0, keys.atcId.find(';')) : keys.atcId;
  if (value.empty()) {
    logLine(fmt::format("invalid atc_id={} ==> in: {}", keys.atcId, header));
    return {};
  }
  const std::vector<std::string_view> tokens = splitFields(value, ',');
  for (const std::string_view token : tokens) {
    if (token.empty()) {
      logLine(standard ? fmt::format("empty regcode in {} {}", file.text, header)
                       : fmt::format(" empty regcode in: {}", file.text));
      return {};
    }
    if (standard && token == " ") {
      logLine(fmt::format("regcode is a space char? {} {}", file.text, header));
      return {};
    }
    if (token.size() > maxRegcodeBytes) {
      logLine(standard ? fmt::format("regcode: {}, has more than 12 chars or contains UTF16 chars in \"{}\"?",
                                     token, file.text)
                       : fmt::format("regcode: {}, has more than 12 chars in title: {}", token, keys.title));
      return {};
    }
    if (token.find('*') != std::string_view::npos) {
      logWarning(fmt::format("{} {} wild cards no longer supported, atc_id skipped ", file.text, header));
      return {};
    }
  }
  if (tokens.size() >= 2) return {}; // two regcodes on one section can't be told apart
  return std::string(trimBlanks(tokens.front()));
}

// What both forms ask of a section's keys before it can give a livery.
bool lf_givesLivery(File& file, std::string_view header, const Keys& keys) {
  if (!lf_pathsExist(file, header, keys)) return false;
  if (keys.title.empty()) {
    lf_incomplete(file, header, "misses title");
    return false;
  }
  return !lf_dontUse.contains(keys.title);
}

void lf_standardSection(File& file, std::string_view header, std::span<const std::string_view> lines,
                        std::vector<LiveryData>& liveries) {
  Keys keys;
  for (const std::string_view line : lines)
    if (!lf_readStandardKey(file, header, line, keys)) return;
  if (!lf_givesLivery(file, header, keys)) return;
  if (keys.codes.empty()) {
    lf_incomplete(file, header, "empty atc_parking_codes=");
    return;
  }
  std::vector<std::string_view> codes = splitFields(keys.codes, ',');
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  std::string regcode = lf_regcode(file, header, keys);
  const bool cargo = keys.title.find("CARGO") != std::string_view::npos;
  bool titleCheck = true; // one section with the codes of three airlines gives three records of one title
  for (const std::string_view code : codes) {
    std::string airline(code);
    if (pvtFixes.contains(airline) || govFixes.contains(airline)) {
      fixesReport.add(fmt::format("Fix: {} found in {} changed into {}", airline, file.text, "PVT"));
      airline = "PVT";
    }
    if (airline.size() == 4 && (airline.back() == 'X' || airline.back() == 'C')) airline.pop_back();
    if (airline.empty() || !lf_isLiveryAirline(airline)) {
      invalidAirlinesReport.add(fmt::format("{:12} in {} {}", airline, file.text, header));
      continue;
    }
    if (airline == "ZZZ") regcode.clear();
    if (titleCheck && !claimTitle(keys.title)) {
      lf_incomplete(file, header, fmt::format("title \"{}\" already exists", keys.title));
      return;
    }
    titleCheck = false;
    liveries.push_back({airline, file.type, std::string(keys.title), regcode, file.folderIndex, cargo});
  }
}

void lf_ivaoSection(File& file, std::string_view header, std::span<const std::string_view> lines,
                    std::vector<LiveryData>& liveries) {
  Keys keys;
  for (const std::string_view line : lines)
    if (!lf_readIvaoKey(file, header, line, keys)) return;
  if (!lf_givesLivery(file, header, keys)) return;
  const auto code = ivaoTitleAirline(keys.title);
  if (!code) {
    lf_incomplete(file, header, "misses airlinecode in title");
    return;
  }
  const std::string airline = lf_isManufacturer(*code) ? std::string("ZZZ") : std::string(*code);
  if (!lf_isLiveryAirline(airline)) {
    invalidAirlinesReport.add(fmt::format("{:12} in {} {}", airline, file.text, header));
    return;
  }
  std::string regcode = lf_regcode(file, header, keys);
  if (airline == "ZZZ") regcode.clear();
  if (!claimTitle(keys.title)) {
    lf_incomplete(file, header, fmt::format("title already exists: {}", keys.title));
    return;
  }
  liveries.push_back({airline, file.type, std::string(keys.title), regcode, file.folderIndex, false});
}

// section starts with its header line.
void lf_procesFltSimSection(File& file, std::vector<std::string_view>& section,
                            std::vector<LiveryData>& liveries) {
  try {
    while (section.size() > 1 && (section.back().empty() || section.back().starts_with("//")))
      section.pop_back();
    const std::span<const std::string_view> lines(section.begin() + 1, section.end());
    if (file.form == Form::standard)
      lf_standardSection(file, section.front(), lines, liveries);
    else
      lf_ivaoSection(file, section.front(), lines, liveries);
  } catch (const std::exception& e) {
    logLine(fmt::format("exception in lf_procesFltSimSection: {}, file: {}", e.what(), file.text));
    throw;
  }
}

// A section runs from its header to the next header or to a line with a '[' among its first six characters.
std::vector<LiveryData> lf_readSections(File& file, const std::vector<std::string>& lines) {
  std::vector<LiveryData> liveries;
  std::vector<std::string_view> section;
  bool inSection = false;
  const auto process = [&] {
    if (!section.empty()) lf_procesFltSimSection(file, section, liveries);
    section.clear();
  };
  for (const std::string& line : lines) {
    if (lf_headerNumber(line)) {
      inSection = true;
      process();
      section.push_back(line);
      continue;
    }
    if (const std::size_t bracket = line.find('['); bracket != std::string::npos && bracket <= 5) {
      if (inSection) process();
      inSection = false;
      continue;
    }
    if (inSection) section.push_back(line);
  }
  process();
  return liveries;
}

std::vector<LiveryData> lf_searchFile(Form form, std::uint32_t folderIndex, const fs::path& path) {
  File file{form, folderIndex, path, pathText(path), path.parent_path(), {}, {}};
  try {
    if (form == Form::ivao) {
      file.type = ivaoFileModel(path);
      if (file.type.empty()) return {};
    }
    std::vector<std::string> lines;
    if (!gf_readExtTextFileToStringVector(path, lines)) {
      logWarning(fmt::format("no character set found for {}", file.text));
      return {};
    }
    if (lf_checkNumbers(file, lines) != Numbers::fine) return {};
    if (form == Form::standard) {
      file.type = standardFileModel(path, lines);
      if (file.type.empty()) return {};
    }
    return lf_readSections(file, lines);
  } catch (const std::exception& e) {
    logLine(fmt::format("exception in lf_searchLiveriesinFile {}: {}", file.text, e.what()));
    throw;
  }
}

} // namespace

void ScanReport::add(std::string line) {
  const std::lock_guard guard(lock);
  entries.push_back(std::move(line));
}

std::vector<std::string> ScanReport::lines() const {
  const std::lock_guard guard(lock);
  return entries;
}

void ScanReport::clear() {
  const std::lock_guard guard(lock);
  entries.clear();
}

void prepareScan() {
  for (ScanReport* report : {&invalidAirlinesReport, &invalidModelsReport, &fixesReport, &invalidFilesReport,
                             &incompleteSectionsReport, &noSectionFilesReport})
    report->clear();
  const std::lock_guard guard(lf_titlesLock);
  lf_titles.clear();
  lf_dontUse = TextViewSet(dontUseTitles.begin(), dontUseTitles.end());
}

bool claimTitle(std::string_view title) {
  const std::lock_guard guard(lf_titlesLock);
  return lf_titles.emplace(title).second;
}

std::string backslashPath(const fs::path& path) {
  std::string text = pathText(path);
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

bool isIvaoPath(std::string_view backslashPath) {
  return backslashPath.find("ivao_x-csl") != std::string_view::npos ||
         backslashPath.find("IVAO_MTL") != std::string_view::npos;
}

std::vector<LiveryData> lf_searchLiveriesinFile(std::uint32_t folderIndex, const fs::path& path) {
  return lf_searchFile(Form::standard, folderIndex, path);
}

std::vector<LiveryData> lf_searchIvaoLiveriesinFile(std::uint32_t folderIndex, const fs::path& path) {
  return lf_searchFile(Form::ivao, folderIndex, path);
}

std::string standardFileModel(const fs::path& path, const std::vector<std::string>& lines) {
  for (const std::string& line : lines)
    if (const auto model = cfgKeyValue(line, "atc_model"))
      return lf_validOrFixedModel(*model, pathText(path));
  invalidFilesReport.add("Line atc_model= is missing in [General] section of " + pathText(path));
  return {};
}

std::string ivaoFileModel(const fs::path& path) {
  const std::string backslashed = backslashPath(path);
  const auto folderType = ivaoFolderType(backslashed);
  if (!folderType) {
    invalidModelsReport.add(fmt::format("{:16} in {}", "  ", pathText(path)));
    return {};
  }
  std::string type(*folderType);
  if (type.ends_with('w') || type == "B744F" || type == "T154M")
    type.pop_back();
  else if (type == "T154B2")
    type.resize(type.size() - 2);
  else if (type == "GLID_SH")
    type.resize(type.size() - 3);
  else if (type == "GLID_A13" || type == "GLID_A25" || type == "GLID_KA6" || type == "GLID_KA8" ||
           type == "GLID_L13")
    type.resize(type.size() - 4);
  return lf_validOrFixedModel(type, pathText(path));
}

} // namespace ory
