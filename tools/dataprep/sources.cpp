#include "dataprep.h"
#include "engine/geometry.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <zlib.h>

namespace ory {

std::vector<std::string> prepWarnings;

void prepWarning(std::string text) {
  prepWarnings.push_back(std::move(text));
}

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string lf_gunzip(const fs::path& rawFile) {
  gzFile file = gzopen(rawFile.string().c_str(), "rb");
  if (!file) throw std::runtime_error(fmt::format("can't open {}", rawFile.string()));
  std::string bytes;
  char buffer[1 << 16];
  int count = 0;
  while ((count = gzread(file, buffer, sizeof buffer)) > 0)
    bytes.append(buffer, static_cast<std::size_t>(count));
  const bool failed = count < 0;
  gzclose(file);
  if (failed) throw std::runtime_error(fmt::format("{} is no valid gzip file", rawFile.string()));
  return bytes;
}

std::vector<std::string_view> lf_lines(std::string_view text) {
  std::vector<std::string_view> lines;
  for (std::string_view line : splitFields(text, '\n')) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
  }
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

// Column numbers of a CSV header by name; -1 for a column that isn't there.
struct CsvHeader {
  std::vector<std::string> names;
  int column(std::initializer_list<std::string_view> candidates) const {
    for (const std::string_view candidate : candidates)
      if (const auto it = std::find(names.begin(), names.end(), candidate); it != names.end())
        return static_cast<int>(it - names.begin());
    return -1;
  }
};

std::string lf_field(const std::vector<std::string>& fields, int column) {
  if (column < 0 || column >= static_cast<int>(fields.size())) return {};
  return std::string(trimBlanks(fields[static_cast<std::size_t>(column)]));
}

// The BOM some CSV files start with.
std::string_view lf_withoutBom(std::string_view text) {
  return text.starts_with("\xEF\xBB\xBF") ? text.substr(3) : text;
}

bool lf_isUpperCode(std::string_view text, std::size_t length) {
  return text.size() == length &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

std::map<std::string, std::string> lf_keyValues(const fs::path& file) {
  std::map<std::string, std::string> values;
  for (const std::string& line : ruleLines(file)) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos)
      throw std::runtime_error(fmt::format("{}: no '=' in \"{}\"", file.string(), line));
    values[std::string(trimBlanks(std::string_view(line).substr(0, equals)))] =
        trimBlanks(std::string_view(line).substr(equals + 1));
  }
  return values;
}

std::vector<std::string> lf_words(std::string_view text) {
  std::istringstream in{std::string(text)};
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

} // namespace

std::string readWholeFile(const fs::path& file) {
  if (file.extension() == ".gz") return lf_gunzip(file);
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error(fmt::format("can't open {}", file.string()));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> ruleLines(const fs::path& file) {
  std::vector<std::string> lines;
  const std::string text = readWholeFile(file);
  for (const std::string_view line : lf_lines(text))
    if (const std::string_view kept = trimBlanks(line); !kept.empty() && kept.front() != '#')
      lines.emplace_back(kept);
  return lines;
}

std::vector<std::string> splitCsvLine(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += '"';
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

// tar1090-db icao_aircraft_types2.json: {"B744": ["BOEING 747-400", "L4J", "H"], ...}
void readTypeSources(const fs::path& sources, Sources& out) {
  const Json types = Json::parse(readWholeFile(sources / "tar1090-db" / "icao_aircraft_types2.json"));
  for (const auto& [code, entry] : types.items()) {
    if (!entry.is_array() || entry.size() < 3) {
      prepWarning(fmt::format("type {}: entry without name, description and wake category, skipped", code));
      continue;
    }
    out.types[code] = {entry[0].get<std::string>(), entry[1].get<std::string>(), entry[2].get<std::string>()};
  }
}

// FAA Aircraft Characteristics Database: icao_type, manufacturer, model, wingspan_ft, ... Of several rows of
// one type the widest counts.
void readWingspanSources(const fs::path& sources, Sources& out) {
  const std::string text = readWholeFile(sources / "faa_acd" / "faa_acd_2009_wingspan_height_arc.csv");
  const std::vector<std::string_view> lines = lf_lines(lf_withoutBom(text));
  if (lines.empty()) return;
  const CsvHeader header{splitCsvLine(lines[0])};
  const int typeColumn = header.column({"icao_type"});
  const int spanColumn = header.column({"wingspan_ft"});
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> fields = splitCsvLine(lines[i]);
    const std::string type = lf_field(fields, typeColumn);
    if (type.empty()) continue; // a model without an ICAO code
    try {
      const double meters = std::stod(lf_field(fields, spanColumn)) * metresPerFoot;
      double& known = out.wingspanMeters[type];
      known = std::max(known, meters);
    } catch (const std::exception&) {
      prepWarning(fmt::format("wingspan of {} is no number: \"{}\"", type, lf_field(fields, spanColumn)));
    }
  }
}

// tar1090-db operators.json ({"KLM": {"n": name, ...}}) and OpenFlights airlines.dat (ICAO code in field 5).
// Defunct airlines stay: add-on liveries of them exist.
void readAirlineSources(const fs::path& sources, Sources& out) {
  const Json operators = Json::parse(readWholeFile(sources / "tar1090-db" / "operators.json"));
  for (const auto& [code, entry] : operators.items())
    if (lf_isUpperCode(code, 3)) out.airlines[code].name = entry.value("n", "");
  const std::string text = readWholeFile(sources / "openflights" / "airlines.dat");
  for (const std::string_view line : lf_lines(text)) {
    const std::vector<std::string> fields = splitCsvLine(line);
    const std::string code = lf_field(fields, 4);
    if (!lf_isUpperCode(code, 3)) continue;
    AirlineSource& airline = out.airlines[code];
    if (airline.name.empty()) airline.name = lf_field(fields, 1);
  }
}

// OurAirports airports.csv(.gz). rules/airports.txt says which kinds are kept and where the code comes from.
void readAirportSources(const fs::path& sources, const fs::path& rawRules, Sources& out) {
  const auto rules = lf_keyValues(rawRules / "airports.txt");
  const std::vector<std::string> kinds = lf_words(rules.at("kinds"));
  const std::vector<std::string> codeColumns = lf_words(rules.at("code_columns"));
  const std::regex codePattern(rules.at("code_pattern"));
  const std::string text = readWholeFile(sources / "ourairports" / "airports.csv.gz");
  const std::vector<std::string_view> lines = lf_lines(lf_withoutBom(text));
  if (lines.empty()) return;
  const CsvHeader header{splitCsvLine(lines[0])};
  const int kindColumn = header.column({"type"});
  const int latColumn = header.column({"latitude_deg"});
  const int lonColumn = header.column({"longitude_deg"});
  const int elevationColumn = header.column({"elevation_ft"});
  const int iataColumn = header.column({"iata_code"});
  std::map<std::string, std::pair<std::size_t, AirportSource>> byCode; // code to kind rank and airport
  std::size_t withoutElevation = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> fields = splitCsvLine(lines[i]);
    const auto kind = std::find(kinds.begin(), kinds.end(), lf_field(fields, kindColumn));
    if (kind == kinds.end()) continue;
    std::string code;
    for (const std::string& column : codeColumns)
      if (code = lf_field(fields, header.column({column})); std::regex_match(code, codePattern)) break;
    if (!std::regex_match(code, codePattern)) continue;
    if (lf_field(fields, elevationColumn).empty()) {
      ++withoutElevation; // a made-up elevation would be worse than no airport
      continue;
    }
    try {
      AirportSource airport{code, lf_field(fields, iataColumn), std::stod(lf_field(fields, latColumn)),
                            std::stod(lf_field(fields, lonColumn)),
                            std::stod(lf_field(fields, elevationColumn))};
      const std::size_t rank = static_cast<std::size_t>(kind - kinds.begin());
      const auto [place, added] = byCode.try_emplace(code, rank, airport);
      if (!added && rank < place->second.first) place->second = {rank, airport};
    } catch (const std::exception&) {
      prepWarning(fmt::format("airport {}: position or elevation is no number, skipped", code));
    }
  }
  if (withoutElevation > 0)
    prepWarning(fmt::format("{} airports without elevation skipped", withoutElevation));
  for (auto& [code, ranked] : byCode)
    out.airports.push_back(std::move(ranked.second));
}

void readRegistrationSource(const fs::path& file, Sources& out) {
  const std::string text = readWholeFile(file);
  const std::vector<std::string_view> lines = lf_lines(lf_withoutBom(text));
  if (lines.empty()) return;
  const CsvHeader header{splitCsvLine(lines[0])};
  const int regColumn = header.column({"registration", "reg"});
  const int typeColumn = header.column({"icao_type", "type"});
  if (regColumn < 0 || typeColumn < 0)
    throw std::runtime_error(fmt::format("{}: header without registration and icao_type", file.string()));
  const int airlineColumn = header.column({"airline", "owner", "airl"});
  const int operatorColumn = header.column({"operator", "opr"});
  const int cargoColumn = header.column({"cargo"});
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> fields = splitCsvLine(lines[i]);
    out.registrations.push_back({lf_field(fields, regColumn), lf_field(fields, typeColumn),
                                 lf_field(fields, airlineColumn), lf_field(fields, operatorColumn),
                                 isTrueText(lf_field(fields, cargoColumn))});
  }
}

void readAigSource(const fs::path& file, Sources& out) {
  for (const std::string& line : ruleLines(file)) {
    const std::vector<std::string_view> fields = splitFields(line, ';');
    if (fields.size() > 3 || (fields.size() == 3 && trimBlanks(fields[2]) != "#")) {
      prepWarning(fmt::format("{}: wrong format: {}", file.string(), line));
      continue;
    }
    AigSource livery{std::string(trimBlanks(fields[0])), {}, fields.size() == 3};
    if (fields.size() >= 2)
      for (const std::string_view regcode : splitTrimmed(fields[1]))
        livery.regcodes.emplace_back(regcode);
    // "title;" binds nothing, as in the program's own text files; written out it would forbid the title.
    if (fields.size() >= 2 && livery.regcodes.empty()) {
      prepWarning(fmt::format("{}: no regcode: {}", file.string(), line));
      continue;
    }
    out.aigLiveries.push_back(std::move(livery));
  }
}

} // namespace ory
