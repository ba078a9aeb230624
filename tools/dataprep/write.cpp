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

// section with one child per tokensPerElement codes, each scrambled.
void lf_appendList(pugi::xml_node document, const char* rawSection, const char* child, const char* attribute,
                   const std::set<std::string>& codes, Scramble scramble) {
  pugi::xml_node section = document.append_child(rawSection);
  std::string list;
  std::size_t count = 0;
  for (const std::string& code : codes) {
    list.append(list.empty() ? "" : ",").append(scramble(code));
    if (++count % tokensPerElement == 0 || count == codes.size()) {
      section.append_child(child).append_attribute(attribute).set_value(list.c_str());
      list.clear();
    }
  }
}

void lf_save(const pugi::xml_document& document, const fs::path& file) {
  if (file.has_parent_path()) fs::create_directories(file.parent_path());
  if (!writeXmlFile(document, file)) throw std::runtime_error(fmt::format("can't write {}", file.string()));
}

void lf_setIfAny(pugi::xml_node node, const char* attribute, const std::string& value) {
  if (!value.empty()) node.append_attribute(attribute).set_value(value.c_str());
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

void writeDbaseXml(const PreparedData& data, const fs::path& file) {
  pugi::xml_document document;
  // The optional sections first: a file cut off anywhere then lacks a required section, and the program
  // refuses it instead of reading it without its tail.
  pugi::xml_node similar = document.append_child("similar_types");
  for (const std::vector<std::string>& group : data.similarGroups) {
    std::string list;
    for (const std::string& code : group)
      list.append(list.empty() ? "" : ",").append(scrambleModel(code));
    similar.append_child("similar").append_attribute("types").set_value(list.c_str());
  }
  pugi::xml_node publishers = document.append_child("publishers");
  for (const std::string& names : data.publishers)
    publishers.append_child("pub").append_attribute("names").set_value(names.c_str());
  pugi::xml_node wingspans = document.append_child("wingspans");
  for (const auto& [code, meters] : data.wingspans) {
    pugi::xml_node wingspan = wingspans.append_child("wingspan");
    wingspan.append_attribute("type").set_value(scrambleModel(code).c_str());
    wingspan.append_attribute("meters").set_value(fmt::format("{:.3f}", meters).c_str());
  }
  pugi::xml_node records = document.append_child("dbase");
  for (const RegistrationSource& record : data.registrations) {
    pugi::xml_node db = records.append_child("db");
    db.append_attribute("reg").set_value(scrambleRegcode(record.regcode).c_str());
    lf_setIfAny(db, "airl", record.airline.empty() ? "" : scrambleAirline(record.airline));
    lf_setIfAny(db, "type", record.type.empty() ? "" : scrambleModel(record.type));
    lf_setIfAny(db, "opr", record.opr.empty() ? "" : scrambleAirline(record.opr));
    if (record.cargo) db.append_attribute("cargo").set_value("true");
  }
  lf_appendList(document, "aircrafts", "aircraft", "types", data.types, scrambleModel);
  for (const CategoryElement& category : categoryElements)
    lf_appendList(document, category.section, category.child, "types", data.categories.at(category.section),
                  scrambleModel);
  lf_appendList(document, "cargo_types", "cargo_type", "types", data.cargoTypes, scrambleModel);
  lf_appendList(document, "ICAO_airlines", "ICAO", "codes", data.airlines, scrambleAirline);
  lf_appendList(document, "cargo_operators", "ICAO", "codes", data.cargoOperators, scrambleAirline);
  lf_save(document, file);
}

void writeFixesXml(const PreparedData& data, const fs::path& file) {
  pugi::xml_document document;
  pugi::xml_node fixes = document.append_child("fixes");
  for (const auto& [wrong, correct] : data.modelFixes) {
    pugi::xml_node fix = fixes.append_child("fix");
    fix.append_attribute("wrong").set_value(wrong.c_str());
    fix.append_attribute("correct").set_value(correct.c_str());
  }
  for (const auto& [section, codes] :
       {std::pair{"PVT_fixes", &data.pvtFixes}, std::pair{"GOV_fixes", &data.govFixes}}) {
    pugi::xml_node node = document.append_child(section);
    for (const std::string& code : *codes)
      node.append_child("fix").append_attribute("wrong").set_value(code.c_str());
  }
  lf_save(document, file);
}

void writeAirportsXml(const PreparedData& data, const fs::path& file) {
  pugi::xml_document document;
  pugi::xml_node airports = document.append_child("airports");
  for (const AirportSource& source : data.airports) {
    pugi::xml_node airport = airports.append_child("airport");
    airport.append_attribute("code").set_value(source.code.c_str());
    lf_setIfAny(airport, "iata", source.iata);
    airport.append_attribute("lat").set_value(fmt::format("{}", source.lat).c_str());
    airport.append_attribute("lon").set_value(fmt::format("{}", source.lon).c_str());
    airport.append_attribute("alt").set_value(fmt::format("{}", source.altitude).c_str());
  }
  lf_save(document, file);
}

void writeAigRegcodesXml(const PreparedData& data, const fs::path& file) {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("AIG-regcodes");
  for (const AigSource& source : data.aigLiveries) {
    pugi::xml_node livery = root.append_child("livery");
    livery.append_attribute("title").set_value(source.title.c_str());
    std::string list;
    for (const std::string& regcode : source.regcodes)
      list.append(list.empty() ? "" : ",").append(regcode);
    livery.append_attribute("reg").set_value(list.c_str());
    if (source.special) livery.append_attribute("special").set_value("true");
  }
  lf_save(document, file);
}

void writeVersionJson(int major, int minor, int patch, const fs::path& file) {
  if (file.has_parent_path()) fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << nlohmann::json{{"major", major}, {"minor", minor}, {"patch", patch}}.dump() << '\n';
  if (!out) throw std::runtime_error(fmt::format("can't write {}", file.string()));
}

} // namespace ory
