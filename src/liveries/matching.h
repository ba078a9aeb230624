#pragma once
// Which installed livery a real aircraft wears. A ladder of searches, from the livery registered for the
// aircraft's own regcode down to a generic one of a similar type; MATCHING_DEPTH sets how far down it may go.
// The tables are built once per process after the liveries step and hold views into the livery table, which
// outlives every aircraft. All matching runs on the main loop's thread, so the tables that change during a
// run (hexid, refusals, counts, no-matches) need no lock.

#include "base/text_hash.h"
#include "liveries/dbase.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ory {

using TitleViews = std::vector<std::string_view>; // titles of the livery table
using TypeTitles = TextMap<TitleViews>;           // type to its titles
using TypeList = std::vector<std::string>;

// What the matcher reads of an aircraft, and what it sets.
struct MatchAircraft {
  std::string airline;     // three-letter code, "PVT", or empty
  std::string type;        // ICAO type code
  std::string regcode;     // registration; may be empty
  std::string callsign;    // for the messages to the user
  std::string text;        // how the aircraft appears in the log
  std::uint32_t hexid = 0; // above 10000 for a real aircraft
  ModelCategory category = ModelCategory::Light;
  bool cargo = false;           // flies for a cargo operator
  bool quiet = false;           // no "=c=" line (a renewal)
  std::string_view liveryTitle; // the match, a view into the livery table; empty for none
  bool fsltlLivery = false;     // the title holds "FSLTL_"
};

extern std::array<TextMap<TypeTitles>, 2> airlineLiveries; // [0] passenger, [1] cargo: airline to its types
extern std::array<TypeTitles, 2> modelLiveries;            // [0] passenger, [1] cargo: every airline's titles
extern TextMap<TextMap<TypeList>> similarByAirline; // airline: for a type it lacks, the similar ones it has
extern TextMap<TypeList> similarInstalled;          // type to the other members of its group with a livery
extern TextMap<TypeList> similarAll;                // type to the other members of its group
extern TypeList lightModels;                        // types with a livery, sorted, per small category
extern TypeList buzjetModels;
extern TypeList rotorcraftModels;
// The list of a small category (Light, Buzjets, Rotorcraft), null for the others.
TypeList* smallModels(ModelCategory category);

extern std::unordered_map<std::uint32_t, std::string_view>
    hexidLiveries;                               // the livery once chosen for a hexid
extern TitleViews failedLiveries;                // titles the simulator refused; never given again
extern std::vector<std::string> failedAircraft;  // "type airline" of each refusal, for the summary
extern std::array<std::uint32_t, 6> matchCounts; // live matches per ladder step 1 to 6
extern TextOrderedSet noMatchKeys;               // "{:3} {:4}" of airline and type, and a regcode when known

inline constexpr std::size_t maxFailedLiveries = 20; // refusals that end the run

// Gives aircraft a livery; true when liveryTitle is set afterwards. A title once chosen for a hexid stays.
bool matchLiveAircraft(MatchAircraft& aircraft);
// The same for a statically parked aircraft on the stand standName: from the ladder's second step on the
// stand's cargo flag decides; no hexid memory, no counts.
bool matchParkedAircraft(MatchAircraft& aircraft, std::string_view standName, bool cargoStand);
// The simulator refused aircraft's livery. Throws UserErrorException 81 at the twentieth refused title.
void reportNotCreated(const MatchAircraft& aircraft);

// "{:3} {:4}": the key that stops later searches for this airline and type.
std::string noMatchKey(std::string_view airline, std::string_view type);
// After a failed search: the key, with the regcode behind it when there is one (then it blocks nothing).
void addNoMatch(const MatchAircraft& aircraft);
bool isNoMatch(std::string_view airline, std::string_view type);
void writeNoMatchList();
// Main loop, every 30th second: after a raised MATCHING_DEPTH (clearNoMatchPending) the list is written and
// emptied.
void serveNoMatchClear();

// The look-alike tables, once the livery tables are complete.
void buildSimilarTables();
// Takes the special titles of the regcode files for the pick; after the regcode files are read.
void indexSpecialLiveries();
void writeMatchingSummary();
// Empties every table of this file: before a second build in one process (tests).
void clearMatching();

} // namespace ory
