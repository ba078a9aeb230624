#include "inputs.h"

#include "parking/airport_file.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ory {

namespace {

std::ifstream lf_open(const std::string& path, std::string_view what) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(fmt::format("can't open the {} {}", what, path));
  return in;
}

bool lf_number(const nlohmann::json& o, const char* key) {
  return o.contains(key) && o[key].is_number();
}

// A state line as the judge reads it: every object with its numbers and flags in their types.
bool lf_wellFormed(const nlohmann::json& line) {
  if (line.value("kind", "") != "state") return true;
  if (!line.contains("objects") || !line["objects"].is_array() || !lf_number(line, "t") ||
      !lf_number(line, "wall"))
    return false;
  return std::all_of(line["objects"].begin(), line["objects"].end(), [](const nlohmann::json& o) {
    const bool numbers = o.is_object() && lf_number(o, "id") && lf_number(o, "lat") && lf_number(o, "lon") &&
                         lf_number(o, "alt") && lf_number(o, "agl") && lf_number(o, "heading") &&
                         lf_number(o, "tas");
    return numbers && o.value("atcId", nlohmann::json()).is_string() &&
           o.value("user", nlohmann::json()).is_boolean() &&
           o.value("onGround", nlohmann::json()).is_boolean() &&
           o.value("released", nlohmann::json()).is_boolean() && o.contains("frozen") &&
           o["frozen"].is_array() && o["frozen"].size() == 3 &&
           std::all_of(o["frozen"].begin(), o["frozen"].end(),
                       [](const nlohmann::json& f) { return f.is_boolean(); });
  });
}

} // namespace

Trace readTrace(const std::string& path) {
  std::ifstream in = lf_open(path, "trace");
  Trace trace;
  std::string text;
  for (std::size_t number = 1; std::getline(in, text); ++number) {
    if (text.empty()) continue;
    nlohmann::json line = nlohmann::json::parse(text, nullptr, false);
    if (!line.is_object()) {
      trace.problems.push_back(fmt::format("{} line {}: not a JSON object, skipped", path, number));
    } else if (!lf_wellFormed(line)) {
      trace.problems.push_back(
          fmt::format("{} line {}: a state line of another shape, skipped", path, number));
    } else {
      trace.lines.push_back(std::move(line));
    }
  }
  return trace;
}

std::map<std::string, double> readStaticCg(const std::string& scenarioPath) {
  std::ifstream in = lf_open(scenarioPath, "scenario");
  std::stringstream text;
  text << in.rdbuf();
  const nlohmann::json scenario = nlohmann::json::parse(text.str(), nullptr, false, true);
  if (!scenario.is_object())
    throw std::runtime_error(fmt::format("the scenario {} is not JSON", scenarioPath));
  std::map<std::string, double> staticCg;
  for (const nlohmann::json& title : scenario.value("titles", nlohmann::json::array())) {
    if (!title.is_object() || !title.contains("title")) continue;
    const nlohmann::json cg = title.value("staticCg", nlohmann::json(0.0));
    staticCg[titleKey(title.value("title", ""))] = cg.is_number() ? cg.get<double>() : 0.0;
  }
  return staticCg;
}

std::vector<Stand> readStands(const std::string& airportPath) {
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(airportPath.c_str());
  if (!loaded)
    throw std::runtime_error(
        fmt::format("can't read the airport file {}: {}", airportPath, loaded.description()));
  std::vector<Stand> stands;
  try {
    readParkPositions(document, stands);
  } catch (const std::exception& error) {
    throw std::runtime_error(fmt::format("the airport file {}: {}", airportPath, error.what()));
  }
  return stands;
}

Runway parseRunway(const std::string& text) {
  Runway runway;
  const std::size_t colon = text.find(':');
  runway.name = colon == std::string::npos ? text : text.substr(0, colon);
  std::istringstream in(colon == std::string::npos ? std::string() : text.substr(colon + 1));
  std::vector<double> numbers;
  for (std::string item; std::getline(in, item, ',');) {
    char* end = nullptr;
    numbers.push_back(std::strtod(item.c_str(), &end));
    if (item.empty() || *end != '\0') numbers.clear();
    if (numbers.empty()) break;
  }
  if (numbers.size() != 4 && numbers.size() != 5)
    throw std::runtime_error(fmt::format("runway \"{}\": name:lat1,lon1,lat2,lon2[,width] expected", text));
  runway.lat1 = numbers[0];
  runway.lon1 = numbers[1];
  runway.lat2 = numbers[2];
  runway.lon2 = numbers[3];
  if (numbers.size() == 5) runway.widthMetres = numbers[4];
  return runway;
}

} // namespace ory
