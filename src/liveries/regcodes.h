#pragma once
// Regcodes bind liveries to real airframes: a title tied to a registration is worn by that aircraft, and a
// special title by no other. The bindings come, in rising weight, from the in-line atc_id of aircraft.cfg,
// input\regcodesAIG\AIG-regcodes.xml and the user's text files in input\my_regcodes; the files also name
// titles that must not be used at all. All reading runs on the start-up thread; read-only afterwards.

#include "base/text_hash.h"
#include "liveries/dbase.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

extern TextMap<std::string_view> regcodeLiveries;     // regcode to a title of the livery table
extern std::vector<std::string_view> specialLiveries; // titles reserved for their regcodes, once per regcode
extern TextOrderedSet specialRegcodes;                // all regcodes of special liveries
extern std::vector<std::string> dontUseTitles;        // titles the scan must skip
extern std::vector<std::string> regcodeReport;        // lines of output\info\OfflineRegcodes.txt

inline constexpr std::size_t maxRegcodeLength = 12; // bytes

// Counts of one regcode file.
struct RegcodeCounts {
  std::int32_t added = 0;
  std::int32_t replaced = 0;
  std::int32_t special = 0;
};

// The don't-use titles of AIG-regcodes.xml (when it exists) and of the text files (when the folder has any).
void readDontUseTitles();
// Binds the regcodes of both file kinds to installed titles; needs the livery table and the in-line regcodes.
void readRegcodeFiles();
// Binds regcode to title (a view into the livery table); a later binding replaces an earlier one. source
// names the file for the report.
void bindRegcode(std::string_view regcode, std::string_view title, bool special, std::string_view source,
                 RegcodeCounts& counts);
void clearRegcodes();

} // namespace ory
