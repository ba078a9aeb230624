#pragma once
// Compiled scenery files (bgl) of FSX and Prepar3D, read only for their airports, parking positions and
// helipads. README.md in this folder tells which records are decoded and where the layout comes from.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// A whole file as little-endian 32-bit words; word n is bytes 4n to 4n+3. All reads go through the checked
// accessors below, which throw BglRangeError beyond the end.
struct BglWords {
  std::vector<std::uint32_t> words;
};

class BglRangeError : public std::out_of_range {
public:
  using std::out_of_range::out_of_range;
};

BglWords bglFromBytes(std::string_view bytes);                      // a trailing part word is dropped
bool readBglFile(const std::filesystem::path& path, BglWords& bgl); // false when unreadable

std::uint32_t bglWord(const BglWords& bgl, std::size_t index);
float bglFloat(const BglWords& bgl, std::size_t index);
std::uint8_t bglByte(const BglWords& bgl, std::size_t offset);  // offset in bytes
std::uint16_t bglHalf(const BglWords& bgl, std::size_t offset); // offset in bytes, little endian

// The head shared by records and sub-records: id in the low half of the first word, size in bytes in the high
// half of the first and the low half of the second.
struct BglRecordHead {
  std::uint16_t id = 0;
  std::uint32_t size = 0; // bytes, including the head
};
BglRecordHead bglRecordHead(const BglWords& bgl, std::size_t index);

// An airport record (0x3C, or 0xAB from Prepar3D v5 on) whose identifier could be decoded.
struct AirportRecordRef {
  std::size_t start = 0;       // word index of the record's head
  std::size_t sizeInWords = 0; // the record's size, whole words
  bool newForm = false;        // record 0xAB
  std::string code;            // ICAO identifier
};

// Every airport record of the file's airport sections, in file order. A damaged part of the file ends the
// walk: the airports found before it are returned with the text of the damage in errorText.
std::vector<AirportRecordRef> findAirportRecords(const BglWords& bgl, std::string& errorText);

// Reads only the header and the section table: true when the file has an airport section.
bool hasAirportSection(const std::filesystem::path& path);
// The extension is exactly ".bgl" or ".bgl".
bool isBgl(const std::filesystem::path& path);
// The folder holds stock scenery without airports of interest (World, regional base folders, ...). pathText
// is written with backslashes.
bool isSkippedFolder(std::string_view pathText);

// Airport identifiers and region codes: base-38 digits above the low 5 bits; empty when nothing decodes.
std::string decodeIdentifier(std::uint32_t value);
double decodeLatitude(std::uint32_t raw);  // degrees
double decodeLongitude(std::uint32_t raw); // degrees
// The name code of a taxi parking as the text in front of its number: "g" for a gate, "A" for GATE_A.
std::string parkingNameText(std::uint32_t code);

// Reads one file and hands every airport to the generated-file step. A damaged file costs its own airports:
// those found before the damage are handed over, then BglRangeError tells of it.
void readBgl(const std::filesystem::path& path);

} // namespace ory
