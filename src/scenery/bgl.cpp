#include "scenery/bgl.h"

#include "scenery/generated_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <fstream>
#include <iterator>

namespace ory {

namespace {

// Header and section table: see README.md ("File header", "Section table").
constexpr std::size_t headerSizeWord = 1;
constexpr std::uint32_t headerSize = 0x38;
constexpr std::size_t sectionCountWord = 5;
constexpr std::size_t sectionTableWord = 14;
constexpr std::size_t sectionEntryWords = 5;
constexpr std::size_t subsectionEntryWords = 4;
constexpr std::uint32_t airportSection = 3;
constexpr std::uint32_t wideSubsectionFlag = 0x10000;
constexpr std::uint16_t airportRecord = 0x3C;
constexpr std::uint16_t airportRecordV5 = 0xAB;
constexpr std::size_t identifierWord = 10;

constexpr std::array<std::string_view, 45> skippedFolders = {
    "\\Cities", "\\CITIES", "\\cities", "\\World", "\\BASE", "\\0006", "\\0007", "\\0103",   "\\0106",
    "\\0107",   "\\0206",   "\\0207",   "\\0307",  "\\0407", "\\0505", "\\0506", "\\0507",   "\\0606",
    "\\0607",   "\\0706",   "\\0707",   "\\0805",  "\\0806", "\\0807", "\\0900", "\\0906",   "\\0907",
    "\\1000",   "\\1006",   "\\1007",   "\\1100",  "\\1102", "\\1107", "\\AFRI", "\\ASIA",   "\\AUST",
    "\\EURE",   "\\EURW",   "\\NAMC",   "\\NAME",  "\\NAMW", "\\OCEN", "\\SAME", "\\Global", "\\Bathymetry"};

constexpr std::array<std::string_view, 11> parkingNames = {"",   "r",   "p",  "np",  "ep", "sep",
                                                           "sp", "swp", "wp", "nwp", "g"};

void lf_collectAirports(const BglWords& BGL, std::size_t FIRST, std::size_t END,
                        std::vector<AirportRecordRef>& AIRPORTS) {
  std::size_t index = FIRST;
  while (index < END) {
    const BglRecordHead head = bglRecordHead(BGL, index);
    if (head.id == airportRecord || head.id == airportRecordV5) {
      std::string code = decodeIdentifier(bglWord(BGL, index + identifierWord));
      if (!code.empty())
        AIRPORTS.push_back({index, head.size / 4, head.id == airportRecordV5, std::move(code)});
    }
    if (head.size < 4) return; // a record that doesn't advance ends the walk
    index += head.size / 4;
  }
}

// The records of one sub-section: 16-byte entries of id, record count, byte offset and byte size.
void lf_walkSubsection(const BglWords& BGL, std::size_t ENTRY, std::vector<AirportRecordRef>& AIRPORTS) {
  const std::size_t offset = bglWord(BGL, ENTRY + 2);
  const std::size_t size = bglWord(BGL, ENTRY + 3);
  const std::size_t end = std::min(BGL.words.size(), (offset + size) / 4);
  lf_collectAirports(BGL, offset / 4, end, AIRPORTS);
}

std::uint32_t lf_wordOf(std::string_view BYTES, std::size_t INDEX) {
  std::uint32_t word = 0;
  for (std::size_t k = 0; k < 4; ++k)
    word |= static_cast<std::uint32_t>(static_cast<unsigned char>(BYTES[INDEX * 4 + k])) << (8 * k);
  return word;
}

// Up to COUNT more bytes of the stream; fewer at the end of the file.
std::string lf_readMore(std::ifstream& IN, std::size_t COUNT) {
  std::string bytes(COUNT, '\0');
  IN.read(bytes.data(), static_cast<std::streamsize>(COUNT));
  bytes.resize(static_cast<std::size_t>(IN.gcount()));
  return bytes;
}

} // namespace

BglWords bglFromBytes(std::string_view BYTES) {
  BglWords bgl;
  bgl.words.resize(BYTES.size() / 4);
  for (std::size_t i = 0; i < bgl.words.size(); ++i)
    bgl.words[i] = lf_wordOf(BYTES, i);
  return bgl;
}

bool readBglFile(const std::filesystem::path& PATH, BglWords& BGL) {
  std::ifstream in(PATH, std::ios::binary | std::ios::ate);
  if (!in) return false;
  const std::streamoff size = in.tellg();
  if (size < 0 || !in.seekg(0)) return false;
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (!in.read(bytes.data(), size)) return false;
  BGL = bglFromBytes(bytes);
  return true;
}

std::uint32_t bglWord(const BglWords& BGL, std::size_t INDEX) {
  if (INDEX >= BGL.words.size())
    throw BglRangeError(
        fmt::format("word {} beyond the end, the file has {} words", INDEX, BGL.words.size()));
  return BGL.words[INDEX];
}

float bglFloat(const BglWords& BGL, std::size_t INDEX) {
  return std::bit_cast<float>(bglWord(BGL, INDEX));
}

std::uint8_t bglByte(const BglWords& BGL, std::size_t OFFSET) {
  return static_cast<std::uint8_t>(bglWord(BGL, OFFSET / 4) >> (8 * (OFFSET % 4)));
}

std::uint16_t bglHalf(const BglWords& BGL, std::size_t OFFSET) {
  return static_cast<std::uint16_t>(bglByte(BGL, OFFSET) | (bglByte(BGL, OFFSET + 1) << 8));
}

BglRecordHead bglRecordHead(const BglWords& BGL, std::size_t INDEX) {
  const std::uint32_t first = bglWord(BGL, INDEX);
  const std::uint32_t second = bglWord(BGL, INDEX + 1);
  return {static_cast<std::uint16_t>(first & 0xFFFF), (first >> 16) | ((second & 0xFFFF) << 16)};
}

std::vector<AirportRecordRef> findAirportRecords(const BglWords& BGL, std::string& ERROR_TEXT) {
  std::vector<AirportRecordRef> airports;
  if (BGL.words.size() <= sectionTableWord || BGL.words[headerSizeWord] != headerSize) return airports;
  try {
    const std::uint32_t sections = bglWord(BGL, sectionCountWord);
    for (std::size_t s = 0; s < sections; ++s) {
      const std::size_t entry = sectionTableWord + s * sectionEntryWords;
      if (bglWord(BGL, entry) != airportSection || (bglWord(BGL, entry + 1) & wideSubsectionFlag) != 0)
        continue;
      const std::uint32_t subsections = bglWord(BGL, entry + 2);
      const std::size_t table = bglWord(BGL, entry + 3) / 4;
      for (std::size_t k = 0; k < subsections; ++k)
        lf_walkSubsection(BGL, table + k * subsectionEntryWords, airports);
    }
  } catch (const BglRangeError& error) {
    ERROR_TEXT = error.what();
  }
  return airports;
}

bool hasAirportSection(const std::filesystem::path& PATH) {
  std::ifstream in(PATH, std::ios::binary);
  const std::string header = lf_readMore(in, sectionTableWord * 4);
  if (header.size() < sectionTableWord * 4 || lf_wordOf(header, headerSizeWord) != headerSize) return false;
  // The count may lie: what the file holds of the table is read, and no more than a real file has sections.
  constexpr std::size_t mostSections = 4096;
  const std::size_t sections = std::min<std::size_t>(lf_wordOf(header, sectionCountWord), mostSections);
  const std::string table = lf_readMore(in, sections * sectionEntryWords * 4);
  for (std::size_t s = 0; s < table.size() / (sectionEntryWords * 4); ++s)
    if (lf_wordOf(table, s * sectionEntryWords) == airportSection) return true;
  return false;
}

bool isBgl(const std::filesystem::path& PATH) {
  const std::string extension = PATH.extension().string();
  return extension == ".BGL" || extension == ".bgl";
}

bool isSkippedFolder(std::string_view PATH_TEXT) {
  return std::any_of(skippedFolders.begin(), skippedFolders.end(), [&](std::string_view FOLDER) {
    return PATH_TEXT.find(FOLDER) != std::string_view::npos;
  });
}

std::string decodeIdentifier(std::uint32_t VALUE) {
  std::string text;
  for (std::uint32_t rest = VALUE >> 5; rest != 0; rest /= 38) {
    const std::uint32_t digit = rest % 38;
    if (digit == 0) continue;
    text.insert(text.begin(), static_cast<char>(digit >= 2 && digit <= 11 ? digit + 46 : digit + 53));
  }
  return text;
}

double decodeLatitude(std::uint32_t RAW) {
  return 90.0 - RAW * 3.3527612686157227e-07;
}

double decodeLongitude(std::uint32_t RAW) {
  return RAW * 4.470348358154297e-07 - 180.0;
}

std::string parkingNameText(std::uint32_t CODE) {
  if (CODE < parkingNames.size()) return std::string(parkingNames[CODE]);
  if (CODE == 11) return {};
  return std::string(1, static_cast<char>(CODE + 0x35));
}

void readBgl(const std::filesystem::path& PATH) {
  BglWords bgl;
  if (!readBglFile(PATH, bgl) || bgl.words.size() < 2) return;
  std::string damage;
  for (const AirportRecordRef& airport : findAirportRecords(bgl, damage))
    toParkingPositions(bgl, airport, PATH);
  if (!damage.empty()) throw BglRangeError(damage);
}

} // namespace ory
