#pragma once
// dataprep: from plain public sources and the rule files of rules/, the data files the update server serves
// (dbase.xml, AIG-regcodes.xml and their version.json) and those shipped with the program (fixes.xml,
// airports_p3d.xml); and the plain text of a dbase.xml for a person to read.

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// One ICAO aircraft type of the sources.
struct TypeSource {
  std::string name;        // manufacturer and model, e.g. "BOEING 747-400"
  std::string description; // ICAO aircraft description, e.g. "L4J": class, engine count, engine kind
  std::string wake;        // ICAO wake turbulence category: L, M, H or J; may be empty
};

struct AirlineSource {
  std::string name; // the airline's name; may be empty
};

struct AirportSource {
  std::string code;    // ICAO code or other ident of 3 to 4 characters
  std::string iata;    // may be empty
  double lat = 0;      // degrees
  double lon = 0;      // degrees
  double altitude = 0; // feet
};

// One real airframe of a registration list.
struct RegistrationSource {
  std::string regcode; // with its dash, upper case
  std::string type;    // ICAO type code; may be empty
  std::string airline; // owner; may be empty
  std::string opr;     // operator when it differs from the owner; may be empty
  bool cargo = false;
};

// One line of an AIG regcode list: a title with regcodes, or a title not to use (no regcodes).
struct AigSource {
  std::string title;
  std::vector<std::string> regcodes;
  bool special = false;
};

struct Sources {
  std::map<std::string, TypeSource> types;       // by ICAO type code
  std::map<std::string, double> wingspanMeters;  // by ICAO type code, from the FAA characteristics
  std::map<std::string, AirlineSource> airlines; // by ICAO airline code
  std::vector<AirportSource> airports;
  std::vector<RegistrationSource> registrations;
  std::vector<AigSource> aigLiveries;
};

// What the files will hold, all plain; the writers scramble.
struct PreparedData {
  std::set<std::string> types;
  std::map<std::string, std::set<std::string>> categories; // section name ("heavy", ...) to its types
  std::set<std::string> cargoTypes;
  std::vector<std::vector<std::string>> similarGroups;
  std::set<std::string> airlines;
  std::set<std::string> cargoOperators;
  std::vector<std::string> publishers;     // one names text per group
  std::map<std::string, double> wingspans; // meters
  std::vector<RegistrationSource> registrations;
  std::vector<std::pair<std::string, std::string>> modelFixes; // wrong, correct
  std::vector<std::string> pvtFixes;
  std::vector<std::string> govFixes;
  std::vector<AirportSource> airports;
  std::vector<AigSource> aigLiveries;
};

// The category sections of dbase.xml, in the order the rules may name them.
inline constexpr std::string_view categorySections[] = {"rotorcraft", "heavy", "large", "buzjet",
                                                        "high_performance"};

// Everything dataprep found questionable and left out; printed to standard error.
extern std::vector<std::string> prepWarnings;
void prepWarning(std::string text);

// Sources. sources is the folder of the reference data (tar1090-db/, faa_acd/, openflights/, ourairports/).
// Throws std::runtime_error for a source that can't be read at all.
void readTypeSources(const std::filesystem::path& sources, Sources& out);
void readWingspanSources(const std::filesystem::path& sources, Sources& out);
void readAirlineSources(const std::filesystem::path& sources, Sources& out);
void readAirportSources(const std::filesystem::path& sources, const std::filesystem::path& rules,
                        Sources& out);
// A CSV with a header naming at least registration (or reg) and icao_type (or type); airline, operator, cargo
// are optional.
void readRegistrationSource(const std::filesystem::path& file, Sources& out);
// Lines of "title;reg1,reg2", "title;reg1,reg2;#" (special) and "title" alone (don't use).
void readAigSource(const std::filesystem::path& file, Sources& out);

// Applies the rule files of rules to the sources; every entry is checked so that the program reads it.
PreparedData prepareData(const Sources& sources, const std::filesystem::path& rules);

// Writers; each throws std::runtime_error when it can't write.
void writeDbaseXml(const PreparedData& data, const std::filesystem::path& file);
void writeFixesXml(const PreparedData& data, const std::filesystem::path& file);
void writeAirportsXml(const PreparedData& data, const std::filesystem::path& file);
void writeAigRegcodesXml(const PreparedData& data, const std::filesystem::path& file);
void writeVersionJson(int major, int minor, int patch, const std::filesystem::path& file);

// archive.zip of the airports that rules/archive.txt names, from the bgl files in bglFolder, with its two
// documents P3D_archive.txt and P3D_archive.csv in docs.
void writeArchive(const std::filesystem::path& bglFolder, const std::filesystem::path& rules,
                  const std::filesystem::path& zip, const std::filesystem::path& docs);
// A program installer zip: the installer file as its first and only entry.
void writeInstallerZip(const std::filesystem::path& installer, const std::filesystem::path& zip);

// The plain text of a dbase.xml, section by section.
std::string showDbase(const std::filesystem::path& file);

// Text helpers of the sources.
std::vector<std::string> splitCsvLine(std::string_view line);
std::string readWholeFile(const std::filesystem::path& file); // gunzips a file whose name ends in ".gz"
std::vector<std::string> ruleLines(const std::filesystem::path& file); // without comments and blank lines

} // namespace ory
