#pragma once
// The liveries tests' world: an aircraft database and fixes file written as the update server serves them,
// aircraft.cfg files written section by section, and a generator of whole SimObjects trees of a realistic
// shape, with the faults that real collections have.

#include "liveries/dbase.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ory::test {

struct DbaseAirframe {
  std::string reg;
  std::string airl;
  std::string type;
  std::string opr;
  bool cargo = false;
};

// Plain codes; written scrambled to input\dbase.xml.
struct DbaseContent {
  std::vector<std::string> light; // valid models of no other category
  std::vector<std::string> buzjets;
  std::vector<std::string> large;
  std::vector<std::string> heavy;
  std::vector<std::string> highPerf;
  std::vector<std::string> rotorcraft;
  std::vector<std::string> airlines;
  std::vector<std::vector<std::string>> similar;
  std::vector<DbaseAirframe> airframes;
  std::vector<std::string> publishers; // one "names" list each, as "FlyTampa, Fly Tampa"
};

struct FixesContent {
  std::vector<std::pair<std::string, std::string>> models; // wrong, correct
  std::vector<std::string> pvt;
  std::vector<std::string> gov;
};

// The airlines, types and look-alikes of the generated trees.
DbaseContent worldDbase();
// Writes input\dbase.xml and input\fixes.xml and reads them as the start-up does.
void installDatabase(const DbaseContent& dbase, const FixesContent& fixes = {});
void clearDatabase();

// One [fltsim.x] section; an empty value leaves its key out.
struct CfgSection {
  std::string title;
  std::string codes; // atc_parking_codes
  std::string atcId;
  std::string model;   // model=, also empty
  std::string texture; // texture=, also empty
  std::string sim = "aircraft";
  std::vector<std::string> extraLines;
  std::string header; // empty: "[fltsim.N]" in order
};

// How the text of a file is written: UTF-8 with or without its mark, UTF-16 little endian with its mark, or
// in Windows-1252 (the ANSI code page of western Windows), as editors and add-on makers save it.
enum class CfgEncoding { utf8, utf8Bom, utf16, ansi };

struct CfgFile {
  std::string atcModel; // empty leaves the line out
  std::vector<CfgSection> sections;
  CfgEncoding encoding = CfgEncoding::utf8;
  bool makeFolders = true; // the model and texture folders and the .air file of every section
};

CfgSection section(std::string title, std::string codes, std::string atcId = {});

// Writes path and, with makeFolders, what its sections need beside it.
void writeCfg(const std::filesystem::path& path, const CfgFile& file);

struct TreeShape {
  std::size_t files = 500;
  std::uint32_t seed = 1;
  bool faults = true; // about one file in eight has a fault
};

// What a generated tree must give.
struct TreeFacts {
  std::size_t files = 0;
  std::size_t bytes = 0;
  std::set<std::string> goodTitles; // every title the scan must find
  std::size_t invalidFiles = 0;     // missing atc_model, numbering gaps
  std::size_t missingFolders = 0;   // sections whose texture folder is missing
  std::size_t doubleTitles = 0;     // sections that repeat a title of another file
  std::size_t invalidAirlines = 0;  // sections with an unknown airline code
  std::size_t utf16Files = 0;
  std::map<std::string, std::string> faultyFiles; // path text to its fault: "atc_model", "gap", "texture",
                                                  // "title", "airline"
};

// A SimObjects tree below root: packages of one type each, aircraft.cfg or sim.cfg, several airlines per
// file.
TreeFacts generateSimObjects(const std::filesystem::path& root, const TreeShape& shape);

} // namespace ory::test
