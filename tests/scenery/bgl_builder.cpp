#include "bgl_builder.h"

#include <bit>
#include <cmath>

namespace ory::test {

namespace {

using Words = std::vector<std::uint32_t>;

std::uint32_t lf_head(std::uint16_t id, std::uint32_t size) {
  return id | (size << 16);
}

std::uint32_t lf_rawLat(double lat) {
  return static_cast<std::uint32_t>(std::lround((90.0 - lat) / 3.3527612686157227e-07));
}
std::uint32_t lf_rawLon(double lon) {
  return static_cast<std::uint32_t>(std::lround((lon + 180.0) / 4.470348358154297e-07));
}

void lf_appendRecord(Words& out, std::uint16_t id, Words body) {
  const auto size = static_cast<std::uint32_t>((body.size() + 2) * 4);
  out.push_back(lf_head(id, size));
  out.push_back(size >> 16);
  out.insert(out.end(), body.begin(), body.end());
}

Words lf_name(const std::string& name) {
  const std::size_t size = (6 + name.size() + 3) / 4 * 4;
  std::string bytes(size, '\0');
  const auto head = lf_head(0x19, static_cast<std::uint32_t>(size));
  for (int k = 0; k < 4; ++k)
    bytes[k] = static_cast<char>(head >> (8 * k));
  bytes.replace(6, name.size(), name);
  Words words(size / 4);
  for (std::size_t i = 0; i < words.size(); ++i)
    for (int k = 0; k < 4; ++k)
      words[i] |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i * 4 + k])) << (8 * k);
  return words;
}

Words lf_helipad(const HelipadSpec& pad) {
  Words body{0xFFFFFF,
             lf_rawLon(pad.lon),
             lf_rawLat(pad.lat),
             0,
             std::bit_cast<std::uint32_t>(pad.width),
             std::bit_cast<std::uint32_t>(pad.width),
             std::bit_cast<std::uint32_t>(pad.heading)};
  Words words;
  lf_appendRecord(words, 0x26, body);
  return words;
}

Words lf_parkingList(const std::vector<ParkingSpec>& parkings, bool newForm) {
  Words body;
  for (const ParkingSpec& p : parkings) {
    body.push_back(p.nameCode | (p.type << 8) | (p.number << 12) | (p.airlineCodes << 24));
    body.push_back(std::bit_cast<std::uint32_t>(p.radius));
    body.push_back(std::bit_cast<std::uint32_t>(p.heading));
    body.insert(body.end(), 4, 0);
    body.push_back(lf_rawLon(p.lon));
    body.push_back(lf_rawLat(p.lat));
    body.insert(body.end(), p.airlineCodes + (newForm ? 1 : 0), 0x4C4D4B); // "KLM"
  }
  Words words;
  lf_appendRecord(words, newForm ? 0xAD : 0x3D, body);
  words[1] |= static_cast<std::uint32_t>(parkings.size()) << 16;
  return words;
}

Words lf_airport(const AirportSpec& airport) {
  Words body(airport.newForm ? 13 : 12, 0); // the fixed part after the two head words
  body[3] = static_cast<std::uint32_t>(airport.altitudeMm);
  body[8] = encodeIdentifier(airport.code);
  for (const std::string& name : airport.names) {
    const Words sub = lf_name(name);
    body.insert(body.end(), sub.begin(), sub.end());
  }
  for (const HelipadSpec& pad : airport.helipads) {
    const Words sub = lf_helipad(pad);
    body.insert(body.end(), sub.begin(), sub.end());
  }
  if (!airport.parkings.empty()) {
    const Words sub = lf_parkingList(airport.parkings, airport.newForm);
    body.insert(body.end(), sub.begin(), sub.end());
  }
  Words words;
  lf_appendRecord(words, airport.newForm ? 0xAB : 0x3C, body);
  return words;
}

std::string lf_bytes(const Words& words) {
  std::string bytes(words.size() * 4, '\0');
  for (std::size_t i = 0; i < words.size(); ++i)
    for (int k = 0; k < 4; ++k)
      bytes[i * 4 + k] = static_cast<char>(words[i] >> (8 * k));
  return bytes;
}

// Header (14 words), one section entry (5 words), one sub-section entry (4 words), then the records.
std::string lf_file(std::uint32_t sectionType, const Words& records, std::uint32_t recordCount,
                    std::uint32_t headerSize) {
  Words words(14, 0);
  words[0] = 0x19920201;
  words[1] = headerSize;
  words[5] = 1;
  const std::uint32_t tableOffset = (14 + 5) * 4;
  const std::uint32_t dataOffset = tableOffset + 16;
  const Words section{sectionType, 1, 1, tableOffset, 16};
  const Words subsection{0, recordCount, dataOffset, static_cast<std::uint32_t>(records.size() * 4)};
  words.insert(words.end(), section.begin(), section.end());
  words.insert(words.end(), subsection.begin(), subsection.end());
  words.insert(words.end(), records.begin(), records.end());
  return lf_bytes(words);
}

} // namespace

std::uint32_t encodeIdentifier(const std::string& code) {
  std::uint32_t value = 0;
  for (char c : code)
    value = value * 38 + static_cast<std::uint32_t>(c >= '0' && c <= '9' ? c - 46 : c - 53);
  return value << 5;
}

std::string buildBgl(const std::vector<AirportSpec>& airports, std::uint32_t headerSize) {
  Words records;
  for (const AirportSpec& airport : airports) {
    const Words record = lf_airport(airport);
    records.insert(records.end(), record.begin(), record.end());
  }
  return lf_file(3, records, static_cast<std::uint32_t>(airports.size()), headerSize);
}

std::string buildBglWithoutAirports(std::size_t payloadBytes) {
  Words records;
  lf_appendRecord(records, 0x65, Words(payloadBytes / 4, 0x5A5A5A5A));
  return lf_file(0x65, records, 1, 0x38);
}

} // namespace ory::test
