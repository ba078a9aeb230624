#include "base/text_files.h"
#include "dataprep.h"
#include "liveries/scramble.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <fstream>
#include <stdexcept>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t tokensPerElement = 100; // keeps the lines of the file short enough to read

using Scramble = std::string (*)(std::string_view);

// SECTION with one CHILD per tokensPerElement codes, each scrambled.
void lf_appendList(pugi::xml_node DOCUMENT, const char* SECTION, const char* CHILD, const char* ATTRIBUTE,
                   const std::set<std::string>& CODES, Scramble SCRAMBLE) {
  pugi::xml_node section = DOCUMENT.append_child(SECTION);
  std::string list;
  std::size_t count = 0;
  for (const std::string& code : CODES) {
    list.append(list.empty() ? "" : ",").append(SCRAMBLE(code));
    if (++count % tokensPerElement == 0 || count == CODES.size()) {
      section.append_child(CHILD).append_attribute(ATTRIBUTE).set_value(list.c_str());
      list.clear();
    }
  }
}

void lf_save(const pugi::xml_document& DOCUMENT, const fs::path& FILE) {
  if (FILE.has_parent_path()) fs::create_directories(FILE.parent_path());
  if (!writeXmlFile(DOCUMENT, FILE)) throw std::runtime_error(fmt::format("can't write {}", FILE.string()));
}

void lf_setIfAny(pugi::xml_node NODE, const char* ATTRIBUTE, const std::string& VALUE) {
  if (!VALUE.empty()) NODE.append_attribute(ATTRIBUTE).set_value(VALUE.c_str());
}

struct CategoryElement {
  const char* section;
  const char* child;
};
constexpr CategoryElement categoryElements[] = {{"high_performance", "hpf"},
                                                {"heavy", "hvy"},
                                                {"large", "lar"},
                                                {"buzjet", "bzj"},
                                                {"rotorcraft", "rot"}};

} // namespace

void writeDbaseXml(const PreparedData& DATA, const fs::path& FILE) {
  pugi::xml_document document;
  // The optional sections first: a file cut off anywhere then lacks a required section, and the program
  // refuses it instead of reading it without its tail.
  pugi::xml_node similar = document.append_child("similar_types");
  for (const std::vector<std::string>& group : DATA.similarGroups) {
    std::string list;
    for (const std::string& code : group)
      list.append(list.empty() ? "" : ",").append(scrambleModel(code));
    similar.append_child("similar").append_attribute("types").set_value(list.c_str());
  }
  pugi::xml_node publishers = document.append_child("publishers");
  for (const std::string& names : DATA.publishers)
    publishers.append_child("pub").append_attribute("names").set_value(names.c_str());
  pugi::xml_node wingspans = document.append_child("wingspans");
  for (const auto& [code, meters] : DATA.wingspans) {
    pugi::xml_node wingspan = wingspans.append_child("wingspan");
    wingspan.append_attribute("type").set_value(scrambleModel(code).c_str());
    wingspan.append_attribute("meters").set_value(fmt::format("{:.3f}", meters).c_str());
  }
  pugi::xml_node records = document.append_child("dbase");
  for (const RegistrationSource& record : DATA.registrations) {
    pugi::xml_node db = records.append_child("db");
    db.append_attribute("reg").set_value(scrambleRegcode(record.regcode).c_str());
    lf_setIfAny(db, "airl", record.airline.empty() ? "" : scrambleAirline(record.airline));
    lf_setIfAny(db, "type", record.type.empty() ? "" : scrambleModel(record.type));
    lf_setIfAny(db, "opr", record.opr.empty() ? "" : scrambleAirline(record.opr));
    if (record.cargo) db.append_attribute("cargo").set_value("true");
  }
  lf_appendList(document, "aircrafts", "aircraft", "types", DATA.types, scrambleModel);
  for (const CategoryElement& category : categoryElements)
    lf_appendList(document, category.section, category.child, "types", DATA.categories.at(category.section),
                  scrambleModel);
  lf_appendList(document, "cargo_types", "cargo_type", "types", DATA.cargoTypes, scrambleModel);
  lf_appendList(document, "ICAO_airlines", "ICAO", "codes", DATA.airlines, scrambleAirline);
  lf_appendList(document, "cargo_operators", "ICAO", "codes", DATA.cargoOperators, scrambleAirline);
  lf_save(document, FILE);
}

void writeFixesXml(const PreparedData& DATA, const fs::path& FILE) {
  pugi::xml_document document;
  pugi::xml_node fixes = document.append_child("fixes");
  for (const auto& [wrong, correct] : DATA.modelFixes) {
    pugi::xml_node fix = fixes.append_child("fix");
    fix.append_attribute("wrong").set_value(wrong.c_str());
    fix.append_attribute("correct").set_value(correct.c_str());
  }
  for (const auto& [section, codes] :
       {std::pair{"PVT_fixes", &DATA.pvtFixes}, std::pair{"GOV_fixes", &DATA.govFixes}}) {
    pugi::xml_node node = document.append_child(section);
    for (const std::string& code : *codes)
      node.append_child("fix").append_attribute("wrong").set_value(code.c_str());
  }
  lf_save(document, FILE);
}

void writeAirportsXml(const PreparedData& DATA, const fs::path& FILE) {
  pugi::xml_document document;
  pugi::xml_node airports = document.append_child("airports");
  for (const AirportSource& source : DATA.airports) {
    pugi::xml_node airport = airports.append_child("airport");
    airport.append_attribute("code").set_value(source.code.c_str());
    lf_setIfAny(airport, "iata", source.iata);
    airport.append_attribute("lat").set_value(fmt::format("{}", source.lat).c_str());
    airport.append_attribute("lon").set_value(fmt::format("{}", source.lon).c_str());
    airport.append_attribute("alt").set_value(fmt::format("{}", source.altitude).c_str());
  }
  lf_save(document, FILE);
}

void writeAigRegcodesXml(const PreparedData& DATA, const fs::path& FILE) {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("AIG-regcodes");
  for (const AigSource& source : DATA.aigLiveries) {
    pugi::xml_node livery = root.append_child("livery");
    livery.append_attribute("title").set_value(source.title.c_str());
    std::string list;
    for (const std::string& regcode : source.regcodes)
      list.append(list.empty() ? "" : ",").append(regcode);
    livery.append_attribute("reg").set_value(list.c_str());
    if (source.special) livery.append_attribute("special").set_value("true");
  }
  lf_save(document, FILE);
}

void writeVersionJson(int MAJOR, int MINOR, int PATCH, const fs::path& FILE) {
  if (FILE.has_parent_path()) fs::create_directories(FILE.parent_path());
  std::ofstream out(FILE, std::ios::binary | std::ios::trunc);
  out << nlohmann::json{{"major", MAJOR}, {"minor", MINOR}, {"patch", PATCH}}.dump() << '\n';
  if (!out) throw std::runtime_error(fmt::format("can't write {}", FILE.string()));
}

} // namespace ory
