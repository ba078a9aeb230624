#pragma once
// The judge's input files. Each reader throws std::runtime_error with a message that names the file and what
// is wrong with it.

#include "judge.h"

#include <map>
#include <string>
#include <vector>

namespace ory {

struct Trace {
  std::vector<nlohmann::json> lines;
  std::vector<std::string> problems; // one text for each line that is not JSON, which is skipped
};

Trace readTrace(const std::string& path);
// The static CG (feet) of every title of a stand-in scenario.
std::map<std::string, double> readStaticCg(const std::string& scenarioPath);
// The stands of an airport file.
std::vector<Stand> readStands(const std::string& airportPath);
// "name:lat1,lon1,lat2,lon2[,width]": thresholds in degrees, width in metres.
Runway parseRunway(const std::string& text);

} // namespace ory
