#pragma once
// Airport files: the XML description of one airport's stands with their statistics. Archived files come with
// the archive, generated files from the scenery scan, learned files hold what this program learned on top of
// either. The document has no common root: "meta", "parameters" and "parkpositions" stand side by side.

#include "parking/stands.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace pugi {
class xml_document;
class xml_node;
} // namespace pugi

namespace ory {

// The file the parking reads for CODE: a link or file of the user's third party or ORBX airports, else the
// archived stock file; empty when there is none.
std::filesystem::path findAirportFile(std::string_view CODE);
// One of the five places holds something for CODE, a link counting as such.
bool airportHasFile(std::string_view CODE);
// The learned file that belongs to an archived or generated file; any other path stays as it is.
std::filesystem::path learnedPathFor(const std::filesystem::path& PATH);

// Reads the file of parkAirportCode with its learned file on top, numbers the stands and finds their
// overlaps. Empty on success, else the text to log. A doubled stand id (94) and a missing altitude (65) throw
// UserErrorException; every other failure is the returned text.
std::string gf_readApf(const std::filesystem::path& PATH, std::string& NAME, std::vector<Stand>& STANDS,
                       QualityFactors& QUALITY);
// True if the airport file of CODE has a parkpos with this id; false also when it can't be read.
bool gf_readApfForGateCheck(std::string_view CODE, std::string_view STAND_ID);

// The parkpos elements of a full file, appended to STANDS. Throws UserErrorException 94 for a doubled id.
void readParkPositions(const pugi::xml_document& DOCUMENT, std::vector<Stand>& STANDS);
// Merges a learned file into STANDS, or replaces them by a handmade one, and applies its parking parameters.
// ARCHIVED_NAME is the airport's name in the file underneath. Never throws: what was read stands.
void readLearned(const std::filesystem::path& PATH, std::string_view ARCHIVED_NAME,
                 std::vector<Stand>& STANDS);
// A learned parkpos on top of its archived stand: changed radius and cargo, and the options not yet there.
void mergeLearnedStand(Stand& STAND, const pugi::xml_node& PARKPOS);
// Every pair of stands whose circles overlap, with 10% of their distance to spare, are each other's
// neighbours.
void findOverlaps(std::vector<Stand>& STANDS);

// "3,4,47" as bits; an error is logged and keeps the bits read before it.
HalfHours hours2bitset(std::string_view TEXT);

QualityFactors computeQualityFactors(const std::vector<Stand>& STANDS);
std::string formatQualityFactors(const QualityFactors& QUALITY); // "87/12", "87", or two blanks

// Writes a generated file, or with LEARNED_MODE a learned file of the current park airport; true on success.
// The file is written beside its place and then moved there, so a failure never damages the old one.
bool writeAirportFile(const AirportFile& RECORD, const std::filesystem::path& PATH, bool LEARNED_MODE);
// The aircraft written with their airline and type, unknown to the database: "regcode airline type".
std::vector<std::string> unlistedAircraft();

// Saves what was learned at the park airport into its learned file.
void saveLearnedFile();
// Saves if anything changed, and ends the parking session.
void closeParkAirport();

// One parameter of a file, for the scan; 0, empty or false when the file can't be read.
std::int32_t readStandCount(const std::filesystem::path& PATH); // num_parkpos
std::string readPublisher(const std::filesystem::path& PATH);
bool hasQualityFactors(const std::filesystem::path& PATH); // Qf_real or Qf_soft is 0 or above

} // namespace ory
