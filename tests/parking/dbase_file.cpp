#include "dbase_file.h"

#include "liveries/dbase.h"
#include "liveries/scramble.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace ory::test {

namespace {

std::string lf_models(const std::vector<std::string>& codes) {
  std::string list;
  for (const std::string& code : codes)
    list += (list.empty() ? "" : ",") + scrambleModel(code);
  return list;
}

} // namespace

void loadDbase(const DbaseContent& content) {
  std::vector<std::string> types{"A320", "B738", "B744", "C172", "EC35", "F16", "C56X"};
  std::string records;
  for (const DbaseAirframe& frame : content.airframes) {
    records += fmt::format(R"(<db reg="{}" airl="{}" type="{}" opr="{}"/>)", scrambleRegcode(frame.reg),
                           frame.airl.empty() ? "" : scrambleAirline(frame.airl), scrambleModel(frame.type),
                           frame.opr.empty() ? "" : scrambleAirline(frame.opr));
    types.push_back(frame.type);
  }
  types.insert(types.end(), content.rotorcraft.begin(), content.rotorcraft.end());
  std::string publishers;
  for (const std::string& names : content.publishers)
    publishers += fmt::format(R"(<pub names="{}"/>)", names);
  writeBytes("input/dbase.xml",
             fmt::format(R"(<?xml version="1.0"?>
<aircrafts><aircraft types="{}"/></aircrafts>
<high_performance><hpf types="{}"/></high_performance>
<heavy><hvy types="{}"/></heavy>
<large><lar types="{}"/></large>
<buzjet><bzj types="{}"/></buzjet>
<rotorcraft><rot types="{}"/></rotorcraft>
<cargo_types><cargo_type types="{}"/></cargo_types>
<ICAO_airlines><ICAO codes="{}"/></ICAO_airlines>
<cargo_operators><ICAO codes="{}"/></cargo_operators>
<publishers>{}</publishers>
<dbase>{}</dbase>
)",
                         lf_models(types), lf_models({"F16"}), lf_models({"B744"}),
                         lf_models({"A320", "B738"}), lf_models({"C56X"}), lf_models(content.rotorcraft),
                         lf_models({"B744"}), scrambleAirline("KLM"), scrambleAirline("FDX"), publishers,
                         records));
  ASSERT_TRUE(readDbase());
}

} // namespace ory::test
