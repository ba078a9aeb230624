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

void lf_collectAirports(const BglWords& bgl, std::size_t first, std::size_t end,
                        std::vector<AirportRecordRef>& airports) {
  std::size_t index = first;
  while (index < end) {
    const BglRecordHead head = bglRecordHead(bgl, index);
    if (head.id == airportRecord || head.id == airportRecordV5) {
      std::string code = decodeIdentifier(bglWord(bgl, index + identifierWord));
      if (!code.empty())
        airports.push_back({index, head.size / 4, head.id == airportRecordV5, std::move(code)});
    }
    if (head.size < 4) return; // a record that doesn't advance ends the walk
    index += head.size / 4;
  }
}

// The records of one sub-section: 16-byte entries of id, record count, byte offset and byte size.
void lf_walkSubsection(const BglWords& bgl, std::size_t entry, std::vector<AirportRecordRef>& airports) {
  const std::size_t offset = bglWord(bgl, entry + 2);
  const std::size_t size = bglWord(bgl, entry + 3);
  const std::size_t end = std::min(bgl.words.size(), (offset + size) / 4);
  lf_collectAirports(bgl, offset / 4, end, airports);
}

std::uint32_t lf_wordOf(std::string_view bytes, std::size_t index) {
  std::uint32_t word = 0;
  for (std::size_t k = 0; k < 4; ++k)
    word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[index * 4 + k])) << (8 * k);
  return word;
}

// Up to count more bytes of the stream; fewer at the end of the file.
std::string lf_readMore(std::ifstream& in, std::size_t count) {
  std::string bytes(count, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

} // namespace

BglWords bglFromBytes(std::string_view bytes) {
  BglWords bgl;
  bgl.words.resize(bytes.size() / 4);
  for (std::size_t i = 0; i < bgl.words.size(); ++i)
    bgl.words[i] = lf_wordOf(bytes, i);
  return bgl;
}

bool readBglFile(const std::filesystem::path& path, BglWords& bgl) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return false;
  const std::streamoff size = in.tellg();
  if (size < 0 || !in.seekg(0)) return false;
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (!in.read(bytes.data(), size)) return false;
  bgl = bglFromBytes(bytes);
  return true;
}

std::uint32_t bglWord(const BglWords& bgl, std::size_t index) {
  if (index >= bgl.words.size())
    throw BglRangeError(
        fmt::format("word {} beyond the end, the file has {} words", index, bgl.words.size()));
  return bgl.words[index];
}

float bglFloat(const BglWords& bgl, std::size_t index) {
  return std::bit_cast<float>(bglWord(bgl, index));
}

std::uint8_t bglByte(const BglWords& bgl, std::size_t offset) {
  return static_cast<std::uint8_t>(bglWord(bgl, offset / 4) >> (8 * (offset % 4)));
}

std::uint16_t bglHalf(const BglWords& bgl, std::size_t offset) {
  return static_cast<std::uint16_t>(bglByte(bgl, offset) | (bglByte(bgl, offset + 1) << 8));
}

BglRecordHead bglRecordHead(const BglWords& bgl, std::size_t index) {
  const std::uint32_t first = bglWord(bgl, index);
  const std::uint32_t second = bglWord(bgl, index + 1);
  return {static_cast<std::uint16_t>(first & 0xFFFF), (first >> 16) | ((second & 0xFFFF) << 16)};
}

std::vector<AirportRecordRef> findAirportRecords(const BglWords& bgl, std::string& errorText) {
  std::vector<AirportRecordRef> airports;
  if (bgl.words.size() <= sectionTableWord || bgl.words[headerSizeWord] != headerSize) return airports;
  try {
    const std::uint32_t sections = bglWord(bgl, sectionCountWord);
    for (std::size_t s = 0; s < sections; ++s) {
      const std::size_t entry = sectionTableWord + s * sectionEntryWords;
      if (bglWord(bgl, entry) != airportSection || (bglWord(bgl, entry + 1) & wideSubsectionFlag) != 0)
        continue;
      const std::uint32_t subsections = bglWord(bgl, entry + 2);
      const std::size_t table = bglWord(bgl, entry + 3) / 4;
      for (std::size_t k = 0; k < subsections; ++k)
        lf_walkSubsection(bgl, table + k * subsectionEntryWords, airports);
    }
  } catch (const BglRangeError& error) {
    errorText = error.what();
  }
  return airports;
}

bool hasAirportSection(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
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

bool isBgl(const std::filesystem::path& path) {
  const std::string extension = path.extension().string();
  return extension == ".BGL" || extension == ".bgl";
}

bool isSkippedFolder(std::string_view pathText) {
  return std::any_of(skippedFolders.begin(), skippedFolders.end(), [&](std::string_view folder) {
    return pathText.find(folder) != std::string_view::npos;
  });
}

std::string decodeIdentifier(std::uint32_t value) {
  std::string text;
  for (std::uint32_t rest = value >> 5; rest != 0; rest /= 38) {
    const std::uint32_t digit = rest % 38;
    if (digit == 0) continue;
    text.insert(text.begin(), static_cast<char>(digit >= 2 && digit <= 11 ? digit + 46 : digit + 53));
  }
  return text;
}

double decodeLatitude(std::uint32_t raw) {
  return 90.0 - raw * 3.3527612686157227e-07;
}

double decodeLongitude(std::uint32_t raw) {
  return raw * 4.470348358154297e-07 - 180.0;
}

std::string parkingNameText(std::uint32_t code) {
  if (code < parkingNames.size()) return std::string(parkingNames[code]);
  if (code == 11) return {};
  return std::string(1, static_cast<char>(code + 0x35));
}

void readBgl(const std::filesystem::path& path) {
  BglWords bgl;
  if (!readBglFile(path, bgl) || bgl.words.size() < 2) return;
  std::string damage;
  for (const AirportRecordRef& airport : findAirportRecords(bgl, damage))
    toParkingPositions(bgl, airport, path);
  if (!damage.empty()) throw BglRangeError(damage);
}

} // namespace ory
