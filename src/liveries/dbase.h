#pragma once
// The aircraft database, input\dbase.xml: valid model and airline codes, the size class of each model, groups
// of look-alike models, wingspans, what is known of real airframes by their registration, and the names of
// scenery publishers. Read once on the start-up thread; read-only afterwards, so no lock.

#include "base/text_hash.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// The aircraft database's own category names.
// NOLINTBEGIN(readability-identifier-naming)
enum class ModelCategory : std::int32_t {
  Light = 0, // everything not listed elsewhere
  Buzjets = 1,
  Large = 2,
  Heavy = 3,
  HighPerf = 4,
  Rotorcraft = 5,
};
// NOLINTEND(readability-identifier-naming)
inline constexpr std::size_t modelCategoryCount = 6;
std::string_view modelCategoryName(ModelCategory category); // "Light" ... "Rotorcraft"

// One real airframe, keyed by its regcode. All texts plain.
struct DbaseRecord {
  std::string airl;   // ICAO code of the owner airline; may be empty
  std::string type;   // ICAO type code; may be empty
  std::string opr;    // ICAO code of the operating airline when it differs from airl; may be empty
  bool cargo = false; // the airframe flies freight
};

using TextOrderedSet = std::set<std::string, std::less<>>;

extern TextOrderedSet aircraftTypes; // every valid ICAO type code
extern TextOrderedSet highPerfTypes;
extern TextOrderedSet heavyTypes;
extern TextOrderedSet largeTypes;
extern TextOrderedSet buzjetTypes;
extern TextOrderedSet rotorcraftTypes;
extern TextOrderedSet cargoTypes;                           // pure freighter models
extern std::vector<std::vector<std::string>> similarGroups; // look-alike models, each group sorted
extern TextOrderedSet icaoAirlines;                         // every valid ICAO airline code
extern TextOrderedSet cargoOperators;                       // airlines that fly cargo
extern std::vector<std::vector<std::string>>
    publisherGroups; // names of one publisher, the display name first
extern std::map<std::string, double, std::less<>> wingspanTable; // model to half wingspan, nm
extern double maxHalfWingspan;                                   // nm, 0 before reading
extern std::array<double, modelCategoryCount>
    categoryAverageHalfWingspan;          // nm, NaN for a category without spans
extern TextMap<DbaseRecord> dbaseRecords; // regcode to airframe

// Reads input\dbase.xml into the tables above; true after a complete read. Throws UserErrorException 60 (file
// not loaded) or 61 (a required section without tokens), SysErrorException 288/299 (wingspans/publishers),
// and std::runtime_error for an airline token of a length other than 3 or 6.
bool readDbase();
void clearDbase(); // empties every table
// A file readDbase would not refuse for a missing section: what a download must be before it replaces
// input\dbase.xml.
bool isDbaseFile(const std::filesystem::path& path);

bool isValidModel(std::string_view model);
bool isValidAirline(std::string_view airline);
ModelCategory
modelCategory(std::string_view model); // first hit of large, heavy, buzjet, rotorcraft, high perf
// Half wingspan in nm: the model's own, else its category's average, which may be NaN.
double halfWingspan(std::string_view model);

// The record of a regcode; "PHBXA" also finds "PH-BXA" and "D-AIRN" is found from "DAIRN".
std::optional<DbaseRecord> lookupDbaseRecord(std::string_view regcode);
std::string lookupDbaseOpr(std::string_view regcode);  // empty without a record
std::string lookupDbaseAirl(std::string_view regcode); // empty without a record
std::string lookupDbaseType(std::string_view regcode); // empty without a record
bool hasDbaseRecord(std::string_view regcode);

// The display name of the first publisher group with a name found in text (a file name), else "unknown".
std::string findPublisher(std::string_view text);
// name used as a regular expression, ignoring case, found anywhere in text.
bool publisherNameMatches(std::string_view name, std::string_view text);

} // namespace ory
