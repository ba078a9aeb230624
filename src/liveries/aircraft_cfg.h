#pragma once
// The reader of one aircraft.cfg or sim.cfg: every [fltsim.x] section becomes a livery record, or a line in
// the reports of the scan. Scan workers run it on many files at once, so it shares only the report lists and
// the title set, each behind a mutex of its own; the database and fix tables it reads are complete before a
// scan starts.

#include "liveries/livery_data.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// Lines appended by the workers, written to a file when the scan is over.
struct ScanReport {
  void add(std::string line);
  std::vector<std::string> lines() const; // a copy, in the order of arrival
  void clear();

private:
  mutable std::mutex lock;
  std::vector<std::string> entries;
};

extern ScanReport invalidAirlinesReport;    // codes that are no airline, with file and section
extern ScanReport invalidModelsReport;      // type codes that are no model, with file
extern ScanReport fixesReport;              // codes repaired by the fixes and the operator lists
extern ScanReport invalidFilesReport;       // files none of whose sections was read
extern ScanReport incompleteSectionsReport; // sections that gave no livery
extern ScanReport noSectionFilesReport;     // files without any [fltsim.x] section

// Before the workers start: empties the reports and the set of titles seen, and takes the don't-use titles.
void prepareScan();
// Enters title in the set shared by the whole scan; false when it was there already.
bool claimTitle(std::string_view title);

// Codes of aircraft makers: their house colours count as generic liveries, airline "ZZZ".
inline constexpr std::array<std::string_view, 5> manufacturerCodes{"BOE", "AIB", "EMB", "BBA", "AED"};

// The path as text with backslashes, as the simulator writes it: the tests on the text of a path use it, so
// both builds decide alike.
std::string backslashPath(const std::filesystem::path& path);
// Files of IVAO's model set, whose airline lies in the title and whose type in the folder name.
bool isIvaoPath(std::string_view backslashPath);

// The liveries of one file, standard form: airline from atc_parking_codes, type from atc_model. folderIndex
// is the scanned folder's number, stored in each record. Standard exceptions are logged and passed on.
std::vector<LiveryData> lf_searchLiveriesinFile(std::uint32_t folderIndex, const std::filesystem::path& path);
// The IVAO form: airline from the title, type from the folder name.
std::vector<LiveryData> lf_searchIvaoLiveriesinFile(std::uint32_t folderIndex,
                                                    const std::filesystem::path& path);

// The type of a whole file from its first atc_model value, repaired by the fixes; empty when there is none.
std::string standardFileModel(const std::filesystem::path& path, const std::vector<std::string>& lines);
// The type of an IVAO file from its folder name; empty when there is none.
std::string ivaoFileModel(const std::filesystem::path& path);

} // namespace ory
