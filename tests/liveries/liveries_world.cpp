#include "liveries_world.h"

#include "base/paths.h"
#include "liveries/fixes.h"
#include "liveries/scramble.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

namespace ory::test {

namespace {

namespace fs = std::filesystem;

std::string lf_join(const std::vector<std::string>& codes, std::string (*scramble)(std::string_view)) {
  std::string list;
  for (const std::string& code : codes)
    list += (list.empty() ? "" : ",") + scramble(code);
  return list;
}

void lf_section(pugi::xml_node document, const char* section, const char* child, const char* attribute,
                const std::string& value) {
  document.append_child(section).append_child(child).append_attribute(attribute) = value.c_str();
}

void lf_writeDbase(const DbaseContent& dbase) {
  std::vector<std::string> all;
  for (const auto* category :
       {&dbase.light, &dbase.buzjets, &dbase.large, &dbase.heavy, &dbase.highPerf, &dbase.rotorcraft})
    all.insert(all.end(), category->begin(), category->end());
  pugi::xml_document document;
  lf_section(document, "aircrafts", "aircraft", "types", lf_join(all, scrambleModel));
  // Every category section must hold a token; an unused model keeps an empty category readable.
  const auto orFiller = [](const std::vector<std::string>& types) {
    return types.empty() ? std::vector<std::string>{"ZZ"} : types;
  };
  lf_section(document, "high_performance", "hpf", "types", lf_join(orFiller(dbase.highPerf), scrambleModel));
  lf_section(document, "heavy", "hvy", "types", lf_join(orFiller(dbase.heavy), scrambleModel));
  lf_section(document, "large", "lar", "types", lf_join(orFiller(dbase.large), scrambleModel));
  lf_section(document, "buzjet", "bzj", "types", lf_join(orFiller(dbase.buzjets), scrambleModel));
  lf_section(document, "rotorcraft", "rot", "types", lf_join(orFiller(dbase.rotorcraft), scrambleModel));
  lf_section(document, "cargo_types", "cargo_type", "types", lf_join(orFiller(dbase.heavy), scrambleModel));
  lf_section(document, "ICAO_airlines", "ICAO", "codes", lf_join(dbase.airlines, scrambleAirline));
  lf_section(document, "cargo_operators", "ICAO", "codes", lf_join(dbase.airlines, scrambleAirline));
  pugi::xml_node similar = document.append_child("similar_types");
  for (const std::vector<std::string>& group : dbase.similar)
    similar.append_child("similar").append_attribute("types") = lf_join(group, scrambleModel).c_str();
  pugi::xml_node publishers = document.append_child("publishers");
  for (const std::string& names : dbase.publishers)
    publishers.append_child("pub").append_attribute("names") = names.c_str();
  pugi::xml_node records = document.append_child("dbase");
  for (const DbaseAirframe& airframe : dbase.airframes) {
    pugi::xml_node record = records.append_child("db");
    record.append_attribute("reg") = scrambleRegcode(airframe.reg).c_str();
    record.append_attribute("airl") = airframe.airl.empty() ? "" : scrambleAirline(airframe.airl).c_str();
    record.append_attribute("type") = airframe.type.empty() ? "" : scrambleModel(airframe.type).c_str();
    record.append_attribute("opr") = airframe.opr.empty() ? "" : scrambleAirline(airframe.opr).c_str();
    record.append_attribute("cargo") = airframe.cargo ? "true" : "false";
  }
  fs::create_directories(dbaseFile.parent_path());
  if (!document.save_file(dbaseFile.c_str())) throw std::runtime_error("dbase.xml not written");
}

void lf_writeFixes(const FixesContent& fixes) {
  pugi::xml_document document;
  pugi::xml_node models = document.append_child("fixes");
  for (const auto& [wrong, correct] : fixes.models) {
    pugi::xml_node fix = models.append_child("fix");
    fix.append_attribute("wrong") = wrong.c_str();
    fix.append_attribute("correct") = correct.c_str();
  }
  for (const auto& [section, codes] : {std::pair{"PVT_fixes", &fixes.pvt}, {"GOV_fixes", &fixes.gov}}) {
    pugi::xml_node node = document.append_child(section);
    for (const std::string& code : *codes)
      node.append_child("fix").append_attribute("wrong") = code.c_str();
  }
  if (!document.save_file(fixesFile.c_str())) throw std::runtime_error("fixes.xml not written");
}

// Lines of the kind that fill most of a real aircraft.cfg besides its liveries.
const char* const fillerSections = R"([WEIGHT_AND_BALANCE]
max_gross_weight=174200
empty_weight=91300
reference_datum_position=0,0,0
empty_weight_CG_position=-4.5,0,0
max_number_of_stations=50
station_load.0=170,37,-1.5,0
station_load.1=170,37,1.5,0

[GeneralEngineData]
engine_type=1
Engine.0=-9.5,-16.5,-5.5
Engine.1=-9.5,16.5,-5.5
fuel_flow_scalar=1.0
min_throttle_limit=-0.25

[TurbineEngineData]
fuel_flow_gain=0.002
inlet_area=19.6
rated_N2_rpm=29920
static_thrust=27300
reverser_available=1

[contact_points]
static_pitch=0.4
static_cg_height=10.2
gear_system_type=1
point.0=1,45.7,0,-12.9,1181,0,1.2,80,0.4,2.5,0.6,0,0,0,0,0
point.1=1,-5.7,-9.5,-12.9,1574,1,1.2,0,0.9,2.5,0.6,0,0,2,0,0
point.2=1,-5.7,9.5,-12.9,1574,2,1.2,0,0.9,2.5,0.6,0,0,3,0,0
point.3=2,-12,-56.7,3.8,1574,0,0,0,0,0,0,0,0,5,0,0
point.4=2,-12,56.7,3.8,1574,0,0,0,0,0,0,0,0,6,0,0

[Reference Speeds]
flaps_up_stall_speed=140
full_flaps_stall_speed=110
cruise_speed=460
max_indicated_speed=340
max_mach=0.82

[airplane_geometry]
wing_area=1344
wing_span=112.6
wing_root_chord=16.3
wing_dihedral=6
wing_incidence=1
wing_twist=-1.5
oswald_efficiency_factor=0.7
wing_winglets_flag=1
wing_sweep=25
wing_pos_apex_lon=4.5
wing_pos_apex_vert=0
htail_area=352.8
htail_span=47.1
htail_pos_lon=-56.3
htail_pos_vert=0
htail_incidence=0
htail_sweep=30
vtail_area=284.8
vtail_span=28.5
vtail_sweep=35
vtail_pos_lon=-50.3
vtail_pos_vert=8

[flight_tuning]
cruise_lift_scalar=1.0
parasite_drag_scalar=1.0
induced_drag_scalar=1.0
elevator_effectiveness=1.0
aileron_effectiveness=1.0
rudder_effectiveness=1.0
pitch_stability=1.0
roll_stability=1.0
yaw_stability=1.0

[Lights]
light.0=3,-60.78,-56.49,5.65,fx_navredm
light.1=3,-60.78,56.49,5.65,fx_navgrem
light.2=2,-62.40,-56.80,5.65,fx_strobe
light.3=2,-62.40,56.80,5.65,fx_strobe
light.4=1,-80.82,0.00,4.77,fx_beacon
light.5=4,15.00,0.00,-5.00,fx_landing

[flaps.0]
type=1
span-outboard=0.8
extending-time=35
flaps-position.0=0,0
flaps-position.1=1,0
flaps-position.2=5,0
flaps-position.3=15,0
flaps-position.4=30,0
damaging-speed=250
blowout-speed=300
)";

std::string lf_cfgText(const CfgFile& file) {
  std::string text = "// generated for the tests of the liveries scan\n\n";
  for (std::size_t i = 0; i < file.sections.size(); ++i) {
    const CfgSection& section = file.sections[i];
    text += section.header.empty() ? fmt::format("[fltsim.{}]\n", i) : section.header + "\n";
    if (!section.title.empty()) text += "title=" + section.title + "\n";
    text += "sim=" + section.sim + "\nmodel=" + section.model + "\ntexture=" + section.texture + "\n";
    if (!section.atcId.empty()) text += "atc_id=" + section.atcId + "\n";
    if (!section.codes.empty()) text += "atc_parking_codes=" + section.codes + "\n";
    for (const std::string& line : section.extraLines)
      text += line + "\n";
    text += "\n";
  }
  text += "[General]\natc_type=Boeing\n";
  if (!file.atcModel.empty()) text += "atc_model=" + file.atcModel + "\n";
  text += "editable=1\nperformance=generated\nCategory=airplane\n\n";
  return text + fillerSections;
}

std::string lf_utf16Bytes(std::string_view text) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : utf8ToUtf16(text)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

// Windows-1252 for the text of the tests, which holds no character of its range 0x80 to 0x9F.
std::string lf_latin1Bytes(std::string_view text) {
  std::string bytes;
  for (const char16_t unit : utf8ToUtf16(text))
    bytes += unit < 0x100 ? static_cast<char>(unit) : '?';
  return bytes;
}

std::string lf_encoded(const std::string& text, CfgEncoding encoding) {
  switch (encoding) {
  case CfgEncoding::utf8Bom:
    return "\xEF\xBB\xBF" + text;
  case CfgEncoding::utf16:
    return lf_utf16Bytes(text);
  case CfgEncoding::ansi:
    return lf_latin1Bytes(text);
  case CfgEncoding::utf8:
    break;
  }
  return text;
}

fs::path lf_pathOf(std::string_view utf8) {
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

struct Kinds {
  std::vector<std::string> types;
  std::vector<std::string> airlines;
};

// Transport types come up more often than the others, as in real collections.
Kinds lf_worldKinds(const DbaseContent& dbase) {
  Kinds kinds;
  for (const auto* category : {&dbase.large, &dbase.large, &dbase.heavy, &dbase.light, &dbase.buzjets,
                               &dbase.rotorcraft, &dbase.highPerf})
    kinds.types.insert(kinds.types.end(), category->begin(), category->end());
  for (const std::string& airline : dbase.airlines)
    if (airline != "ZZZ" && airline != "PVT") kinds.airlines.push_back(airline);
  return kinds;
}

enum class Fault { none, noAtcModel, gap, noTexture, doubleTitle, utf16, badAirline };

Fault lf_faultOf(std::size_t fileNumber, bool faults) {
  if (!faults || fileNumber % 8 != 7) return Fault::none;
  return static_cast<Fault>(1 + (fileNumber / 8) % 6);
}

} // namespace

DbaseContent worldDbase() {
  DbaseContent dbase;
  dbase.light = {"C172", "PA28", "BE58", "C208", "DA40", "SR22"};
  dbase.buzjets = {"C56X", "GLEX", "CL60", "E55P", "LJ45"};
  dbase.large = {"A319", "A320", "A321", "A20N", "B737", "B738",
                 "B739", "B38M", "E190", "CRJ9", "AT76", "DH8D"};
  dbase.heavy = {"B744", "B748", "B772", "B77W", "B763", "B788", "B789", "A333", "A359", "A388", "MD11"};
  dbase.highPerf = {"F16", "EUFI", "F18H"};
  dbase.rotorcraft = {"EC35", "EC45", "R44", "AS50"};
  dbase.airlines = {"KLM", "DAL", "BAW", "AFR", "DLH", "UAE", "FDX", "UPS", "TRA", "EZY", "RYR", "SWR", "AAL",
                    "UAL", "SIA", "QFA", "CLX", "GTI", "AUA", "IBE", "THY", "ACA", "JBU", "ZZZ", "PVT"};
  dbase.similar = {{"A319", "A320", "A321", "A20N"},
                   {"B737", "B738", "B739", "B38M"},
                   {"B772", "B77W"},
                   {"B788", "B789"},
                   {"B744", "B748"},
                   {"C172", "PA28", "DA40", "SR22"},
                   {"EC35", "EC45"}};
  return dbase;
}

void installDatabase(const DbaseContent& dbase, const FixesContent& fixes) {
  lf_writeDbase(dbase);
  lf_writeFixes(fixes);
  readDbase();
  readFixes();
}

void clearDatabase() {
  clearDbase();
  clearFixes();
}

CfgSection section(std::string title, std::string codes, std::string atcId) {
  CfgSection made;
  made.title = std::move(title);
  made.codes = std::move(codes);
  made.atcId = std::move(atcId);
  return made;
}

void writeCfg(const fs::path& path, const CfgFile& file) {
  const std::string text = lf_cfgText(file);
  writeBytes(path, lf_encoded(text, file.encoding));
  if (!file.makeFolders) return;
  const fs::path folder = path.parent_path();
  for (const CfgSection& section : file.sections) {
    fs::create_directories(folder / lf_pathOf(section.model.empty() ? "model" : "model." + section.model));
    fs::create_directories(folder /
                           lf_pathOf(section.texture.empty() ? "texture" : "texture." + section.texture));
    writeBytes(folder / lf_pathOf(section.sim + ".air"), "AIR");
  }
}

TreeFacts generateSimObjects(const fs::path& root, const TreeShape& shape) {
  const DbaseContent dbase = worldDbase();
  const Kinds kinds = lf_worldKinds(dbase);
  std::mt19937 engine(shape.seed);
  const auto draw = [&engine](std::size_t count) { return static_cast<std::size_t>(engine() % count); };
  TreeFacts facts;
  for (std::size_t i = 0; i < shape.files; ++i) {
    const Fault fault = lf_faultOf(i, shape.faults);
    const std::string& type = kinds.types[draw(kinds.types.size())];
    CfgFile file;
    file.atcModel = fault == Fault::noAtcModel ? "" : type;
    file.encoding = fault == Fault::utf16 ? CfgEncoding::utf16 : CfgEncoding::utf8;
    const std::size_t count = 3 + draw(10);
    for (std::size_t s = 0; s < count; ++s) {
      const std::string& airline = kinds.airlines[draw(kinds.airlines.size())];
      CfgSection section;
      section.title =
          fmt::format("AI {} {} livery {}-{}{}", type, airline, i, s, draw(10) == 0 ? " CARGO" : "");
      section.codes = draw(6) == 0 ? fmt::format("{}, {}C", airline, airline) : airline;
      if (draw(3) == 0) section.atcId = fmt::format("T-{:05}{:c}", i, static_cast<char>('A' + s));
      section.texture = fmt::format("{}_{}", airline, s);
      section.sim = type;
      section.extraLines = {"ui_manufacturer=Generated",
                            "ui_type=" + type,
                            "ui_variation=" + airline,
                            "atc_airline=" + airline,
                            fmt::format("atc_flight_number={}", 100 + s),
                            "atc_parking_types=GATE,RAMP",
                            "description=A livery made for the tests"};
      file.sections.push_back(std::move(section));
    }
    const std::size_t victim = draw(count);
    if (fault == Fault::gap) file.sections.back().header = fmt::format("[fltsim.{}]", count + 1);
    if (fault == Fault::badAirline) file.sections[victim].codes = "XQZ";
    if (fault == Fault::doubleTitle && !facts.goodTitles.empty())
      file.sections[victim].title = *facts.goodTitles.begin();
    const std::string name = i % 10 == 3 ? "sim.cfg" : i % 10 == 5 ? "Aircraft.CFG" : "aircraft.cfg";
    const fs::path path =
        root /
        (dbase.rotorcraft.end() != std::find(dbase.rotorcraft.begin(), dbase.rotorcraft.end(), type)
             ? "Rotorcraft"
             : "Airplanes") /
        fmt::format("{}_{:05}", type, i) / name;
    writeCfg(path, file);
    if (fault == Fault::noTexture)
      fs::remove_all(path.parent_path() / ("texture." + file.sections[victim].texture));
    facts.files += 1;
    facts.bytes += fs::file_size(path);
    static const std::array<const char*, 7> faultNames{"",      "atc_model", "gap",    "texture",
                                                       "title", "",          "airline"};
    if (*faultNames[static_cast<std::size_t>(fault)] != '\0')
      facts.faultyFiles.emplace(pathText(path), faultNames[static_cast<std::size_t>(fault)]);
    if (fault == Fault::noAtcModel || fault == Fault::gap) {
      facts.invalidFiles += 1;
      continue;
    }
    facts.utf16Files += fault == Fault::utf16 ? 1 : 0;
    for (std::size_t s = 0; s < count; ++s) {
      const CfgSection& section = file.sections[s];
      if (s == victim && fault == Fault::noTexture) {
        facts.missingFolders += 1;
      } else if (s == victim && fault == Fault::badAirline) {
        facts.invalidAirlines += 1;
      } else if (!facts.goodTitles.insert(section.title).second) {
        facts.doubleTitles += 1;
      }
    }
  }
  return facts;
}

} // namespace ory::test
