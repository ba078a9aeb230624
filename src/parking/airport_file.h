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

// The file the parking reads for code: a link or file of the user's third party or ORBX airports, else the
// archived stock file; empty when there is none.
std::filesystem::path findAirportFile(std::string_view code);
// One of the five places holds something for code, a link counting as such.
bool airportHasFile(std::string_view code);
// The learned file that belongs to an archived or generated file; any other path stays as it is.
std::filesystem::path learnedPathFor(const std::filesystem::path& path);

// Reads the file of parkAirportCode with its learned file on top, numbers the stands and finds their
// overlaps. Empty on success, else the text to log. A doubled stand id (94) and a missing altitude (65) throw
// UserErrorException; every other failure is the returned text.
std::string gf_readApf(const std::filesystem::path& path, std::string& name, std::vector<Stand>& stands,
                       QualityFactors& quality);
// True if the airport file of code has a parkpos with this id; false also when it can't be read.
bool gf_readApfForGateCheck(std::string_view code, std::string_view standId);

// The parkpos elements of a full file, appended to stands. Throws UserErrorException 94 for a doubled id.
void readParkPositions(const pugi::xml_document& document, std::vector<Stand>& stands);
// Merges a learned file into stands, or replaces them by a handmade one, and applies its parking parameters.
// archivedName is the airport's name in the file underneath. Never throws: what was read stands.
void readLearned(const std::filesystem::path& path, std::string_view archivedName,
                 std::vector<Stand>& stands);
// A learned parkpos on top of its archived stand: changed radius and cargo, and the options not yet there.
void mergeLearnedStand(Stand& stand, const pugi::xml_node& parkpos);
// Every pair of stands whose circles overlap, with 10% of their distance to spare, are each other's
// neighbours.
void findOverlaps(std::vector<Stand>& stands);

// "3,4,47" as bits; an error is logged and keeps the bits read before it.
HalfHours hours2bitset(std::string_view text);

QualityFactors computeQualityFactors(const std::vector<Stand>& stands);
std::string formatQualityFactors(const QualityFactors& quality); // "87/12", "87", or two blanks

// Writes a generated file, or with learnedMode a learned file of the current park airport; true on success.
// The file is written beside its place and then moved there, so a failure never damages the old one.
bool writeAirportFile(const AirportFile& record, const std::filesystem::path& path, bool learnedMode);
// The aircraft written with their airline and type, unknown to the database: "regcode airline type".
std::vector<std::string> unlistedAircraft();

// Saves what was learned at the park airport into its learned file.
void saveLearnedFile();
// Saves if anything changed, and ends the parking session.
void closeParkAirport();

// One parameter of a file, for the scan; 0, empty or false when the file can't be read.
std::int32_t readStandCount(const std::filesystem::path& path); // num_parkpos
std::string readPublisher(const std::filesystem::path& path);
bool hasQualityFactors(const std::filesystem::path& path); // Qf_real or Qf_soft is 0 or above

} // namespace ory
